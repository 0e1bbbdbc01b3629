#include "frame_copy.h"

#include <string.h>

static void gst_video_hdr_copy_chroma(const guint8 *in, gint in_stride, gint in_pixel_stride,
                                      guint8 *out, gint out_stride, gint out_pixel_stride,
                                      gint samples, gint rows) {
  for (gint r = 0; r < rows; ++r) {
    const guint8 *from = in + (gsize)r * in_stride;
    guint8 *to = out + (gsize)r * out_stride;
    for (gint x = 0; x < samples; ++x) to[x * out_pixel_stride] = from[x * in_pixel_stride];
  }
}

void gst_video_hdr_copy_planes(const GstVideoHdrPlaneSet *in, const GstVideoHdrPlaneSet *out) {
  for (gint r = 0; r < in->height; ++r)
    memcpy(out->y + (gsize)r * out->y_stride, in->y + (gsize)r * in->y_stride, in->width);
  gst_video_hdr_copy_chroma(in->u, in->uv_stride, in->uv_pixel_stride, out->u, out->uv_stride,
                            out->uv_pixel_stride, in->width / 2, in->height / 2);
  gst_video_hdr_copy_chroma(in->v, in->uv_stride, in->uv_pixel_stride, out->v, out->uv_stride,
                            out->uv_pixel_stride, in->width / 2, in->height / 2);
}
