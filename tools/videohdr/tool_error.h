// The one error type of the tool: a message for the user, printed as one line
// by main() before it exits with status 1.
#ifndef VIDEOHDR_TOOL_ERROR_H
#define VIDEOHDR_TOOL_ERROR_H

#include <stdexcept>
#include <string>

namespace vhtool {

class ToolError : public std::runtime_error {
 public:
  explicit ToolError(const std::string &message) : std::runtime_error(message) {}
};

// Text from the input made fit for a one-line message: bytes outside
// printable ASCII as \xNN, and cut after `limit` bytes with "...".
std::string quoted(const std::string &text, size_t limit = 32);

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_ERROR_H
