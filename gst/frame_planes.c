#include "frame_planes.h"

/* The memory mapped for the plane holding component `comp`: with a video
 * meta each plane is mapped on its own; without one the whole buffer is, once,
 * and GStreamer has checked that it holds the caps' frame. */
static const GstMapInfo *gst_video_hdr_plane_map(const GstVideoFrame *frame, gint comp) {
  return frame->meta ? &frame->map[GST_VIDEO_FRAME_COMP_PLANE(frame, comp)] : &frame->map[0];
}

/* GStreamer maps the memory a video meta's plane offset falls into, but does
 * not check that the plane's rows end inside it: a meta with an offset or a
 * stride too large for the buffer would have the library read and write past
 * the memory. */
static gboolean gst_video_hdr_inside_map(const guint8 *first, gint64 bytes, const GstMapInfo *map) {
  const guintptr start = (guintptr)map->data, at = (guintptr)first;
  return at >= start && at - start <= map->size && (guint64)bytes <= map->size - (at - start);
}

const char *gst_video_hdr_frame_planes(GstVideoFrame *frame, gint width, gint height,
                                       GstVideoHdrPlaneSet *planes) {
  /* The component accessors point at each chroma component's first sample
   * (V before U for NV21, in the plane that comes first for YV12): the entry
   * point keeps the order of interleaved chroma and packs planar chroma U
   * first, as the tool's reader does. */
  *planes = (GstVideoHdrPlaneSet){
      .y = GST_VIDEO_FRAME_COMP_DATA(frame, GST_VIDEO_COMP_Y),
      .u = GST_VIDEO_FRAME_COMP_DATA(frame, GST_VIDEO_COMP_U),
      .v = GST_VIDEO_FRAME_COMP_DATA(frame, GST_VIDEO_COMP_V),
      .y_stride = GST_VIDEO_FRAME_COMP_STRIDE(frame, GST_VIDEO_COMP_Y),
      .uv_stride = GST_VIDEO_FRAME_COMP_STRIDE(frame, GST_VIDEO_COMP_U),
      .uv_pixel_stride = GST_VIDEO_FRAME_COMP_PSTRIDE(frame, GST_VIDEO_COMP_U),
      .width = width,
      .height = height};
  gint64 y_bytes, uv_bytes;
  const gint32 status =
      videohdr_planes_plane_bytes(width, height, planes->y_stride, planes->uv_stride,
                                  planes->uv_pixel_stride, &y_bytes, &uv_bytes);
  if (status != VIDEOHDR_PLANES_OK) return videohdr_planes_status_text(status);
  const guint8 *first[] = {planes->y, planes->u, planes->v};
  for (gint comp = GST_VIDEO_COMP_Y; comp <= GST_VIDEO_COMP_V; ++comp) {
    if (!gst_video_hdr_inside_map(first[comp], comp == GST_VIDEO_COMP_Y ? y_bytes : uv_bytes,
                                  gst_video_hdr_plane_map(frame, comp)))
      return "a plane runs past the end of the memory holding it";
  }
  return NULL;
}

gint32 gst_video_hdr_process_planes(VideoHdrPlanes *state, const GstVideoHdrPlaneSet *in,
                                    const GstVideoHdrPlaneSet *out, VideoHdrPlanesResult *result,
                                    GstClockTime *library_time) {
  /* Given the same planes as input and output, the entry point works in
   * place: one call serves both paths. */
  const GstClockTime start = gst_util_get_timestamp();
  videohdr_planes_process_to(state, in->y, in->y_stride, in->u, in->v, in->uv_stride,
                             in->uv_pixel_stride, out->y, out->y_stride, out->u, out->v,
                             out->uv_stride, out->uv_pixel_stride, in->width, in->height, result);
  *library_time = gst_util_get_timestamp() - start;
  return result->status;
}
