// The camera-plane entry point against Video_HDR_Process on a tightly packed
// copy of the same pixels, for every layout cameras hand out: the same bytes,
// the same shifts, and not one byte changed outside the samples. Then bad
// input, plane sizes, and allocation after the first frame.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "alloc_count.h"
#include "camera_frame.h"
#include "hdr_log.h"
#include "videohdr_planes.h"

namespace {

using namespace planes_test;

constexpr int32_t kFrames = 4;

// name, width, height, yRowStride, uvRowStride, pixelStride, chroma, gapBytes
// (>= 0: one buffer with the chroma this far past the luma rows; -1: each
// plane in its own buffer), processed without a copy as a state's first layout
const Layout kLayouts[] = {
    {"nv21 one buffer", 1040, 64, 1040, 1040, 2, Chroma::kNv21, 0, true},
    {"nv12 one buffer", 1040, 64, 1040, 1040, 2, Chroma::kNv12, 0, true},
    {"nv21 scanline gap", 1040, 64, 1040, 1040, 2, Chroma::kNv21, 16 * 1040, true},
    {"nv12 gap, rows not whole blocks", 1048, 64, 1048, 1048, 2, Chroma::kNv12, 8 * 1048, false},
    {"nv21 gap past the limit", 1040, 64, 1040, 1040, 2, Chroma::kNv21, 65 * 1040, false},
    {"nv12 gap not whole rows", 1040, 64, 1040, 1040, 2, Chroma::kNv12, 100, false},
    {"nv21 padded rows, one buffer", 1040, 64, 1088, 1088, 2, Chroma::kNv21, 4 * 1088, false},
    {"nv21 padded rows, own buffers", 1040, 64, 1088, 1088, 2, Chroma::kNv21, -1, false},
    {"nv12 uv rows padded", 1040, 64, 1040, 1104, 2, Chroma::kNv12, -1, false},
    {"i420 padded", 1040, 64, 1088, 576, 1, Chroma::kPlanar, -1, false},
    {"i420 tight", 1040, 64, 1040, 520, 1, Chroma::kPlanar, -1, false},
    {"pixel stride 2, separate planes", 1040, 64, 1040, 1056, 2, Chroma::kPlanar, -1, false},
    {"narrow nv21, 864 in 896", 864, 48, 896, 896, 2, Chroma::kNv21, -1, false},
    {"small i420, partial blocks", 66, 30, 80, 40, 1, Chroma::kPlanar, -1, false},
};

struct State {
  VideoHdrPlanes *planes = nullptr;
  ~State() { videohdr_planes_destroy(planes); }
};

// Video_HDR_Process on packed copies: the reference. Interleaved planes keep
// their order in the copy, all others pack U first.
class PackedReference {
 public:
  PackedReference() : handle_(Video_HDR_Initial()) {}
  ~PackedReference() { Video_HDR_Release(handle_); }
  Pixels process(const Pixels &p, Chroma chroma) {
    const bool vFirst = chroma == Chroma::kNv21;
    Bytes frame = packFrame(p, vFirst);
    Video_HDR_Process(handle_, frame.data(), 0, 1, p.width, p.height, p.width, p.height);
    return unpackFrame(frame, p.width, p.height, vFirst);
  }
  const AlignContext &align() const { return *handle_->alignContext; }

 private:
  VideoHdrHandle *handle_;
};

class PlanesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    videohdr::setLogSink([](int, const char *, const char *) {});
  }
  void TearDown() override { videohdr::setLogSink(nullptr); }

  // Frame n goes in layouts[n % size], through one state and the reference.
  // Answers how many frames the search found a non-zero shift for.
  static int32_t expectSameAsPacked(const std::vector<Layout> &layouts) {
    State s;
    EXPECT_EQ(videohdr_planes_create(layouts[0].width, layouts[0].height, &s.planes),
              VIDEOHDR_PLANES_OK);
    PackedReference reference;
    int32_t moved = 0;
    for (int32_t n = 0; n < kFrames; ++n) {
      const Layout &l = layouts[n % layouts.size()];
      SCOPED_TRACE(std::string(l.name) + ", frame " + std::to_string(n));
      const Pixels pixels = scene(l.width, l.height, n);
      CameraFrame frame(l), expected(l);
      frame.write(pixels);
      VideoHdrPlanesResult r;
      videohdr_planes_process(s.planes, frame.y, l.yRowStride, frame.u, frame.v, l.uvRowStride,
                              l.pixelStride, l.width, l.height, &r);
      expected.write(reference.process(pixels, l.chroma));
      EXPECT_TRUE(frame.buffers == expected.buffers);
      EXPECT_EQ(r.status, n == 0 ? VIDEOHDR_PLANES_PRIMED : VIDEOHDR_PLANES_PROCESSED);
      EXPECT_EQ(r.inPlace, l.inPlace);
      if (n == 0) continue;
      const AlignContext &a = reference.align();
      EXPECT_EQ(r.foundDx, a.levelDx[0]);
      EXPECT_EQ(r.foundDy, a.levelDy[0]);
      EXPECT_EQ(r.appliedDx, a.lastDx);
      EXPECT_EQ(r.appliedDy, a.lastDy);
      EXPECT_EQ(r.currentBrighter, n % 2 == 0);  // even frames are the bright exposure
      moved += r.foundDx != 0 || r.foundDy != 0;
    }
    return moved;
  }
};

