/*
 * The videohdr element: a GstVideoFilter that hands every frame's planes, as
 * the mapped buffer lays them out, to the camera-plane entry point, which
 * fuses the frame with the previous one in place.
 *
 * The library's state holds the previous frame, so everything that breaks the
 * run of consecutive frames starts a new sequence whose first frame only
 * primes the state and passes unchanged: caps that change, a flush, and
 * re-enabling after frames went by untouched. A discontinuity alone (a
 * camera that dropped a frame) does not: the frame before the gap still
 * aligns and fuses, where a new sequence would show one exposure unfused.
 */
#include "gstvideohdr.h"

#include "frame_planes.h"
#include "frame_report.h"
#include "videohdr_planes.h"

GST_DEBUG_CATEGORY_STATIC(gst_video_hdr_debug);
#define GST_CAT_DEFAULT gst_video_hdr_debug

struct _GstVideoHdr {
  GstVideoFilter parent;

  /* Under the object lock: properties are set from any thread. */
  gboolean enabled;
  gboolean post_messages;
  /* Set by a flush or by re-enabling; the streaming thread starts the new
   * sequence at its next frame, so the state is never replaced under it. */
  gboolean restart_pending;

  /* The streaming thread's (set_info, transform_frame_ip, stop). */
  VideoHdrPlanes *planes;
  guint64 frame; /* frames of the sequence so far */
  /* The size whose refusal was posted last, 0 x 0 for none: GstBaseTransform
   * configures caps it failed to take again when the next buffer comes, and
   * one refused size is one error on the bus, not one per attempt. */
  gint refused_width, refused_height;
};

enum { PROP_0, PROP_ENABLED, PROP_POST_MESSAGES };

G_DEFINE_TYPE(GstVideoHdr, gst_video_hdr, GST_TYPE_VIDEO_FILTER)

/* NV12 or NV21 of even sizes (4:2:0 has one chroma pair per 2x2 pixels), each
 * side at most what the luma limit allows with the other side at its
 * smallest. The product is the library's to check: set_info refuses what it
 * does not take, with an error naming the limit. */
static GstCaps *gst_video_hdr_caps(void) {
  GstCaps *caps = gst_caps_from_string(
      "video/x-raw, format = (string) { NV12, NV21 }, framerate = " GST_VIDEO_FPS_RANGE);
  GValue even = G_VALUE_INIT;
  g_value_init(&even, GST_TYPE_INT_RANGE);
  gst_value_set_int_range_step(&even, 2, VIDEOHDR_MAX_LUMA_BYTES / 2, 2);
  gst_caps_set_value(caps, "width", &even);
  gst_caps_set_value(caps, "height", &even);
  g_value_unset(&even);
  return caps;
}

static void gst_video_hdr_release_state(GstVideoHdr *self) {
  videohdr_planes_destroy(self->planes);
  self->planes = NULL;
}

/* A fresh state for frames of `info`'s size: its next frame primes it. */
static gboolean gst_video_hdr_start_sequence(GstVideoHdr *self, const GstVideoInfo *info) {
  const gint width = GST_VIDEO_INFO_WIDTH(info), height = GST_VIDEO_INFO_HEIGHT(info);
  gst_video_hdr_release_state(self);
  GST_OBJECT_LOCK(self);
  self->restart_pending = FALSE;
  GST_OBJECT_UNLOCK(self);
  self->frame = 0;
  const gint32 status = videohdr_planes_create(width, height, &self->planes);
  const gboolean posted = width == self->refused_width && height == self->refused_height;
  self->refused_width = status == VIDEOHDR_PLANES_OK ? 0 : width;
  self->refused_height = status == VIDEOHDR_PLANES_OK ? 0 : height;
  if (status != VIDEOHDR_PLANES_OK) {
    if (posted) {
      GST_DEBUG_OBJECT(self, "%dx%d refused again", width, height);
    } else {
      GST_ELEMENT_ERROR(
          self, STREAM, FORMAT,
          ("Cannot process %dx%d frames: %s", width, height, videohdr_planes_status_text(status)),
          (NULL));
    }
    return FALSE;
  }
  GST_DEBUG_OBJECT(self, "new sequence of %dx%d frames", width, height);
  return TRUE;
}

