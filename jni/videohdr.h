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
 * unmangled names, no exceptions. Every exported call is declared here, except
 * the camera-plane entry point (planes/videohdr_planes.h).
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
/* Largest stride * scanline a frame may span: every size derived from it
 * (the fusion planes are four such areas) stays in 32-bit arithmetic. */
#define VIDEOHDR_MAX_AREA_BYTES 536870911

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

/* A new handle with a zero-filled 11,796,480-byte frame block, or null when out of memory. */
VIDEOHDR_API VideoHdrHandle *createVideoHdrHandle(void);
VIDEOHDR_API VideoHdrHandle *Video_HDR_Initial(void);

/* Stores width, height and stride for processVideoHdr. Answers 0. */
VIDEOHDR_API int32_t initVideoHdr(VideoHdrHandle *handle, int32_t width, int32_t height,
                                  int32_t stride);

/*
 * Processes one frame in place. The first frame of a handle only primes it
 * (the frame is returned unchanged); every later frame receives the fusion of
 * itself with the previous frame moved into alignment. Answers 1.
 *
 * The caller's frame spans stride * scanline + (stride * height) / 2 bytes;
 * nothing outside them is read or written.
 *
 * Refused frames: the call answers 0, logs one line at error priority under
 * "VideoHDR" naming the reason and the values, and leaves the frame and the
 * handle exactly as they were (the next frame goes on as if the refused one
 * had never come). A frame is refused when
 *   - the handle or the frame is null;
 *   - width, height or stride is not positive, stride < width or
 *     scanline < height;
 *   - stride * height > VIDEOHDR_MAX_LUMA_BYTES (the frame buffers' size) or
 *     stride * scanline > VIDEOHDR_MAX_AREA_BYTES;
 *   - after the first frame: width, height or stride differ from the first
 *     frame's (the contexts are built once, from it), or scanline is smaller
 *     than the first frame's (the fused chroma is written at that row);
 *   - after the first frame the handle has no contexts (out of memory then).
 * Frames narrower than VIDEOHDR_MIN_SEARCH_WIDTH are taken: they are fused
 * with the previous frame unmoved, and the handle logs that once, on its
 * first frame, at information priority.
 */
VIDEOHDR_API int32_t Video_HDR_Process(VideoHdrHandle *handle, uint8_t *frame, int32_t callerParam,
                                       int32_t callerFlag, int32_t width, int32_t height,
                                       int32_t stride, int32_t scanline);

/* Video_HDR_Process with callerFlag 1 and the geometry of initVideoHdr; answers
 * 1, or 0 for a refused frame (a null handle included). */
VIDEOHDR_API int32_t processVideoHdr(VideoHdrHandle *handle, uint8_t *frame, int32_t callerParam,
                                     int32_t scanline);

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
/* Rebuilds the workspace from the handle's alignConfig; a workspace the
 * context already holds is freed first, so a context made by hand must start
 * with workBuf null. */
VIDEOHDR_API int32_t allocAlignCPUMem(VideoHdrHandle *handle);
VIDEOHDR_API int32_t freeMem(VideoHdrHandle *handle);
VIDEOHDR_API void InitPara(AlignContext *context, const uint8_t *prevFrame,
                           const uint8_t *curFrame);
VIDEOHDR_API int32_t AllocAlignHandleParams(VideoHdrHandle *handle);
/*
 * Aligns prevFrame to curFrame and writes the aligned copy into outFrame. The
 * shift is searched from the coarsest pyramid level down to level 0; when the
 * coarsest level is narrower than 129 pixels (width < 1,032 with four levels)
 * the search is skipped and every level keeps a zero shift.
 */
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
/*
 * Counts the pixels at which movedBitmap[level], displaced by (dx, dy), differs
 * from curBitmap[level], inside the search's margins and edge masks; the two
 * ignored arguments are never read. Reads only rows 0 .. h-1 and, in each,
 * words 0 .. W-2 of the two bitmaps (never the pad word). Each row is counted
 * in sixteen 8-bit lanes that wrap at 256: levels 4,001 pixels wide or wider
 * (32 blocks of 128 pixels per row) can lose multiples of 256 per row.
 * Where the counting layout has no rule of its own:
 *   - dx < 0 with 0 < w % 32 <= |dx| (e.g. level widths 129/130 with dx = -2):
 *     the last data word (word W-2) of both bitmaps takes no part, neither
 *     compared nor shifted into word W-3 (the edge mask of the other negative
 *     shifts, all-ones << (|dx| + 32 - w % 32), reaches 32 and clears it), so
 *     no bit beyond the row's last pixel is compared;
 *   - a level narrower than 129 pixels, |dx| >= 32, or a level that does not
 *     exist answers 0 and reads nothing.
 */
