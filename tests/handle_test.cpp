// The handle: creation and release under both names, the frame block's
// views, the first frame, the frame copy, the parity of the history buffers,
// the counter wrap, the short process call and the log lines.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

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
constexpr uint8_t kPaddingByte = 0xEE;

// A caller frame: luma and chroma from a seeded pattern, padding rows marked.
std::vector<uint8_t> makeFrame(const Geometry &g, uint32_t seed) {
  std::vector<uint8_t> frame(g.frameBytes(), kPaddingByte);
  uint32_t state = seed * 2654435761u + 1;
  auto next = [&state] {
    state = state * 1103515245u + 12345u;
    return static_cast<uint8_t>(state >> 16);
  };
  for (size_t i = 0; i < g.lumaBytes(); ++i) frame[i] = next();
  const size_t chroma = size_t(g.stride) * g.scanline;
  for (size_t i = 0; i < g.chromaBytes(); ++i) frame[chroma + i] = next();
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

int32_t process(VideoHdrHandle *h, std::vector<uint8_t> &frame, const Geometry &g,
                int32_t callerParam = 0) {
  return Video_HDR_Process(h, frame.data(), callerParam, 0, g.width, g.height, g.stride,
                           g.scanline);
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

void expectFreshHandle(const VideoHdrHandle *h) {
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->callerParam, 0);
  EXPECT_EQ(h->callerFlag, 0);
  EXPECT_EQ(h->reserved0, 0);
  EXPECT_EQ(h->frameCount, 0);
  EXPECT_EQ(h->width, 0);
  EXPECT_EQ(h->height, 0);
  EXPECT_EQ(h->stride, 0);
  EXPECT_EQ(h->scanline, 0);
  EXPECT_EQ(h->reserved1, 0);
  EXPECT_EQ(h->initDone, 1);
  ASSERT_NE(h->frameBuf0, nullptr);
  EXPECT_EQ(h->frameBuf1, h->frameBuf0 + 3932160);
  EXPECT_EQ(h->alignedBuf, h->frameBuf0 + 7864320);
  EXPECT_EQ(h->alignContext, nullptr);
  EXPECT_EQ(h->fusionContext, nullptr);
  EXPECT_EQ(h->alignConfig, nullptr);
  EXPECT_EQ(h->fusionAux, nullptr);
}

TEST(HandleLifecycle, BothCreateNamesGiveAFreshHandleWithThreeBufferViews) {
  LogCapture log;
  VideoHdrHandle *a = createVideoHdrHandle();
  VideoHdrHandle *b = Video_HDR_Initial();
  expectFreshHandle(a);
  expectFreshHandle(b);
  EXPECT_NE(a, b);
  EXPECT_NE(a->frameBuf0, b->frameBuf0);
  // The whole block is the handle's: its last byte is writable.
  a->alignedBuf[3932160 - 1] = 1;
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(Video_HDR_Release(a), 1);
  EXPECT_EQ(destroyVideoHdrHandle(b), 1);
}

TEST(HandleLifecycle, DestroyOfNullAnswersOneUnderBothNamesAndLogsNothing) {
  LogCapture log;
  EXPECT_EQ(destroyVideoHdrHandle(nullptr), 1);
  EXPECT_EQ(Video_HDR_Release(nullptr), 1);
  EXPECT_TRUE(log.lines().empty());
}

TEST(HandleLifecycle, DestroyOfANeverUsedHandleLogsTheAlignmentReleaseLine) {
  for (int name = 0; name < 2; ++name) {
    VideoHdrHandle *h = createVideoHdrHandle();
    LogCapture log;
    EXPECT_EQ(name == 0 ? destroyVideoHdrHandle(h) : Video_HDR_Release(h), 1);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].priority, 4);
    EXPECT_EQ(log.lines()[0].tag, "VideoHDR");
    EXPECT_EQ(log.lines()[0].message, kNoAlignStateLine);
  }
}

TEST(HandleLifecycle, HandlesThatTookFramesReleaseQuietly) {
  // The leak checker of the sanitizer build sees whatever these leave behind.
  for (int name = 0; name < 2; ++name) {
    VideoHdrHandle *h = name == 0 ? createVideoHdrHandle() : Video_HDR_Initial();
    std::vector<uint8_t> frame = makeFrame(kPadded, 1);
    for (int i = 0; i < 3; ++i) process(h, frame, kPadded);
    EXPECT_NE(h->alignContext, nullptr);
    EXPECT_NE(h->alignConfig, nullptr);
    LogCapture log;
    EXPECT_EQ(name == 0 ? Video_HDR_Release(h) : destroyVideoHdrHandle(h), 1);
    EXPECT_TRUE(log.lines().empty());
  }
  // Primed only.
  VideoHdrHandle *h = createVideoHdrHandle();
  std::vector<uint8_t> frame = makeFrame(kPadded, 2);
  process(h, frame, kPadded);
  EXPECT_EQ(destroyVideoHdrHandle(h), 1);
}

