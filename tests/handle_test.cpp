// The handle: creation and release under both names, the frame block's
// views, the first frame, the frame copy, the parity of the history buffers,
// the counter wrap, the short process call and the log lines; the frames it
// refuses, frames narrower than the motion search, and the guard bytes
// around every caller frame.
#include <gtest/gtest.h>

#include <cstddef>
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
  size_t lumaBytes() const { return size_t(stride) * height; }
  size_t chromaBytes() const { return lumaBytes() / 2; }
  size_t frameBytes() const { return size_t(stride) * scanline + chromaBytes(); }
};

// Wide enough for the motion search, small enough to be quick; the padding
// rows between height and scanline are what the copy must drop.
constexpr Geometry kPadded = {1056, 16, 1056, 20};
constexpr Geometry kGood = kPadded;
constexpr uint8_t kPaddingByte = 0xEE;

std::vector<uint8_t> randomFrame(size_t bytes, uint32_t seed) {
  std::mt19937 rng(seed);
  return checkasm::randomBytes(bytes, rng);
}

// A caller frame: random luma and chroma, padding rows marked.
std::vector<uint8_t> makeFrame(const Geometry &g, uint32_t seed) {
  std::vector<uint8_t> frame = randomFrame(g.frameBytes(), seed);
  std::fill(frame.begin() + g.lumaBytes(), frame.begin() + size_t(g.stride) * g.scanline,
            kPaddingByte);
  return frame;
}

// The handle's copy of a caller frame: luma, then the chroma right behind it.
std::vector<uint8_t> copyOf(const std::vector<uint8_t> &frame, const Geometry &g) {
  std::vector<uint8_t> copy(frame.begin(), frame.begin() + g.lumaBytes());
  const auto chroma = frame.begin() + size_t(g.stride) * g.scanline;
  copy.insert(copy.end(), chroma, chroma + g.chromaBytes());
  return copy;
}

bool holds(const uint8_t *buffer, const std::vector<uint8_t> &copy) {
  return std::memcmp(buffer, copy.data(), copy.size()) == 0;
}

int32_t process(VideoHdrHandle *h, uint8_t *frame, const Geometry &g) {
  return Video_HDR_Process(h, frame, 5, 6, g.width, g.height, g.stride, g.scanline);
}
int32_t process(VideoHdrHandle *h, std::vector<uint8_t> &frame, const Geometry &g) {
  return process(h, frame.data(), g);
}

std::string startLine(int32_t count, int32_t scanline) {
  return "TQ0530 V_HDR Process " + std::to_string(count) + "..., " + std::to_string(scanline);
}
std::string doneLine(int32_t count) {
  return "V_HDR Process Successfully " + std::to_string(count);
}

const char kNoAlignStateLine[] =
    "align_para free failed in line number : 95 functon : freeMem file : "
    "jni/alignment_op/tarn_hdr_mtbalign";

class Handle {
 public:
  Handle() : h_(createVideoHdrHandle()) {}
  ~Handle() { destroyVideoHdrHandle(h_); }
  Handle(const Handle &) = delete;
  Handle &operator=(const Handle &) = delete;
  VideoHdrHandle *operator->() { return h_; }
  VideoHdrHandle *get() { return h_; }

 private:
  VideoHdrHandle *h_;
};

// ---------------------------------------------------------------------------
// Creation, views and release

TEST(HandleLifecycle, CreateGivesAZeroedRecordWithThreeBufferViewsAndDestroyAnswersOne) {
  LogCapture log;
  VideoHdrHandle *handles[2] = {createVideoHdrHandle(), Video_HDR_Initial()};
  for (VideoHdrHandle *h : handles) {
    ASSERT_NE(h, nullptr);
    ASSERT_NE(h->frameBuf0, nullptr);
    VideoHdrHandle expected = {};
    expected.initDone = 1;
    expected.frameBuf0 = h->frameBuf0;
    expected.frameBuf1 = h->frameBuf0 + 3932160;
    expected.alignedBuf = h->frameBuf0 + 7864320;
    EXPECT_EQ(std::memcmp(h, &expected, sizeof expected), 0);
    h->alignedBuf[3932160 - 1] = 1;  // the whole block is the handle's
  }
  EXPECT_NE(handles[0]->frameBuf0, handles[1]->frameBuf0);
  EXPECT_TRUE(log.lines().empty());
  // Never used: the alignment release reports its missing state, once per name.
  EXPECT_EQ(Video_HDR_Release(handles[0]), 1);
  EXPECT_EQ(destroyVideoHdrHandle(handles[1]), 1);
  EXPECT_EQ(log.messages(), (std::vector<std::string>{kNoAlignStateLine, kNoAlignStateLine}));
  for (const LogLine &line : log.lines()) EXPECT_EQ(line.priority, 4);
  EXPECT_EQ(destroyVideoHdrHandle(nullptr), 1);
  EXPECT_EQ(Video_HDR_Release(nullptr), 1);
  EXPECT_EQ(log.lines().size(), 2u);
}

