/* A mapped video frame's planes, checked, and through the camera-plane entry
 * point, timed. */
#ifndef GST_VIDEO_HDR_FRAME_PLANES_H
#define GST_VIDEO_HDR_FRAME_PLANES_H

#include <gst/video/video.h>

#include "videohdr_planes.h"

G_BEGIN_DECLS

/* A 4:2:0 frame's planes as the camera-plane entry point takes them. */
typedef struct {
  guint8 *y, *u, *v;
  gint y_stride, uv_stride, uv_pixel_stride;
  gint width, height;
} GstVideoHdrPlaneSet;

/* Fills `planes` with `frame`'s (NV12, NV21, I420 or YV12) at the offsets and
 * strides its video meta gives, for a picture of width x height (the caps'
 * size). Answers NULL, or what keeps the frame from being read or written
 * safely: strides the entry point does not take, or a plane that runs past
 * the end of the memory holding it. */
const char *gst_video_hdr_frame_planes(GstVideoFrame *frame, gint width, gint height,
                                       GstVideoHdrPlaneSet *planes);

/* Fuses `in` into `out` (the same planes: in place) and fills `result`;
 * `library_time` receives the nanoseconds spent in the library (monotonic
 * clock). Answers result->status. */
gint32 gst_video_hdr_process_planes(VideoHdrPlanes *state, const GstVideoHdrPlaneSet *in,
                                    const GstVideoHdrPlaneSet *out, VideoHdrPlanesResult *result,
                                    GstClockTime *library_time);

G_END_DECLS

#endif /* GST_VIDEO_HDR_FRAME_PLANES_H */
