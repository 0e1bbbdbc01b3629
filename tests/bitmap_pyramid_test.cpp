// Tests arrive with the code they cover.
