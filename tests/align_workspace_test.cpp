// The alignment parameters, the workspace size and carving, and the release
// of the alignment state with its three failure lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "align_fixture.h"
#include "alignment_op/align_internal.h"
#include "checkasm.h"
#include "log_capture.h"
#include "videohdr.h"

namespace {

const char kNullHandleLine[] =
    "videohdr handle free failed in line number : 88 functon : freeMem file : "
    "jni/alignment_op/tarn_hdr_mtbalign";
const char kNoContextLine[] =
    "align_para free failed in line number : 95 functon : freeMem file : "
    "jni/alignment_op/tarn_hdr_mtbalign";

// ---------------------------------------------------------------------------
// Parameters

TEST(AlignParameters, InitAlignParaFillsTheRecordAndClampsTheLevels) {
  const struct {
    int32_t levels, stored;
  } cases[] = {{7, 4}, {-3, 0}, {3, 3}, {4, 4}, {0, 0}, {5, 4}, {-1, 0}};
  for (const auto &c : cases) {
    AlignConfig cfg;
    std::memset(&cfg, 0x7F, sizeof cfg);
    EXPECT_EQ(initAlignPara(&cfg, 1056, 720, 1072, c.levels, 2, 240, 10), 1);
    const AlignConfig expected = {1056, 720, 1072, c.stored, 2, 240, 10};
    EXPECT_EQ(std::memcmp(&cfg, &expected, sizeof cfg), 0) << "levels " << c.levels;
  }
}

// The first frame's records: the defaults, the handle's geometry in 16 bits,
// a zeroed workspace of the formula's size, ready; allocAlignCPUMem then
// rebuilds the workspace from the record, leaving ready and the last shift.
TEST(AlignParameters, TheFirstFrameSetsTheDefaultsAndAllocAlignCpuMemRebuilds) {
  VideoHdrHandle handle;
  std::memset(&handle, 0, sizeof handle);
  handle.width = 65536 + 64;  // the records keep 16 bits of it
  handle.height = 48;
  handle.stride = 72;
  EXPECT_EQ(AllocAlignHandleParams(&handle), 1);
  const AlignConfig expected = {64, 48, 72, 4, 2, 240, 10};
  ASSERT_NE(handle.alignConfig, nullptr);
  EXPECT_EQ(std::memcmp(handle.alignConfig, &expected, sizeof expected), 0);
  AlignContext *ctx = handle.alignContext;
  ASSERT_NE(ctx, nullptr);
  auto expectContext = [&](std::vector<int32_t> fields, uint32_t workSize, int32_t ready,
                           int32_t lastDx) {
    EXPECT_EQ((std::vector<int32_t>{ctx->width, ctx->height, ctx->stride, ctx->levels,
                                    ctx->searchStep, ctx->maxThreshold, ctx->minThreshold}),
              fields);
    EXPECT_EQ(ctx->workSize, workSize);
    ASSERT_NE(ctx->workBuf, nullptr);
    EXPECT_TRUE(std::all_of(ctx->workBuf, ctx->workBuf + workSize, [](uint8_t b) { return !b; }));
    EXPECT_EQ(ctx->ready, ready);
    EXPECT_EQ(ctx->lastDx, lastDx);
  };
  expectContext({64, 48, 72, 4, 2, 240, 10}, 89468, 1, 0);
  *handle.alignConfig = {32, 16, 40, 3, 1, 200, 20};
  ctx->ready = 7;
  ctx->lastDx = 3;
  LogCapture log;
  EXPECT_EQ(allocAlignCPUMem(&handle), 1);
  EXPECT_TRUE(log.lines().empty());
  expectContext({32, 16, 40, 3, 1, 200, 20}, 20412, 7, 3);
  EXPECT_EQ(ReleaseAlignHandleParams(&handle), 1);
}

// ---------------------------------------------------------------------------
// Workspace size and layout

uint32_t workSizeFor(int32_t width, int32_t height) {
  AlignContext ctx;
  std::memset(&ctx, 0, sizeof ctx);
  ctx.width = width;
  ctx.height = height;
  uint32_t size = 0;
  EXPECT_EQ(calCpuDataAlignMem(&ctx, &size), 1);
  return size;
}

TEST(AlignWorkspace, SizeFollowsTheFormulaIn32BitArithmetic) {
  // P = 3072, W = 3: 4412 + 52224 + 4608 + 3 * (192 + 9216).
  EXPECT_EQ(workSizeFor(64, 48), 89468u);
  // P = 1000, W = 5: 4412 + 17000 + 1500 + 5 * (192 + 1920).
  EXPECT_EQ(workSizeFor(100, 10), 33472u);
  // P = 512, W = 2: 4412 + 8704 + 768 + 2 * (192 + 3072).
  EXPECT_EQ(workSizeFor(32, 16), 20412u);
  // P = 169,000,000, W = 408: 4412 + 2,873,000,000 + 253,500,000 + 408 * 2,496,192.
  EXPECT_EQ(workSizeFor(13000, 13000), 4144950748u);
  // Everything wraps: P = 0xFFFE0001, 3P = 0xFFFA0003 halved logically to
  // 0x7FFD0001, 17P = 0xFFDE0011, W = 2049 and 2049 * 12,582,912 = 0x00C00000
  // mod 2^32; 4412 + those three, mod 2^32.
  EXPECT_EQ(workSizeFor(65535, 65535), 2157646158u);
}

// The carving places the layout's regions back to back from the free head on,
// each aligned for its elements (with four levels, for any geometry); with
// four levels they end exactly at the end of the workspace, with fewer
// before it.
TEST(AlignWorkspace, CarvingTilesTheWorkspaceWithTheLayoutsRegions) {
  const struct {
    int32_t width, height, levels;
  } cases[] = {{64, 48, 4}, {101, 11, 4}, {1033, 7, 4}, {64, 48, 2}, {100, 10, 1}};
  for (const auto &c : cases) {
    AlignFixture fx(c.width, c.height);
    AlignContext *ctx = fx.context();
    ctx->levels = c.levels;
    const std::vector<uint8_t> luma(size_t(c.width) * c.height, 0x11);
    fx.load(luma, luma);
    const uint32_t W = (c.width + 63) >> 5;
    const videohdr::RegionGeometry g = {uint32_t(c.width * c.height), 16 * W * (c.height + 1),
                                        4u * c.levels};
    EXPECT_EQ(static_cast<const void *>(ctx->countHistory), ctx->workBuf + 212);
    size_t offset = videohdr::kWorkspaceHeadBytes;
    for (size_t i = 0; i < videohdr::kWorkspaceRegionCount; ++i) {
      const videohdr::WorkspaceRegion &r = videohdr::kWorkspaceLayout[i];
      for (int32_t l = 0; l < (r.perLevel ? c.levels : 1); ++l) {
        const auto *start = static_cast<const uint8_t *>(r.start(*ctx, l));
        EXPECT_EQ(start - ctx->workBuf, ptrdiff_t(offset)) << r.name << " " << l;
        if (c.levels == 4) {
          EXPECT_EQ(offset % r.alignment, 0u) << r.name << " " << l;
        }
        offset += videohdr::regionBytes(r.size, g);
      }
    }
    if (c.levels == 4) {
      EXPECT_EQ(offset, ctx->workSize) << c.width << "x" << c.height;
    } else {
      EXPECT_LT(offset, ctx->workSize) << c.width << "x" << c.height;
    }
  }
}

// InitPara's level arrays, worked out for an odd width: the bitmap rows are
// (w + 63) >> 5 words at every level; and its flat copies of the two lumas.
TEST(AlignWorkspace, InitParaFillsTheLevelArraysAndCopiesTheLumaFlat) {
  AlignFixture fx(100, 10);
  std::mt19937 rng(1);
  const std::vector<uint8_t> prev = checkasm::randomBytes(1000, rng);
  const std::vector<uint8_t> cur = checkasm::randomBytes(1000, rng);
  fx.load(prev, cur);
  const AlignContext *c = fx.context();
  EXPECT_EQ(std::vector<int32_t>(c->levelWidth, c->levelWidth + 4),
            (std::vector<int32_t>{100, 50, 25, 12}));
  EXPECT_EQ(std::vector<int32_t>(c->levelHeight, c->levelHeight + 4),
            (std::vector<int32_t>{10, 5, 2, 1}));
  EXPECT_EQ(std::vector<int32_t>(c->levelPitch, c->levelPitch + 4),
            (std::vector<int32_t>{20, 12, 8, 8}));
  EXPECT_EQ(std::vector<uint8_t>(c->prevImage[0], c->prevImage[0] + 1000), prev);
  EXPECT_EQ(std::vector<uint8_t>(c->curImage[0], c->curImage[0] + 1000), cur);
}

// ---------------------------------------------------------------------------
// The driver

std::vector<uint8_t> blockyFrame(int32_t w, int32_t h, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> f((3 * size_t(w) * h) / 2);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) f[y * w + x] = uint8_t(((x / 7 + y / 3) % 3) * 90 + rng() % 40);
  for (size_t i = size_t(w) * h; i < f.size(); ++i) f[i] = uint8_t(rng());
  return f;
}

