/*
 * For tests of programs linked with the static libvideohdr_log: while a sink
 * is set, every line the stand-in gets goes to it, formatted, instead of
 * stderr, whatever ANDROID_LOG_TAGS says, so that tests compare the library's
 * lines byte for byte in any environment. Not exported by the shared library.
 */
#ifndef VIDEOHDR_LOG_SINK_H
#define VIDEOHDR_LOG_SINK_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*VideoHdrLogSink)(int prio, const char *tag, const char *message);

/* Null returns the lines to stderr. */
void videohdr_log_set_sink(VideoHdrLogSink sink);

#ifdef __cplusplus
} /* extern "C" */

namespace videohdr {
using LogSink = VideoHdrLogSink;
inline void setLogSink(LogSink sink) { videohdr_log_set_sink(sink); }
}  // namespace videohdr
#endif

#endif /* VIDEOHDR_LOG_SINK_H */
