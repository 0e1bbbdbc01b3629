// Logging through the Android log: liblog's __android_log_print. On Android
// that is liblog; on other hosts libvideohdr_log (log/), a stand-in with the
// same header and call, which the library links in its place.
#ifndef VIDEOHDR_HDR_LOG_H
#define VIDEOHDR_HDR_LOG_H

#include <android/log.h>

namespace videohdr {
constexpr const char *kLogTag = "VideoHDR";
}

#endif  // VIDEOHDR_HDR_LOG_H
