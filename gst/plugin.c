/* The plugin module: registers the videohdr element. */
#include <gst/gst.h>

#include "gstvideohdr.h"
#include "library_log.h"

/* GST_PLUGIN_DEFINE names the source module after PACKAGE, which build
 * systems of the autotools kind define. */
#define PACKAGE "videohdr"

static gboolean plugin_init(GstPlugin *plugin) {
  gst_video_hdr_library_log_init();
  return gst_element_register(plugin, "videohdr", GST_RANK_NONE, GST_TYPE_VIDEO_HDR);
}

/* The project states no licence, so the plugin claims none of the free ones
 * GStreamer knows: "Proprietary" is the one of its accepted strings that
 * says so. */
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, videohdr,
                  "HDR video from alternating exposures", plugin_init, VIDEOHDR_VERSION,
                  "Proprietary", "videohdr", "Unknown package origin")
