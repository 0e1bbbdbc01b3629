// The plane-aware entry point: checks a caller's planes, runs the frame
// through the handle in place or through the packed work frame, and reports
// what the library did with it.
#include "videohdr_planes.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "plane_copy.h"
#include "plane_layout.h"

struct VideoHdrPlanes {
  // Made with the state's first frame, not with the state: the library's
  // release logs a failure line ("align_para free failed ...") for a handle
  // that never took a frame, which is the handle calls' exact behaviour and
  // stays so. A state closed before its first frame (a camera that never
  // started, a pipeline that failed to negotiate) then has no handle to
  // release and closes without a line that reads like a fault. The handle's
  // memory comes on the first frame with the contexts the library makes then.
  VideoHdrHandle *handle;
  uint8_t *work;  // the packed work frame: stride = width
  int32_t width;
  int32_t height;
  // Rows from the start of the handle's frames to their chroma, 0 until the
  // first frame fixes it: the library builds its fusion context from the
  // first frame's scanline and writes every fused chroma plane at that row,
  // so all later frames must be given with the same one.
  int32_t scanline;
  // Set by videohdr_planes_restart: the next frame primes the handle again.
  bool restartPending;
};

#define VIDEOHDR_PLANES_TEXT(x) #x
#define VIDEOHDR_PLANES_NUMBER(x) VIDEOHDR_PLANES_TEXT(x)

