// Alignment parameters, the alignment context and its single workspace, the
// alignment driver, and the release of the alignment state.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "../hdr_log.h"
#include "../kernels.h"
#include "../videohdr.h"
#include "align_internal.h"
#include "bitmap_ops.h"
#include "score_ops.h"

// On 32-bit targets the records keep the word layout that camera
// integrations were built against.
static_assert(sizeof(void *) != 4 || sizeof(AlignContext) == 212, "53 words");
static_assert(sizeof(void *) != 4 || offsetof(AlignContext, prevImage) == 36, "word 9");
static_assert(sizeof(void *) != 4 || offsetof(AlignContext, scratchPlane0) == 84, "word 21");
static_assert(sizeof(void *) != 4 || offsetof(AlignContext, histTable0) == 140, "word 35");
static_assert(sizeof(void *) != 4 || offsetof(AlignContext, histTable3) == 168, "word 42");
static_assert(sizeof(void *) != 4 || offsetof(AlignContext, lastCount) == 172, "word 43");
static_assert(sizeof(void *) != 4 || offsetof(AlignContext, countHistory) == 196, "word 49");
static_assert(sizeof(void *) != 4 || offsetof(AlignContext, ready) == 208, "word 52");
static_assert(sizeof(AlignConfig) == 24 && offsetof(AlignConfig, stride) == 4, "6 words");

namespace {

// The failure lines name this source and fixed line numbers; camera teams
// grep their logs for them, so both stay exactly as they have always been.
constexpr const char *kSourceName = "jni/alignment_op/tarn_hdr_mtbalign";
constexpr int kAllocFailedLine = 75;
constexpr int kNullHandleLine = 88;
constexpr int kNoContextLine = 95;

constexpr int32_t kDefaultLevels = 4;
constexpr int32_t kDefaultSearchStep = 2;
constexpr int32_t kDefaultMaxThreshold = 240;
constexpr int32_t kDefaultMinThreshold = 10;

// The workspace is always sized for the largest pyramid.
constexpr int32_t kMaxLevels = 4;

// Copies the parameter record into the context (the record's 16-bit width and
// height are what the context keeps).
void copyConfigIntoContext(AlignContext *ctx, const AlignConfig *cfg) {
  ctx->height = cfg->height;
  ctx->width = cfg->width;
  ctx->stride = cfg->stride;
  ctx->levels = cfg->levels;
  ctx->searchStep = cfg->searchStep;
  ctx->maxThreshold = cfg->maxThreshold;
  ctx->minThreshold = cfg->minThreshold;
}

// Allocates and clears the workspace; logs and answers false on failure.
bool allocateWorkspace(AlignContext *ctx) {
  std::free(ctx->workBuf);
  calCpuDataAlignMem(ctx, &ctx->workSize);
  // The slack past workSize keeps the vector kernels' reads past the last
  // region (the blend buffer's gradient sums) inside the allocation.
  // On a 32-bit target a workspace within the slack of 4 GiB cannot exist; the
  // addition must not wrap it into a tiny block that the search then overruns.
  constexpr size_t kLargestWorkSize = SIZE_MAX - videohdr::kWorkspaceSlack;
  const bool representable = size_t{ctx->workSize} <= kLargestWorkSize;
  size_t bytes = size_t{ctx->workSize} + videohdr::kWorkspaceSlack;
  ctx->workBuf = representable ? static_cast<uint8_t *>(std::malloc(bytes)) : nullptr;
  if (!ctx->workBuf) {
    __android_log_print(ANDROID_LOG_INFO, videohdr::kLogTag,
                        "align malloc failed in line number: %d functon: %s file: %s",
                        kAllocFailedLine, "allocAlignCPUMem", kSourceName);
    return false;
  }
  std::memset(ctx->workBuf, 0, bytes);
  return true;
}

// InitPara then ThreshBitmap. Where the luma sum is the plain byte sum, the
// sums are taken while the two images are copied instead of in a pass of
// their own.
int32_t takeImagesAndThreshold(AlignContext *ctx, const uint8_t *prevFrame,
                               const uint8_t *curFrame) {
  if (!videohdr::lumaSumIsPlain(ctx->width)) {
    InitPara(ctx, prevFrame, curFrame);
    return ThreshBitmap(ctx, ctx->maxThreshold, ctx->minThreshold);
  }
  videohdr::carveWorkspace(ctx);
  const size_t P =
      static_cast<size_t>(static_cast<uint32_t>(ctx->width) * static_cast<uint32_t>(ctx->height));
  const auto copyAndSum = videohdr::activeKernels().bitmap.copyLumaAndSum;
  const uint32_t sumPrev = copyAndSum(ctx->prevImage[0], prevFrame, P);
  const uint32_t sumCur = copyAndSum(ctx->curImage[0], curFrame, P);
  return videohdr::threshBitmapFromSums(ctx, ctx->maxThreshold, ctx->minThreshold,
                                        static_cast<int32_t>(sumPrev),
                                        static_cast<int32_t>(sumCur));
}

// The context field a region's start goes to, and back: a pointer field, or
// the level's entry of an array of four.
template <auto Field>
using FieldType = std::remove_reference_t<decltype(std::declval<AlignContext &>().*Field)>;

template <auto Field>
void place(AlignContext &ctx, int32_t level, uint8_t *start) {
  using T = FieldType<Field>;
  if constexpr (std::is_array_v<T>) {
    (ctx.*Field)[level] = reinterpret_cast<std::remove_extent_t<T>>(start);
  } else {
    ctx.*Field = reinterpret_cast<T>(start);
  }
}

template <auto Field>
const void *startOf(const AlignContext &ctx, int32_t level) {
  if constexpr (std::is_array_v<FieldType<Field>>) {
    return (ctx.*Field)[level];
  } else {
    return ctx.*Field;
  }
}

template <auto Field>
constexpr videohdr::WorkspaceRegion region(const char *name, videohdr::RegionSize size) {
  using T = FieldType<Field>;
  using Element = std::remove_pointer_t<std::remove_extent_t<T>>;
  return {name, size, std::is_array_v<T>, alignof(Element), place<Field>, startOf<Field>};
}

}  // namespace

