/*
 * videohdr planes — camera frames as cameras deliver them.
 *
 * Camera2 / CameraX (YUV_420_888) and the NDK's AImageReader hand out a frame
 * as three planes, each with its own row stride, usually padded: Y; U and V
 * with a pixel stride of 2 that alias one interleaved VU or UV buffer (the U
 * or V buffer one byte short of the other), or a pixel stride of 1 (I420).
 * The luma plane need not sit right before the chroma. This entry point takes
 * such planes and gives exactly the bytes, and the shift, that
 * Video_HDR_Process gives on a tightly packed copy of the same pixels
 * (stride = width, scanline = height):
 *   - planes whose chroma is interleaved (pixel stride 2, u and v one byte
 *     apart) are packed in their own order, V first (NV21) or U first (NV12);
 *   - all other planes (pixel stride 1, or two separate pixel-stride-2 planes)
 *     are packed U first (NV12), the order of the arguments.
 * (The fusion weighs the two bytes of a chroma pair by their position, so the
 * order is part of the result.)
 *
 * Padded rows align as well as unpadded ones: the motion search reads rows of
 * `width` bytes, so a frame whose rows carry padding is gathered into the
 * state's packed work frame, processed there and written back. Only the
 * sample bytes of each plane are read and written: Y's `width` bytes per row,
 * U's and V's width / 2 samples per row at their pixel stride. Row padding,
 * the bytes between the samples of separate pixel-stride-2 planes and
 * everything around the planes are never touched.
 *
 * No copy is made when the planes already are one NV12 or NV21 buffer of the
 * library's layout: pixel stride 2 with u and v one byte apart, both row
 * strides equal to the width, and the chroma k whole luma rows after y, where
 * either k == height, or height < k <= height + VIDEOHDR_PLANES_MAX_GAP_ROWS
 * with a width that is a multiple of 16 (with other widths the rows between
 * the planes change the fused chroma of the last row). The first frame of a
 * state fixes k for the state's life; later frames of another layout are
 * packed. Copied or not, the bytes are the same.
 *
 * Frame size: width and height even (4:2:0 chroma has one sample per 2x2
 * luma pixels) and width * height at most VIDEOHDR_MAX_LUMA_BYTES; fixed when
 * the state is created. Frames narrower than VIDEOHDR_MIN_SEARCH_WIDTH are
 * fused unaligned, as with Video_HDR_Process.
 *
 * Errors are answered, not logged: a call that answers an error code has
 * written no pixel and left the state as it was. No allocation happens after
 * videohdr_planes_create but the library's own, on a state's first frame (its
 * handle and contexts).
 * One state is driven from one thread at a time; states are independent.
 */
#ifndef VIDEOHDR_PLANES_H
#define VIDEOHDR_PLANES_H

#include <stdint.h>

#include "videohdr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Most rows between the luma and the chroma of a frame processed in place:
 * more than the scanline alignment of any camera buffer, and a bound on what
 * such a gap adds to the library's weight planes. */
#define VIDEOHDR_PLANES_MAX_GAP_ROWS 64

/* What happened: results (0 and above) and errors (below 0). */
#define VIDEOHDR_PLANES_OK 0        /* create and videohdr_planes_plane_bytes succeeded */
#define VIDEOHDR_PLANES_PROCESSED 1 /* the frame now holds the fused result */
#define VIDEOHDR_PLANES_PRIMED 2    /* a state's first frame: taken, left unchanged */
/* What a state's first frame needs could not be allocated (the library's
 * handle, or the contexts the library makes with its first frame):
 * the frame is unchanged (copied, for videohdr_planes_process_to), what was
 * allocated is freed, and the next frame is a first frame again and retries.
 * (Transient memory pressure; while it lasts no frame is fused.) */
