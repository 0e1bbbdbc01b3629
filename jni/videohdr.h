/*
 * videohdr — HDR video from alternating exposures, for Android camera pipelines.
 *
 * A camera shoots video whose frames alternate between a brighter and a darker
 * exposure. For every frame after the first, the library aligns the previous
 * frame to the current one (a global translation found on threshold bitmaps),
 * fuses the two exposures and writes the result back into the caller's frame,
 * in place.
 *
 * Frames are 8-bit YUV 4:2:0 semi-planar (NV12 or NV21; the library treats the
 * two chroma bytes of a pair alike): `height` luma rows of `stride` bytes, then,
 * `scanline * stride` bytes from the frame start, one plane of interleaved
 * chroma pairs of `(stride * height) / 2` bytes. Rows between `height` and
 * `scanline` are padding and are never read or written.
 *
 * This is a plain C ABI: records with a fixed field order, free functions with
 * unmangled names, no exceptions. Every exported call is declared here.
 *
 * Design limits (the caller's contract unless a call says otherwise):
 *   - stride * height <= 2,621,440 luma bytes (for example 2048 x 1280);
 *   - stride == width for correct alignment (alignment reads the frame copies
 *     with a row pitch of `width`);
 *   - width >= 1,032 for the motion search (four pyramid levels need a
 *     coarsest level at least 129 pixels wide); narrower frames are fused with
 *     alignment skipped (a zero shift);
 *   - the geometry of the first frame holds for the handle's whole life.
 *
 * Threads: none are created and no locks are taken. Drive one handle from one
 * thread at a time; different handles are independent.
 */
#ifndef VIDEOHDR_H
#define VIDEOHDR_H

#include <stdint.h>

#if defined(_WIN32)
#define VIDEOHDR_API __declspec(dllexport)
#else
#define VIDEOHDR_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AlignConfig AlignConfig;
typedef struct AlignContext AlignContext;
typedef struct FusionContext FusionContext;

/* ------------------------------------------------------------------------ */
/* Handle and frame pipeline                                                */
/* ------------------------------------------------------------------------ */

/* Size of each of the three frame buffers a handle owns, and of the block. */
#define VIDEOHDR_FRAME_BUFFER_BYTES 3932160
#define VIDEOHDR_FRAME_BLOCK_BYTES (3 * VIDEOHDR_FRAME_BUFFER_BYTES)
/* Largest luma plane (stride * height) a frame copy can hold. */
#define VIDEOHDR_MAX_LUMA_BYTES 2621440
/* Narrowest frame the four-level motion search supports. */
#define VIDEOHDR_MIN_SEARCH_WIDTH 1032

typedef struct VideoHdrHandle {
  int32_t callerParam; /* third argument of the process calls; stored, never read */
  int32_t callerFlag;  /* fourth argument of Video_HDR_Process; stored, never read */
  int32_t reserved0;
  int32_t frameCount; /* frames taken: 0, 1, 2, ... 1000000, then 1 again */
  int32_t width;
  int32_t height;
  int32_t stride;
  int32_t scanline; /* rows from the frame start to the chroma plane */
  int32_t reserved1;
  int32_t initDone;           /* 1 once creation succeeded */
  uint8_t *frameBuf0;         /* history buffer 0; start of the frame block */
  uint8_t *frameBuf1;         /* history buffer 1 = frameBuf0 + 3932160 */
  uint8_t *alignedBuf;        /* aligned previous frame = frameBuf0 + 7864320 */
  AlignContext *alignContext; /* made on the first frame */
  FusionContext *fusionContext;
  AlignConfig *alignConfig;
  void *fusionAux; /* a zero-length block made with the fusion context */
} VideoHdrHandle;

/* A new handle with a 11,796,480-byte frame block, or null when out of memory. */
VIDEOHDR_API VideoHdrHandle *createVideoHdrHandle(void);
VIDEOHDR_API VideoHdrHandle *Video_HDR_Initial(void);

/* Stores width, height and stride for processVideoHdr. Answers 0. */
VIDEOHDR_API int32_t initVideoHdr(VideoHdrHandle *handle, int32_t width, int32_t height,
                                  int32_t stride);

/*
 * Processes one frame in place. The first frame of a handle only primes it
 * (the frame is returned unchanged); every later frame receives the fusion of
 * itself with the previous frame moved into alignment. Answers 1.
 */
VIDEOHDR_API int32_t Video_HDR_Process(VideoHdrHandle *handle, uint8_t *frame,
                                       int32_t callerParam, int32_t callerFlag, int32_t width,
                                       int32_t height, int32_t stride, int32_t scanline);

