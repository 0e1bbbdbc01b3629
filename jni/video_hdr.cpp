// The handle and the per-frame driver: keeps the previous frame, runs
// alignment and fusion, counts frames and logs.
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "hdr_log.h"
#include "videohdr.h"

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
  std::memcpy(dst, frame, static_cast<size_t>(lumaBytes));
  std::memcpy(dst + lumaBytes, frame + static_cast<ptrdiff_t>(scanline) * stride,
              static_cast<size_t>(chromaBytes));
}

VideoHdrHandle *createHandle() {
  auto *handle = static_cast<VideoHdrHandle *>(std::malloc(sizeof(VideoHdrHandle)));
  if (!handle) return nullptr;
  std::memset(handle, 0, sizeof *handle);
  auto *block = static_cast<uint8_t *>(std::malloc(VIDEOHDR_FRAME_BLOCK_BYTES + kFrameBlockSlack));
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
  Video_HDR_Process(handle, frame, callerParam, 1, handle->width, handle->height, handle->stride,
                    scanline);
  return 1;
}

int32_t destroyVideoHdrHandle(VideoHdrHandle *handle) { return destroyHandle(handle); }
int32_t Video_HDR_Release(VideoHdrHandle *handle) { return destroyHandle(handle); }

}  // extern "C"
