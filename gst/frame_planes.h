/* One mapped video frame through the camera-plane entry point, timed. */
#ifndef GST_VIDEO_HDR_FRAME_PLANES_H
#define GST_VIDEO_HDR_FRAME_PLANES_H

#include <gst/video/video.h>

#include "videohdr_planes.h"

G_BEGIN_DECLS

/* Processes `frame` (NV12 or NV21, mapped for writing) in place and fills
 * `result`; `library_time` receives the nanoseconds spent in the library
 * (monotonic clock). Answers result->status. */
gint32 gst_video_hdr_process_frame(VideoHdrPlanes *planes, GstVideoFrame *frame,
                                   VideoHdrPlanesResult *result, GstClockTime *library_time);

G_END_DECLS

#endif /* GST_VIDEO_HDR_FRAME_PLANES_H */
