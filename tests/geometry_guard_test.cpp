// Frames the handle refuses, frames narrower than the motion search, and the
// guard bytes around every caller frame on the per-frame path.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "checkasm.h"
#include "log_capture.h"
#include "videohdr.h"

namespace {

struct Geometry {
  int32_t width, height, stride, scanline;
  size_t frameBytes() const { return size_t(stride) * scanline + (size_t(stride) * height) / 2; }
};

constexpr Geometry kGood = {1056, 16, 1056, 20};

std::vector<uint8_t> randomFrame(size_t bytes, uint32_t seed) {
  std::mt19937 rng(seed);
  return checkasm::randomBytes(bytes, rng);
}

int32_t process(VideoHdrHandle *h, uint8_t *frame, const Geometry &g) {
  return Video_HDR_Process(h, frame, 5, 6, g.width, g.height, g.stride, g.scanline);
}

// Everything the handle keeps that a call could change: the record, the
// alignment state and the history buffers.
struct Snapshot {
  std::vector<uint8_t> record, context, config, history;
  explicit Snapshot(const VideoHdrHandle *h)
      : record(bytes(h, sizeof *h)),
        context(bytes(h->alignContext, h->alignContext ? sizeof(AlignContext) : 0)),
        config(bytes(h->alignConfig, h->alignConfig ? sizeof(AlignConfig) : 0)),
        history(filledHistory(h)) {}
  bool operator==(const Snapshot &o) const {
    return record == o.record && context == o.context && config == o.config && history == o.history;
  }
  // The frame block starts uncleared: only what the frames filled counts.
  static std::vector<uint8_t> filledHistory(const VideoHdrHandle *h) {
    const size_t used = size_t(kGood.stride) * kGood.height * 3 / 2;
    std::vector<uint8_t> v;
    const int32_t filled = h->frameCount >= 2 ? 3 : h->frameCount;
    for (int32_t b = 0; b < filled; ++b) {
      const uint8_t *buffer = h->frameBuf0 + b * size_t{VIDEOHDR_FRAME_BUFFER_BYTES};
      v.insert(v.end(), buffer, buffer + used);
    }
    return v;
  }
  static std::vector<uint8_t> bytes(const void *p, size_t n) {
    const auto *b = static_cast<const uint8_t *>(p);
    return b ? std::vector<uint8_t>(b, b + n) : std::vector<uint8_t>();
  }
};

// ---------------------------------------------------------------------------
// Refused frames

struct Refusal {
  const char *what;
  Geometry geometry;
  std::string line;
};

void expectRefused(VideoHdrHandle *h, const Refusal &r) {
  // A buffer as large as the call says, where that is small enough to exist
  // (sized in 64 bits: on 32-bit targets some of these products wrap).
  const Geometry &g = r.geometry;
  const bool positive = g.width > 0 && g.height > 0 && g.stride > 0 && g.scanline > 0;
  const uint64_t wanted =
      positive ? uint64_t(g.stride) * g.scanline + uint64_t(g.stride) * g.height / 2 : 0;
  const size_t bytes = wanted > 0 && wanted < (64u << 20) ? size_t(wanted) : 4096;
  std::vector<uint8_t> frame = randomFrame(bytes, 7);
  const std::vector<uint8_t> before = frame;
  const Snapshot state(h);
  LogCapture log;
  EXPECT_EQ(process(h, frame.data(), r.geometry), 0) << r.what;
  EXPECT_EQ(frame, before) << r.what;
  EXPECT_TRUE(Snapshot(h) == state) << r.what;
  ASSERT_EQ(log.lines().size(), 1u) << r.what;
  EXPECT_EQ(log.lines()[0].priority, 6) << r.what;
  EXPECT_EQ(log.lines()[0].tag, "VideoHDR") << r.what;
  EXPECT_EQ(log.lines()[0].message, r.line) << r.what;
}

const Refusal kAlwaysRefused[] = {
    {"zero width",
     {0, 16, 1056, 16},
     "V_HDR Process refused: width 0, height 16 and stride 1056 must be positive"},
    {"negative height",
     {1056, -2, 1056, 16},
     "V_HDR Process refused: width 1056, height -2 and stride 1056 must be positive"},
    {"zero stride",
     {1056, 16, 0, 16},
     "V_HDR Process refused: width 1056, height 16 and stride 0 must be positive"},
    {"stride below width",
     {1056, 16, 1055, 16},
     "V_HDR Process refused: stride 1055 below width 1056"},
    {"scanline below height",
     {1056, 16, 1056, 15},
     "V_HDR Process refused: scanline 15 below height 16"},
    {"one row too many",
     {2048, 1281, 2048, 1281},
     "V_HDR Process refused: stride 2048 x height 1281 = 2623488 luma bytes above 2621440"},
    {"a product that wraps 32 bits to zero",
     {65536, 65536, 65536, 65536},
     "V_HDR Process refused: stride 65536 x height 65536 = 4294967296 luma bytes above 2621440"},
    {"a scanline far past the frame",
     {1056, 16, 1056, 600000},
     "V_HDR Process refused: stride 1056 x scanline 600000 = 633600000 bytes above 536870911"},
};

TEST(GeometryGuard, RefusesBadGeometryOnAFreshHandle) {
  VideoHdrHandle *h = createVideoHdrHandle();
  for (const Refusal &r : kAlwaysRefused) expectRefused(h, r);
  EXPECT_EQ(h->frameCount, 0);
  destroyVideoHdrHandle(h);
}

TEST(GeometryGuard, RefusesNullHandlesAndFrames) {
  std::vector<uint8_t> frame = randomFrame(kGood.frameBytes(), 1);
  LogCapture log;
  EXPECT_EQ(process(nullptr, frame.data(), kGood), 0);
  EXPECT_EQ(processVideoHdr(nullptr, frame.data(), 0, kGood.scanline), 0);
  VideoHdrHandle *h = createVideoHdrHandle();
  EXPECT_EQ(process(h, nullptr, kGood), 0);
  initVideoHdr(h, kGood.width, kGood.height, kGood.stride);
  EXPECT_EQ(processVideoHdr(h, nullptr, 0, kGood.scanline), 0);
  EXPECT_EQ(h->frameCount, 0);
  const std::vector<std::string> expected = {
      "V_HDR Process refused: null handle", "V_HDR Process refused: null handle",
      "V_HDR Process refused: null frame", "V_HDR Process refused: null frame"};
  EXPECT_EQ(log.messages(), expected);
  for (const LogLine &line : log.lines()) EXPECT_EQ(line.priority, 6);
  destroyVideoHdrHandle(h);
}

TEST(GeometryGuard, TheShortCallRefusesAHandleWithoutGeometry) {
  VideoHdrHandle *h = createVideoHdrHandle();
  std::vector<uint8_t> frame = randomFrame(4096, 2);
  LogCapture log;
  EXPECT_EQ(processVideoHdr(h, frame.data(), 0, 0), 0);
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{
                "V_HDR Process refused: width 0, height 0 and stride 0 must be positive"});
  EXPECT_EQ(h->frameCount, 0);
  destroyVideoHdrHandle(h);
}

