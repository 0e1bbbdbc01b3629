// The handle and the per-frame driver: keeps the previous frame, runs
// alignment and fusion, counts frames and logs.
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "alignment_op/align_internal.h"
#include "hdr_log.h"
#include "kernels.h"
#include "videohdr.h"

// On 32-bit targets the record keeps the word layout that camera
// integrations were built against.
static_assert(sizeof(void *) != 4 || sizeof(VideoHdrHandle) == 68, "17 words");
static_assert(sizeof(void *) != 4 || offsetof(VideoHdrHandle, frameCount) == 12, "word 3");
static_assert(sizeof(void *) != 4 || offsetof(VideoHdrHandle, scanline) == 28, "word 7");
static_assert(sizeof(void *) != 4 || offsetof(VideoHdrHandle, frameBuf0) == 40, "word 10");
static_assert(sizeof(void *) != 4 || offsetof(VideoHdrHandle, fusionAux) == 64, "word 16");

namespace {

// The counter runs 1, 2, ... 1000000 and then restarts at 1, never at 0, so
// the first-frame path runs once per handle and the parity of the counter
// keeps alternating the history buffers across the wrap.
constexpr int32_t kLastCountBeforeWrap = 999999;

// Slack after the three frame buffers, so that a vector load that runs a few
// bytes past the aligned-frame buffer stays inside the block.
constexpr size_t kFrameBlockSlack = 64;

// Copies the caller's frame into a history buffer, dropping the padding rows
// between height and scanline: the chroma plane lands right behind the luma.
void copyFrameIn(uint8_t *dst, const uint8_t *frame, int32_t stride, int32_t height,
                 int32_t scanline) {
  const int32_t lumaBytes = stride * height;
  const int32_t chromaBytes = lumaBytes / 2;
  const auto copyBytes = videohdr::activeKernels().copy.copyBytes;
  copyBytes(dst, frame, static_cast<size_t>(lumaBytes));
  copyBytes(dst + lumaBytes, frame + static_cast<ptrdiff_t>(scanline) * stride,
            static_cast<size_t>(chromaBytes));
}

// The geometry the handle's contexts were built with on its first frame.
struct BuiltGeometry {
  int32_t width, height, stride, scanline;
};

// The fusion context keeps the whole first geometry; the alignment record only
// 16 bits of width and height, so it stands in only while fusion has none.
bool builtGeometry(const VideoHdrHandle *handle, BuiltGeometry *g) {
  if (const FusionContext *f = handle->fusionContext) {
    *g = {f->width, f->height, f->stride, f->scanline};
    return true;
  }
  if (const AlignConfig *a = handle->alignConfig) {
    *g = {a->width, a->height, a->stride, 0};
    return true;
  }
  return false;
}

bool sameGeometry(const BuiltGeometry &built, bool fullWidth, int32_t width, int32_t height,
                  int32_t stride) {
  const int32_t w = fullWidth ? width : static_cast<uint16_t>(width);
  const int32_t h = fullWidth ? height : static_cast<uint16_t>(height);
  return built.width == w && built.height == h && built.stride == stride;
}

// Logs one refusal line at error priority and answers true.
__attribute__((format(printf, 1, 2))) bool refuse(const char *format, ...) {
  char line[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  __android_log_print(ANDROID_LOG_ERROR, videohdr::kLogTag, "%s", line);
  return true;
}

// Logs why a frame cannot be taken and answers true; answers false for a
// frame the handle can process. Nothing else is touched either way.
bool refuseFrame(const VideoHdrHandle *handle, const uint8_t *frame, int32_t width, int32_t height,
                 int32_t stride, int32_t scanline) {
  if (!handle) return refuse("V_HDR Process refused: null handle");
  if (!frame) return refuse("V_HDR Process refused: null frame");
  if (width <= 0 || height <= 0 || stride <= 0)
    return refuse("V_HDR Process refused: width %d, height %d and stride %d must be positive",
                  width, height, stride);
  if (stride < width)
    return refuse("V_HDR Process refused: stride %d below width %d", stride, width);
  if (scanline < height)
    return refuse("V_HDR Process refused: scanline %d below height %d", scanline, height);
  const int64_t lumaBytes = int64_t{stride} * height;
  if (lumaBytes > VIDEOHDR_MAX_LUMA_BYTES)
    return refuse("V_HDR Process refused: stride %d x height %d = %lld luma bytes above %d", stride,
                  height, static_cast<long long>(lumaBytes), VIDEOHDR_MAX_LUMA_BYTES);
  const int64_t areaBytes = int64_t{stride} * scanline;
  if (areaBytes > VIDEOHDR_MAX_AREA_BYTES)
    return refuse("V_HDR Process refused: stride %d x scanline %d = %lld bytes above %d", stride,
                  scanline, static_cast<long long>(areaBytes), VIDEOHDR_MAX_AREA_BYTES);
  if (handle->frameCount == 0) return false;

  BuiltGeometry built;
  if (!builtGeometry(handle, &built))
    return refuse("V_HDR Process refused: the first frame left no contexts (out of memory)");
  const bool fullWidth = handle->fusionContext != nullptr;
  if (!sameGeometry(built, fullWidth, width, height, stride))
    return refuse(
        "V_HDR Process refused: width %d, height %d, stride %d differ from the first frame's "
        "%d, %d, %d",
        width, height, stride, built.width, built.height, built.stride);
  // The fusion writes the chroma at the first frame's scanline: a smaller one
  // would put it past the end of this frame.
  if (scanline < built.scanline)
    return refuse("V_HDR Process refused: scanline %d below the first frame's %d", scanline,
                  built.scanline);
  return false;
}

// A handle whose frames the motion search cannot take says so once, when its
// first frame builds the contexts (the geometry never changes afterwards).
void logIfAlignmentSkipped(const AlignContext *ctx) {
  if (!ctx || !ctx->workBuf || videohdr::searchSupported(ctx)) return;
  __android_log_print(ANDROID_LOG_INFO, videohdr::kLogTag,
                      "V_HDR alignment skipped: width %d is below the %d pixels the motion "
                      "search needs",
                      ctx->width, VIDEOHDR_MIN_SEARCH_WIDTH);
}

VideoHdrHandle *createHandle() {
  auto *handle = static_cast<VideoHdrHandle *>(std::malloc(sizeof(VideoHdrHandle)));
  if (!handle) return nullptr;
  std::memset(handle, 0, sizeof *handle);
  // Zero-filled so that a frame never reads bytes nobody wrote, whatever state
  // a caller restores into the counter (calloc's fresh pages cost nothing).
  auto *block =
      static_cast<uint8_t *>(std::calloc(1, VIDEOHDR_FRAME_BLOCK_BYTES + kFrameBlockSlack));
  if (!block) {
    std::free(handle);
    return nullptr;
  }
  handle->frameBuf0 = block;
  handle->frameBuf1 = block + VIDEOHDR_FRAME_BUFFER_BYTES;
  handle->alignedBuf = block + 2 * VIDEOHDR_FRAME_BUFFER_BYTES;
  handle->initDone = 1;
  return handle;
}

int32_t destroyHandle(VideoHdrHandle *handle) {
  if (!handle) return 1;
  ReleaseAlignHandleParams(handle);
  if (handle->fusionContext) ReleaseFusionHandleParams(handle);
  std::free(handle->frameBuf0);
  std::free(handle);
  return 1;
}

}  // namespace

extern "C" {

VideoHdrHandle *createVideoHdrHandle(void) { return createHandle(); }
VideoHdrHandle *Video_HDR_Initial(void) { return createHandle(); }

int32_t initVideoHdr(VideoHdrHandle *handle, int32_t width, int32_t height, int32_t stride) {
  handle->width = width;
  handle->height = height;
  handle->stride = stride;
  return 0;
}

int32_t Video_HDR_Process(VideoHdrHandle *handle, uint8_t *frame, int32_t callerParam,
                          int32_t callerFlag, int32_t width, int32_t height, int32_t stride,
                          int32_t scanline) {
  if (refuseFrame(handle, frame, width, height, stride, scanline)) return 0;
  __android_log_print(ANDROID_LOG_INFO, videohdr::kLogTag, "TQ0530 V_HDR Process %d..., %d",
                      handle->frameCount, scanline);
  handle->callerParam = callerParam;
  handle->callerFlag = callerFlag;
  handle->width = width;
  handle->height = height;
  handle->stride = stride;
  handle->scanline = scanline;

  const int32_t count = handle->frameCount;
  if (count == 0) {
    AllocAlignHandleParams(handle);
    AllocFusionHandleParams(handle);
    logIfAlignmentSkipped(handle->alignContext);
    copyFrameIn(handle->frameBuf0, frame, stride, height, scanline);
    handle->frameCount = 1;
    return 1;
  }

  // Frame n is written where frame n + 1 will look for its previous frame.
  const bool odd = (count & 1) != 0;
  uint8_t *cur = odd ? handle->frameBuf1 : handle->frameBuf0;
  uint8_t *prev = odd ? handle->frameBuf0 : handle->frameBuf1;
  copyFrameIn(cur, frame, stride, height, scanline);
  AlignProcess(handle, cur, prev, handle->alignedBuf, count);
  ExposureFusionNeon(handle, cur, handle->alignedBuf, frame);

  handle->frameCount = count > kLastCountBeforeWrap ? 1 : count + 1;
  __android_log_print(ANDROID_LOG_INFO, videohdr::kLogTag, "V_HDR Process Successfully %d",
                      handle->frameCount);
  return 1;
}

int32_t processVideoHdr(VideoHdrHandle *handle, uint8_t *frame, int32_t callerParam,
                        int32_t scanline) {
  if (!handle) {
    refuse("V_HDR Process refused: null handle");
    return 0;
  }
  // A refused frame answers 0 here too; every taken frame answers 1.
  return Video_HDR_Process(handle, frame, callerParam, 1, handle->width, handle->height,
                           handle->stride, scanline);
}

int32_t destroyVideoHdrHandle(VideoHdrHandle *handle) { return destroyHandle(handle); }
int32_t Video_HDR_Release(VideoHdrHandle *handle) { return destroyHandle(handle); }

}  // extern "C"