// ---------------------------------------------------------------------------
// The first frame and the frame copy

TEST(HandleFrameCopy, TheFirstFramePrimesAndEveryCopyDropsThePaddingRows) {
  // An odd luma size: the chroma is (stride * height) / 2 bytes, rounded down.
  const Geometry geometries[] = {kPadded, {1056, 15, 1057, 23}, {1040, 12, 1040, 12}};
  for (const Geometry &g : geometries) {
    Handle h;
    const size_t end = g.lumaBytes() + g.chromaBytes();
    h->frameBuf0[end] = 0x5A;
    h->frameBuf1[end] = 0x5A;
    std::vector<uint8_t> first = makeFrame(g, 4), second = makeFrame(g, 5);
    const std::vector<uint8_t> before = first;
    EXPECT_EQ(process(h.get(), first, g), 1);
    EXPECT_EQ(first, before) << "the first frame only primes the handle";
    EXPECT_EQ(h->frameCount, 1);
    EXPECT_NE(h->alignContext, nullptr);
    EXPECT_NE(h->fusionContext, nullptr);
    EXPECT_TRUE(holds(h->frameBuf0, copyOf(first, g))) << g.stride << "x" << g.height;
    // Taken before the call: from the second frame on the caller's frame receives the fusion.
    const std::vector<uint8_t> secondCopy = copyOf(second, g);
    process(h.get(), second, g);
    EXPECT_TRUE(holds(h->frameBuf1, secondCopy)) << g.stride << "x" << g.height;
    EXPECT_EQ(h->frameBuf0[end], 0x5A);
    EXPECT_EQ(h->frameBuf1[end], 0x5A);
  }
}

// ---------------------------------------------------------------------------
// Buffer roles and the counter

// Feeds frame `seed` and checks that it landed in `expectedCur` while the
// other history buffer still holds `prevCopy`.
void feedAndCheck(Handle &h, uint32_t seed, int expectedCur, const std::vector<uint8_t> &prevCopy,
                  std::vector<uint8_t> *copy) {
  std::vector<uint8_t> frame = makeFrame(kPadded, seed);
  *copy = copyOf(frame, kPadded);
  const int32_t count = h->frameCount;
  EXPECT_EQ(process(h.get(), frame, kPadded), 1);
  uint8_t *cur = expectedCur == 0 ? h->frameBuf0 : h->frameBuf1;
  uint8_t *prev = expectedCur == 0 ? h->frameBuf1 : h->frameBuf0;
  EXPECT_TRUE(holds(cur, *copy)) << "counter " << count << ": frame not in buffer " << expectedCur;
  EXPECT_TRUE(holds(prev, prevCopy)) << "counter " << count << ": previous frame disturbed";
}

// A frame taken at an odd counter goes to buffer one, at an even one to buffer
// zero; the counter runs to 1000000 and restarts at 1 (never 0, which would
// lead back to the first-frame path), so the alternation goes on across it.
TEST(HandleCounter, ParityPicksTheBufferAndTheCounterWrapsAfterOneMillion) {
  const struct { int32_t start, after[3]; } runs[] = {{1, {2, 3, 4}}, {999999, {1000000, 1, 2}}};
  for (const auto &run : runs) {
    Handle h;
    std::vector<uint8_t> first = makeFrame(kPadded, 20), copy, prev = copyOf(first, kPadded);
    process(h.get(), first, kPadded);
    AlignContext *alignContext = h->alignContext;
    h->frameCount = run.start;
    LogCapture log;
    std::vector<std::string> expectedLines;
    for (int k = 0; k < 3; ++k) {
      const int32_t count = h->frameCount;
      expectedLines.push_back(startLine(count, kPadded.scanline));
      expectedLines.push_back(doneLine(run.after[k]));
      feedAndCheck(h, 21 + k, count & 1, prev, &copy);
      EXPECT_EQ(h->frameCount, run.after[k]) << "from " << count;
      prev = copy;
    }
    EXPECT_EQ(h->alignContext, alignContext);
    EXPECT_EQ(log.messages(), expectedLines);
  }
}

// ---------------------------------------------------------------------------
// The calls' results and the short process call

