// Stand-in for liblog on hosts other than Android. Kept out of the shared
// library's exported symbols so that it never shadows a real liblog.
#ifndef __ANDROID__
#include "hdr_log.h"

#include <cstdarg>
#include <cstdio>

namespace videohdr {
namespace {
LogSink g_sink = nullptr;

char priorityLetter(int prio) {
  switch (prio) {
    case ANDROID_LOG_INFO:
      return 'I';
    case ANDROID_LOG_WARN:
      return 'W';
    case ANDROID_LOG_ERROR:
      return 'E';
    default:
      return prio < ANDROID_LOG_INFO ? 'D' : 'F';
  }
}
}  // namespace

void setLogSink(LogSink sink) { g_sink = sink; }
}  // namespace videohdr

extern "C" int __android_log_print(int prio, const char *tag, const char *fmt, ...) {
  char message[1024];
  va_list args;
  va_start(args, fmt);
  int n = std::vsnprintf(message, sizeof message, fmt, args);
  va_end(args);
  if (videohdr::g_sink) {
    videohdr::g_sink(prio, tag, message);
  } else {
    std::fprintf(stderr, "%c/%s: %s\n", videohdr::priorityLetter(prio), tag, message);
  }
  return n;
}
#endif