// With one level the search scores level 0 alone, from the previous frame's
// bitmap as it is: a move of (2, -2) is found and, being small, applied.
TEST(AlignDriver, AOneLevelPyramidSearchesLevelZeroAlone) {
  constexpr int32_t w = 1056, h = 24, dx = 2, dy = -2;
  const std::vector<uint8_t> cur = blockyFrame(w, h, 7);
  std::vector<uint8_t> prev = blockyFrame(w, h, 8);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x)
      if (y - dy >= 0 && y - dy < h && x - dx >= 0 && x - dx < w)
        prev[y * w + x] = cur[(y - dy) * w + x - dx];
  AlignFixture fx(w, h);
  fx.context()->levels = 1;
  std::vector<uint8_t> out(prev.size()), curCopy = cur, prevCopy = prev;
  AlignProcess(fx.handle(), curCopy.data(), prevCopy.data(), out.data(), 1);
  EXPECT_EQ(fx.context()->levelDx[0], dx);
  EXPECT_EQ(fx.context()->levelDy[0], dy);
  EXPECT_EQ(fx.context()->lastDx, dx);
  EXPECT_EQ(fx.context()->lastDy, dy);
}

// A single column or row still takes every stage before the search: the
// workspace is carved, the grey images loaded and the bitmaps made.
TEST(AlignDriver, OnePixelWideOrHighFramesStillLoadTheirImages) {
  for (const auto &size : {std::pair<int32_t, int32_t>{1, 6}, {6, 1}}) {
    const int32_t w = size.first, h = size.second;
    const std::vector<uint8_t> prev = blockyFrame(w, h, 9), cur = blockyFrame(w, h, 10);
    AlignFixture fx(w, h);
    std::vector<uint8_t> out(prev.size()), curCopy = cur, prevCopy = prev;
    AlignProcess(fx.handle(), curCopy.data(), prevCopy.data(), out.data(), 1);
    const AlignContext *c = fx.context();
    ASSERT_NE(c->levelWidth, nullptr) << w << "x" << h;
    EXPECT_EQ(c->levelWidth[0], w);
    EXPECT_EQ(c->levelHeight[0], h);
    EXPECT_EQ(std::memcmp(c->curImage[0], cur.data(), size_t(w) * h), 0);
  }
}

