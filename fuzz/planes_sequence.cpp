#include "planes_sequence.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

#include "camera_frame.h"
#include "log_sink.h"
#include "recycled_blocks.h"
#include "videohdr_planes.h"

namespace fuzz {
namespace {

// Frames of at most this many pixels are processed: a state of a larger size
// that the header takes is made and destroyed only, as one such frame takes
// seconds under the sanitizers.
constexpr int64_t kLargestFuzzedFrame = 1100 * 8;

// The header keeps a gap between luma and chroma in place for such widths only.
constexpr int32_t kGapSafeWidthMultiple = 16;

struct Size {
  int32_t width, height;
};

void quiet(int, const char *, const char *) {}

void expect(bool holds, const char *what) {
  if (!holds) fail(what);
}

bool takenSize(const Size &z) {
  return z.width > 0 && z.height > 0 && z.width % 2 == 0 && z.height % 2 == 0 &&
         int64_t{z.width} * z.height <= VIDEOHDR_MAX_LUMA_BYTES;
}

Size smallSize(FuzzedDataProvider &in) {
  return {2 * in.ConsumeIntegralInRange<int32_t>(1, 40),
          2 * in.ConsumeIntegralInRange<int32_t>(1, 8)};
}

// Small frames mostly; odd, zero and negative sizes; widths at which the
// motion search runs (on few rows, as it needs the width only, and rarely: such
// a frame still costs as much as a few small ones); now and then any size.
Size pickSize(FuzzedDataProvider &in) {
  switch (in.ConsumeIntegralInRange<int>(0, 15)) {
    case 0:
      return {in.ConsumeIntegral<int32_t>(), in.ConsumeIntegral<int32_t>()};
    case 1:
      return {in.ConsumeIntegralInRange<int32_t>(-2, 81),
              in.ConsumeIntegralInRange<int32_t>(-2, 25)};
    case 2:
      return {2 * in.ConsumeIntegralInRange<int32_t>(VIDEOHDR_MIN_SEARCH_WIDTH / 2, 550),
              2 * in.ConsumeIntegralInRange<int32_t>(1, 4)};
    default:
      return smallSize(in);
  }
}

void checkPlaneBytes(const FrameLayout &f) {
  int64_t y = -1, uv = -1;
  const int32_t status = videohdr_planes_plane_bytes(f.width, f.height, f.yRowStride, f.uvRowStride,
                                                     f.uvPixelStride, &y, &uv);
  const int32_t expected =
      takenSize({f.width, f.height}) ? f.strideError() : VIDEOHDR_PLANES_ERR_BAD_SIZE;
  expect(status == expected, "plane_bytes: status");
  expect(status == VIDEOHDR_PLANES_OK ? y == f.span(kY) && uv == f.span(kU) : y == -1 && uv == -1,
         "plane_bytes: spans");
}

class Sequence {
 public:
  Sequence(FuzzedDataProvider &in, PlanesCall call)
      : in_(in), call_(call), checkSamples_(in.ConsumeIntegralInRange<int>(0, 3) == 0) {}
  ~Sequence() { release(); }

  // A new state of a random size; false when no frame may follow (a state
  // too large to fuzz frames of).
  bool renew() {
    release();
    const Size z = pickSize(in_);
    const bool nullOut = in_.ConsumeIntegralInRange<int>(0, 31) == 0;
    auto *const untouched = reinterpret_cast<VideoHdrPlanes *>(this);
    VideoHdrPlanes *made = untouched;
    const int32_t status = videohdr_planes_create(z.width, z.height, nullOut ? nullptr : &made);
    expect(status == (nullOut        ? VIDEOHDR_PLANES_ERR_NULL_STATE
                      : takenSize(z) ? VIDEOHDR_PLANES_OK
                                     : VIDEOHDR_PLANES_ERR_BAD_SIZE),
           "create: status");
    if (status != VIDEOHDR_PLANES_OK) {
      expect(made == untouched, "create: *planes written with an error");
      size_ = {2, 2};  // the size of the frames the null state is given
      return true;
    }
    state_ = made;
    size_ = z;
    if (int64_t{z.width} * z.height > kLargestFuzzedFrame) return false;
    if (checkSamples_) startReference();
    return true;
  }

  void restart() {
    const int32_t status = videohdr_planes_restart(state_);
    expect(status == (state_ ? VIDEOHDR_PLANES_OK : VIDEOHDR_PLANES_ERR_NULL_STATE), "restart");
    primes_ = true;
    // A restarted state gives what a new one would.
    if (reference_) startReference();
  }

  void frame() {
    const Size z = !state_ || in_.ConsumeIntegralInRange<int>(0, 15) == 0 ? smallSize(in_) : size_;
    FrameLayout input = drawFrame(in_, z.width, z.height, 0);
    FrameLayout output = call_ == PlanesCall::kInPlace ? input : drawOutput(in_, input);
    std::vector<FrameLayout *> frames = {&input};
    if (call_ == PlanesCall::kOutOfPlace) frames.push_back(&output);
    FrameBuffers buffers(frames, in_);
    if (call_ == PlanesCall::kInPlace) output = input;
    checkPlaneBytes(input);

    FrameBuffers before = buffers;
    VideoHdrPlanesResult result;
    const bool withResult = in_.ConsumeIntegralInRange<int>(0, 15) != 0;
    const int32_t status = process(buffers, input, output, z, withResult ? &result : nullptr);
    expect(!withResult || result.status == status, "result.status");
    expect(videohdr_planes_status_text(status) != nullptr, "status text");
    const bool inPlace = call_ == PlanesCall::kInPlace || sameFrame(input, output);
    expect(status == expectedStatus(input, output, inPlace, z), "status");

    FrameBuffers expected = before;
    if (status >= 0) {
      const bool vFirst = input.vFirst();
      // What the frame must hold: the input as the call found it, fused by
      // the reference when there is one; unchecked, the samples as written.
      const bool unchecked = !reference_ && status == VIDEOHDR_PLANES_PROCESSED;
      std::vector<uint8_t> samples =
          unchecked ? gather(output, buffers, vFirst) : gather(input, before, vFirst);
      if (reference_) runReference(samples, vFirst, status, withResult ? &result : nullptr);
      if (status == VIDEOHDR_PLANES_PROCESSED || !inPlace)
        scatter(samples, vFirst, output, expected);
      checkInPlace(input, output, inPlace, withResult ? &result : nullptr);
      primes_ = false;
    }
    expect(buffers == expected, "planes: wrong samples, or bytes outside them written");
  }

