/*
 * The videohdr element: a GstVideoFilter that hands every frame's planes, as
 * the mapped buffers lay them out, to the camera-plane entry point, which
 * fuses the frame with the previous one.
 *
 * Per buffer: a writable input of the output's format is fused where it lies
 * (transform_frame_ip); any other input (one that is not writable, as a
 * v4l2src or DMABuf buffer often is, or one of another format than the
 * output) is fused from its read-only frame into the output frame
 * (transform_frame). The bytes are the same either way; the second path
 * saves the copy GStreamer would otherwise make of a read-only input.
 *
 * The library's state holds the previous frame, so everything that breaks the
 * run of consecutive input frames starts a new sequence whose first frame
 * only primes the state and passes unchanged: input caps that change, a
 * flush, a new stream, and re-enabling after frames went by untouched. The
 * state is restarted then, not made again, unless the size changes. A
 * discontinuity alone (a camera that dropped a frame) does not: the frame
 * before the gap still aligns and fuses, where a new sequence would show one
 * exposure unfused. Neither do output caps that change alone: the input
 * frames still follow each other.
 */
#include "gstvideohdr.h"

#include "format_caps.h"
#include "frame_copy.h"
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
  /* Set by a flush, a new stream or re-enabling; the streaming thread starts
   * the new sequence at its next frame, so the state is never replaced under
   * it. */
  gboolean restart_pending;

  /* The streaming thread's (set_info, the transforms, stop). */
  gboolean same_formats; /* the output caps have the input's format */
  gboolean frame_mapped; /* see gst_video_hdr_transform */
  VideoHdrPlanes *planes;
  guint64 frame; /* frames of the sequence so far */
  /* The size whose refusal was posted last, 0 x 0 for none: GstBaseTransform
   * configures caps it failed to take again when the next buffer comes, and
   * one refused size is one error on the bus, not one per attempt. */
  gint refused_width, refused_height;
};

enum { PROP_0, PROP_ENABLED, PROP_POST_MESSAGES };

G_DEFINE_TYPE(GstVideoHdr, gst_video_hdr, GST_TYPE_VIDEO_FILTER)

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

/* The same state, a new sequence: its next frame primes it again, as a new
 * state's first frame does, and nothing is allocated. */
static void gst_video_hdr_restart_sequence(GstVideoHdr *self) {
  GST_OBJECT_LOCK(self);
  self->restart_pending = FALSE;
  GST_OBJECT_UNLOCK(self);
  self->frame = 0;
  videohdr_planes_restart(self->planes);
  GST_DEBUG_OBJECT(self, "new sequence");
}

static gboolean gst_video_hdr_set_info(GstVideoFilter *filter, GstCaps *incaps,
                                       GstVideoInfo *in_info, GstCaps *outcaps,
                                       GstVideoInfo *out_info) {
  GstVideoHdr *self = GST_VIDEO_HDR(filter);
  (void)incaps, (void)outcaps;
  self->same_formats = GST_VIDEO_INFO_FORMAT(in_info) == GST_VIDEO_INFO_FORMAT(out_info);
  /* The state of a previous negotiation (filter->in_info's) takes frames of
   * its size. Other input caps of that size break the run of frames; output
   * caps that change alone do not. */
  if (self->planes && GST_VIDEO_INFO_WIDTH(in_info) == GST_VIDEO_INFO_WIDTH(&filter->in_info) &&
      GST_VIDEO_INFO_HEIGHT(in_info) == GST_VIDEO_INFO_HEIGHT(&filter->in_info)) {
    if (!gst_video_info_is_equal(in_info, &filter->in_info)) gst_video_hdr_restart_sequence(self);
    return TRUE;
  }
  if (!gst_video_hdr_start_sequence(self, in_info)) return FALSE;
  if (GST_VIDEO_INFO_WIDTH(in_info) < VIDEOHDR_MIN_SEARCH_WIDTH) {
    GST_ELEMENT_WARNING(
        self, STREAM, FORMAT,
        ("Frames narrower than %d pixels are fused without alignment", VIDEOHDR_MIN_SEARCH_WIDTH),
        ("the width is %d", GST_VIDEO_INFO_WIDTH(in_info)));
  }
  return TRUE;
}

/* While disabled the frames pass through untouched where the output has the
 * input's format; otherwise each is copied into the output's layout. Applied
 * here, on the streaming thread, before each buffer. */
