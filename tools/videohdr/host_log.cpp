#include "host_log.h"

#include <cstdarg>
#include <cstdio>

namespace vhtool {
namespace {
bool g_echo = false;
}
void echoLibraryLog(bool on) { g_echo = on; }
}  // namespace vhtool

// liblog's signature. Defined here, it takes the place of libvideohdr_log,
// liblog's stderr stand-in, when the tool links the static library.
extern "C" int __android_log_print(int prio, const char *tag, const char *fmt, ...) {
  if (!vhtool::g_echo) return 0;
  std::fprintf(stderr, "%d/%s: ", prio, tag);
  va_list args;
  va_start(args, fmt);
  const int n = std::vfprintf(stderr, fmt, args);
  va_end(args);
  std::fputc('\n', stderr);
  return n;
}
