// The alignment parameters, the workspace size and carving, and the release
// of the alignment state with its three failure lines.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "align_fixture.h"
#include "log_capture.h"
#include "videohdr.h"

namespace {

const char kAllocFailedLine[] =
    "align malloc failed in line number: 75 functon: allocAlignCPUMem file: "
    "jni/alignment_op/tarn_hdr_mtbalign";
const char kNullHandleLine[] =
    "videohdr handle free failed in line number : 88 functon : freeMem file : "
    "jni/alignment_op/tarn_hdr_mtbalign";
const char kNoContextLine[] =
    "align_para free failed in line number : 95 functon : freeMem file : "
    "jni/alignment_op/tarn_hdr_mtbalign";

void expectOneLine(const LogCapture &log, const char *message) {
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].priority, 4);
  EXPECT_EQ(log.lines()[0].tag, "VideoHDR");
  EXPECT_EQ(log.lines()[0].message, message);
}

// ---------------------------------------------------------------------------
// Parameters

TEST(AlignParameters, InitAlignParaFillsTheRecordAndClampsTheLevels) {
  struct Case {
    int32_t levels, stored;
  } cases[] = {{7, 4}, {-3, 0}, {3, 3}, {4, 4}, {0, 0}, {5, 4}, {-1, 0}};
  for (const Case &c : cases) {
    AlignConfig cfg;
    std::memset(&cfg, 0x7F, sizeof cfg);
    EXPECT_EQ(initAlignPara(&cfg, 1056, 720, 1072, c.levels, 2, 240, 10), 1);
    EXPECT_EQ(cfg.width, 1056);
    EXPECT_EQ(cfg.height, 720);
    EXPECT_EQ(cfg.stride, 1072);
    EXPECT_EQ(cfg.levels, c.stored) << "levels " << c.levels;
    EXPECT_EQ(cfg.searchStep, 2);
    EXPECT_EQ(cfg.maxThreshold, 240);
    EXPECT_EQ(cfg.minThreshold, 10);
  }
}

TEST(AlignParameters, TheFirstFrameSetsTheDefaultsAndA16BitGeometry) {
  VideoHdrHandle handle;
  std::memset(&handle, 0, sizeof handle);
  handle.width = 65536 + 64;  // the records keep 16 bits of it
  handle.height = 48;
  handle.stride = 72;
  EXPECT_EQ(AllocAlignHandleParams(&handle), 1);
  const AlignConfig *cfg = handle.alignConfig;
  const AlignContext *ctx = handle.alignContext;
  ASSERT_NE(cfg, nullptr);
  ASSERT_NE(ctx, nullptr);
  EXPECT_EQ(cfg->width, 64);
  EXPECT_EQ(cfg->height, 48);
  EXPECT_EQ(cfg->stride, 72);
  EXPECT_EQ(cfg->levels, 4);
  EXPECT_EQ(cfg->searchStep, 2);
  EXPECT_EQ(cfg->maxThreshold, 240);
  EXPECT_EQ(cfg->minThreshold, 10);
  EXPECT_EQ(ctx->width, 64);
  EXPECT_EQ(ctx->height, 48);
  EXPECT_EQ(ctx->stride, 72);
  EXPECT_EQ(ctx->levels, 4);
  EXPECT_EQ(ctx->searchStep, 2);
  EXPECT_EQ(ctx->maxThreshold, 240);
  EXPECT_EQ(ctx->minThreshold, 10);
  EXPECT_EQ(ctx->lastDx, 0);
  EXPECT_EQ(ctx->lastDy, 0);
  EXPECT_EQ(ctx->ready, 1);
  EXPECT_EQ(ctx->workSize, 89468u);
  ASSERT_NE(ctx->workBuf, nullptr);
  const std::vector<uint8_t> zeros(ctx->workSize, 0);
  EXPECT_EQ(std::memcmp(ctx->workBuf, zeros.data(), zeros.size()), 0);
  EXPECT_EQ(ReleaseAlignHandleParams(&handle), 1);
}

// ---------------------------------------------------------------------------
// Workspace size

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

// ---------------------------------------------------------------------------
// Carving

struct Expected {
  const char *name;
  const void *pointer;
  size_t offset;
};

void expectOffsets(const AlignContext *ctx, const std::vector<Expected> &expected) {
  for (const Expected &e : expected) {
    EXPECT_EQ(static_cast<const uint8_t *>(e.pointer) - ctx->workBuf, ptrdiff_t(e.offset))
        << e.name;
  }
}

