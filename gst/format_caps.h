/* The caps the element takes and gives, and how an input's caps map to the
 * outputs it can give (and back). */
#ifndef GST_VIDEO_HDR_FORMAT_CAPS_H
#define GST_VIDEO_HDR_FORMAT_CAPS_H

#include <gst/gst.h>

G_BEGIN_DECLS

/* The pad templates' caps. */
GstCaps *gst_video_hdr_template_caps(void);

/* For each structure of `caps`: first itself, then the same with any of the
 * element's formats, intersected with `filter` (when not NULL) in its order. */
GstCaps *gst_video_hdr_other_side_caps(GstCaps *caps, GstCaps *filter);

G_END_DECLS

#endif /* GST_VIDEO_HDR_FORMAT_CAPS_H */