namespace videohdr {

// The order is part of the library's results, not only of its addresses:
// ThreshBitmap's sums read up to 7 bytes past the last grey-image row, into
// the next region, and Sobel_Neon reads one byte past the blend buffer, which
// is why that buffer is last and the allocation's slack follows it.
const WorkspaceRegion kWorkspaceLayout[] = {
    region<&AlignContext::countHistory>("countHistory", RegionSize::History),
    region<&AlignContext::levelWidth>("levelWidth", RegionSize::LevelArray),
    region<&AlignContext::levelHeight>("levelHeight", RegionSize::LevelArray),
    region<&AlignContext::levelPitch>("levelPitch", RegionSize::LevelArray),
    region<&AlignContext::levelDx>("levelDx", RegionSize::LevelArray),
    region<&AlignContext::levelDy>("levelDy", RegionSize::LevelArray),
    region<&AlignContext::prevImage>("prevImage", RegionSize::Image),
    region<&AlignContext::curImage>("curImage", RegionSize::Image),
    region<&AlignContext::spareImage>("spareImage", RegionSize::Image),
    region<&AlignContext::prevBitmap>("prevBitmap", RegionSize::Bitmap),
    region<&AlignContext::curBitmap>("curBitmap", RegionSize::Bitmap),
    region<&AlignContext::movedBitmap>("movedBitmap", RegionSize::Bitmap),
    region<&AlignContext::histTable0>("histTable0", RegionSize::HistTable),
    region<&AlignContext::histTable1>("histTable1", RegionSize::HistTable),
    region<&AlignContext::histTable2>("histTable2", RegionSize::HistTable),
    region<&AlignContext::histTable3>("histTable3", RegionSize::MapTable),
    region<&AlignContext::scratchPlane0>("scratchPlane0", RegionSize::Image),
    region<&AlignContext::scratchPlane1>("scratchPlane1", RegionSize::Image),
    region<&AlignContext::scratchPlane2>("scratchPlane2", RegionSize::Image),
    region<&AlignContext::scratchPlane3>("scratchPlane3", RegionSize::Image),
    region<&AlignContext::scratchPlane4>("scratchPlane4", RegionSize::ImageAndHalf),
    region<&AlignContext::scratchPlane5>("scratchPlane5", RegionSize::Image),
};
const size_t kWorkspaceRegionCount = sizeof kWorkspaceLayout / sizeof kWorkspaceLayout[0];

uint32_t regionBytes(RegionSize size, const RegionGeometry &g) {
  switch (size) {
    case RegionSize::History:
      return 5 * sizeof(float);
    case RegionSize::LevelArray:
      return g.levelArray;
    case RegionSize::Image:
      return g.image;
    case RegionSize::Bitmap:
      return g.bitmap;
    case RegionSize::HistTable:
      return 256 * sizeof(uint32_t);
    case RegionSize::MapTable:
      return 257 * sizeof(uint32_t);
    case RegionSize::ImageAndHalf:
      return (3u * g.image) >> 1;
  }
  return 0;
}

// InitPara's carving and level geometry, without its two image copies.
void carveWorkspace(AlignContext *context) {
  AlignContext &c = *context;
  const int32_t L = c.levels;
  const int32_t w = c.width;
  const int32_t h = c.height;
  const uint32_t W = static_cast<uint32_t>(w + 63) >> 5;
  const RegionGeometry g = {static_cast<uint32_t>(w) * static_cast<uint32_t>(h),
                            16u * W * static_cast<uint32_t>(h + 1), 4u * static_cast<uint32_t>(L)};
  uint32_t offset = kWorkspaceHeadBytes;
  for (size_t i = 0; i < kWorkspaceRegionCount; ++i) {
    const WorkspaceRegion &r = kWorkspaceLayout[i];
    const uint32_t bytes = regionBytes(r.size, g);
    for (int32_t l = 0; l < (r.perLevel ? L : 1); ++l) {
      r.place(c, l, c.workBuf + offset);
      offset += bytes;
    }
  }
  for (int32_t l = 0; l < L; ++l) {
    c.levelWidth[l] = w >> l;
    c.levelHeight[l] = h >> l;
    c.levelPitch[l] = (((w >> l) + 63) >> 5) * 4;
  }
}

}  // namespace videohdr