TEST(AlignWorkspace, FourLevelsCarveEveryRegionBackToBack) {
  // w = 64, h = 48: P = 3072, W = 3, bitmap regions 16 * 3 * 49 = 2352 bytes.
  AlignFixture fx(64, 48);
  const std::vector<uint8_t> prev(64 * 48, 0x11), cur(64 * 48, 0x22);
  fx.load(prev, cur);
  const AlignContext *c = fx.context();
  expectOffsets(c, {{"countHistory", c->countHistory, 212},
                    {"levelWidth", c->levelWidth, 232},
                    {"levelHeight", c->levelHeight, 248},
                    {"levelPitch", c->levelPitch, 264},
                    {"levelDx", c->levelDx, 280},
                    {"levelDy", c->levelDy, 296},
                    {"prevImage0", c->prevImage[0], 312},
                    {"prevImage1", c->prevImage[1], 3384},
                    {"prevImage2", c->prevImage[2], 6456},
                    {"prevImage3", c->prevImage[3], 9528},
                    {"curImage0", c->curImage[0], 12600},
                    {"curImage1", c->curImage[1], 15672},
                    {"curImage2", c->curImage[2], 18744},
                    {"curImage3", c->curImage[3], 21816},
                    {"spareImage0", c->spareImage[0], 24888},
                    {"spareImage1", c->spareImage[1], 27960},
                    {"spareImage2", c->spareImage[2], 31032},
                    {"spareImage3", c->spareImage[3], 34104},
                    {"prevBitmap0", c->prevBitmap[0], 37176},
                    {"prevBitmap1", c->prevBitmap[1], 39528},
                    {"prevBitmap2", c->prevBitmap[2], 41880},
                    {"prevBitmap3", c->prevBitmap[3], 44232},
                    {"curBitmap0", c->curBitmap[0], 46584},
                    {"curBitmap1", c->curBitmap[1], 48936},
                    {"curBitmap2", c->curBitmap[2], 51288},
                    {"curBitmap3", c->curBitmap[3], 53640},
                    {"movedBitmap0", c->movedBitmap[0], 55992},
                    {"movedBitmap1", c->movedBitmap[1], 58344},
                    {"movedBitmap2", c->movedBitmap[2], 60696},
                    {"movedBitmap3", c->movedBitmap[3], 63048},
                    {"histTable0", c->histTable0, 65400},
                    {"histTable1", c->histTable1, 66424},
                    {"histTable2", c->histTable2, 67448},
                    {"histTable3", c->histTable3, 68472},
                    {"scratchPlane0", c->scratchPlane0, 69500},
                    {"scratchPlane1", c->scratchPlane1, 72572},
                    {"scratchPlane2", c->scratchPlane2, 75644},
                    {"scratchPlane3", c->scratchPlane3, 78716},
                    {"scratchPlane4", c->scratchPlane4, 81788},
                    {"scratchPlane5", c->scratchPlane5, 86396}});
  // The last region, P bytes, ends exactly at the end of the workspace.
  EXPECT_EQ(c->workSize, 86396u + 3072u);
}

TEST(AlignWorkspace, TwoLevelsCarveOnlyTwoOfEachFamily) {
  AlignFixture fx(64, 48);
  AlignContext *c = fx.context();
  c->levels = 2;
  const std::vector<uint8_t> prev(64 * 48, 0x11), cur(64 * 48, 0x22);
  fx.load(prev, cur);
  expectOffsets(c, {{"levelHeight", c->levelHeight, 240},
                    {"levelPitch", c->levelPitch, 248},
                    {"levelDx", c->levelDx, 256},
                    {"levelDy", c->levelDy, 264},
                    {"prevImage1", c->prevImage[1], 3344},
                    {"curImage0", c->curImage[0], 6416},
                    {"spareImage1", c->spareImage[1], 15632},
                    {"prevBitmap0", c->prevBitmap[0], 18704},
                    {"curBitmap1", c->curBitmap[1], 25760},
                    {"movedBitmap1", c->movedBitmap[1], 30464},
                    {"histTable0", c->histTable0, 32816},
                    {"histTable3", c->histTable3, 35888},
                    {"scratchPlane0", c->scratchPlane0, 36916},
                    {"scratchPlane4", c->scratchPlane4, 49204},
                    {"scratchPlane5", c->scratchPlane5, 53812}});
}

