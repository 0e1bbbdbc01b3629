// The plane-aware entry point: checks a caller's planes, runs the frame
// through the handle in place or through the packed work frame, and reports
// what the library did with it.
#include "videohdr_planes.h"

#include <cstddef>
#include <cstdlib>

#include "plane_copy.h"
#include "plane_layout.h"

struct VideoHdrPlanes {
  VideoHdrHandle *handle;
  uint8_t *work;  // the packed work frame: stride = width
  int32_t width;
  int32_t height;
  // Rows from the start of the handle's frames to their chroma, 0 until the
  // first frame fixes it: the library builds its fusion context from the
  // first frame's scanline and writes every fused chroma plane at that row,
  // so all later frames must be given with the same one.
  int32_t scanline;
};

#define VIDEOHDR_PLANES_TEXT(x) #x
#define VIDEOHDR_PLANES_NUMBER(x) VIDEOHDR_PLANES_TEXT(x)

namespace {

using vhplanes::PlaneSet;

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

int32_t checkFrame(const VideoHdrPlanes *s, const PlaneSet &p) {
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
int32_t inPlaceScanline(const VideoHdrPlanes &s, const PlaneSet &p) {
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

int32_t processFrame(VideoHdrPlanes *s, const PlaneSet &p, VideoHdrPlanesResult *r) {
  const int32_t error = checkFrame(s, p);
  if (error != VIDEOHDR_PLANES_OK) return error;
  const int32_t inPlaceRows = inPlaceScanline(*s, p);
  r->inPlace = inPlaceRows != 0;
  const int32_t scanline = inPlaceRows ? inPlaceRows : s->scanline ? s->scanline : p.height;
  const ptrdiff_t chromaOffset = static_cast<ptrdiff_t>(p.width) * scanline;
  if (!r->inPlace) vhplanes::gatherFrame(p, s->work, chromaOffset);

  const int32_t count = s->handle->frameCount;
  // The two caller values are stored by the handle and read by nothing.
  if (!Video_HDR_Process(s->handle, r->inPlace ? p.y : s->work, 0, 1, p.width, p.height, p.width,
                         scanline))
    return VIDEOHDR_PLANES_REFUSED;
  s->scanline = scanline;
  // The first frame only primes the handle and comes back unchanged.
  if (count == 0) return VIDEOHDR_PLANES_PRIMED;
  if (!r->inPlace) vhplanes::scatterFrame(s->work, chromaOffset, p);
  readFusion(*s->handle, count, r);
  return VIDEOHDR_PLANES_PROCESSED;
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
  s->handle = Video_HDR_Initial();
  s->work = static_cast<uint8_t *>(std::malloc(workFrameBytes(width, height)));
  if (!s->handle || !s->work) {
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
      return "refused by the library (out of memory on its first frame)";
    case VIDEOHDR_PLANES_ERR_NULL_STATE:
      return "null state";
    case VIDEOHDR_PLANES_ERR_NULL_PLANE:
      return "a plane is null";
    case VIDEOHDR_PLANES_ERR_BAD_SIZE:
      return "width and height must be positive and even, with width * height at "
             "most " VIDEOHDR_PLANES_NUMBER(VIDEOHDR_MAX_LUMA_BYTES);
    case VIDEOHDR_PLANES_ERR_SIZE_CHANGED:
      return "width and height differ from the state's";
    case VIDEOHDR_PLANES_ERR_PIXEL_STRIDE:
      return "uvPixelStride must be 1 or 2";
    case VIDEOHDR_PLANES_ERR_ROW_STRIDE:
      return "yRowStride is below width, or uvRowStride below uvPixelStride * width / 2";
    case VIDEOHDR_PLANES_ERR_OVERLAP:
      return "planes overlap";
    case VIDEOHDR_PLANES_ERR_OUT_OF_MEMORY:
      return "out of memory";
    default:
      return "unknown status";
  }
}

}  // extern "C"