TEST_F(PlanesTest, EveryLayoutGivesThePackedFramesBytesAndShifts) {
  for (const Layout &l : kLayouts) {
    const int32_t moved = expectSameAsPacked({l});
    if (l.width >= VIDEOHDR_MIN_SEARCH_WIDTH) {
      EXPECT_GT(moved, 0) << l.name;
    }
  }
}

// The first frame fixes the row of the handle's chroma: frames of the other
// layouts then go through the copy.
TEST_F(PlanesTest, LayoutsMayChangeFromFrameToFrame) {
  Layout one = kLayouts[0], gap = kLayouts[2], padded = kLayouts[7];
  one.inPlace = false;
  expectSameAsPacked({gap, one, padded});
  one.inPlace = true;
  gap.inPlace = false;
  expectSameAsPacked({one, gap, padded});
}

TEST_F(PlanesTest, BadInputIsRefusedAndNothingIsWritten) {
  struct Call {
    VideoHdrPlanes *state;
    uint8_t *y;
    int32_t yRowStride;
    uint8_t *u, *v;
    int32_t uvRowStride, pixelStride, width, height;
  };
  const Layout &l = kLayouts[7];
  State s;
  ASSERT_EQ(videohdr_planes_create(l.width, l.height, &s.planes), VIDEOHDR_PLANES_OK);
  CameraFrame frame(l);
  frame.write(scene(l.width, l.height, 0));
  const auto before = frame.buffers;
  const Call good = {s.planes,      frame.y,       l.yRowStride, frame.u, frame.v,
                     l.uvRowStride, l.pixelStride, l.width,      l.height};
  const std::vector<std::tuple<const char *, int32_t, std::function<void(Call &)>>> cases = {
      {"null state", VIDEOHDR_PLANES_ERR_NULL_STATE, [](Call &c) { c.state = nullptr; }},
      {"other width", VIDEOHDR_PLANES_ERR_SIZE_CHANGED, [](Call &c) { c.width -= 2; }},
      {"other height", VIDEOHDR_PLANES_ERR_SIZE_CHANGED, [](Call &c) { c.height += 2; }},
      {"null y", VIDEOHDR_PLANES_ERR_NULL_PLANE, [](Call &c) { c.y = nullptr; }},
      {"null u", VIDEOHDR_PLANES_ERR_NULL_PLANE, [](Call &c) { c.u = nullptr; }},
      {"null v", VIDEOHDR_PLANES_ERR_NULL_PLANE, [](Call &c) { c.v = nullptr; }},
      {"pixel stride 0", VIDEOHDR_PLANES_ERR_PIXEL_STRIDE, [](Call &c) { c.pixelStride = 0; }},
      {"pixel stride 3", VIDEOHDR_PLANES_ERR_PIXEL_STRIDE, [](Call &c) { c.pixelStride = 3; }},
      {"y rows below the width", VIDEOHDR_PLANES_ERR_ROW_STRIDE,
       [](Call &c) { c.yRowStride = c.width - 2; }},
      {"uv rows below the width", VIDEOHDR_PLANES_ERR_ROW_STRIDE,
       [](Call &c) { c.uvRowStride = c.width - 2; }},
      {"negative row stride", VIDEOHDR_PLANES_ERR_ROW_STRIDE, [](Call &c) { c.yRowStride = -1; }},
      {"u and v the same plane", VIDEOHDR_PLANES_ERR_OVERLAP, [](Call &c) { c.u = c.v; }},
      {"u two bytes after v", VIDEOHDR_PLANES_ERR_OVERLAP, [](Call &c) { c.u = c.v + 2; }},
      {"chroma inside the luma", VIDEOHDR_PLANES_ERR_OVERLAP, [](Call &c) { c.v = c.y + 8; }},
  };
  for (const auto &[name, code, change] : cases) {
    Call c = good;
    change(c);
    VideoHdrPlanesResult r;
    r.inPlace = 7;
    EXPECT_EQ(videohdr_planes_process(c.state, c.y, c.yRowStride, c.u, c.v, c.uvRowStride,
                                      c.pixelStride, c.width, c.height, &r),
              code)
        << name;
    EXPECT_EQ(r.status, code) << name;
    EXPECT_EQ(r.inPlace, 0) << name;
    EXPECT_TRUE(frame.buffers == before) << name;
    EXPECT_STRNE(videohdr_planes_status_text(code), videohdr_planes_status_text(99)) << name;
  }
  // None of them counted as a frame: the next good one primes the state.
  EXPECT_EQ(
      videohdr_planes_process(good.state, good.y, good.yRowStride, good.u, good.v, good.uvRowStride,
                              good.pixelStride, good.width, good.height, nullptr),
      VIDEOHDR_PLANES_PRIMED);
}