#define VIDEOHDR_PLANES_REFUSED 3
#define VIDEOHDR_PLANES_ERR_NULL_STATE -1 /* null state (or null out pointer) */
#define VIDEOHDR_PLANES_ERR_NULL_PLANE -2 /* y, u or v is null */
#define VIDEOHDR_PLANES_ERR_BAD_SIZE -3   /* width or height not positive and even, or too large */
#define VIDEOHDR_PLANES_ERR_SIZE_CHANGED -4 /* width or height differ from the state's */
#define VIDEOHDR_PLANES_ERR_PIXEL_STRIDE -5 /* uvPixelStride other than 1 or 2 */
/* yRowStride below width, or uvRowStride below uvPixelStride * (width / 2) */
#define VIDEOHDR_PLANES_ERR_ROW_STRIDE -6
/* Two planes share a byte (apart from u and v one byte apart at pixel stride
 * 2, which interleave): writing one would change the other. */
#define VIDEOHDR_PLANES_ERR_OVERLAP -7
/* videohdr_planes_create could not have the state's memory */
#define VIDEOHDR_PLANES_ERR_OUT_OF_MEMORY -8

/* A handle (whose record and calls stay as videohdr.h describes them; made
 * with the first frame) and the packed work frame, for one frame size. */
typedef struct VideoHdrPlanes VideoHdrPlanes;

typedef struct VideoHdrPlanesResult {
  int32_t status;  /* the call's answer */
  int32_t foundDx; /* the shift the motion search found (0 unless processed) */
  int32_t foundDy;
  int32_t appliedDx; /* the shift applied after the jump filter (0 unless processed) */
  int32_t appliedDy;
  /* 1 when the fusion took the current frame as the brighter exposure (its
   * sampled luma sum at least the aligned previous frame's), 0 when it took
   * the previous one or nothing was fused. */
  int32_t currentBrighter;
  /* 1 when the library worked in the caller's planes (for videohdr_planes_process_to: in the
   * output planes, into which it packed the input first), 0 when on the state's work frame */
  int32_t inPlace;
} VideoHdrPlanesResult;

/*
 * Makes a state for frames of width x height: the work frame is allocated
 * here, once; the library's handle with the state's first frame, so that a
 * state destroyed before any frame has nothing of the library's to release
 * (the library logs a failure line when it releases a handle that never took
 * a frame). Answers VIDEOHDR_PLANES_OK and sets *planes, or an error
 * (ERR_NULL_STATE for a null `planes`, ERR_BAD_SIZE, ERR_OUT_OF_MEMORY) with
 * *planes left as it was.
 */
VIDEOHDR_API int32_t videohdr_planes_create(int32_t width, int32_t height, VideoHdrPlanes **planes);

/*
 * Processes one frame in place in the caller's planes: the first frame of a
 * state primes it (VIDEOHDR_PLANES_PRIMED, planes unchanged), every later one
 * receives the fusion with the previous frame moved into alignment
 * (VIDEOHDR_PLANES_PROCESSED). Exposures alternate frame by frame.
 *
 * y: `height` rows of `width` bytes, `yRowStride` bytes apart. u and v:
 * height / 2 rows of width / 2 samples, `uvPixelStride` (1 or 2) bytes apart
 * within a row and `uvRowStride` bytes apart between rows; so a chroma plane
 * spans uvRowStride * (height / 2 - 1) + uvPixelStride * (width / 2 - 1) + 1
 * bytes from its first byte (videohdr_planes_plane_bytes), and nothing beyond
 * is read or written.
 *
 * Answers the status and, when `result` is not null, fills it. Errors, in the
 * order they are checked: ERR_NULL_STATE, ERR_SIZE_CHANGED, ERR_NULL_PLANE,
 * ERR_PIXEL_STRIDE, ERR_ROW_STRIDE, ERR_OVERLAP.
 */
VIDEOHDR_API int32_t videohdr_planes_process(VideoHdrPlanes *planes, uint8_t *y, int32_t yRowStride,
                                             uint8_t *u, uint8_t *v, int32_t uvRowStride,
                                             int32_t uvPixelStride, int32_t width, int32_t height,
                                             VideoHdrPlanesResult *result);

