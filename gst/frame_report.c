#include "frame_report.h"

GstMessage *gst_video_hdr_report_new(GstObject *source, guint64 frame, GstClockTime timestamp,
                                     const VideoHdrPlanesResult *result,
                                     GstClockTime library_time) {
  const gboolean fused = result->status == VIDEOHDR_PLANES_PROCESSED;
  GstStructure *s =
      gst_structure_new("videohdr", "frame", G_TYPE_UINT64, frame, "timestamp", G_TYPE_UINT64,
                        timestamp, "status", G_TYPE_STRING, fused ? "processed" : "primed",
                        "library-time", G_TYPE_UINT64, library_time, NULL);
  /* A priming frame was not fused: there is no shift or exposure to tell. */
  if (fused) {
    gst_structure_set(s, "found-dx", G_TYPE_INT, result->foundDx, "found-dy", G_TYPE_INT,
                      result->foundDy, "applied-dx", G_TYPE_INT, result->appliedDx, "applied-dy",
                      G_TYPE_INT, result->appliedDy, "brighter", G_TYPE_STRING,
                      result->currentBrighter ? "current" : "previous", NULL);
  }
  return gst_message_new_element(source, s);
}