VIDEOHDR_API int32_t xorTwoPyramid_New(AlignContext *context, int32_t ignored1, int32_t ignored2,
                                       int32_t level, int32_t dy, int32_t dx);
/*
 * One level of the search: moves prevBitmap[level] by twice the coarser level's
 * shift (shiftData), scores the nine candidates 0, -searchStep, +searchStep per
 * axis and stores the cumulative shift in levelDx/levelDy[level]. A level
 * narrower than 129 pixels scores 0 everywhere and so adds a zero step.
 */
VIDEOHDR_API void shiftPyramid(AlignContext *context, int32_t level);
/*
 * movedBitmap[level] = prevBitmap[level] moved by (2 levelDx[level + 1],
 * 2 levelDy[level + 1]) (a plain copy at the coarsest level). After a move to
 * the right the pad word of every row is 0. A horizontal move of 32 pixels or
 * more, which the word-wise moves cannot make, leaves the whole bitmap 0.
 */
VIDEOHDR_API void shiftData(AlignContext *context, int32_t level);
/*
 * Writes the previous frame, moved by the filtered shift, over a copy of the
 * current frame into outFrame (all three are width x height frame copies).
 * outFrame may be curFrame itself, which aligns in place; it must not overlap
 * prevFrame, or any other part of curFrame.
 */
VIDEOHDR_API void getScanData(AlignContext *context, const uint8_t *prevFrame,
                              const uint8_t *curFrame, uint8_t *outFrame);

/*
 * Remaps dstPlane's grey levels towards refPlane's distribution (both
 * width x height, row pitch width), using the context's four histogram
 * tables. Answers 0, or width * height (32-bit) when that product is below 1,
 * in which case dstPlane is left as it is. Reads and writes nothing outside
 * the two width * height planes and the context's tables. Pixels are visited by rows and
 * columns, so negative dimensions never touch a pixel (two negative ones
 * give a positive product: the answer is then 0 and nothing is remapped).
 */
VIDEOHDR_API int32_t HistMatching(AlignContext *context, const uint8_t *refPlane, uint8_t *dstPlane,
                                  int32_t width, int32_t height);
/*
 * Counts the level-0 bitmap pixels at which the previous frame, displaced by
 * (dx, dy), disagrees with the current frame, over the exact overlap of the
 * two frames (plus the set bits beyond a row's end that take part), as a
 * float. The two ignored arguments are never read. Shifts the word-level
 * funnel cannot make, |dx| >= 32 or |dx| >= width (dx != 0), and a width
 * below 1 answer 0.0f without reading anything; so does an empty row overlap
 * (|dy| >= height). Rows holding more than 31 blocks of four words (widths
 * above 3,968) wrap the per-row 8-bit lane counters, as on the camera.
 */
VIDEOHDR_API float xorTwoResult(AlignContext *context, int32_t ignored1, int32_t ignored2,
                                int32_t dy, int32_t dx);
/*
 * Misalignment fallback after the pyramid search. target, partner and
 * fallback are w x h luma planes (pitch w, the context's width and height);
 * target and fallback must hold whole frames of (3 * w * h) / 2 bytes, since
 * a blur fallback copies the chroma too. Which frames to pass is the
 * caller's choice. When it blends, the gradient sums read partner and
 * fallback as Sobel_Neon does: when w % 8 == 1, one byte after partner's
 * w * h bytes must be readable (fallback's chroma covers its own) and the
 * result depends on it. A jump skips the sums, which only the blur check uses.
 */
VIDEOHDR_API void Back(AlignContext *context, int32_t frameCount, uint8_t *target,
                       const uint8_t *partner, const uint8_t *fallback);
/* Sum of min(|gx| + |gy|, 255) over every interior pixel; 0.0 below 3 x 3.
 * Reads only the width * height bytes of the plane. */
VIDEOHDR_API double Sobel(const uint8_t *image, int32_t width, int32_t height);
/*
 * The block version of Sobel: blocks of eight centres from column 1,
 * ceil((width - 8) / 8) of them per interior row, no scalar tail, 16-bit lane
 * sums per row that wrap and count as signed. 0.0 below 3 rows or 9 columns.
 * The caller's contract: when width % 8 == 1 (and width >= 9, height >= 3)
 * the last block reads exactly one byte past the plane, image[width *
 * height], which must be readable and which the result depends on; for any
 * other width nothing past the plane is read. (In general the last interior
 * row reads 8k - width + 2 bytes past the plane when that is positive, with
 * k the blocks per row; it is never more than 1.)
 */
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