TEST(HandleCalls, ShortProcessPassesFlagOneAndTheGeometryOfInit) {
  // Two handles fed the same frames, one through each call, end up alike.
  Handle shortForm, longForm;
  const Geometry g = {1056, 16, 1072, 18};
  EXPECT_EQ(initVideoHdr(shortForm.get(), g.width, g.height, g.stride), 0);
  EXPECT_EQ(shortForm->scanline, 0);
  for (uint32_t n = 0; n < 3; ++n) {
    std::vector<uint8_t> a = makeFrame(g, 50 + n), b = a;
    const int32_t param = 123 + int32_t(n);
    EXPECT_EQ(processVideoHdr(shortForm.get(), a.data(), param, g.scanline), 1);
    EXPECT_EQ(Video_HDR_Process(longForm.get(), b.data(), param, 1, g.width, g.height, g.stride,
                                g.scanline),
              1);
    EXPECT_EQ(a, b) << "frame " << n;
    // The record keeps what the calls passed.
    for (VideoHdrHandle *h : {shortForm.get(), longForm.get()}) {
      EXPECT_EQ((std::vector<int32_t>{h->callerParam, h->callerFlag, h->width, h->stride,
                                      h->scanline, h->frameCount}),
                (std::vector<int32_t>{param, 1, g.width, g.stride, g.scanline, int32_t(n + 1)}));
    }
  }
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

std::string notPositive(int32_t width, int32_t height, int32_t stride) {
  return "V_HDR Process refused: width " + std::to_string(width) + ", height " +
         std::to_string(height) + " and stride " + std::to_string(stride) + " must be positive";
}

const Refusal kAlwaysRefused[] = {
    {"zero width", {0, 16, 1056, 16}, notPositive(0, 16, 1056)},
    {"zero height", {1056, 0, 1056, 16}, notPositive(1056, 0, 1056)},
    {"negative height", {1056, -2, 1056, 16}, notPositive(1056, -2, 1056)},
    {"zero stride", {1056, 16, 0, 16}, notPositive(1056, 16, 0)},
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

TEST(GeometryGuard, RefusesNullHandlesAndFramesAndTheShortCallWithoutGeometry) {
  std::vector<uint8_t> frame = randomFrame(kGood.frameBytes(), 1);
  LogCapture log;
  EXPECT_EQ(process(nullptr, frame.data(), kGood), 0);
  EXPECT_EQ(processVideoHdr(nullptr, frame.data(), 0, kGood.scanline), 0);
  VideoHdrHandle *h = createVideoHdrHandle();
  EXPECT_EQ(process(h, nullptr, kGood), 0);
  EXPECT_EQ(processVideoHdr(h, frame.data(), 0, 0), 0);
  initVideoHdr(h, kGood.width, kGood.height, kGood.stride);
  EXPECT_EQ(processVideoHdr(h, nullptr, 0, kGood.scanline), 0);
  EXPECT_EQ(h->frameCount, 0);
  const std::vector<std::string> expected = {
      "V_HDR Process refused: null handle", "V_HDR Process refused: null handle",
      "V_HDR Process refused: null frame",
      "V_HDR Process refused: width 0, height 0 and stride 0 must be positive",
      "V_HDR Process refused: null frame"};
  EXPECT_EQ(log.messages(), expected);
  for (const LogLine &line : log.lines()) EXPECT_EQ(line.priority, 6);
  destroyVideoHdrHandle(h);
}

// After the first frame the geometry is fixed; the scanline may grow (the
// fused chroma is written at the first frame's) but not shrink. A refused
// frame leaves the handle, its buffers and the frame as they were.
TEST(GeometryGuard, AfterTheFirstFramesTheGeometryIsFixed) {
  auto differs = [](int32_t width, int32_t height, int32_t stride) {
    return "V_HDR Process refused: width " + std::to_string(width) + ", height " +
           std::to_string(height) + ", stride " + std::to_string(stride) +
           " differ from the first frame's 1056, 16, 1056";
  };
  const Refusal changes[] = {
      {"another width", {1040, 16, 1056, 20}, differs(1040, 16, 1056)},
      {"another height", {1056, 12, 1056, 20}, differs(1056, 12, 1056)},
      {"another stride", {1056, 16, 1072, 20}, differs(1056, 16, 1072)},
      {"a width 65536 wider", {1056 + 65536, 16, 70000, 20}, differs(66592, 16, 70000)},
      {"a shorter scanline",
       {1056, 16, 1056, 19},
       "V_HDR Process refused: scanline 19 below the first frame's 20"},
  };
  VideoHdrHandle *h = createVideoHdrHandle();
  for (int n = 0; n < 2; ++n) {
    std::vector<uint8_t> frame = randomFrame(kGood.frameBytes(), 4 + n);
    EXPECT_EQ(process(h, frame.data(), kGood), 1);
  }
  for (const Refusal &r : changes) expectRefused(h, r);
  for (const Refusal &r : kAlwaysRefused) expectRefused(h, r);
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
