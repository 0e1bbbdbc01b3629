// Logging through the Android log. On Android this is liblog's
// __android_log_print; elsewhere the library carries a small stand-in with the
// same signature that writes each line to stderr (or to a sink the tests set).
#ifndef VIDEOHDR_HDR_LOG_H
#define VIDEOHDR_HDR_LOG_H

#ifdef __ANDROID__
#include <android/log.h>
#else
enum {
  ANDROID_LOG_INFO = 4,
  ANDROID_LOG_WARN = 5,
  ANDROID_LOG_ERROR = 6,
};
extern "C" int __android_log_print(int prio, const char *tag, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));

namespace videohdr {
// Receives every formatted line instead of stderr while set (null restores
// stderr). Tests use it to compare the lines byte for byte.
using LogSink = void (*)(int prio, const char *tag, const char *message);
void setLogSink(LogSink sink);
}  // namespace videohdr
#endif

namespace videohdr {
constexpr const char *kLogTag = "VideoHDR";
}

#endif  // VIDEOHDR_HDR_LOG_H
