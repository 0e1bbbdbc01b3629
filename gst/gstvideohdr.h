/*
 * videohdr: the GStreamer element. Fuses 4:2:0 video (NV12, NV21, I420,
 * YV12) shot with alternating exposures, frame by frame, through the
 * camera-plane entry point (videohdr_planes.h): in place where it can, else
 * from the read-only input into the output.
 */
#ifndef GST_VIDEO_HDR_H
#define GST_VIDEO_HDR_H

#include <gst/video/gstvideofilter.h>

G_BEGIN_DECLS

#define GST_TYPE_VIDEO_HDR (gst_video_hdr_get_type())
G_DECLARE_FINAL_TYPE(GstVideoHdr, gst_video_hdr, GST, VIDEO_HDR, GstVideoFilter)

G_END_DECLS

#endif /* GST_VIDEO_HDR_H */
