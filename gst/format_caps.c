#include "format_caps.h"

#include <gst/video/video.h>

#include "videohdr.h"

/* The layouts the camera-plane entry point takes that GStreamer names: 4:2:0
 * with the chroma interleaved (either order) or in two planes (either order).
 * The list's order is the preference among outputs of another format than the
 * input's. */
#define GST_VIDEO_HDR_FORMATS "{ NV12, NV21, I420, YV12 }"

/* Those formats at even sizes (4:2:0 has one chroma pair per 2x2 pixels),
 * each side at most what the luma limit allows with the other side at its
 * smallest. The product is the library's to check: set_info refuses what it
 * does not take, with an error naming the limit. */
GstCaps *gst_video_hdr_template_caps(void) {
  GstCaps *caps = gst_caps_from_string("video/x-raw, format = (string) " GST_VIDEO_HDR_FORMATS
                                       ", framerate = " GST_VIDEO_FPS_RANGE);
  GValue even = G_VALUE_INIT;
  g_value_init(&even, GST_TYPE_INT_RANGE);
  gst_value_set_int_range_step(&even, 2, VIDEOHDR_MAX_LUMA_BYTES / 2, 2);
  gst_caps_set_value(caps, "width", &even);
  gst_caps_set_value(caps, "height", &even);
  g_value_unset(&even);
  return caps;
}

/* Only the format may differ between the two sides: the frames keep their
 * size, rate and colours, and a change of layout moves samples, nothing else.
 * The same format comes first, so that a downstream that takes the input's
 * gets it, and a writable frame can be fused in place; GstBaseTransform
 * takes the first of these that downstream accepts, in downstream's order. */
GstCaps *gst_video_hdr_other_side_caps(GstCaps *caps, GstCaps *filter) {
  GstCaps *formats = gst_caps_from_string("video/x-raw, format = (string) " GST_VIDEO_HDR_FORMATS);
  const GValue *any_format = gst_structure_get_value(gst_caps_get_structure(formats, 0), "format");
  GstCaps *result = gst_caps_new_empty();
  for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
    GstStructure *same = gst_structure_copy(gst_caps_get_structure(caps, i));
    GstStructure *other = gst_structure_copy(same);
    gst_structure_set_value(other, "format", any_format);
    GstCapsFeatures *features = gst_caps_get_features(caps, i);
    result = gst_caps_merge_structure_full(result, same,
                                           features ? gst_caps_features_copy(features) : NULL);
    result = gst_caps_merge_structure_full(result, other,
                                           features ? gst_caps_features_copy(features) : NULL);
  }
  gst_caps_unref(formats);
  if (!filter) return result;
  GstCaps *filtered = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
  gst_caps_unref(result);
  return filtered;
}