static void gst_video_hdr_request_restart(GstVideoHdr *self, const char *why) {
  GST_DEBUG_OBJECT(self, "%s: the next frame starts a new sequence", why);
  GST_OBJECT_LOCK(self);
  self->restart_pending = TRUE;
  GST_OBJECT_UNLOCK(self);
}

static gboolean gst_video_hdr_set_info(GstVideoFilter *filter, GstCaps *incaps,
                                       GstVideoInfo *in_info, GstCaps *outcaps,
                                       GstVideoInfo *out_info) {
  GstVideoHdr *self = GST_VIDEO_HDR(filter);
  (void)incaps, (void)outcaps, (void)out_info;
  if (!gst_video_hdr_start_sequence(self, in_info)) return FALSE;
  if (GST_VIDEO_INFO_WIDTH(in_info) < VIDEOHDR_MIN_SEARCH_WIDTH) {
    GST_ELEMENT_WARNING(
        self, STREAM, FORMAT,
        ("Frames narrower than %d pixels are fused without alignment", VIDEOHDR_MIN_SEARCH_WIDTH),
        ("the width is %d", GST_VIDEO_INFO_WIDTH(in_info)));
  }
  return TRUE;
}

static GstFlowReturn gst_video_hdr_transform_frame_ip(GstVideoFilter *filter,
                                                      GstVideoFrame *frame) {
  GstVideoHdr *self = GST_VIDEO_HDR(filter);
  GST_OBJECT_LOCK(self);
  const gboolean restart = self->restart_pending;
  const gboolean post = self->post_messages;
  GST_OBJECT_UNLOCK(self);
  if (restart && !gst_video_hdr_start_sequence(self, &filter->in_info)) return GST_FLOW_ERROR;

  VideoHdrPlanesResult result;
  GstClockTime library_time;
  const gint32 status = gst_video_hdr_process_frame(self->planes, frame, &result, &library_time);
  if (status != VIDEOHDR_PLANES_PROCESSED && status != VIDEOHDR_PLANES_PRIMED) {
    GST_ELEMENT_ERROR(self, STREAM, FAILED,
                      ("The library did not take frame %" G_GUINT64_FORMAT " of the sequence: %s",
                       self->frame, videohdr_planes_status_text(status)),
                      (NULL));
    return GST_FLOW_ERROR;
  }
  if (post) {
    gst_element_post_message(
        GST_ELEMENT(self),
        gst_video_hdr_report_new(GST_OBJECT(self), self->frame, GST_BUFFER_PTS(frame->buffer),
                                 &result, library_time));
  }
  self->frame++;
  return GST_FLOW_OK;
}

static gboolean gst_video_hdr_sink_event(GstBaseTransform *trans, GstEvent *event) {
  /* After a flush (a seek, say) the next frame does not follow the last one. */
  if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP)
    gst_video_hdr_request_restart(GST_VIDEO_HDR(trans), "flushed");
  return GST_BASE_TRANSFORM_CLASS(gst_video_hdr_parent_class)->sink_event(trans, event);
}

static gboolean gst_video_hdr_stop(GstBaseTransform *trans) {
  GstVideoHdr *self = GST_VIDEO_HDR(trans);
  gst_video_hdr_release_state(self);
  /* A pipeline started again reports a refused size again. */
  self->refused_width = self->refused_height = 0;
  return TRUE;
}

static void gst_video_hdr_set_enabled(GstVideoHdr *self, gboolean enabled) {
  GST_OBJECT_LOCK(self);
  const gboolean was_enabled = self->enabled;
  self->enabled = enabled;
  GST_OBJECT_UNLOCK(self);
  /* The frames that pass by untouched never reach the library: the previous
   * frame its state holds is stale by the time it is enabled again, and
   * fusing with it would show a ghost of the past. */
  if (enabled && !was_enabled) gst_video_hdr_request_restart(self, "enabled");
  gst_base_transform_set_passthrough(GST_BASE_TRANSFORM(self), !enabled);
}