/*
 * Processes one frame from planes that are only read into other planes, for
 * recording: a camera image that may not be written (an ImageReader's, a
 * read-only DMABuf) fused straight into an encoder's input image of its own
 * strides and chroma layout.
 *
 * The output planes receive exactly the samples that videohdr_planes_process
 * would leave in the input planes if it were given a writable copy of them:
 * the same pixels, the same shift and the same status (on a state's first
 * frame, and when the library refuses a frame, a copy of the input). The
 * input's layout decides the chroma order the fusion sees, as in place; the
 * output's (pixel stride 1 or 2, either order, its own strides) only says
 * where each U and V sample goes, so NV21 camera planes can go into an NV12
 * or I420 image.
 *
 * The input is never written. Of the output only the samples are written:
 * its row padding, the bytes between the samples of separate pixel-stride-2
 * planes and everything around the planes are left alone. An output of the
 * library's own layout (see videohdr_planes_process) that keeps the input's
 * chroma order takes the packed input and is processed where it lies; any
 * other output is written once from the state's work frame.
 *
 * The output may be the input itself (the same three pointers and strides):
 * that is videohdr_planes_process. Otherwise no output plane may share a
 * byte with an input plane or with another output plane (U and V one byte
 * apart at pixel stride 2 excepted): ERR_OVERLAP.
 *
 * Errors, in the order they are checked: ERR_NULL_STATE, ERR_SIZE_CHANGED,
 * then ERR_NULL_PLANE, ERR_PIXEL_STRIDE, ERR_ROW_STRIDE and ERR_OVERLAP (among
 * its own planes) for the input and then for the output, then ERR_OVERLAP
 * between them. An error writes nothing and leaves the state as it was.
 */
VIDEOHDR_API int32_t videohdr_planes_process_to(
    VideoHdrPlanes *planes, const uint8_t *y, int32_t yRowStride, const uint8_t *u,
    const uint8_t *v, int32_t uvRowStride, int32_t uvPixelStride, uint8_t *outY,
    int32_t outYRowStride, uint8_t *outU, uint8_t *outV, int32_t outUvRowStride,
    int32_t outUvPixelStride, int32_t width, int32_t height, VideoHdrPlanesResult *result);

/*
 * Starts a new sequence: the next frame primes the state as its first frame
 * did (VIDEOHDR_PLANES_PRIMED, returned unchanged or copied), and the frame
 * after it is fused with it as on a new state, its shift starting from rest.
 * For when the alternation of exposures breaks: a dropped frame, an exposure
 * change that took effect late, a seek. Nothing is allocated; the frame size
 * stays the state's. Answers VIDEOHDR_PLANES_OK, or ERR_NULL_STATE.
 */
VIDEOHDR_API int32_t videohdr_planes_restart(VideoHdrPlanes *planes);

/* Frees the state and its handle, if a frame made one; null is allowed. Logs
 * nothing. */
VIDEOHDR_API void videohdr_planes_destroy(VideoHdrPlanes *planes);

/*
 * The bytes each plane of such a layout spans from its first byte (what a
 * buffer's capacity must cover): *yBytes for the luma plane, *uvBytes for each
 * chroma plane. Answers VIDEOHDR_PLANES_OK, or ERR_BAD_SIZE, ERR_PIXEL_STRIDE
 * or ERR_ROW_STRIDE (the outputs then untouched); null outputs are skipped.
 */
VIDEOHDR_API int32_t videohdr_planes_plane_bytes(int32_t width, int32_t height, int32_t yRowStride,
                                                 int32_t uvRowStride, int32_t uvPixelStride,
                                                 int64_t *yBytes, int64_t *uvBytes);

/* A short English description of a status that names the arguments it is
 * about ("processed", "uvPixelStride is neither 1 nor 2", ...), for messages;
 * never null. The same text for every call with that status: a caller that
 * has the values at hand says them besides. */
VIDEOHDR_API const char *videohdr_planes_status_text(int32_t status);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VIDEOHDR_PLANES_H */
