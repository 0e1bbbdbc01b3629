/* A frame's samples into another 4:2:0 layout, unfused. */
#ifndef GST_VIDEO_HDR_FRAME_COPY_H
#define GST_VIDEO_HDR_FRAME_COPY_H

#include "frame_planes.h"

G_BEGIN_DECLS

/* Copies every luma sample and every U and V sample of `in` to its place in
 * `out` (same size; any pixel strides, either chroma order). Only samples are
 * written. */
void gst_video_hdr_copy_planes(const GstVideoHdrPlaneSet *in, const GstVideoHdrPlaneSet *out);

G_END_DECLS

#endif /* GST_VIDEO_HDR_FRAME_COPY_H */