static void gst_video_hdr_set_property(GObject *object, guint id, const GValue *value,
                                       GParamSpec *pspec) {
  GstVideoHdr *self = GST_VIDEO_HDR(object);
  switch (id) {
    case PROP_ENABLED:
      gst_video_hdr_set_enabled(self, g_value_get_boolean(value));
      break;
    case PROP_POST_MESSAGES:
      GST_OBJECT_LOCK(self);
      self->post_messages = g_value_get_boolean(value);
      GST_OBJECT_UNLOCK(self);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void gst_video_hdr_get_property(GObject *object, guint id, GValue *value,
                                       GParamSpec *pspec) {
  GstVideoHdr *self = GST_VIDEO_HDR(object);
  GST_OBJECT_LOCK(self);
  switch (id) {
    case PROP_ENABLED:
      g_value_set_boolean(value, self->enabled);
      break;
    case PROP_POST_MESSAGES:
      g_value_set_boolean(value, self->post_messages);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
  GST_OBJECT_UNLOCK(self);
}

static void gst_video_hdr_install_properties(GObjectClass *object_class) {
  const GParamFlags flags = G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING;
  g_object_class_install_property(
      object_class, PROP_ENABLED,
      g_param_spec_boolean("enabled", "Enabled",
                           "Fuse the frames; when false they pass through untouched, and "
                           "enabling again starts a new sequence (its first frame primes)",
                           TRUE, flags));
  g_object_class_install_property(
      object_class, PROP_POST_MESSAGES,
      g_param_spec_boolean("post-messages", "Post messages",
                           "Post a 'videohdr' element message for every frame the library takes: "
                           "frame number, found and applied shift, brighter exposure, time spent",
                           FALSE, flags));
}

static void gst_video_hdr_add_pad_templates(GstElementClass *element_class) {
  GstCaps *caps = gst_video_hdr_caps();
  gst_element_class_add_pad_template(
      element_class, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, caps));
  gst_element_class_add_pad_template(
      element_class, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
  gst_caps_unref(caps);
}

static void gst_video_hdr_class_init(GstVideoHdrClass *klass) {
  GObjectClass *object_class = G_OBJECT_CLASS(klass);
  GstElementClass *element_class = GST_ELEMENT_CLASS(klass);
  GstBaseTransformClass *trans_class = GST_BASE_TRANSFORM_CLASS(klass);
  GstVideoFilterClass *filter_class = GST_VIDEO_FILTER_CLASS(klass);

  GST_DEBUG_CATEGORY_INIT(gst_video_hdr_debug, "videohdr", 0,
                          "HDR video from alternating exposures");
  object_class->set_property = gst_video_hdr_set_property;
  object_class->get_property = gst_video_hdr_get_property;
  gst_video_hdr_install_properties(object_class);

  gst_video_hdr_add_pad_templates(element_class);
  gst_element_class_set_static_metadata(
      element_class, "Video HDR", "Filter/Effect/Video",
      "Fuses video shot with alternating exposures into HDR video in place: aligns the previous "
      "frame to each new one and blends the two exposures",
      "The videohdr developers");

  trans_class->sink_event = gst_video_hdr_sink_event;
  trans_class->stop = gst_video_hdr_stop;
  /* Otherwise GstVideoFilter hands pass-through frames to transform_frame_ip
   * too, mapped read-only. */
  trans_class->transform_ip_on_passthrough = FALSE;
  filter_class->set_info = gst_video_hdr_set_info;
  filter_class->transform_frame_ip = gst_video_hdr_transform_frame_ip;
}

static void gst_video_hdr_init(GstVideoHdr *self) {
  self->enabled = TRUE;
  /* Dropping a late frame would break the alternation of exposures: every
   * frame is processed, late or not. */
  gst_base_transform_set_qos_enabled(GST_BASE_TRANSFORM(self), FALSE);
}