/* Video_HDR_Process with callerFlag 1 and the geometry of initVideoHdr. */
VIDEOHDR_API int32_t processVideoHdr(VideoHdrHandle *handle, uint8_t *frame,
                                     int32_t callerParam, int32_t scanline);

/* Frees the handle and everything it owns; null is allowed. Answers 1. */
VIDEOHDR_API int32_t destroyVideoHdrHandle(VideoHdrHandle *handle);
VIDEOHDR_API int32_t Video_HDR_Release(VideoHdrHandle *handle);

/* ------------------------------------------------------------------------ */
/* Bitmap alignment                                                         */
/* ------------------------------------------------------------------------ */

struct AlignConfig {
  uint16_t width;
  uint16_t height;
  int32_t stride;
  int32_t levels;       /* pyramid levels, 0..4 (4 by default) */
  int32_t searchStep;   /* candidate step per level (2) */
  int32_t maxThreshold; /* upper clamp of the bitmap threshold (240) */
  int32_t minThreshold; /* lower clamp of the bitmap threshold (10) */
};

/*
 * Packed bitmaps hold one bit per pixel, 32 pixels per native uint32 word, the
 * leftmost pixel in bit 31, and (w + 63) >> 5 words per row: always one spare
 * word at the end of a row.
 */
struct AlignContext {
  uint32_t workSize;
  uint8_t *workBuf; /* the workspace every pointer below is carved from */
  int32_t width;
  int32_t height;
  int32_t *levelWidth;
  int32_t *levelHeight;
  int32_t *levelPitch; /* bytes per packed bitmap row */
  int32_t *levelDx;    /* shift found per level, cumulative */
  int32_t *levelDy;
  uint8_t *prevImage[4];
  uint8_t *curImage[4];
  uint8_t *spareImage[4];
  uint8_t *scratchPlane0;
  uint8_t *scratchPlane1;
  uint32_t *prevBitmap[4];
  uint32_t *curBitmap[4];
  uint32_t *movedBitmap[4];
  uint32_t *histTable0; /* 256 entries */
  uint32_t *histTable1; /* 256 entries */
  uint32_t *histTable2; /* 256 entries */
  uint8_t *scratchPlane2;
  uint8_t *scratchPlane3;
  uint8_t *scratchPlane4;
  uint8_t *scratchPlane5; /* the blend buffer of Back */
  uint32_t *histTable3;   /* 257 entries: the level mapping of HistMatching */
  float lastCount;
  int32_t stride;
  int32_t levels;
  int32_t searchStep;
  int32_t maxThreshold;
  int32_t minThreshold;
  float *countHistory; /* five misalignment percentages, newest first */
  int32_t lastDx;      /* shift applied to the previous frame pair */
  int32_t lastDy;
  int32_t ready;
};

VIDEOHDR_API int32_t initAlignPara(AlignConfig *config, uint16_t width, uint16_t height,
                                   int32_t stride, int32_t levels, int32_t searchStep,
                                   int32_t maxThreshold, int32_t minThreshold);
VIDEOHDR_API int32_t calCpuDataAlignMem(AlignContext *context, uint32_t *size);
VIDEOHDR_API int32_t allocAlignCPUMem(VideoHdrHandle *handle);
VIDEOHDR_API int32_t freeMem(VideoHdrHandle *handle);
VIDEOHDR_API void InitPara(AlignContext *context, const uint8_t *prevFrame,
                           const uint8_t *curFrame);
VIDEOHDR_API int32_t AllocAlignHandleParams(VideoHdrHandle *handle);
VIDEOHDR_API int32_t AlignProcess(VideoHdrHandle *handle, uint8_t *curFrame, uint8_t *prevFrame,
                                  uint8_t *outFrame, int32_t frameCount);
VIDEOHDR_API int32_t ReleaseAlignHandleParams(VideoHdrHandle *handle);

/*
 * Level-0 threshold bitmaps of both frames: a pixel's bit is set when it is
 * brighter than its frame's mean grey level held within [minThreshold,
 * maxThreshold]. Answers 1 when the previous frame's luma sum is the larger.
 * Each row is summed in groups of 8 bytes in 16-bit lanes (which wrap in rows
 * wider than 2,056 pixels). For a width that is not a multiple of 8 the last
 * group of a row includes the up to 7 bytes after the row's end, and they count
 * towards the mean and the result: the next row's first bytes, or for the last
 * row the first bytes of the next workspace region (read, never written).
 * For a width that is a multiple of 32 the last 32 columns stay 0.
 */
VIDEOHDR_API int32_t ThreshBitmap(AlignContext *context, int32_t maxThreshold,
                                  int32_t minThreshold);