// Feeds `frames` to a fresh handle with `bad` slipped in before frame
// `badAt`, and to a second fresh handle without it; both must end alike.
void expectBadFrameLeavesNoTrace(const Refusal &bad, int badAt) {
  VideoHdrHandle *seen = createVideoHdrHandle(), *clean = createVideoHdrHandle();
  for (int n = 0; n < 4; ++n) {
    if (n == badAt) expectRefused(seen, bad);
    std::vector<uint8_t> a = randomFrame(kGood.frameBytes(), 100 + n), b = a;
    EXPECT_EQ(process(seen, a.data(), kGood), 1) << bad.what;
    EXPECT_EQ(process(clean, b.data(), kGood), 1) << bad.what;
    EXPECT_EQ(a, b) << bad.what << ": frame " << n;
  }
  EXPECT_EQ(seen->frameCount, clean->frameCount);
  // The block is not cleared at creation: compare what the frames filled.
  const size_t used = size_t(kGood.stride) * kGood.height * 3 / 2;
  for (size_t b = 0; b < 3; ++b) {
    const size_t at = b * VIDEOHDR_FRAME_BUFFER_BYTES;
    EXPECT_EQ(std::memcmp(seen->frameBuf0 + at, clean->frameBuf0 + at, used), 0) << b;
  }
  EXPECT_EQ(seen->alignContext->lastDx, clean->alignContext->lastDx);
  EXPECT_EQ(seen->alignContext->lastDy, clean->alignContext->lastDy);
  destroyVideoHdrHandle(seen);
  destroyVideoHdrHandle(clean);
}

TEST(GeometryGuard, ARefusedFrameChangesNothingForTheFramesAfterIt) {
  for (const Refusal &r : kAlwaysRefused) {
    expectBadFrameLeavesNoTrace(r, 0);
    expectBadFrameLeavesNoTrace(r, 2);
  }
}

TEST(GeometryGuard, AfterTheFirstFrameTheGeometryIsFixed) {
  const Refusal changes[] = {
      {"another width",
       {1040, 16, 1056, 20},
       "V_HDR Process refused: width 1040, height 16, stride 1056 differ from the first frame's "
       "1056, 16, 1056"},
      {"another height",
       {1056, 12, 1056, 20},
       "V_HDR Process refused: width 1056, height 12, stride 1056 differ from the first frame's "
       "1056, 16, 1056"},
      {"another stride",
       {1056, 16, 1072, 20},
       "V_HDR Process refused: width 1056, height 16, stride 1072 differ from the first frame's "
       "1056, 16, 1056"},
      {"a width 65536 wider",
       {1056 + 65536, 16, 70000, 20},
       "V_HDR Process refused: width 66592, height 16, stride 70000 differ from the first "
       "frame's 1056, 16, 1056"},
  };
  for (const Refusal &r : changes) {
    expectBadFrameLeavesNoTrace(r, 1);
    expectBadFrameLeavesNoTrace(r, 3);
  }
}