namespace {

using vhplanes::PlaneSet;
using vhplanes::SourcePlanes;

// With a width that is a multiple of 16 every chroma row is whole 16-byte
// blending blocks. Otherwise the last chroma row's partial block takes
// weights from past the end of the half-resolution weight plane, and what
// lies there depends on the scanline (the point samples the decimation
// spilled when rows separate the planes, the smoothing's scratch plane when
// none do): a gap between the planes would then change the fused chroma.
constexpr int32_t kGapSafeWidthMultiple = 16;

size_t workFrameBytes(int32_t width, int32_t height) {
  // Room for the chroma as far past the luma as a frame processed in place
  // may fix it, so that later frames of other layouts can follow it.
  const size_t rows = static_cast<size_t>(height) + VIDEOHDR_PLANES_MAX_GAP_ROWS;
  return static_cast<size_t>(width) * rows + static_cast<size_t>(width) * height / 2;
}

void destroyState(VideoHdrPlanes *s) {
  if (!s) return;
  Video_HDR_Release(s->handle);
  std::free(s->work);
  std::free(s);
}

int32_t checkFrame(const VideoHdrPlanes *s, const SourcePlanes &p) {
  if (!s) return VIDEOHDR_PLANES_ERR_NULL_STATE;
  if (p.width != s->width || p.height != s->height) return VIDEOHDR_PLANES_ERR_SIZE_CHANGED;
  if (!p.y || !p.u || !p.v) return VIDEOHDR_PLANES_ERR_NULL_PLANE;
  const int32_t strides =
      vhplanes::checkStrides(p.width, p.yRowStride, p.uvRowStride, p.uvPixelStride);
  if (strides != VIDEOHDR_PLANES_OK) return strides;
  if (vhplanes::planesOverlap(p)) return VIDEOHDR_PLANES_ERR_OVERLAP;
  return VIDEOHDR_PLANES_OK;
}

// The scanline at which the library can take the caller's planes as they
// are, giving the bytes of the packed frame; 0 when they must be packed.
int32_t inPlaceScanline(const VideoHdrPlanes &s, const SourcePlanes &p) {
  const int32_t rows = vhplanes::chromaRowsAfterLuma(p);
  if (rows == 0) return 0;
  if (s.scanline != 0) return rows == s.scanline ? rows : 0;
  return rows == p.height || p.width % kGapSafeWidthMultiple == 0 ? rows : 0;
}

// The fusion's own choice of the brighter exposure: luma sums at every 4th
// byte of every 32nd row of the handle's copy of the current frame and of the
// aligned previous frame, the current frame winning ties.
bool currentIsBrighter(const uint8_t *current, const uint8_t *alignedPrevious, int32_t stride,
                       int32_t height) {
  int32_t sumCurrent = 0;
  int32_t sumPrevious = 0;
  for (int32_t y = 0; y < height; y += 32) {
    const ptrdiff_t row = static_cast<ptrdiff_t>(y) * stride;
    for (int32_t x = 0; x < stride; x += 4) {
      sumCurrent += current[row + x];
      sumPrevious += alignedPrevious[row + x];
    }
  }
  return sumCurrent >= sumPrevious;
}

// What the library left in the handle after a fused frame. `count` is the
// frame counter before the call: its parity chose the history buffer that
// took the current frame.
void readFusion(const VideoHdrHandle &handle, int32_t count, VideoHdrPlanesResult *r) {
  if (const AlignContext *align = handle.alignContext) {
    // The per-level shifts are carved from the workspace, which a failed
    // allocation leaves without.
    if (align->levelDx) {
      r->foundDx = align->levelDx[0];
      r->foundDy = align->levelDy[0];
    }
    r->appliedDx = align->lastDx;
    r->appliedDy = align->lastDy;
  }
  const uint8_t *current = (count & 1) ? handle.frameBuf1 : handle.frameBuf0;
  r->currentBrighter = currentIsBrighter(current, handle.alignedBuf, handle.stride, handle.height);
}

// A new sequence on a handle that has taken frames: what the handle's first
// frame does, without the allocations that only a first frame makes. The
// frame becomes the previous frame of the next one (history buffer 0, which
// a counter of 1 picks, luma and the chroma right behind it), and the shift
// filter forgets the shift of the last pair, as a new handle starts from
// rest. Everything else the next frame reads it first writes itself.
void primeAgain(VideoHdrHandle *handle, const uint8_t *frame, int32_t width, int32_t height,
                int32_t scanline) {
  const size_t lumaBytes = static_cast<size_t>(width) * height;
  std::memcpy(handle->frameBuf0, frame, lumaBytes);
  std::memcpy(handle->frameBuf0 + lumaBytes, frame + static_cast<ptrdiff_t>(width) * scanline,
              lumaBytes / 2);
  if (AlignContext *align = handle->alignContext) align->lastDx = align->lastDy = 0;
  handle->frameCount = 1;
}

// The state's handle, made with its first frame (see VideoHdrPlanes::handle);
// false when out of memory.
bool haveHandle(VideoHdrPlanes *s) { return s->handle || (s->handle = Video_HDR_Initial()); }

// Whether the handle's first frame made every context: the library goes on
// without one it could not allocate (fusing unaligned, or not at all) and
// never tries again.
bool contextsComplete(const VideoHdrHandle &handle) {
  return handle.alignContext && handle.alignContext->workBuf && handle.fusionContext;
}

// Frees what a first frame made and makes the handle new again, so that the
// next frame is a first frame and retries the allocations: a phone's memory
// pressure passes, and the caller learns from the status in the meantime
// rather than getting frames silently unfused.
void forgetFirstFrame(VideoHdrHandle *handle) {
  if (handle->alignContext) ReleaseAlignHandleParams(handle);
  ReleaseFusionHandleParams(handle);
  handle->fusionContext = nullptr;
  handle->fusionAux = nullptr;
  handle->frameCount = 0;
}

// Runs the library on a packed frame (stride = width, chroma `scanline` rows
// after the luma) and reports what it did.
int32_t runFrame(VideoHdrPlanes *s, uint8_t *frame, int32_t scanline, VideoHdrPlanesResult *r) {
  // Without memory for the handle the frame is refused as when its contexts
  // cannot be had: one answer for a first frame that found no memory.
  if (!haveHandle(s)) return VIDEOHDR_PLANES_REFUSED;
  const int32_t count = s->handle->frameCount;
  if (s->restartPending && count != 0) {
    primeAgain(s->handle, frame, s->width, s->height, scanline);
    s->restartPending = false;
    return VIDEOHDR_PLANES_PRIMED;
  }
  // The two caller values are stored by the handle and read by nothing.
  if (!Video_HDR_Process(s->handle, frame, 0, 1, s->width, s->height, s->width, scanline))
    return VIDEOHDR_PLANES_REFUSED;
  if (count == 0 && !contextsComplete(*s->handle)) {
    forgetFirstFrame(s->handle);
    return VIDEOHDR_PLANES_REFUSED;
  }
  s->scanline = scanline;
  s->restartPending = false;
  // The first frame only primes the handle and comes back unchanged.
  if (count == 0) return VIDEOHDR_PLANES_PRIMED;
  readFusion(*s->handle, count, r);
  return VIDEOHDR_PLANES_PROCESSED;
}

// Rows from the start of the work frame to its chroma: the state's, once a
// first frame fixed it.
int32_t workScanline(const VideoHdrPlanes &s) { return s.scanline ? s.scanline : s.height; }

ptrdiff_t chromaOffset(const VideoHdrPlanes &s, int32_t scanline) {
  return static_cast<ptrdiff_t>(s.width) * scanline;
}

int32_t processFrame(VideoHdrPlanes *s, const PlaneSet &p, VideoHdrPlanesResult *r) {
  const int32_t error = checkFrame(s, p);
  if (error != VIDEOHDR_PLANES_OK) return error;
  if (const int32_t rows = inPlaceScanline(*s, p)) {
    r->inPlace = 1;
    return runFrame(s, p.y, rows, r);
  }
  const int32_t scanline = workScanline(*s);
  vhplanes::gatherFrame(p, s->work, chromaOffset(*s, scanline));
  const int32_t status = runFrame(s, s->work, scanline, r);
  if (status == VIDEOHDR_PLANES_PROCESSED)
    vhplanes::scatterFrame(s->work, chromaOffset(*s, scanline), vhplanes::packsVFirst(p), p);
  return status;
}

int32_t checkFramePair(const VideoHdrPlanes *s, const SourcePlanes &in, const PlaneSet &out) {
  int32_t error = checkFrame(s, in);
  if (error == VIDEOHDR_PLANES_OK) error = checkFrame(s, out);
  if (error == VIDEOHDR_PLANES_OK && vhplanes::framesOverlap(in, out))
    error = VIDEOHDR_PLANES_ERR_OVERLAP;
  return error;
}

// The output receives what the in-place call would leave in a writable copy
// of the input, whatever the status: the fused frame, or the copy itself.
int32_t processFrameTo(VideoHdrPlanes *s, const SourcePlanes &in, const PlaneSet &out,
                       VideoHdrPlanesResult *r) {
  const int32_t error = checkFramePair(s, in, out);
  if (error != VIDEOHDR_PLANES_OK) return error;
  // The fusion weighs a chroma pair's two bytes by position, so the input's
  // order is what it must see. An output of the library's layout that keeps
  // that order takes the packed input and is processed where it lies: one
  // copy of the frame instead of two.
  const bool vFirst = vhplanes::packsVFirst(in);
  const int32_t rows = vhplanes::packsVFirst(out) == vFirst ? inPlaceScanline(*s, out) : 0;
  if (rows) {
    vhplanes::gatherFrame(in, out.y, chromaOffset(*s, rows));
    r->inPlace = 1;
    return runFrame(s, out.y, rows, r);
  }
  const int32_t scanline = workScanline(*s);
  vhplanes::gatherFrame(in, s->work, chromaOffset(*s, scanline));
  const int32_t status = runFrame(s, s->work, scanline, r);
  vhplanes::scatterFrame(s->work, chromaOffset(*s, scanline), vFirst, out);
  return status;
}

}  // namespace