TEST_F(PlanesTest, CreateTakesEvenSizesWithinTheDesign) {
  const struct {
    int32_t width, height, status;
  } cases[] = {
      {2048, 1280, VIDEOHDR_PLANES_OK},           {2, 2, VIDEOHDR_PLANES_OK},
      {0, 64, VIDEOHDR_PLANES_ERR_BAD_SIZE},      {-2, 64, VIDEOHDR_PLANES_ERR_BAD_SIZE},
      {1041, 64, VIDEOHDR_PLANES_ERR_BAD_SIZE},   {1040, 63, VIDEOHDR_PLANES_ERR_BAD_SIZE},
      {2048, 1282, VIDEOHDR_PLANES_ERR_BAD_SIZE},
  };
  for (const auto &c : cases) {
    State s;
    EXPECT_EQ(videohdr_planes_create(c.width, c.height, &s.planes), c.status)
        << c.width << "x" << c.height;
    EXPECT_EQ(s.planes != nullptr, c.status == VIDEOHDR_PLANES_OK);
  }
  EXPECT_EQ(videohdr_planes_create(64, 64, nullptr), VIDEOHDR_PLANES_ERR_NULL_STATE);
}

TEST_F(PlanesTest, PlaneBytesOfCameraLayouts) {
  const struct {
    int32_t width, height, yRowStride, uvRowStride, pixelStride, status;
    int64_t yBytes, uvBytes;
  } cases[] = {
      // 1536 * 719 + 1280; 1536 * 359 + 2 * 639 + 1
      {1280, 720, 1536, 1536, 2, VIDEOHDR_PLANES_OK, 1105664, 552703},
      // 1280 * 720; 640 * 359 + 639 + 1
      {1280, 720, 1280, 640, 1, VIDEOHDR_PLANES_OK, 921600, 230400},
      // 896 * 479 + 864; 896 * 239 + 2 * 431 + 1
      {864, 480, 896, 896, 2, VIDEOHDR_PLANES_OK, 430048, 215007},
      {864, 480, 896, 896, 4, VIDEOHDR_PLANES_ERR_PIXEL_STRIDE, -1, -1},
      {864, 480, 896, 431, 1, VIDEOHDR_PLANES_ERR_ROW_STRIDE, -1, -1},
      {864, 481, 896, 896, 2, VIDEOHDR_PLANES_ERR_BAD_SIZE, -1, -1},
  };
  for (const auto &c : cases) {
    int64_t yBytes = -1, uvBytes = -1;
    EXPECT_EQ(videohdr_planes_plane_bytes(c.width, c.height, c.yRowStride, c.uvRowStride,
                                          c.pixelStride, &yBytes, &uvBytes),
              c.status);
    EXPECT_EQ(yBytes, c.yBytes) << c.width << "x" << c.height;
    EXPECT_EQ(uvBytes, c.uvBytes) << c.width << "x" << c.height;
  }
}

TEST_F(PlanesTest, NoAllocationAfterTheFirstFrame) {
  const Layout layouts[] = {kLayouts[0], kLayouts[7], kLayouts[9], kLayouts[11]};
  State s;
  ASSERT_EQ(videohdr_planes_create(1040, 64, &s.planes), VIDEOHDR_PLANES_OK);
  for (int32_t n = 0; n < 2 * 4; ++n) {
    const Layout &l = layouts[n % 4];
    CameraFrame frame(l);
    frame.write(scene(l.width, l.height, n));
    const long before = alloc_count::allocations();
    videohdr_planes_process(s.planes, frame.y, l.yRowStride, frame.u, frame.v, l.uvRowStride,
                            l.pixelStride, l.width, l.height, nullptr);
    // The library's contexts are made on the first frame: the count sees them.
    if (n == 0) {
      EXPECT_GT(alloc_count::allocations(), before);
    } else {
      EXPECT_EQ(alloc_count::allocations(), before) << l.name << ", frame " << n;
    }
  }
}

}  // namespace
