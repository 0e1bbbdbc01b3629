// Implementation arrives with its operation.
