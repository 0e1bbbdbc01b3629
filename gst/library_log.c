#include "library_log.h"

#include <stdarg.h>

GST_DEBUG_CATEGORY_STATIC(library_debug);

void gst_video_hdr_library_log_init(void) {
  GST_DEBUG_CATEGORY_INIT(library_debug, "videohdr-library", 0,
                          "the videohdr library's own log lines");
}

/* liblog's priorities (VERBOSE 2 ... FATAL 7) as GStreamer's levels. */
static GstDebugLevel level_of(int priority) {
  static const GstDebugLevel levels[] = {GST_LEVEL_LOG,     GST_LEVEL_DEBUG, GST_LEVEL_INFO,
                                         GST_LEVEL_WARNING, GST_LEVEL_ERROR, GST_LEVEL_ERROR};
  return levels[CLAMP(priority, 2, 7) - 2];
}

/* liblog's signature: defined here, in the module that carries the static
 * library, it takes the place of liblog's stand-in libvideohdr_log, which
 * writes to stderr. The tag is always the library's; the category names it. The line
 * is formatted only when the category's threshold lets it through. */
int __android_log_print(int priority, const char *tag, const char *format, ...) {
  (void)tag;
  va_list args;
  va_start(args, format);
  gst_debug_log_valist(library_debug, level_of(priority), __FILE__, G_STRFUNC, __LINE__, NULL,
                       format, args);
  va_end(args);
  return 0;
}
