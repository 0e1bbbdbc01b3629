// The camera-plane entry point against Video_HDR_Process on a tightly packed
// copy of the same pixels, for every layout cameras hand out: the same bytes,
// the same shifts, and not one byte changed outside the samples. Then bad
// input, sizes, plane spans, and allocation after the first frame.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <tuple>

#include "log_sink.h"
#include "videohdr_planes.h"

// The program is linked with --wrap for malloc, calloc and realloc: every
// call from its own objects and the library's (from the static archive)
// comes through here.
namespace {
long g_allocations = 0;
bool g_refuseNextCalloc = false;  // the next calloc answers null, once
}  // namespace

extern "C" {
void *__real_malloc(size_t bytes);
void *__real_calloc(size_t count, size_t bytes);
void *__real_realloc(void *p, size_t bytes);
void *__wrap_malloc(size_t bytes) { return ++g_allocations, __real_malloc(bytes); }
void *__wrap_calloc(size_t count, size_t bytes) {
  if (g_refuseNextCalloc) return g_refuseNextCalloc = false, nullptr;
  return ++g_allocations, __real_calloc(count, bytes);
}
void *__wrap_realloc(void *p, size_t bytes) { return ++g_allocations, __real_realloc(p, bytes); }
}  // extern "C"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr size_t kGuard = 32;
constexpr uint8_t kSentinel = 0xA5;

enum class Chroma { kNv21, kNv12, kPlanar };  // kNv21 / kNv12: u and v one byte apart

struct Layout {
  const char *name;
  int32_t width, height, yRowStride, uvRowStride, pixelStride;
  Chroma chroma;
  int32_t gapBytes;  // >= 0: one buffer, chroma this far past the luma rows; -1: own buffers
  bool inPlace;      // whether the entry point should need no copy
};

// Frame n of a textured scene panning 2 pixels a frame and shaking 2 rows up
// and down, bright on even n and a stop darker on odd n; stride = width, the
// chroma right after the luma, V first for NV21 layouts (else U first).
Bytes packedScene(const Layout &l, int32_t n) {
  const int32_t w = l.width, h = l.height;
  Bytes f(static_cast<size_t>(w) * h * 3 / 2);
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      const uint32_t sx = x + 2 * n, sy = y + 2 * (n % 2);
      const uint32_t v = ((sx >> 4) * 73u + (sy >> 4) * 151u) % 200u + ((sx * 7u + sy * 13u) & 31u);
      f[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(n % 2 ? v / 2 : v);
    }
  }
  for (size_t i = static_cast<size_t>(w) * h; i < f.size(); ++i)
    f[i] = static_cast<uint8_t>(i % 2 ? 200 - i * 5 % 150 - n : i * 7 + n * 3);
  return f;
}

// A camera's planes in guarded buffers whose every byte that is not a sample
// holds the sentinel.
struct CameraFrame {
  Layout l;
  uint8_t *y, *u, *v;
  std::vector<Bytes> buffers;  // guard bytes, planes, padding: compared whole

  explicit CameraFrame(const Layout &layout) : l(layout) {
    const int32_t w = l.width, h = l.height;
    const size_t lumaBytes = static_cast<size_t>(l.yRowStride) * (h - 1) + w;
    const size_t chromaBytes = static_cast<size_t>(l.uvRowStride) * (h / 2 - 1) +
                               static_cast<size_t>(l.pixelStride) * (w / 2 - 1) + 1;
    // An interleaved pair of planes spans one byte more than either plane.
    const size_t pairBytes = chromaBytes + (l.chroma == Chroma::kPlanar ? 0 : 1);
    auto guarded = [this](size_t bytes) {
      buffers.push_back(Bytes(bytes + 2 * kGuard, kSentinel));
      return buffers.back().data() + kGuard;
    };
    uint8_t *chroma;
    if (l.gapBytes >= 0) {
      const size_t chromaOffset = static_cast<size_t>(l.yRowStride) * h + l.gapBytes;
      y = guarded(chromaOffset + pairBytes);
      chroma = y + chromaOffset;
    } else {
      y = guarded(lumaBytes);
      chroma = guarded(pairBytes);
    }
    u = chroma + (l.chroma == Chroma::kNv21 ? 1 : 0);
    v = l.chroma == Chroma::kPlanar ? guarded(chromaBytes) : chroma + (l.chroma == Chroma::kNv12);
  }