/*
 * Builds the fusion context from the handle's width, height, stride and
 * scanline (kept for the handle's life) and a zero-length block in fusionAux.
 * Table block: tables 0..2 hold the tone curves, 3..7 are zero. Choices:
 *   - the half-resolution plane block is zero-filled: the smoothing's scratch
 *     plane (halfWeightPlanes[1]) has columns nothing writes but the fused
 *     result depends on, so they start at 0 and every run is reproducible;
 *   - every plane block has 64 bytes of slack after its carved planes;
 *   - allocations are checked: if one fails, nothing stays allocated,
 *     fusionContext and fusionAux stay null and frames are passed through
 *     unfused. Answers 1 in every case.
 */
VIDEOHDR_API int32_t AllocFusionHandleParams(VideoHdrHandle *handle);
/*
 * Frees the context's blocks, the context and fusionAux, and leaves both
 * pointers as they were. With a null fusionContext (a handle that never
 * processed a frame) only fusionAux is freed. Answers 1.
 */
VIDEOHDR_API int32_t ReleaseFusionHandleParams(VideoHdrHandle *handle);
/*
 * Fills a two-segment tone curve: entries 0 .. knee-1 from (i / knee)^lowGamma
 * * level, entries knee .. length-1 from (1 - level) * (j / (255 - knee))^highGamma
 * + level, j = i - knee; direction 0 rises, 1 falls (1 - value), any other
 * value writes nothing. Values are scaled by 255, truncated and clamped to a
 * byte (NaN gives 0). Writes max(knee, length) entries: keep knee >= 0.
 */
VIDEOHDR_API void GenerateSCurve(uint8_t *curve, int32_t length, int32_t knee, float level,
                                 float lowGamma, float highGamma, int32_t direction);

/*
 * Fuses two frame copies (luma stride * height bytes, chroma (stride * height)
 * / 2 bytes right behind it) into `output` (luma at 0, chroma at stride *
 * scanline), with the height, stride and scanline of the handle's fusion
 * context. The brighter input is the one with the larger luma sum over every
 * 4th byte of every 32nd row; equal sums make `current` the brighter. Writes
 * exactly the output's luma and chroma planes: the padding rows between
 * height and scanline and everything after the chroma plane stay untouched.
 * Expects scanline >= height. Each input is read over its luma and chroma
 * planes, and at least 15 bytes past its luma plane even when the chroma plane
 * is shorter. Answers 1. Without a fusion context (its allocation failed, or
 * the handle has taken no frame yet) it writes nothing.
 */
VIDEOHDR_API int32_t ExposureFusionNeon(VideoHdrHandle *handle, const uint8_t *current,
                                        const uint8_t *alignedPrevious, uint8_t *output);

/*
 * 7-tap filters on planes whose pitch is `width`: tent taps 1 2 3 4 3 2 1 >> 4,
 * _Smooth taps 4 4 5 6 5 4 4 >> 5, truncated. Columns (rows) 0 .. border-1 and
 * those after the last whole block are left as they are.
 * Horizontal: runs when height >= 1 and width - 8 - border >= border; blocks
 * of 8 results start at columns border, border + 8, ... up to width - 8 -
 * border, and the result in column border + x is centred on source column
 * 3 + x. Vertical: runs when width >= 8 and height > 2 * border; filters the
 * columns of whole 8-column blocks in rows border .. height-border-1, taking
 * rows border-3 .. border+3 first and row 2 * border + 1 + t after output t
 * (with border 3: centred on its own row).
 * A negative border writes nothing, and so does any call the size tests above
 * turn away (they hold for every 32-bit value, with no overflow).
 * Writes: horizontal, columns border .. border + 8n - 1 of every row, with
 * n = (width - 8 - 2 * border) / 8 + 1 blocks; vertical, columns 0 .. c - 1,
 * c = width & ~7, of rows border .. height - border - 1. Nothing else.
 * A border below 3 reads source bytes outside the plane, which the results
 * depend on, so the caller must provide them: the horizontal pass reads
 * max(0, 8n + 6 - width) bytes after the plane (at most 6 - 2 * border); the
 * vertical pass reads (3 - border) * width bytes before it and, when
 * height < border + 4, rows height .. border + 3 after it (columns 0 .. c - 1
 * of each). With border 3 or more nothing outside the plane is read.
 */