TEST(GeometryGuard, AfterTheFirstFrameTheScanlineMayGrowButNotShrink) {
  VideoHdrHandle *probe = createVideoHdrHandle();
  std::vector<uint8_t> frame = randomFrame(kGood.frameBytes(), 4);
  process(probe, frame.data(), kGood);
  const bool fusionBuilt = probe->fusionContext != nullptr;
  destroyVideoHdrHandle(probe);
  if (!fusionBuilt) GTEST_SKIP() << "no fusion context keeps the first scanline in this build";
  expectBadFrameLeavesNoTrace({"a shorter scanline",
                               {1056, 16, 1056, 19},
                               "V_HDR Process refused: scanline 19 below the first frame's 20"},
                              2);
  VideoHdrHandle *h = createVideoHdrHandle();
  process(h, frame.data(), kGood);
  const Geometry taller = {1056, 16, 1056, 24};
  std::vector<uint8_t> tallerFrame = randomFrame(taller.frameBytes(), 5);
  EXPECT_EQ(process(h, tallerFrame.data(), taller), 1);
  destroyVideoHdrHandle(h);
}

TEST(GeometryGuard, AcceptsTheLimitsThemselves) {
  const Geometry limits[] = {{2048, 1280, 2048, 1280}, {1, 1, 1, 1}, {1032, 2540, 1032, 2540}};
  for (const Geometry &g : limits) {
    VideoHdrHandle *h = createVideoHdrHandle();
    std::vector<uint8_t> frame = randomFrame(g.frameBytes(), 3);
    EXPECT_EQ(process(h, frame.data(), g), 1) << g.width << "x" << g.height;
    EXPECT_EQ(process(h, frame.data(), g), 1) << g.width << "x" << g.height;
    EXPECT_EQ(h->frameCount, 2);
    destroyVideoHdrHandle(h);
  }
}

// ---------------------------------------------------------------------------
// Frames narrower than the motion search

TEST(NarrowFrames, AreFusedWithThePreviousFrameUnmovedAndSaySoOnce) {
  const Geometry narrow = {100, 10, 100, 10};
  VideoHdrHandle *h = createVideoHdrHandle();
  LogCapture log;
  std::vector<uint8_t> prevCopy;
  for (int n = 0; n < 3; ++n) {
    std::vector<uint8_t> frame = randomFrame(narrow.frameBytes(), 200 + n);
    EXPECT_EQ(process(h, frame.data(), narrow), 1);
    if (n > 0) {
      // stride == width: the aligned buffer is the previous copy, untouched.
      EXPECT_EQ(std::memcmp(h->alignedBuf, prevCopy.data(), prevCopy.size()), 0) << n;
      EXPECT_EQ(h->alignContext->lastDx, 0);
      EXPECT_EQ(h->alignContext->lastDy, 0);
      // The stages before the search still ran: the level arrays are carved
      // and hold the zero shift that callers read back.
      ASSERT_NE(h->alignContext->levelDx, nullptr);
      EXPECT_EQ(h->alignContext->levelDx[0], 0);
      EXPECT_EQ(h->alignContext->levelDy[0], 0);
      EXPECT_EQ(h->alignContext->levelWidth[3], 100 >> 3);
    }
    prevCopy = randomFrame(narrow.frameBytes(), 200 + n);
  }
  const std::vector<std::string> expected = {
      "TQ0530 V_HDR Process 0..., 10",
      "V_HDR alignment skipped: width 100 is below the 1032 pixels the motion search needs",
      "TQ0530 V_HDR Process 1..., 10",
      "V_HDR Process Successfully 2",
      "TQ0530 V_HDR Process 2..., 10",
      "V_HDR Process Successfully 3"};
  EXPECT_EQ(log.messages(), expected);
  for (const LogLine &line : log.lines()) EXPECT_EQ(line.priority, 4);
  destroyVideoHdrHandle(h);
}

// ---------------------------------------------------------------------------
// Guard bytes around the caller's frames

TEST(CallerFrames, NothingOutsideAFrameIsEverWritten) {
  const Geometry geometries[] = {
      {1056, 16, 1056, 16},  // stride a multiple of 16, scanline == height
      {1050, 15, 1050, 15},  // odd rows, stride not a multiple of 16
      {1033, 9, 1037, 9},    // stride past width, neither a multiple of 16
      {1040, 20, 1048, 23},  // padding rows
      {100, 10, 100, 10},    // too narrow for the search
      {17, 3, 21, 3},        // a few columns and rows
      {1, 1, 1, 1},
  };
  for (const Geometry &g : geometries) {
    VideoHdrHandle *h = createVideoHdrHandle();
    for (int n = 0; n < 5; ++n) {
      checkasm::Guarded frame(g.frameBytes());
      std::mt19937 rng(300 + n);
      frame.fillRandom(rng);
      EXPECT_EQ(process(h, frame.data(), g), 1);
      EXPECT_TRUE(frame.guardsIntact())
          << g.width << "x" << g.height << " stride " << g.stride << " frame " << n;
    }
    destroyVideoHdrHandle(h);
  }
}

}  // namespace