TEST(AlignDriver, WithoutAUsableWorkspaceThePreviousFrameGoesOutUnmoved) {
  constexpr int32_t w = 1056, h = 16;
  const std::vector<uint8_t> prev = blockyFrame(w, h, 5), cur = blockyFrame(w, h, 6);
  for (int broken = 0; broken < 3; ++broken) {
    AlignFixture fx(w, h);
    AlignContext *ctx = fx.context();
    if (broken == 0) ctx->levels = 0;
    if (broken == 1) ctx->levels = 5;
    if (broken == 2) {
      std::free(ctx->workBuf);  // as if its allocation had failed
      ctx->workBuf = nullptr;
    }
    std::vector<uint8_t> out(prev.size()), curCopy = cur, prevCopy = prev;
    EXPECT_EQ(AlignProcess(fx.handle(), curCopy.data(), prevCopy.data(), out.data(), 1), 0);
    EXPECT_EQ(out, prev) << "case " << broken;
  }
}

// ---------------------------------------------------------------------------
// Allocation and release

// freeMem answers 0 and logs for a null handle (line 88) or a missing
// context (line 95), else frees and clears the three pointers, so that a
// second call reports the missing context; the release answers 1 either way.
TEST(AlignRelease, FreeMemReportsWhatIsMissingAndClearsWhatItFrees) {
  VideoHdrHandle handle;
  std::memset(&handle, 0, sizeof handle);
  handle.width = handle.height = handle.stride = 64;
  LogCapture log;
  EXPECT_EQ(freeMem(nullptr), 0);
  EXPECT_EQ(freeMem(&handle), 0);
  EXPECT_EQ(ReleaseAlignHandleParams(nullptr), 1);
  EXPECT_EQ(ReleaseAlignHandleParams(&handle), 1);
  AllocAlignHandleParams(&handle);
  EXPECT_EQ(freeMem(&handle), 1);
  EXPECT_EQ(handle.alignContext, nullptr);
  EXPECT_EQ(handle.alignConfig, nullptr);
  EXPECT_EQ(freeMem(&handle), 0);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{kNullHandleLine, kNoContextLine, kNullHandleLine,
                                      kNoContextLine, kNoContextLine}));
  for (const LogLine &line : log.lines()) {
    EXPECT_EQ(line.priority, 4);
    EXPECT_EQ(line.tag, "VideoHDR");
  }
}

}  // namespace
