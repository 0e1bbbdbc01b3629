/* The library's log lines (liblog's on Android) in GStreamer's debug log. */
#ifndef GST_VIDEO_HDR_LIBRARY_LOG_H
#define GST_VIDEO_HDR_LIBRARY_LOG_H

#include <gst/gst.h>

G_BEGIN_DECLS

/* Registers the debug category "videohdr-library"; before the first frame. */
void gst_video_hdr_library_log_init(void);

G_END_DECLS

#endif /* GST_VIDEO_HDR_LIBRARY_LOG_H */