TEST(HandleLifecycle, RecordsKeepTheirWordLayoutOn32BitTargets) {
  if (sizeof(void *) != 4) GTEST_SKIP() << "pointers are not 32-bit words here";
  EXPECT_EQ(sizeof(VideoHdrHandle), 17u * 4);
  EXPECT_EQ(offsetof(VideoHdrHandle, frameCount), 3u * 4);
  EXPECT_EQ(offsetof(VideoHdrHandle, scanline), 7u * 4);
  EXPECT_EQ(offsetof(VideoHdrHandle, frameBuf0), 10u * 4);
  EXPECT_EQ(offsetof(VideoHdrHandle, fusionAux), 16u * 4);
  EXPECT_EQ(sizeof(AlignContext), 53u * 4);
  EXPECT_EQ(offsetof(AlignContext, prevImage), 9u * 4);
  EXPECT_EQ(offsetof(AlignContext, scratchPlane0), 21u * 4);
  EXPECT_EQ(offsetof(AlignContext, histTable0), 35u * 4);
  EXPECT_EQ(offsetof(AlignContext, histTable3), 42u * 4);
  EXPECT_EQ(offsetof(AlignContext, lastCount), 43u * 4);
  EXPECT_EQ(offsetof(AlignContext, countHistory), 49u * 4);
  EXPECT_EQ(offsetof(AlignContext, ready), 52u * 4);
  EXPECT_EQ(sizeof(AlignConfig), 24u);
  EXPECT_EQ(offsetof(AlignConfig, stride), 4u);
}

// ---------------------------------------------------------------------------
// The first frame and the frame copy

TEST(HandleFirstFrame, PrimesTheHandleAndLeavesTheFrameAlone) {
  Handle h;
  std::vector<uint8_t> frame = makeFrame(kPadded, 3);
  const std::vector<uint8_t> before = frame;
  LogCapture log;
  EXPECT_EQ(process(h.get(), frame, kPadded, 42), 1);
  EXPECT_EQ(frame, before);
  EXPECT_EQ(h->frameCount, 1);
  EXPECT_EQ(h->callerParam, 42);
  EXPECT_NE(h->alignContext, nullptr);
  EXPECT_NE(h->alignConfig, nullptr);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].priority, 4);
  EXPECT_EQ(log.lines()[0].tag, "VideoHDR");
  EXPECT_EQ(log.lines()[0].message, startLine(0, kPadded.scanline));
  EXPECT_TRUE(holds(h->frameBuf0, copyOf(frame, kPadded)));
}

TEST(HandleFrameCopy, DropsThePaddingRowsAndStopsAfterTheChroma) {
  // An odd luma size: the chroma is (stride * height) / 2 bytes, rounded down.
  const Geometry geometries[] = {kPadded, {1056, 15, 1057, 23}, {1040, 12, 1040, 12}};
  for (const Geometry &g : geometries) {
    Handle h;
    const size_t end = g.lumaBytes() + g.chromaBytes();
    h->frameBuf0[end] = 0x5A;
    h->frameBuf1[end] = 0x5A;
    std::vector<uint8_t> first = makeFrame(g, 4), second = makeFrame(g, 5);
    process(h.get(), first, g);
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

TEST(HandleBufferRoles, OddCountersWriteBufferOneAndEvenCountersBufferZero) {
  Handle h;
  std::vector<uint8_t> first = makeFrame(kPadded, 10), copy, prev = copyOf(first, kPadded);
  process(h.get(), first, kPadded);
  for (uint32_t n = 1; n <= 6; ++n) {
    feedAndCheck(h, 10 + n, n % 2 == 1 ? 1 : 0, prev, &copy);
    EXPECT_EQ(h->frameCount, int32_t(n + 1));
    prev = copy;
  }
}

TEST(HandleCounter, WrapsFromOneMillionToOneKeepingTheAlternation) {
  Handle h;
  std::vector<uint8_t> first = makeFrame(kPadded, 20), copy, prev = copyOf(first, kPadded);
  process(h.get(), first, kPadded);
  AlignContext *alignContext = h->alignContext;
  h->frameCount = 999999;
  LogCapture log;
  feedAndCheck(h, 21, 1, prev, &copy);
  EXPECT_EQ(h->frameCount, 1000000);
  prev = copy;
  feedAndCheck(h, 22, 0, prev, &copy);
  EXPECT_EQ(h->frameCount, 1);
  prev = copy;
  feedAndCheck(h, 23, 1, prev, &copy);
  EXPECT_EQ(h->frameCount, 2);
  // The wrap does not lead back to the first-frame path.
  EXPECT_EQ(h->alignContext, alignContext);
  const std::vector<std::string> expected = {
      startLine(999999, kPadded.scanline),  doneLine(1000000),
      startLine(1000000, kPadded.scanline), doneLine(1),
      startLine(1, kPadded.scanline),       doneLine(2)};
  EXPECT_EQ(log.messages(), expected);
}

TEST(HandleCounter, AFrameTakenAtOneMillionLandsInBufferZero) {
  Handle h;
  std::vector<uint8_t> first = makeFrame(kPadded, 30), copy;
  process(h.get(), first, kPadded);
  h->frameCount = 1000000;
  // Whatever buffer one holds, the frame must go to buffer zero.
  std::vector<uint8_t> second = makeFrame(kPadded, 31);
  const std::vector<uint8_t> secondCopy = copyOf(second, kPadded);
  process(h.get(), second, kPadded);
  EXPECT_TRUE(holds(h->frameBuf0, secondCopy));
  EXPECT_EQ(h->frameCount, 1);
}

// ---------------------------------------------------------------------------
// The calls' results and the short process call

TEST(HandleCalls, InitStoresTheGeometryButNotTheScanlineAndAnswersZero) {
  Handle h;
  EXPECT_EQ(initVideoHdr(h.get(), 1056, 16, 1072), 0);
  EXPECT_EQ(h->width, 1056);
  EXPECT_EQ(h->height, 16);
  EXPECT_EQ(h->stride, 1072);
  EXPECT_EQ(h->scanline, 0);
  EXPECT_EQ(h->frameCount, 0);
}

TEST(HandleCalls, ProcessStoresItsArgumentsAndAnswersOne) {
  Handle h;
  std::vector<uint8_t> frame = makeFrame(kPadded, 40);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Video_HDR_Process(h.get(), frame.data(), 7 + i, 9 + i, kPadded.width, kPadded.height,
                                kPadded.stride, kPadded.scanline),
              1);
    EXPECT_EQ(h->callerParam, 7 + i);
    EXPECT_EQ(h->callerFlag, 9 + i);
    EXPECT_EQ(h->width, kPadded.width);
    EXPECT_EQ(h->height, kPadded.height);
    EXPECT_EQ(h->stride, kPadded.stride);
    EXPECT_EQ(h->scanline, kPadded.scanline);
  }
}