TEST(AlignWorkspace, InitParaFillsTheLevelArraysAndCopiesTheLumaFlat) {
  // An odd width: the bitmap rows are (w + 63) >> 5 words at every level.
  AlignFixture fx(100, 10);
  std::vector<uint8_t> prev(100 * 10), cur(100 * 10);
  for (size_t i = 0; i < prev.size(); ++i) {
    prev[i] = static_cast<uint8_t>(i * 7);
    cur[i] = static_cast<uint8_t>(i * 13 + 1);
  }
  fx.load(prev, cur);
  const AlignContext *c = fx.context();
  const int32_t widths[] = {100, 50, 25, 12}, heights[] = {10, 5, 2, 1}, pitches[] = {20, 12, 8, 8};
  for (int l = 0; l < 4; ++l) {
    EXPECT_EQ(c->levelWidth[l], widths[l]) << l;
    EXPECT_EQ(c->levelHeight[l], heights[l]) << l;
    EXPECT_EQ(c->levelPitch[l], pitches[l]) << l;
  }
  EXPECT_EQ(std::memcmp(c->prevImage[0], prev.data(), prev.size()), 0);
  EXPECT_EQ(std::memcmp(c->curImage[0], cur.data(), cur.size()), 0);
  // Only level 0 is filled; the regions behind stay clear.
  EXPECT_EQ(c->prevImage[1][0], 0);
  EXPECT_EQ(c->curImage[1][0], 0);
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

TEST(AlignDriver, BuildsTheThresholdsThenLevelsOneToThreeFromTheFrames) {
  // Against the stages called by hand in their order: a level built before
  // the one below it, or from the frames swapped, gives other bitmaps.
  constexpr int32_t w = 1056, h = 24;
  const std::vector<uint8_t> prev = blockyFrame(w, h, 1), cur = blockyFrame(w, h, 2);
  AlignFixture driven(w, h), manual(w, h);
  std::vector<uint8_t> drivenOut(prev.size()), manualOut(prev.size());
  const int32_t r = AlignProcess(driven.handle(), std::vector<uint8_t>(cur).data(),
                                 std::vector<uint8_t>(prev).data(), drivenOut.data(), 17);
  AlignContext *m = manual.context();
  InitPara(m, prev.data(), cur.data());
  EXPECT_EQ(r, ThreshBitmap(m, 240, 10));
  for (int32_t l = 1; l < 4; ++l) buildGaussianPyramid(m, l);
  const AlignContext *d = driven.context();
  for (int32_t l = 0; l < 4; ++l) {
    const size_t bytes = size_t(m->levelPitch[l]) * m->levelHeight[l];
    EXPECT_EQ(std::memcmp(d->prevBitmap[l], m->prevBitmap[l], bytes), 0) << "level " << l;
    EXPECT_EQ(std::memcmp(d->curBitmap[l], m->curBitmap[l], bytes), 0) << "level " << l;
  }
  // The found shift, filtered from rest, made the output.
  m->levelDx[0] = d->levelDx[0];
  m->levelDy[0] = d->levelDy[0];
  getScanData(m, prev.data(), cur.data(), manualOut.data());
  EXPECT_EQ(drivenOut, manualOut);
  EXPECT_EQ(d->lastDx, m->lastDx);
  EXPECT_EQ(d->lastDy, m->lastDy);
}

TEST(AlignDriver, FramesNarrowerThanTheSearchGoOutUnmoved) {
  constexpr int32_t w = 1031, h = 16;  // level 3 would be 128 pixels wide
  const std::vector<uint8_t> prev = blockyFrame(w, h, 3), cur = blockyFrame(w, h, 4);
  AlignFixture fx(w, h);
  std::vector<uint8_t> out(prev.size());
  std::vector<uint8_t> curCopy = cur, prevCopy = prev;
  EXPECT_EQ(AlignProcess(fx.handle(), curCopy.data(), prevCopy.data(), out.data(), 1), 0);
  // w is odd: each chroma row's last byte stays the current frame's.
  std::vector<uint8_t> expected = prev;
  for (int32_t r = 0; r < h / 2; ++r) expected[w * h + r * w + w - 1] = cur[w * h + r * w + w - 1];
  EXPECT_EQ(out, expected);
  EXPECT_EQ(fx.context()->lastDx, 0);
  EXPECT_EQ(fx.context()->lastDy, 0);
}

// ---------------------------------------------------------------------------
// Allocation and release

TEST(AlignAllocation, AllocAlignCpuMemRebuildsTheWorkspaceFromTheRecord) {
  AlignFixture fx(64, 48);
  VideoHdrHandle *h = fx.handle();
  AlignContext *c = fx.context();
  h->alignConfig->width = 32;
  h->alignConfig->height = 16;
  h->alignConfig->stride = 40;
  c->ready = 7;
  c->lastDx = 3;
  c->lastDy = -2;
  LogCapture log;
  EXPECT_EQ(allocAlignCPUMem(h), 1);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(c->width, 32);
  EXPECT_EQ(c->height, 16);
  EXPECT_EQ(c->stride, 40);
  EXPECT_EQ(c->workSize, 20412u);
  ASSERT_NE(c->workBuf, nullptr);
  const std::vector<uint8_t> zeros(c->workSize, 0);
  EXPECT_EQ(std::memcmp(c->workBuf, zeros.data(), zeros.size()), 0);
  EXPECT_EQ(c->ready, 7);
  EXPECT_EQ(c->lastDx, 3);
  EXPECT_EQ(c->lastDy, -2);
}

// Runs `body` where a 4-gigabyte allocation must fail and answers its exit
// code: directly on 32-bit targets, elsewhere in a child process whose
// address space is capped. Answers 77 when the cap does not hold there.
int runWhereHugeAllocationsFail(int (*body)()) {
  if (sizeof(void *) == 4) return body();
  pid_t pid = fork();
  if (pid == 0) {
    rlimit cap = {1u << 30, 1u << 30};
    setrlimit(RLIMIT_AS, &cap);
    void *probe = std::malloc(size_t{2} << 30);
    if (probe) _exit(77);
    _exit(body());
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
}

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

// A 13000 x 13000 geometry asks for a 4,144,950,748-byte workspace and
// 4407 x 39688 for 4,294,967,240 bytes, so close to 4 GiB that adding the
// allocation's slack would wrap on a 32-bit target.
int allocateHugeWorkspace(int32_t width, int32_t height, uint32_t workSize) {
  VideoHdrHandle handle;
  std::memset(&handle, 0, sizeof handle);
  handle.width = handle.stride = width;
  handle.height = height;
  int bad = 0;
  {
    LogCapture log;
    bad |= AllocAlignHandleParams(&handle) != 1;
    bad |= log.messages() != std::vector<std::string>{kAllocFailedLine};
    bad |= handle.alignContext->workBuf != nullptr;
    bad |= handle.alignContext->ready != 1;
    bad |= handle.alignContext->workSize != workSize;
  }
  {
    LogCapture log;
    bad |= allocAlignCPUMem(&handle) != 0;
    bad |= log.messages() != std::vector<std::string>{kAllocFailedLine};
    bad |= log.lines()[0].priority != 4;
  }
  bad |= freeMem(&handle) != 1;
  return bad;
}
int allocateHugeWorkspaces() {
  return allocateHugeWorkspace(13000, 13000, 4144950748u) |
         allocateHugeWorkspace(4407, 39688, 4294967240u);
}

TEST(AlignAllocation, AFailedWorkspaceAllocationIsLoggedAndTheContextStays) {
  if (kAddressSanitizer) GTEST_SKIP() << "the sanitizer's allocator aborts instead of failing";
  const int code = runWhereHugeAllocationsFail(allocateHugeWorkspaces);
  if (code == 77) GTEST_SKIP() << "the address-space cap does not hold here";
  EXPECT_EQ(code, 0);
}

TEST(AlignRelease, FreeMemReportsANullHandleAndAMissingContext) {
  {
    LogCapture log;
    EXPECT_EQ(freeMem(nullptr), 0);
    expectOneLine(log, kNullHandleLine);
  }
  VideoHdrHandle handle;
  std::memset(&handle, 0, sizeof handle);
  {
    LogCapture log;
    EXPECT_EQ(freeMem(&handle), 0);
    expectOneLine(log, kNoContextLine);
  }
  {
    LogCapture log;
    EXPECT_EQ(ReleaseAlignHandleParams(nullptr), 1);
    EXPECT_EQ(ReleaseAlignHandleParams(&handle), 1);
    ASSERT_EQ(log.messages(), (std::vector<std::string>{kNullHandleLine, kNoContextLine}));
  }
}

TEST(AlignRelease, FreeMemClearsThePointersSoASecondCallReportsTheMissingContext) {
  VideoHdrHandle handle;
  std::memset(&handle, 0, sizeof handle);
  handle.width = handle.height = handle.stride = 64;
  AllocAlignHandleParams(&handle);
  {
    LogCapture log;
    EXPECT_EQ(freeMem(&handle), 1);
    EXPECT_TRUE(log.lines().empty());
  }
  EXPECT_EQ(handle.alignContext, nullptr);
  EXPECT_EQ(handle.alignConfig, nullptr);
  LogCapture log;
  EXPECT_EQ(freeMem(&handle), 0);
  expectOneLine(log, kNoContextLine);
}

}  // namespace
