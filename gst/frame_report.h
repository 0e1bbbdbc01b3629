/* The element message `videohdr` that tells what the library did with a
 * frame (the README lists its fields). */
#ifndef GST_VIDEO_HDR_FRAME_REPORT_H
#define GST_VIDEO_HDR_FRAME_REPORT_H

#include <gst/gst.h>

#include "videohdr_planes.h"

G_BEGIN_DECLS

/* `frame` counts the frames of the sequence (0: the frame that primed it);
 * `timestamp` is the buffer's PTS. */
GstMessage *gst_video_hdr_report_new(GstObject *source, guint64 frame, GstClockTime timestamp,
                                     const VideoHdrPlanesResult *result, GstClockTime library_time);

G_END_DECLS

#endif /* GST_VIDEO_HDR_FRAME_REPORT_H */