/*
 * Level `level` (1 or more) of both bitmap pyramids: pixel (x, y) = pixel
 * (2x, 2y) of the level below. Does nothing when the level below has fewer
 * than 2 rows or this level has no columns.
 */
VIDEOHDR_API void buildGaussianPyramid(AlignContext *context, int32_t level);
VIDEOHDR_API int32_t xorTwoPyramid_New(AlignContext *context, int32_t ignored1,
                                       int32_t ignored2, int32_t level, int32_t dy, int32_t dx);
VIDEOHDR_API void shiftPyramid(AlignContext *context, int32_t level);
/*
 * movedBitmap[level] = prevBitmap[level] moved by (2 levelDx[level + 1],
 * 2 levelDy[level + 1]) (a plain copy at the coarsest level). After a move to
 * the right the pad word of every row is 0. A horizontal move of 32 pixels or
 * more, which the word-wise moves cannot make, leaves the whole bitmap 0.
 */
VIDEOHDR_API void shiftData(AlignContext *context, int32_t level);
VIDEOHDR_API void getScanData(AlignContext *context, const uint8_t *prevFrame,
                              const uint8_t *curFrame, uint8_t *outFrame);

VIDEOHDR_API int32_t HistMatching(AlignContext *context, const uint8_t *refPlane,
                                  uint8_t *dstPlane, int32_t width, int32_t height);
VIDEOHDR_API float xorTwoResult(AlignContext *context, int32_t ignored1, int32_t ignored2,
                                int32_t dy, int32_t dx);
VIDEOHDR_API void Back(AlignContext *context, int32_t frameCount, uint8_t *target,
                       const uint8_t *partner, const uint8_t *fallback);
VIDEOHDR_API double Sobel(const uint8_t *image, int32_t width, int32_t height);
VIDEOHDR_API double Sobel_Neon(const uint8_t *image, int32_t width, int32_t height);

/* ------------------------------------------------------------------------ */
/* Exposure fusion                                                          */
/* ------------------------------------------------------------------------ */

struct FusionContext {
  int32_t width;
  int32_t height;
  int32_t stride;
  int32_t scanline;
  uint8_t *toneCurves[8];          /* 256-byte tables carved from one 2,048-byte block */
  uint8_t *weightPlanes[4];        /* stride * scanline bytes each */
  uint8_t *halfWeightPlanes[4];    /* (stride * scanline) >> 2 bytes each */
  uint8_t *quarterWeightPlanes[4]; /* (stride * scanline) >> 4 bytes each */
};

VIDEOHDR_API int32_t AllocFusionHandleParams(VideoHdrHandle *handle);
VIDEOHDR_API int32_t ReleaseFusionHandleParams(VideoHdrHandle *handle);
VIDEOHDR_API void GenerateSCurve(uint8_t *curve, int32_t length, int32_t knee, float level,
                                 float lowGamma, float highGamma, int32_t direction);

VIDEOHDR_API int32_t ExposureFusionNeon(VideoHdrHandle *handle, const uint8_t *current,
                                        const uint8_t *alignedPrevious, uint8_t *output);

VIDEOHDR_API void horizontalFilter7x7neon(const uint8_t *src, uint8_t *dst, int32_t width,
                                          int32_t height, int32_t border);
VIDEOHDR_API void VerticalFilter7x7neon(const uint8_t *src, uint8_t *dst, int32_t width,
                                        int32_t height, int32_t border);
VIDEOHDR_API void horizontalFilter7x7neon_Smooth(const uint8_t *src, uint8_t *dst,
                                                 int32_t width, int32_t height, int32_t border);
VIDEOHDR_API void VerticalFilter7x7neon_Smooth(const uint8_t *src, uint8_t *dst, int32_t width,
                                               int32_t height, int32_t border);

VIDEOHDR_API void downScale_2x_uint8_t(const uint8_t *src, uint8_t *dst, int32_t width,
                                       int32_t height, int32_t stride);
VIDEOHDR_API void downScale_2x_uint8_t_NEON(const uint8_t *src, uint8_t *dst, int32_t width,
                                            int32_t height, int32_t stride);
VIDEOHDR_API void upscale_2x_uint8_t(const uint8_t *src, uint8_t *dst, int32_t width,
                                     int32_t height, int32_t stride);
VIDEOHDR_API void upscale_2x_uint8_t_NEON(const uint8_t *src, uint8_t *dst, int32_t width,
                                          int32_t height, int32_t stride);
VIDEOHDR_API void extract_uvBuffer(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf,
                                   int32_t width, int32_t height, int32_t stride);
VIDEOHDR_API void combine_uvBuffer(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf,
                                   int32_t width, int32_t height);

#ifdef __cplusplus
}
#endif

#endif /* VIDEOHDR_H */
