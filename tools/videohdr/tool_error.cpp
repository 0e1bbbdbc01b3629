#include "tool_error.h"

#include <cstdio>

namespace vhtool {

std::string quoted(const std::string &text, size_t limit) {
  std::string out;
  for (size_t i = 0; i < text.size() && i < limit; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c < 0x7f) {
      out.push_back(static_cast<char>(c));
      continue;
    }
    char escaped[5];
    std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
    out += escaped;
  }
  if (text.size() > limit) out += "...";
  return out;
}

}  // namespace vhtool
