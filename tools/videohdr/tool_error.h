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

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_ERROR_H