static void gst_video_hdr_before_transform(GstBaseTransform *trans, GstBuffer *buffer) {
  GstVideoHdr *self = GST_VIDEO_HDR(trans);
  (void)buffer;
  GST_OBJECT_LOCK(self);
  const gboolean passthrough = !self->enabled && self->same_formats;
  GST_OBJECT_UNLOCK(self);
  if (passthrough == gst_base_transform_is_passthrough(trans)) return;
  gst_base_transform_set_passthrough(trans, passthrough);
  /* Frames that pass through need no output buffers and fused ones may: the
   * next buffer decides the allocation again. */
  gst_base_transform_reconfigure_src(trans);
}

/* A buffer whose frame can be written where it lies without a copy: mapping
 * a read-only memory, or one that another buffer shares, for writing makes
 * GStreamer copy the memory first. */
static gboolean gst_video_hdr_writable(GstBuffer *buffer) {
  if (!gst_buffer_is_writable(buffer)) return FALSE;
  for (guint i = 0; i < gst_buffer_n_memory(buffer); ++i) {
    GstMemory *memory = gst_buffer_peek_memory(buffer, i);
    if (!gst_memory_is_writable(memory) || GST_MEMORY_IS_READONLY(memory)) return FALSE;
  }
  return TRUE;
}

/* In place for a writable input of the output's format; every other input
 * goes out of place into a buffer GstBaseTransform allocates (from the
 * negotiated pool). For an element that may work in place, GstBaseTransform
 * would instead copy an input that is not writable and have the copy fused
 * in place: one copy of the frame more. */
static GstFlowReturn gst_video_hdr_prepare_output_buffer(GstBaseTransform *trans, GstBuffer *inbuf,
                                                         GstBuffer **outbuf) {
  GstVideoHdr *self = GST_VIDEO_HDR(trans);
  if (!gst_base_transform_is_passthrough(trans) && self->same_formats &&
      gst_video_hdr_writable(inbuf)) {
    *outbuf = inbuf;
    return GST_FLOW_OK;
  }
  return GST_BASE_TRANSFORM_CLASS(gst_video_hdr_parent_class)
      ->prepare_output_buffer(trans, inbuf, outbuf);
}

/* GstVideoFilter maps a buffer's frames and hands them to transform_frame_ip
 * (the output is the input) or transform_frame. A buffer it cannot map as a
 * frame of the caps (shorter than they say, or with a video meta of another
 * format) it lets go downstream with a warning: unfused in place, unwritten
 * out of place. Here that is an element error. */
static GstFlowReturn gst_video_hdr_transform(GstBaseTransform *trans, GstBuffer *inbuf,
                                             GstBuffer *outbuf) {
  GstVideoHdr *self = GST_VIDEO_HDR(trans);
  GstBaseTransformClass *video_filter = GST_BASE_TRANSFORM_CLASS(gst_video_hdr_parent_class);
  self->frame_mapped = FALSE;
  const GstFlowReturn flow = inbuf == outbuf ? video_filter->transform_ip(trans, outbuf)
                                             : video_filter->transform(trans, inbuf, outbuf);
  if (flow != GST_FLOW_OK || self->frame_mapped) return flow;
  GST_ELEMENT_ERROR(self, STREAM, FORMAT, ("A buffer does not hold a frame of the caps"),
                    ("input %" GST_PTR_FORMAT ", output %" GST_PTR_FORMAT, inbuf, outbuf));
  return GST_FLOW_ERROR;
}

/* A mapped frame's planes at the caps' size, or an element error saying
 * what keeps them from being read or written. */
static gboolean gst_video_hdr_planes_of(GstVideoHdr *self, GstVideoFrame *frame,
                                        GstVideoHdrPlaneSet *planes) {
  const GstVideoInfo *info = &GST_VIDEO_FILTER(self)->in_info;
  const char *problem = gst_video_hdr_frame_planes(frame, GST_VIDEO_INFO_WIDTH(info),
                                                   GST_VIDEO_INFO_HEIGHT(info), planes);
  if (!problem) return TRUE;
  GST_ELEMENT_ERROR(self, STREAM, FORMAT, ("A buffer's frame cannot be processed: %s", problem),
                    ("%" GST_PTR_FORMAT, frame->buffer));
  return FALSE;
}

static GstFlowReturn gst_video_hdr_fuse(GstVideoHdr *self, const GstVideoHdrPlaneSet *in,
                                        const GstVideoHdrPlaneSet *out, GstClockTime timestamp,
                                        gboolean post) {
  VideoHdrPlanesResult result;
  GstClockTime library_time;
  const gint32 status = gst_video_hdr_process_planes(self->planes, in, out, &result, &library_time);
  /* Out of memory on the sequence's first frame: the frame goes on unfused
   * (left as it was, or copied out) and the next one tries again, so the
   * stream need not stop while memory is short. */
  if (status == VIDEOHDR_PLANES_REFUSED) {
    GST_ELEMENT_WARNING(self, RESOURCE, NO_SPACE_LEFT,
                        ("Frame %" G_GUINT64_FORMAT " passed on unfused: %s", self->frame,
                         videohdr_planes_status_text(status)),
                        (NULL));
    return GST_FLOW_OK;
  }
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
        gst_video_hdr_report_new(GST_OBJECT(self), self->frame, timestamp, &result, library_time));
  }
  self->frame++;
  return GST_FLOW_OK;
}