extern "C" {

int32_t initAlignPara(AlignConfig *config, uint16_t width, uint16_t height, int32_t stride,
                      int32_t levels, int32_t searchStep, int32_t maxThreshold,
                      int32_t minThreshold) {
  if (levels > 4) levels = 4;
  if (levels < 0) levels = 0;
  config->width = width;
  config->height = height;
  config->stride = stride;
  config->levels = levels;
  config->searchStep = searchStep;
  config->maxThreshold = maxThreshold;
  config->minThreshold = minThreshold;
  return 1;
}

// The layout's regions for four levels, in 32-bit unsigned arithmetic that
// wraps: 4412 + 17P + (3P >> 1) + W (192 + 192 h), P = w h, W = (w + 63) >> 5.
int32_t calCpuDataAlignMem(AlignContext *context, uint32_t *size) {
  const uint32_t h = static_cast<uint32_t>(context->height);
  // 64-bit so that no width overflows the rounding; the shift stays arithmetic.
  const uint32_t W = static_cast<uint32_t>((int64_t{context->width} + 63) >> 5);
  const videohdr::RegionGeometry g = {static_cast<uint32_t>(context->width) * h, 16u * W * (h + 1),
                                      4u * kMaxLevels};
  uint32_t total = videohdr::kWorkspaceHeadBytes;
  for (size_t i = 0; i < videohdr::kWorkspaceRegionCount; ++i) {
    const videohdr::WorkspaceRegion &r = videohdr::kWorkspaceLayout[i];
    total += videohdr::regionBytes(r.size, g) * (r.perLevel ? kMaxLevels : 1);
  }
  *size = total;
  return 1;
}

int32_t allocAlignCPUMem(VideoHdrHandle *handle) {
  AlignContext *ctx = handle->alignContext;
  copyConfigIntoContext(ctx, handle->alignConfig);
  return allocateWorkspace(ctx) ? 1 : 0;
}

int32_t AllocAlignHandleParams(VideoHdrHandle *handle) {
  // Zero-filled records: lastDx, lastDy and lastCount start at 0.
  auto *ctx = static_cast<AlignContext *>(std::calloc(1, sizeof(AlignContext)));
  auto *cfg = static_cast<AlignConfig *>(std::calloc(1, sizeof(AlignConfig)));
  if (!ctx || !cfg) {
    // Without the records later frames skip alignment (see AlignProcess).
    std::free(ctx);
    std::free(cfg);
    handle->alignContext = nullptr;
    handle->alignConfig = nullptr;
    return 1;
  }
  handle->alignContext = ctx;
  handle->alignConfig = cfg;
  initAlignPara(cfg, static_cast<uint16_t>(handle->width), static_cast<uint16_t>(handle->height),
                handle->stride, kDefaultLevels, kDefaultSearchStep, kDefaultMaxThreshold,
                kDefaultMinThreshold);
  copyConfigIntoContext(ctx, cfg);
  allocateWorkspace(ctx);
  ctx->ready = 1;
  return 1;
}

void InitPara(AlignContext *context, const uint8_t *prevFrame, const uint8_t *curFrame) {
  videohdr::carveWorkspace(context);
  const size_t P = static_cast<size_t>(static_cast<uint32_t>(context->width) *
                                       static_cast<uint32_t>(context->height));
  const auto copyBytes = videohdr::activeKernels().copy.copyBytes;
  copyBytes(context->prevImage[0], prevFrame, P);
  copyBytes(context->curImage[0], curFrame, P);
}

int32_t AlignProcess(VideoHdrHandle *handle, uint8_t *curFrame, uint8_t *prevFrame,
                     uint8_t *outFrame, int32_t /*frameCount*/) {
  AlignContext *ctx = handle->alignContext;
  if (!videohdr::workspaceUsable(ctx)) {
    // No workspace to search in: the previous frame goes out unmoved.
    const int32_t w = ctx ? ctx->width : handle->width;
    const int32_t h = ctx ? ctx->height : handle->height;
    videohdr::writeAlignedFrame(w, h, 0, 0, prevFrame, curFrame, outFrame);
    return 0;
  }
  const int32_t brighterPrev = takeImagesAndThreshold(ctx, prevFrame, curFrame);
  for (int32_t l = 1; l < ctx->levels; ++l) buildGaussianPyramid(ctx, l);
  videohdr::searchAllLevels(ctx);
  getScanData(ctx, prevFrame, curFrame, outFrame);
  return brighterPrev;
}

int32_t freeMem(VideoHdrHandle *handle) {
  if (!handle) {
    __android_log_print(ANDROID_LOG_INFO, videohdr::kLogTag,
                        "videohdr handle free failed in line number : %d functon : %s file : %s",
                        kNullHandleLine, "freeMem", kSourceName);
    return 0;
  }
  AlignContext *ctx = handle->alignContext;
  if (!ctx) {
    __android_log_print(ANDROID_LOG_INFO, videohdr::kLogTag,
                        "align_para free failed in line number : %d functon : %s file : %s",
                        kNoContextLine, "freeMem", kSourceName);
    return 0;
  }
  if (ctx->workBuf) {
    std::free(ctx->workBuf);
    ctx->workBuf = nullptr;
  }
  std::free(handle->alignConfig);
  handle->alignConfig = nullptr;
  std::free(ctx);
  handle->alignContext = nullptr;
  return 1;
}

int32_t ReleaseAlignHandleParams(VideoHdrHandle *handle) {
  freeMem(handle);
  return 1;
}

}  // extern "C"

namespace videohdr {

bool workspaceUsable(const AlignContext *ctx) {
  return ctx && ctx->workBuf && ctx->width >= 1 && ctx->height >= 1 && ctx->levels >= 1 &&
         ctx->levels <= 4;
}

bool searchSupported(const AlignContext *ctx) {
  return workspaceUsable(ctx) && (ctx->width >> (ctx->levels - 1)) >= kMinSearchLevelWidth;
}

void storeZeroShift(AlignContext *ctx) {
  for (int32_t l = 0; l < ctx->levels; ++l) {
    ctx->levelDx[l] = 0;
    ctx->levelDy[l] = 0;
  }
}

}  // namespace videohdr