extern "C" {

int32_t videohdr_planes_create(int32_t width, int32_t height, VideoHdrPlanes **planes) {
  if (!planes) return VIDEOHDR_PLANES_ERR_NULL_STATE;
  const int32_t size = vhplanes::checkFrameSize(width, height);
  if (size != VIDEOHDR_PLANES_OK) return size;
  auto *s = static_cast<VideoHdrPlanes *>(std::calloc(1, sizeof(VideoHdrPlanes)));
  if (!s) return VIDEOHDR_PLANES_ERR_OUT_OF_MEMORY;
  s->width = width;
  s->height = height;
  s->work = static_cast<uint8_t *>(std::malloc(workFrameBytes(width, height)));
  if (!s->work) {
    destroyState(s);
    return VIDEOHDR_PLANES_ERR_OUT_OF_MEMORY;
  }
  *planes = s;
  return VIDEOHDR_PLANES_OK;
}

int32_t videohdr_planes_process(VideoHdrPlanes *planes, uint8_t *y, int32_t yRowStride, uint8_t *u,
                                uint8_t *v, int32_t uvRowStride, int32_t uvPixelStride,
                                int32_t width, int32_t height, VideoHdrPlanesResult *result) {
  VideoHdrPlanesResult local;
  VideoHdrPlanesResult *r = result ? result : &local;
  *r = VideoHdrPlanesResult{};
  const PlaneSet p = {y, u, v, yRowStride, uvRowStride, uvPixelStride, width, height};
  r->status = processFrame(planes, p, r);
  return r->status;
}

int32_t videohdr_planes_process_to(VideoHdrPlanes *planes, const uint8_t *y, int32_t yRowStride,
                                   const uint8_t *u, const uint8_t *v, int32_t uvRowStride,
                                   int32_t uvPixelStride, uint8_t *outY, int32_t outYRowStride,
                                   uint8_t *outU, uint8_t *outV, int32_t outUvRowStride,
                                   int32_t outUvPixelStride, int32_t width, int32_t height,
                                   VideoHdrPlanesResult *result) {
  VideoHdrPlanesResult local;
  VideoHdrPlanesResult *r = result ? result : &local;
  *r = VideoHdrPlanesResult{};
  const SourcePlanes in = {y, u, v, yRowStride, uvRowStride, uvPixelStride, width, height};
  const PlaneSet out = {outY,  outU,  outV, outYRowStride, outUvRowStride, outUvPixelStride,
                        width, height};
  // The input given as its own output is the in-place call.
  r->status = vhplanes::sameFrame(in, out) ? processFrame(planes, out, r)
                                           : processFrameTo(planes, in, out, r);
  return r->status;
}

int32_t videohdr_planes_restart(VideoHdrPlanes *planes) {
  if (!planes) return VIDEOHDR_PLANES_ERR_NULL_STATE;
  planes->restartPending = true;
  return VIDEOHDR_PLANES_OK;
}

void videohdr_planes_destroy(VideoHdrPlanes *planes) { destroyState(planes); }

int32_t videohdr_planes_plane_bytes(int32_t width, int32_t height, int32_t yRowStride,
                                    int32_t uvRowStride, int32_t uvPixelStride, int64_t *yBytes,
                                    int64_t *uvBytes) {
  int32_t status = vhplanes::checkFrameSize(width, height);
  if (status == VIDEOHDR_PLANES_OK)
    status = vhplanes::checkStrides(width, yRowStride, uvRowStride, uvPixelStride);
  if (status != VIDEOHDR_PLANES_OK) return status;
  if (yBytes) *yBytes = vhplanes::lumaPlaneBytes(width, height, yRowStride);
  if (uvBytes) *uvBytes = vhplanes::chromaPlaneBytes(width, height, uvRowStride, uvPixelStride);
  return VIDEOHDR_PLANES_OK;
}

const char *videohdr_planes_status_text(int32_t status) {
  switch (status) {
    case VIDEOHDR_PLANES_OK:
      return "ok";
    case VIDEOHDR_PLANES_PROCESSED:
      return "processed";
    case VIDEOHDR_PLANES_PRIMED:
      return "primed: the first frame, left unchanged";
    case VIDEOHDR_PLANES_REFUSED:
      return "refused: out of memory on the state's first frame (the next frame tries again)";
    case VIDEOHDR_PLANES_ERR_NULL_STATE:
      return "the state is null (or videohdr_planes_create's out pointer)";
    case VIDEOHDR_PLANES_ERR_NULL_PLANE:
      return "y, u or v is null (of an output: outY, outU or outV)";
    case VIDEOHDR_PLANES_ERR_BAD_SIZE:
      return "width and height must be positive and even, with width * height at "
             "most " VIDEOHDR_PLANES_NUMBER(VIDEOHDR_MAX_LUMA_BYTES);
    case VIDEOHDR_PLANES_ERR_SIZE_CHANGED:
      return "width or height differs from the size the state was created for";
    case VIDEOHDR_PLANES_ERR_PIXEL_STRIDE:
      return "uvPixelStride (of an output: outUvPixelStride) is neither 1 nor 2";
    case VIDEOHDR_PLANES_ERR_ROW_STRIDE:
      return "yRowStride is below width, or uvRowStride is below uvPixelStride * (width / 2) (of "
             "an output: outYRowStride, outUvRowStride, outUvPixelStride)";
    case VIDEOHDR_PLANES_ERR_OVERLAP:
      return "two planes share bytes (u and v may only interleave: uvPixelStride 2, one byte "
             "apart)";
    case VIDEOHDR_PLANES_ERR_OUT_OF_MEMORY:
      return "out of memory";
    default:
      return "unknown status";
  }
}

}  // extern "C"