/* `out` is `in` when in place. */
static GstFlowReturn gst_video_hdr_take_frames(GstVideoHdr *self, GstVideoFrame *in,
                                               GstVideoFrame *out) {
  self->frame_mapped = TRUE;
  GstVideoHdrPlaneSet in_planes, out_planes;
  if (!gst_video_hdr_planes_of(self, in, &in_planes) ||
      !gst_video_hdr_planes_of(self, out, &out_planes))
    return GST_FLOW_ERROR;
  GST_OBJECT_LOCK(self);
  const gboolean enabled = self->enabled;
  const gboolean restart = self->restart_pending;
  const gboolean post = self->post_messages;
  GST_OBJECT_UNLOCK(self);
  /* Disabled with an output of another format, or between this buffer's
   * before_transform and now: the frame is passed on unfused. */
  if (!enabled) {
    if (in != out) gst_video_hdr_copy_planes(&in_planes, &out_planes);
    return GST_FLOW_OK;
  }
  if (restart) gst_video_hdr_restart_sequence(self);
  return gst_video_hdr_fuse(self, &in_planes, &out_planes, GST_BUFFER_PTS(in->buffer), post);
}

static GstFlowReturn gst_video_hdr_transform_frame(GstVideoFilter *filter, GstVideoFrame *in,
                                                   GstVideoFrame *out) {
  return gst_video_hdr_take_frames(GST_VIDEO_HDR(filter), in, out);
}

static GstFlowReturn gst_video_hdr_transform_frame_ip(GstVideoFilter *filter,
                                                      GstVideoFrame *frame) {
  return gst_video_hdr_take_frames(GST_VIDEO_HDR(filter), frame, frame);
}

static GstCaps *gst_video_hdr_transform_caps(GstBaseTransform *trans, GstPadDirection direction,
                                             GstCaps *caps, GstCaps *filter) {
  (void)trans, (void)direction;
  return gst_video_hdr_other_side_caps(caps, filter);
}

static gboolean gst_video_hdr_sink_event(GstBaseTransform *trans, GstEvent *event) {
  /* After a flush (a seek, say) the next frame does not follow the last one,
   * nor does a new stream's first frame (after an EOS, or in a playlist). */
  if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP)
    gst_video_hdr_request_restart(GST_VIDEO_HDR(trans), "flushed");
  if (GST_EVENT_TYPE(event) == GST_EVENT_STREAM_START)
    gst_video_hdr_request_restart(GST_VIDEO_HDR(trans), "a new stream");
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
   * fusing with it would show a ghost of the past. Passing through is
   * switched on the streaming thread (before_transform). */
  if (enabled && !was_enabled) gst_video_hdr_request_restart(self, "enabled");
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
  GstCaps *caps = gst_video_hdr_template_caps();
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
      "Fuses video shot with alternating exposures into HDR video: aligns the previous frame to "
      "each new one and blends the two exposures",
      "The videohdr developers");

  trans_class->sink_event = gst_video_hdr_sink_event;
  trans_class->stop = gst_video_hdr_stop;
  trans_class->transform_caps = gst_video_hdr_transform_caps;
  trans_class->before_transform = gst_video_hdr_before_transform;
  trans_class->prepare_output_buffer = gst_video_hdr_prepare_output_buffer;
  trans_class->transform = gst_video_hdr_transform;
  /* Otherwise GstVideoFilter hands pass-through frames to transform_frame_ip
   * too, mapped read-only. */
  trans_class->transform_ip_on_passthrough = FALSE;
  filter_class->set_info = gst_video_hdr_set_info;
  /* Both: GstVideoFilter would have GstBaseTransform work in place only,
   * copying every input that is not writable, were transform_frame missing. */
  filter_class->transform_frame = gst_video_hdr_transform_frame;
  filter_class->transform_frame_ip = gst_video_hdr_transform_frame_ip;
}

static void gst_video_hdr_init(GstVideoHdr *self) {
  self->enabled = TRUE;
  /* Dropping a late frame would break the alternation of exposures: every
   * frame is processed, late or not. */
  gst_base_transform_set_qos_enabled(GST_BASE_TRANSFORM(self), FALSE);
}
