#include "frame_planes.h"

gint32 gst_video_hdr_process_frame(VideoHdrPlanes *planes, GstVideoFrame *frame,
                                   VideoHdrPlanesResult *result, GstClockTime *library_time) {
  /* The component accessors honour the buffer's GstVideoMeta (padded rows,
   * planes in separate memories) and point at each chroma component's first
   * sample, V before U for NV21. The entry point keeps the order of
   * interleaved chroma, so NV21 gives the bytes the library gives on NV21
   * frames, as the tool does. */
  guint8 *y = GST_VIDEO_FRAME_COMP_DATA(frame, GST_VIDEO_COMP_Y);
  guint8 *u = GST_VIDEO_FRAME_COMP_DATA(frame, GST_VIDEO_COMP_U);
  guint8 *v = GST_VIDEO_FRAME_COMP_DATA(frame, GST_VIDEO_COMP_V);
  const GstClockTime start = gst_util_get_timestamp();
  videohdr_planes_process(planes, y, GST_VIDEO_FRAME_COMP_STRIDE(frame, GST_VIDEO_COMP_Y), u, v,
                          GST_VIDEO_FRAME_COMP_STRIDE(frame, GST_VIDEO_COMP_U),
                          GST_VIDEO_FRAME_COMP_PSTRIDE(frame, GST_VIDEO_COMP_U),
                          GST_VIDEO_FRAME_WIDTH(frame), GST_VIDEO_FRAME_HEIGHT(frame), result);
  *library_time = gst_util_get_timestamp() - start;
  return result->status;
}