  // The planes of a chroma pair in the packed order: V first or U first.
  std::pair<uint8_t *, uint8_t *> pairPlanes(bool vFirst) const {
    return vFirst ? std::make_pair(v, u) : std::make_pair(u, v);
  }
  size_t chromaAt(int32_t r, int32_t c) const {
    return static_cast<size_t>(r) * l.uvRowStride + static_cast<size_t>(c) * l.pixelStride;
  }

  // The pixels of a packed frame whose chroma pairs hold V first (vFirst) or
  // U first; by default the layout's own order, as packedScene makes them.
  void write(const Bytes &packed) { write(packed, l.chroma == Chroma::kNv21); }
  void write(const Bytes &packed, bool vFirst) {
    const int32_t w = l.width, h = l.height;
    for (int32_t r = 0; r < h; ++r)
      std::memcpy(y + static_cast<size_t>(r) * l.yRowStride, &packed[static_cast<size_t>(r) * w],
                  w);
    const auto [first, second] = pairPlanes(vFirst);
    const uint8_t *pairs = &packed[static_cast<size_t>(w) * h];
    for (int32_t r = 0; r < h / 2; ++r) {
      for (int32_t c = 0; c < w / 2; ++c) {
        first[chromaAt(r, c)] = pairs[static_cast<size_t>(r) * w + 2 * c];
        second[chromaAt(r, c)] = pairs[static_cast<size_t>(r) * w + 2 * c + 1];
      }
    }
  }

  // The samples as a packed frame, chroma pairs in the given order.
  Bytes read(bool vFirst) const {
    const int32_t w = l.width, h = l.height;
    Bytes packed(static_cast<size_t>(w) * h * 3 / 2);
    for (int32_t r = 0; r < h; ++r)
      std::memcpy(&packed[static_cast<size_t>(r) * w], y + static_cast<size_t>(r) * l.yRowStride,
                  w);
    const auto [first, second] = pairPlanes(vFirst);
    uint8_t *pairs = &packed[static_cast<size_t>(w) * h];
    for (int32_t r = 0; r < h / 2; ++r) {
      for (int32_t c = 0; c < w / 2; ++c) {
        pairs[static_cast<size_t>(r) * w + 2 * c] = first[chromaAt(r, c)];
        pairs[static_cast<size_t>(r) * w + 2 * c + 1] = second[chromaAt(r, c)];
      }
    }
    return packed;
  }
};

// name, width, height, yRowStride, uvRowStride, pixelStride, chroma, gapBytes,
// processed without a copy as a state's first layout
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

using State = std::unique_ptr<VideoHdrPlanes, decltype(&videohdr_planes_destroy)>;

State createState(int32_t width, int32_t height) {
  VideoHdrPlanes *planes = nullptr;
  EXPECT_EQ(videohdr_planes_create(width, height, &planes), VIDEOHDR_PLANES_OK);
  return State(planes, videohdr_planes_destroy);
}

int32_t process(VideoHdrPlanes *planes, CameraFrame &f, VideoHdrPlanesResult *r) {
  const Layout &l = f.l;
  return videohdr_planes_process(planes, f.y, l.yRowStride, f.u, f.v, l.uvRowStride, l.pixelStride,
                                 l.width, l.height, r);
}

class PlanesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    videohdr::setLogSink([](int, const char *, const char *) {});
  }
  void TearDown() override { videohdr::setLogSink(nullptr); }

  // Frame n goes in layouts[n % size], through one state and through the
  // reference; answers in how many frames the search found a shift.
  static int32_t expectSameAsPacked(const std::vector<Layout> &layouts) {
    State state = createState(layouts[0].width, layouts[0].height);
    std::unique_ptr<VideoHdrHandle, decltype(&Video_HDR_Release)> reference(Video_HDR_Initial(),
                                                                            Video_HDR_Release);
    int32_t moved = 0;
    for (int32_t n = 0; n < 4; ++n) {
      const Layout &l = layouts[n % layouts.size()];
      SCOPED_TRACE(std::string(l.name) + ", frame " + std::to_string(n));
      Bytes packed = packedScene(l, n);
      CameraFrame frame(l), expected(l);
      frame.write(packed);
      VideoHdrPlanesResult r;
      process(state.get(), frame, &r);
      Video_HDR_Process(reference.get(), packed.data(), 0, 1, l.width, l.height, l.width, l.height);
      expected.write(packed);
      EXPECT_TRUE(frame.buffers == expected.buffers);
      EXPECT_EQ(r.status, n == 0 ? VIDEOHDR_PLANES_PRIMED : VIDEOHDR_PLANES_PROCESSED);
      EXPECT_EQ(r.inPlace, l.inPlace);
      if (n == 0) continue;
      const AlignContext &a = *reference->alignContext;
      EXPECT_EQ(std::make_tuple(r.foundDx, r.foundDy, r.appliedDx, r.appliedDy),
                std::make_tuple(a.levelDx[0], a.levelDy[0], a.lastDx, a.lastDy));
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

int32_t processTo(VideoHdrPlanes *planes, const CameraFrame &in, CameraFrame &out,
                  VideoHdrPlanesResult *r) {
  const Layout &i = in.l, &o = out.l;
  return videohdr_planes_process_to(planes, in.y, i.yRowStride, in.u, in.v, i.uvRowStride,
                                    i.pixelStride, out.y, o.yRowStride, out.u, out.v, o.uvRowStride,
                                    o.pixelStride, i.width, i.height, r);
}

int32_t alignUp(int32_t n, int32_t to) { return (n + to - 1) / to * to; }

// What encoders take as input images (MediaCodec's getInputImage, an
// ImageWriter on an encoder surface) for a frame size.
std::vector<Layout> encoderLayouts(int32_t w, int32_t h) {
  const int32_t s16 = alignUp(w, 16), s64 = alignUp(w, 64);
  return {
      {"nv12 strides of 64, slice height of 16", w, h, s64, s64, 2, Chroma::kNv12,
       s64 * (alignUp(h, 16) - h), false},
      {"nv12 strides of 16, own buffers", w, h, s16, s16, 2, Chroma::kNv12, -1, false},
      {"i420 strides of 16", w, h, s16, alignUp(w / 2, 16), 1, Chroma::kPlanar, -1, false},
      {"nv21 tight", w, h, w, w, 2, Chroma::kNv21, 0, false},
      {"nv12 tight", w, h, w, w, 2, Chroma::kNv12, 0, false},
  };
}

bool packsVFirst(const Layout &l) { return l.chroma == Chroma::kNv21; }

// Frames 0..3 of the input layout through videohdr_planes_process_to into the
// output layout, against videohdr_planes_process on a writable copy of each
// input frame: the same status and shifts, the copy's samples in the output
// (its padding and guards untouched), the input unchanged.
void expectOutOfPlaceMatchesInPlace(const Layout &in, const Layout &out) {
  State state = createState(in.width, in.height), reference = createState(in.width, in.height);
  CameraFrame output(out);
  for (int32_t n = 0; n < 4; ++n) {
    SCOPED_TRACE(std::string(in.name) + " into " + out.name + ", frame " + std::to_string(n));
    CameraFrame input(in), copy(in);
    input.write(packedScene(in, n));
    copy.write(packedScene(in, n));
    const auto inputBytes = input.buffers;
    VideoHdrPlanesResult r, expected;
    processTo(state.get(), input, output, &r);
    process(reference.get(), copy, &expected);
    CameraFrame expectedOutput(out);
    expectedOutput.write(copy.read(false), false);
    EXPECT_TRUE(output.buffers == expectedOutput.buffers);
    EXPECT_TRUE(input.buffers == inputBytes);
    EXPECT_EQ(std::make_tuple(r.status, r.foundDx, r.foundDy, r.appliedDx, r.appliedDy,
                              r.currentBrighter),
              std::make_tuple(expected.status, expected.foundDx, expected.foundDy,
                              expected.appliedDx, expected.appliedDy, expected.currentBrighter));
    // The output takes the packed input when it is the library's layout in
    // the order the input packs in.
    const bool tight = out.gapBytes == 0 && out.yRowStride == out.width;
    EXPECT_EQ(r.inPlace, tight && packsVFirst(out) == packsVFirst(in));
  }
}

TEST_F(PlanesTest, CameraLayoutsIntoEncoderLayouts) {
  // NV21 (its U buffer one byte short), NV12, padded NV21 with Y apart from
  // the chroma, padded I420, 864 in rows of 896, and a small odd-block frame.
  for (int32_t i : {0, 1, 7, 9, 12, 13})
    for (const Layout &out : encoderLayouts(kLayouts[i].width, kLayouts[i].height))
      expectOutOfPlaceMatchesInPlace(kLayouts[i], out);
}

TEST_F(PlanesTest, TheInputAsItsOwnOutputIsTheInPlaceCall) {
  for (const Layout &l : {kLayouts[0], kLayouts[9]}) {
    State state = createState(l.width, l.height), reference = createState(l.width, l.height);
    for (int32_t n = 0; n < 3; ++n) {
      CameraFrame frame(l), expected(l);
      frame.write(packedScene(l, n));
      expected.write(packedScene(l, n));
      VideoHdrPlanesResult r, e;
      processTo(state.get(), frame, frame, &r);
      process(reference.get(), expected, &e);
      EXPECT_TRUE(frame.buffers == expected.buffers) << l.name << ", frame " << n;
      EXPECT_EQ(std::make_tuple(r.status, r.appliedDx, r.inPlace),
                std::make_tuple(e.status, e.appliedDx, e.inPlace));
    }
  }
}

// A restarted state gives what a new state gives from the same frames on,
// whatever came before: the shift starts from rest again.
TEST_F(PlanesTest, RestartPrimesAgainAsANewStateWould) {
  EXPECT_EQ(videohdr_planes_restart(nullptr), VIDEOHDR_PLANES_ERR_NULL_STATE);
  const Layout odd = {
      "nv21, rows not whole 8-byte groups", 1046, 48, 1046, 1046, 2, Chroma::kNv21, 0, true};
  for (const Layout &l : {kLayouts[0], kLayouts[9], kLayouts[13], odd}) {
    State restarted = createState(l.width, l.height), fresh = createState(l.width, l.height);
    for (int32_t n = 0; n < 8; ++n) {
      SCOPED_TRACE(std::string(l.name) + ", frame " + std::to_string(n));
      if (n == 5) {
        EXPECT_EQ(videohdr_planes_restart(restarted.get()), VIDEOHDR_PLANES_OK);
      }
      CameraFrame a(l), b(l);
      a.write(packedScene(l, n));
      b.write(packedScene(l, n));
      VideoHdrPlanesResult r, e;
      process(restarted.get(), a, &r);
      if (n < 5) continue;
      process(fresh.get(), b, &e);
      EXPECT_TRUE(a.buffers == b.buffers);
      EXPECT_EQ(std::make_tuple(r.status, r.foundDx, r.foundDy, r.appliedDx, r.appliedDy),
                std::make_tuple(e.status, e.foundDx, e.foundDy, e.appliedDx, e.appliedDy));
    }
  }
}

TEST_F(PlanesTest, BadInputIsRefusedAndNothingIsWritten) {
  const Layout &l = kLayouts[7];
  State state = createState(l.width, l.height);
  CameraFrame frame(l);
  frame.write(packedScene(l, 0));
  const auto before = frame.buffers;
  struct Call {
    VideoHdrPlanes *state;
    uint8_t *y, *u, *v;
    int32_t yRowStride, uvRowStride, pixelStride, width, height;
  };
  const std::vector<std::tuple<const char *, int32_t, std::function<void(Call &)>>> cases = {
      {"null state", VIDEOHDR_PLANES_ERR_NULL_STATE, [](Call &c) { c.state = nullptr; }},
      {"other width", VIDEOHDR_PLANES_ERR_SIZE_CHANGED, [](Call &c) { c.width -= 2; }},
      {"other height", VIDEOHDR_PLANES_ERR_SIZE_CHANGED, [](Call &c) { c.height += 2; }},
      {"null y", VIDEOHDR_PLANES_ERR_NULL_PLANE, [](Call &c) { c.y = nullptr; }},
      {"null u", VIDEOHDR_PLANES_ERR_NULL_PLANE, [](Call &c) { c.u = nullptr; }},
      {"null v", VIDEOHDR_PLANES_ERR_NULL_PLANE, [](Call &c) { c.v = nullptr; }},
      {"pixel stride 0", VIDEOHDR_PLANES_ERR_PIXEL_STRIDE, [](Call &c) { c.pixelStride = 0; }},
      {"pixel stride 3", VIDEOHDR_PLANES_ERR_PIXEL_STRIDE, [](Call &c) { c.pixelStride = 3; }},
      {"y rows short", VIDEOHDR_PLANES_ERR_ROW_STRIDE, [](Call &c) { c.yRowStride = 1038; }},
      {"uv rows short", VIDEOHDR_PLANES_ERR_ROW_STRIDE, [](Call &c) { c.uvRowStride = 1038; }},
      {"negative stride", VIDEOHDR_PLANES_ERR_ROW_STRIDE, [](Call &c) { c.yRowStride = -1; }},
      {"u is v", VIDEOHDR_PLANES_ERR_OVERLAP, [](Call &c) { c.u = c.v; }},
      {"u two bytes after v", VIDEOHDR_PLANES_ERR_OVERLAP, [](Call &c) { c.u = c.v + 2; }},
      {"chroma inside the luma", VIDEOHDR_PLANES_ERR_OVERLAP, [](Call &c) { c.v = c.y + 8; }},
  };
  const Call good = {state.get(),   frame.y,       frame.u, frame.v, l.yRowStride,
                     l.uvRowStride, l.pixelStride, l.width, l.height};
  for (const auto &[name, code, change] : cases) {
    Call c = good;
    change(c);
    VideoHdrPlanesResult r;
    r.inPlace = 7;
    EXPECT_EQ(videohdr_planes_process(c.state, c.y, c.yRowStride, c.u, c.v, c.uvRowStride,
                                      c.pixelStride, c.width, c.height, &r),
              code)
        << name;
    EXPECT_EQ(std::make_pair(r.status, r.inPlace), std::make_pair(code, 0)) << name;
    EXPECT_TRUE(frame.buffers == before) << name;
    EXPECT_STRNE(videohdr_planes_status_text(code), videohdr_planes_status_text(99)) << name;
  }
  // None of them counted as a frame: the next good one primes the state.
  EXPECT_EQ(process(state.get(), frame, nullptr), VIDEOHDR_PLANES_PRIMED);
}

// Errors of either side, and overlaps between them, write nothing on either
// side and leave the state as it was.
TEST_F(PlanesTest, BadOutOfPlaneCallsAreRefusedAndNothingIsWritten) {
  const Layout &l = kLayouts[7];
  const Layout outLayout = encoderLayouts(l.width, l.height)[2];  // i420
  State state = createState(l.width, l.height);
  CameraFrame input(l), output(outLayout);
  input.write(packedScene(l, 0));
  const auto inputBefore = input.buffers, outputBefore = output.buffers;
  struct Call {
    const uint8_t *y, *u, *v;
    uint8_t *outY, *outU, *outV;
    int32_t yRowStride, pixelStride, outUvRowStride, outPixelStride, width;
  };
  const std::vector<std::tuple<const char *, int32_t, std::function<void(Call &)>>> cases = {
      {"other width", VIDEOHDR_PLANES_ERR_SIZE_CHANGED, [](Call &c) { c.width += 2; }},
      {"null input u", VIDEOHDR_PLANES_ERR_NULL_PLANE, [](Call &c) { c.u = nullptr; }},
      {"null output y", VIDEOHDR_PLANES_ERR_NULL_PLANE, [](Call &c) { c.outY = nullptr; }},
      {"input pixel stride 0", VIDEOHDR_PLANES_ERR_PIXEL_STRIDE,
       [](Call &c) { c.pixelStride = 0; }},
      {"output pixel stride 3", VIDEOHDR_PLANES_ERR_PIXEL_STRIDE,
       [](Call &c) { c.outPixelStride = 3; }},
      {"input y rows short", VIDEOHDR_PLANES_ERR_ROW_STRIDE, [](Call &c) { c.yRowStride = 1000; }},
      {"output uv rows short", VIDEOHDR_PLANES_ERR_ROW_STRIDE,
       [](Call &c) { c.outUvRowStride = 500; }},
      {"output u is output v", VIDEOHDR_PLANES_ERR_OVERLAP, [](Call &c) { c.outU = c.outV; }},
      {"output v inside output y", VIDEOHDR_PLANES_ERR_OVERLAP,
       [](Call &c) { c.outV = c.outY + 64; }},
      {"output y is input y, other strides", VIDEOHDR_PLANES_ERR_OVERLAP,
       [](Call &c) { c.outY = const_cast<uint8_t *>(c.y); }},
      {"output v ends in input u", VIDEOHDR_PLANES_ERR_OVERLAP,
       [](Call &c) { c.outV = const_cast<uint8_t *>(c.u) - 100; }},
  };
  const Call good = {input.y,
                     input.u,
                     input.v,
                     output.y,
                     output.u,
                     output.v,
                     l.yRowStride,
                     l.pixelStride,
                     outLayout.uvRowStride,
                     outLayout.pixelStride,
                     l.width};
  for (const auto &[name, code, change] : cases) {
    Call c = good;
    change(c);
    VideoHdrPlanesResult r;
    EXPECT_EQ(
        videohdr_planes_process_to(state.get(), c.y, c.yRowStride, c.u, c.v, l.uvRowStride,
                                   c.pixelStride, c.outY, outLayout.yRowStride, c.outU, c.outV,
                                   c.outUvRowStride, c.outPixelStride, c.width, l.height, &r),
        code)
        << name;
    EXPECT_EQ(r.status, code) << name;
    EXPECT_TRUE(input.buffers == inputBefore && output.buffers == outputBefore) << name;
  }
  EXPECT_EQ(processTo(state.get(), input, output, nullptr), VIDEOHDR_PLANES_PRIMED);
}

TEST_F(PlanesTest, SizesAndPlaneSpans) {
  VideoHdrPlanes *planes = nullptr;
  for (auto [w, h] : {std::pair{0, 64}, {-2, 64}, {1041, 64}, {1040, 63}, {2048, 1282}})
    EXPECT_EQ(videohdr_planes_create(w, h, &planes), VIDEOHDR_PLANES_ERR_BAD_SIZE) << w << "x" << h;
  EXPECT_EQ(planes, nullptr);
  EXPECT_EQ(videohdr_planes_create(64, 64, nullptr), VIDEOHDR_PLANES_ERR_NULL_STATE);
  createState(2048, 1280);  // the largest frame of the design

  const struct {
    int32_t w, h, yRowStride, uvRowStride, pixelStride, status;
    int64_t yBytes, uvBytes;
  } spans[] = {
      // 1536 * 719 + 1280; 1536 * 359 + 2 * 639 + 1
      {1280, 720, 1536, 1536, 2, VIDEOHDR_PLANES_OK, 1105664, 552703},
      {1280, 720, 1280, 640, 1, VIDEOHDR_PLANES_OK, 921600, 230400},  // 640 * 359 + 639 + 1
      {864, 480, 896, 896, 2, VIDEOHDR_PLANES_OK, 430048, 215007},    // 896 * 239 + 863
      {864, 480, 896, 896, 4, VIDEOHDR_PLANES_ERR_PIXEL_STRIDE, -1, -1},
      {864, 480, 896, 431, 1, VIDEOHDR_PLANES_ERR_ROW_STRIDE, -1, -1},
      {864, 481, 896, 896, 2, VIDEOHDR_PLANES_ERR_BAD_SIZE, -1, -1},
  };
  for (const auto &s : spans) {
    int64_t yBytes = -1, uvBytes = -1;
    EXPECT_EQ(videohdr_planes_plane_bytes(s.w, s.h, s.yRowStride, s.uvRowStride, s.pixelStride,
                                          &yBytes, &uvBytes),
              s.status);
    EXPECT_EQ(std::make_pair(yBytes, uvBytes), std::make_pair(s.yBytes, s.uvBytes)) << s.w;
  }
}

// The library logs a failure line when it releases a handle that never took a
// frame; a state that never took one has no handle, and closes without it.
TEST_F(PlanesTest, DestroyLogsNothing) {
  static std::vector<std::string> lines;
  videohdr::setLogSink([](int, const char *, const char *line) { lines.push_back(line); });
  const Layout &l = kLayouts[0];
  CameraFrame frame(l);
  frame.write(packedScene(l, 0));
  for (int32_t frames : {0, 1, 2}) {
    State state = createState(l.width, l.height);
    EXPECT_EQ(videohdr_planes_process(state.get(), frame.y, l.yRowStride, frame.u, frame.v,
                                      l.uvRowStride, l.pixelStride, l.width + 2, l.height, nullptr),
              VIDEOHDR_PLANES_ERR_SIZE_CHANGED);  // refused: not a frame taken
    for (int32_t n = 0; n < frames; ++n) process(state.get(), frame, nullptr);
    lines.clear();
    state.reset();
    EXPECT_EQ(lines, std::vector<std::string>{}) << frames << " frames";
  }
}

// The handle's frame block is the first frame's first calloc: without it the
// frame is refused, unchanged in place and copied into an output (here one
// the input is packed into first), and the next frame primes the state.
TEST_F(PlanesTest, FirstFrameWithoutMemory) {
  const Layout &l = kLayouts[7];  // NV21, so that kLayouts[0] takes the packed input
  State state = createState(l.width, l.height);
  CameraFrame frame(l), output(kLayouts[0]), copy(kLayouts[0]);
  frame.write(packedScene(l, 0));
  copy.write(packedScene(l, 0));
  const auto before = frame.buffers;
  g_refuseNextCalloc = true;
  EXPECT_EQ(process(state.get(), frame, nullptr), VIDEOHDR_PLANES_REFUSED);
  g_refuseNextCalloc = true;
  EXPECT_EQ(processTo(state.get(), frame, output, nullptr), VIDEOHDR_PLANES_REFUSED);
  EXPECT_TRUE(frame.buffers == before);
  EXPECT_TRUE(output.buffers == copy.buffers);
  EXPECT_EQ(process(state.get(), frame, nullptr), VIDEOHDR_PLANES_PRIMED);
}

TEST_F(PlanesTest, NoAllocationAfterTheFirstFrame) {
  State state = createState(1040, 64);
  const int32_t layouts[] = {0, 7, 5, 9};  // one buffer, padded, gap not whole rows, i420
  const std::vector<Layout> outputs = encoderLayouts(1040, 64);
  for (int32_t n = 0; n < 8; ++n) {
    const Layout &l = kLayouts[layouts[n % 4]];
    CameraFrame frame(l), output(outputs[n % outputs.size()]);
    frame.write(packedScene(l, n));
    const long before = g_allocations;
    if (n == 5) videohdr_planes_restart(state.get());
    if (n % 2) {
      processTo(state.get(), frame, output, nullptr);
    } else {
      process(state.get(), frame, nullptr);
    }
    // The library's contexts are made on the first frame: the count sees them.
    EXPECT_EQ(g_allocations > before, n == 0) << l.name << ", frame " << n;
  }
}

}  // namespace
