/*
 * videohdr: the GStreamer element. Fuses NV12/NV21 video shot with
 * alternating exposures in place, frame by frame, through the camera-plane
 * entry point (videohdr_planes.h).
 */
#ifndef GST_VIDEO_HDR_H
#define GST_VIDEO_HDR_H

#include <gst/video/gstvideofilter.h>

G_BEGIN_DECLS

#define GST_TYPE_VIDEO_HDR (gst_video_hdr_get_type())
G_DECLARE_FINAL_TYPE(GstVideoHdr, gst_video_hdr, GST, VIDEO_HDR, GstVideoFilter)

G_END_DECLS

#endif /* GST_VIDEO_HDR_H */