 private:
  void release() {
    videohdr_planes_destroy(state_);
    videohdr_planes_destroy(reference_);
    state_ = reference_ = nullptr;
    primes_ = true;
    rows_ = 0;
  }

  void startReference() {
    videohdr_planes_destroy(reference_);
    reference_ = nullptr;
    expect(videohdr_planes_create(size_.width, size_.height, &reference_) == VIDEOHDR_PLANES_OK,
           "create the reference");
  }

  int32_t process(FrameBuffers &b, const FrameLayout &in, const FrameLayout &out, Size z,
                  VideoHdrPlanesResult *r) {
    if (call_ == PlanesCall::kInPlace)
      return videohdr_planes_process(state_, b.at(in.plane[kY]), in.yRowStride, b.at(in.plane[kU]),
                                     b.at(in.plane[kV]), in.uvRowStride, in.uvPixelStride, z.width,
                                     z.height, r);
    return videohdr_planes_process_to(
        state_, b.at(in.plane[kY]), in.yRowStride, b.at(in.plane[kU]), b.at(in.plane[kV]),
        in.uvRowStride, in.uvPixelStride, b.at(out.plane[kY]), out.yRowStride, b.at(out.plane[kU]),
        b.at(out.plane[kV]), out.uvRowStride, out.uvPixelStride, z.width, z.height, r);
  }

  // The header's order: the state, the size, the input's planes, the
  // output's, then the two frames against each other.
  int32_t expectedStatus(const FrameLayout &in, const FrameLayout &out, bool inPlace,
                         Size z) const {
    if (!state_) return VIDEOHDR_PLANES_ERR_NULL_STATE;
    if (z.width != size_.width || z.height != size_.height) return VIDEOHDR_PLANES_ERR_SIZE_CHANGED;
    int32_t error = in.error();
    if (error == VIDEOHDR_PLANES_OK && !inPlace) error = out.error();
    if (error == VIDEOHDR_PLANES_OK && !inPlace && framesOverlap(in, out))
      error = VIDEOHDR_PLANES_ERR_OVERLAP;
    if (error != VIDEOHDR_PLANES_OK) return error;
    return primes_ ? VIDEOHDR_PLANES_PRIMED : VIDEOHDR_PLANES_PROCESSED;
  }

  // The same frame, packed, in place on the reference state: `samples` then
  // holds its result.
  void runReference(std::vector<uint8_t> &samples, bool vFirst, int32_t status,
                    const VideoHdrPlanesResult *result) {
    uint8_t *y = samples.data(), *chroma = y + size_t(size_.width) * size_.height;
    VideoHdrPlanesResult r;
    videohdr_planes_process(reference_, y, size_.width, vFirst ? chroma + 1 : chroma,
                            vFirst ? chroma : chroma + 1, size_.width, 2, size_.width, size_.height,
                            &r);
    expect(r.status == status, "status against the packed copy");
    expect(!result || (r.foundDx == result->foundDx && r.foundDy == result->foundDy &&
                       r.appliedDx == result->appliedDx && r.appliedDy == result->appliedDy &&
                       r.currentBrighter == result->currentBrighter),
           "shift or brighter exposure against the packed copy");
  }

  // Planes of the library's layout (for the output: in the input's chroma
  // order) are worked in directly, at the rows the state's first frame fixed.
  void checkInPlace(const FrameLayout &in, const FrameLayout &out, bool inPlace,
                    const VideoHdrPlanesResult *result) {
    const int32_t rows = out.libraryRows();
    const bool ordered = inPlace || out.vFirst() == in.vFirst();
    const bool direct =
        rows && ordered &&
        (rows_ ? rows == rows_ : rows == out.height || out.width % kGapSafeWidthMultiple == 0);
    expect(!result || result->inPlace == direct, "inPlace");
    if (!rows_) rows_ = direct ? rows : out.height;
  }

  FuzzedDataProvider &in_;
  const PlanesCall call_;
  const bool checkSamples_;
  VideoHdrPlanes *state_ = nullptr;
  VideoHdrPlanes *reference_ = nullptr;  // given the packed copies, when samples are checked
  Size size_ = {};
  bool primes_ = true;  // the next frame taken primes the state
  int32_t rows_ = 0;    // luma-to-chroma rows the state's first frame fixed
};

}  // namespace

int runPlanesSequence(const uint8_t *data, size_t size, PlanesCall call) {
  videohdr::setLogSink(quiet);
  FuzzedDataProvider in(data, size);
  {
    Sequence s(in, call);
    bool going = s.renew();
    for (int step = 0; going && step < 6 && in.remaining_bytes() > 0; ++step) {
      switch (in.ConsumeIntegralInRange<int>(0, 9)) {
        case 0:
          going = s.renew();
          break;
        case 1:
          s.restart();
          break;
        default:
          s.frame();
      }
    }
  }
  expectNoRecycledBlockInUse();
  return 0;
}

}  // namespace fuzz