VIDEOHDR_API void horizontalFilter7x7neon(const uint8_t *src, uint8_t *dst, int32_t width,
                                          int32_t height, int32_t border);
VIDEOHDR_API void VerticalFilter7x7neon(const uint8_t *src, uint8_t *dst, int32_t width,
                                        int32_t height, int32_t border);
VIDEOHDR_API void horizontalFilter7x7neon_Smooth(const uint8_t *src, uint8_t *dst, int32_t width,
                                                 int32_t height, int32_t border);
VIDEOHDR_API void VerticalFilter7x7neon_Smooth(const uint8_t *src, uint8_t *dst, int32_t width,
                                               int32_t height, int32_t border);

/*
 * Halving by point sampling: dst[r * (width >> 1) + c] = src[2r * stride + 2c]
 * for r < height >> 1, c < width >> 1 (destination tightly packed). Both
 * variants give the same bytes and write nothing past the destination plane;
 * nothing when either half is below 1. The source is read within its first
 * (2 * (height >> 1) - 2) * stride + 2 * (width >> 1) bytes, so a plane of
 * (height - 1) * stride + width bytes always suffices. A stride below width
 * is allowed (source rows overlap); a negative one reads rows before src.
 */
VIDEOHDR_API void downScale_2x_uint8_t(const uint8_t *src, uint8_t *dst, int32_t width,
                                       int32_t height, int32_t stride);
VIDEOHDR_API void downScale_2x_uint8_t_NEON(const uint8_t *src, uint8_t *dst, int32_t width,
                                            int32_t height, int32_t stride);
/*
 * Averaging doubling (destination pitch 2 * stride): output (Y, X) for
 * Y < 2 * height - 2, X < 2 * width - 2 is the truncated mean of the source
 * 2x2 block at (Y >> 1, X >> 1); the last two rows and columns are left as
 * they are. Needs height >= 2 and width >= 2, else writes nothing. Reads
 * (height - 1) * stride + width source bytes and writes within the first
 * (2 * height - 3) * 2 * stride + 2 * width - 2 destination bytes (with
 * stride < width the output rows overlap and later rows win).
 */
VIDEOHDR_API void upscale_2x_uint8_t(const uint8_t *src, uint8_t *dst, int32_t width,
                                     int32_t height, int32_t stride);
/*
 * Replicating doubling (destination pitch 2 * stride, 2 * height rows; a
 * different operation from upscale_2x_uint8_t): each even row is built in
 * 16-byte blocks of doubled source bytes while the block start is below
 * 2 * width, then copied whole to the odd row. So X < min(16 * ceil(width / 8),
 * 2 * stride) gives src[Y >> 1][X >> 1] (the last block doubles source row
 * padding when stride > width), and any further bytes of the row keep their
 * old content, copied to the odd row too. Nothing is written past the
 * destination plane of 2 * height * 2 * stride bytes; each source row is
 * read over its first min(8 * ceil(width / 8), stride) bytes (source row
 * padding included), so the source must hold (height - 1) * stride + that
 * many bytes. height < 1 or a negative stride writes nothing.
 */
VIDEOHDR_API void upscale_2x_uint8_t_NEON(const uint8_t *src, uint8_t *dst, int32_t width,
                                          int32_t height, int32_t stride);
/*
 * Splits `width` bytes (width >> 1 pairs) of each interleaved row, pitch
 * `stride`, into byte 0 and byte 1 planes of pitch stride >> 1; nothing when
 * height < 1 or width < 2 (an odd last byte is not read). Reads
 * (height - 1) * stride + 2 * (width >> 1) bytes and writes
 * (height - 1) * (stride >> 1) + (width >> 1) bytes of each plane. A stride
 * below width makes the output rows overlap: the later row's bytes win.
 */
VIDEOHDR_API void extract_uvBuffer(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf,
                                   int32_t width, int32_t height, int32_t stride);
/* Interleaves `width` pairs per row; all three planes are tightly packed:
 * reads width * height bytes of each input, writes 2 * width * height
 * bytes; nothing when width or height is below 1. */
VIDEOHDR_API void combine_uvBuffer(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf,
                                   int32_t width, int32_t height);

#ifdef __cplusplus
}
#endif

#endif /* VIDEOHDR_H */