TEST(HandleCalls, ShortProcessPassesFlagOneAndTheHandleGeometry) {
  // Two handles fed the same frames, one through each call, end up alike.
  Handle shortForm, longForm;
  const Geometry g = {1056, 16, 1072, 18};
  initVideoHdr(shortForm.get(), g.width, g.height, g.stride);
  LogCapture log;
  for (uint32_t n = 0; n < 3; ++n) {
    std::vector<uint8_t> a = makeFrame(g, 50 + n), b = a;
    EXPECT_EQ(processVideoHdr(shortForm.get(), a.data(), 123, g.scanline), 1);
    EXPECT_EQ(Video_HDR_Process(longForm.get(), b.data(), 123, 1, g.width, g.height, g.stride,
                                g.scanline),
              1);
    EXPECT_EQ(a, b) << "frame " << n;
    EXPECT_EQ(shortForm->callerParam, 123);
    EXPECT_EQ(shortForm->callerFlag, 1);
    EXPECT_EQ(shortForm->scanline, g.scanline);
    EXPECT_EQ(shortForm->width, g.width);
    EXPECT_EQ(shortForm->stride, g.stride);
    EXPECT_EQ(shortForm->frameCount, longForm->frameCount);
  }
  EXPECT_TRUE(holds(shortForm->frameBuf0, copyOf(makeFrame(g, 52), g)));
  EXPECT_TRUE(holds(shortForm->frameBuf1, copyOf(makeFrame(g, 51), g)));
  // Each frame's lines, once from each handle.
  const std::vector<std::vector<std::string>> perFrame = {
      {startLine(0, 18)}, {startLine(1, 18), doneLine(2)}, {startLine(2, 18), doneLine(3)}};
  std::vector<std::string> both;
  for (const auto &lines : perFrame) {
    both.insert(both.end(), lines.begin(), lines.end());
    both.insert(both.end(), lines.begin(), lines.end());
  }
  EXPECT_EQ(log.messages(), both);
}

// ---------------------------------------------------------------------------
// Log lines

TEST(HandleLog, EveryLaterFrameWritesTwoInformationLines) {
  Handle h;
  const Geometry taller = {1056, 16, 1056, 31};
  std::vector<uint8_t> frame = makeFrame(kPadded, 60), other = makeFrame(taller, 61);
  LogCapture log;
  process(h.get(), frame, kPadded);
  process(h.get(), frame, kPadded);
  process(h.get(), other, taller);
  const std::vector<std::string> expected = {
      "TQ0530 V_HDR Process 0..., 20", "TQ0530 V_HDR Process 1..., 20",
      "V_HDR Process Successfully 2", "TQ0530 V_HDR Process 2..., 31",
      "V_HDR Process Successfully 3"};
  EXPECT_EQ(log.messages(), expected);
  for (const LogLine &line : log.lines()) {
    EXPECT_EQ(line.priority, 4);
    EXPECT_EQ(line.tag, "VideoHDR");
  }
}

}  // namespace
