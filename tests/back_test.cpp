// Back: the crosswise score, the history and its ageing, the jump and the
// blur decisions and what each copies.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "align_fixture.h"
#include "alignment_op/align_internal.h"
#include "videohdr.h"

namespace {

constexpr int32_t kWidth = 160;
constexpr int32_t kHeight = 50;
constexpr uint8_t kSentinel = 0x5A;

// A context whose level-0 bitmaps disagree in a chosen number of pixels at
// the found shift (0, 0), and three frames: target and fallback are whole
// frames (luma then half-size chroma) followed by a sentinel byte, partner a
// luma plane followed by one byte.
class BackTest : public ::testing::Test {
 protected:
  explicit BackTest(int32_t width = kWidth, int32_t height = kHeight)
      : fixture_(width, height),
        w_(width),
        h_(height),
        luma_(static_cast<size_t>(width) * height),
        frame_(3 * luma_ / 2),
        target_(frame_ + 1, kSentinel),
        partner_(luma_ + 1, 0),
        fallback_(frame_ + 1, kSentinel) {
    std::vector<uint8_t> zeros(luma_, 0);
    fixture_.load(zeros, zeros);
    ctx()->levelDx[0] = 0;
    ctx()->levelDy[0] = 0;
    fillFrames();
  }
  AlignContext *ctx() { return fixture_.context(); }
  float *history() { return ctx()->countHistory; }

  // `count` reference pixels differ from the moved bitmap, all where the
  // search's count at (0, 0) sees them: rows 1.., pixels 1..28 of word 0.
  void setDisagreements(int32_t count) {
    const int32_t pitch = (w_ + 63) >> 5;
    uint32_t *ref = ctx()->curBitmap[0];
    for (int32_t i = 0; i < count; ++i) ref[(1 + i / 28) * pitch] |= 0x40000000u >> (i % 28);
  }
  void setHistory(float value) {
    for (int i = 0; i < 5; ++i) history()[i] = value;
  }

  // Partner and fallback: column pairs of 255 and 0 (sharp everywhere), with
  // distinct chroma in the fallback. Target: the same luma as the partner.
  void fillFrames() {
    for (size_t i = 0; i < luma_; ++i) {
      partner_[i] = ((i % w_) / 2) % 2 == 0 ? 255 : 0;
      fallback_[i] = static_cast<uint8_t>(partner_[i] ^ 0x0F);
      target_[i] = partner_[i];
    }
    for (size_t i = luma_; i < frame_; ++i) {
      fallback_[i] = static_cast<uint8_t>(i * 7);
      target_[i] = static_cast<uint8_t>(i * 13);
    }
  }
  // Target luma of the opposite stripes: its blend with the partner is flat.
  void makeTargetBlurTheBlend() {
    for (size_t i = 0; i < luma_; ++i) target_[i] = static_cast<uint8_t>(255 - partner_[i]);
  }
  void back(int32_t frameCount) {
    Back(ctx(), frameCount, target_.data(), partner_.data(), fallback_.data());
  }
  std::vector<uint8_t> blend() {
    const uint8_t *b = fixture_.context()->scratchPlane5;
    return std::vector<uint8_t>(b, b + luma_);
  }
  std::vector<uint8_t> slice(const std::vector<uint8_t> &v, size_t from, size_t to) const {
    return std::vector<uint8_t>(v.begin() + from, v.begin() + to);
  }

  AlignFixture fixture_;
  int32_t w_, h_;
  size_t luma_, frame_;
  std::vector<uint8_t> target_, partner_, fallback_;
};

// 168 of 8,000 pixels: 168 / 8000 * 100 in float, divided first.
const float kPercent168 = 168.0f / 8000.0f * 100.0f;

TEST_F(BackTest, EarlyFramesAlwaysTakeTheJumpCaseAndCopyLumaOnly) {
  setDisagreements(168);
  setHistory(2.0f);
  const std::vector<uint8_t> targetBefore = target_;
  back(15);
  EXPECT_EQ(ctx()->lastCount, 168.0f);
  EXPECT_EQ(history()[0], kPercent168);
  for (int i = 1; i < 5; ++i) EXPECT_EQ(history()[i], 2.0f);
  // Luma from the fallback, chroma and everything after untouched.
  EXPECT_EQ(slice(target_, 0, luma_), slice(fallback_, 0, luma_));
  EXPECT_EQ(slice(target_, luma_, frame_ + 1), slice(targetBefore, luma_, frame_ + 1));
  EXPECT_EQ(blend(), slice(partner_, 0, luma_));
}

TEST_F(BackTest, FromFrameSixteenASmallPercentageBlends) {
  setDisagreements(168);
  setHistory(2.0f);
  // Mean 2.0, threshold 2.2 > 2.1: no jump. Before frame 21 the history takes
  // the percentage itself.
  const std::vector<uint8_t> targetBefore = target_;
  back(16);
  EXPECT_EQ(history()[0], kPercent168);
  for (int i = 1; i < 5; ++i) EXPECT_EQ(history()[i], 2.0f);
  // The blend of two equal planes is that plane, as sharp as the partner:
  // no blur fallback, the target keeps every byte.
  EXPECT_EQ(blend(), slice(partner_, 0, luma_));
  EXPECT_EQ(target_, targetBefore);
}

TEST_F(BackTest, FramesTwentyAndTwentyOne) {
  setDisagreements(168);
  setHistory(2.0f);
  back(20);
  EXPECT_EQ(history()[0], kPercent168);
  setHistory(2.0f);
  back(21);
  EXPECT_EQ(history()[0], 2.0f);  // the mean, not the percentage
  for (int i = 1; i < 5; ++i) EXPECT_EQ(history()[i], 2.0f);
}

TEST_F(BackTest, HistoryAgesOneEntryPerCall) {
  const float h[5] = {5.0f, 4.0f, 3.0f, 2.0f, 1.0f};
  for (int i = 0; i < 5; ++i) history()[i] = h[i];
  setDisagreements(7);
  back(3);
  // Divided first, then scaled: for 7 of 8,000 the other order rounds apart.
  const float percent = 7.0f / 8000.0f * 100.0f;
  ASSERT_NE(percent, 7.0f * 100.0f / 8000.0f);
  EXPECT_EQ(history()[0], percent);
  for (int i = 1; i < 5; ++i) EXPECT_EQ(history()[i], h[i - 1]);
}

TEST_F(BackTest, PercentageEqualToTheThresholdIsAJump) {
  // 110 / 8000 * 100 = 1.375 in float, and 1.25 * 1.1 = 1.375 in double.
  setDisagreements(110);
  setHistory(1.25f);
  back(30);
  EXPECT_EQ(history()[0], 1.375f);
  EXPECT_EQ(blend(), slice(partner_, 0, luma_));
  EXPECT_EQ(slice(target_, 0, luma_), slice(fallback_, 0, luma_));
}

TEST_F(BackTest, PercentageJustBelowTheThresholdBlends) {
  setDisagreements(109);
  setHistory(1.25f);
  const std::vector<uint8_t> targetBefore = target_;
  back(30);
  EXPECT_EQ(history()[0], 1.25f);  // frame 30: the mean
  EXPECT_EQ(target_, targetBefore);
}

TEST_F(BackTest, ThresholdIsTakenInDouble) {
  // 275 / 8000 * 100 = 3.4375; 3.125 * 1.1 is 3.4375000000000004 in double
  // (no jump) but would round to 3.4375 in float (a jump).
  setDisagreements(275);
  setHistory(3.125f);
  const std::vector<uint8_t> targetBefore = target_;
  back(17);
  EXPECT_EQ(history()[0], 3.4375f);
  EXPECT_EQ(target_, targetBefore);
}

TEST_F(BackTest, ZeroEverywhereIsAJump) {
  // Mean 0 and a percentage of 0 are equal: the first case.
  setHistory(0.0f);
  back(40);
  EXPECT_EQ(ctx()->lastCount, 0.0f);
  EXPECT_EQ(history()[0], 0.0f);
  EXPECT_EQ(slice(target_, 0, luma_), slice(fallback_, 0, luma_));
}

TEST_F(BackTest, BlurredBlendCopiesTheWholeFallbackFrame) {
  setDisagreements(168);
  setHistory(2.0f);
  makeTargetBlurTheBlend();
  back(16);
  // Every blended byte is (255 + 0) >> 1 = 127: no gradient at all.
  EXPECT_EQ(blend(), std::vector<uint8_t>(luma_, 127));
  // 3 w h / 2 bytes, chroma included; the byte after the frame is untouched.
  EXPECT_EQ(slice(target_, 0, frame_), slice(fallback_, 0, frame_));
  EXPECT_EQ(target_[frame_], kSentinel);
}

TEST_F(BackTest, BlendAveragesAndTruncates) {
  setDisagreements(168);
  setHistory(2.0f);
  std::mt19937 rng(5);
  for (size_t i = 0; i < luma_; ++i) target_[i] = static_cast<uint8_t>(rng());
  const std::vector<uint8_t> targetLuma = slice(target_, 0, luma_);
  back(16);
  const std::vector<uint8_t> b = blend();
  for (size_t i = 0; i < luma_; ++i) ASSERT_EQ(b[i], (targetLuma[i] + partner_[i]) / 2) << i;
}

TEST_F(BackTest, TheFoundShiftIsScoredCrosswise) {
  std::mt19937 rng(11);
  const int32_t pitch = (w_ + 63) >> 5;
  for (int32_t i = 0; i < pitch * h_; ++i) {
    ctx()->curBitmap[0][i] = static_cast<uint32_t>(rng());
    ctx()->movedBitmap[0][i] = static_cast<uint32_t>(rng());
  }
  ctx()->levelDx[0] = 2;
  ctx()->levelDy[0] = -4;
  const int32_t crossed = xorTwoPyramid_New(ctx(), 0, 0, 0, 2, -4);
  const int32_t straight = xorTwoPyramid_New(ctx(), 0, 0, 0, -4, 2);
  ASSERT_NE(crossed, straight);
  back(1);
  EXPECT_EQ(ctx()->lastCount, static_cast<float>(crossed));
}

// Width 161: the blend buffer's gradient sum reads one byte past it, which
// must be the workspace's own slack.
class BackOddWidthTest : public BackTest {
 protected:
  BackOddWidthTest() : BackTest(161, 40) {}
};

TEST_F(BackOddWidthTest, BlendBufferIsTheLastRegionAndTheSlackCoversItsOverread) {
  const AlignContext *c = ctx();
  const uint8_t *end = c->scratchPlane5 + luma_;
  EXPECT_EQ(end, c->workBuf + c->workSize);
  EXPECT_LE(1u, videohdr::kWorkspaceSlack);
  setDisagreements(0);
  setHistory(1.0f);
  back(25);  // percentage 0 < 1.1: the blend and its gradient sum run
  EXPECT_EQ(blend(), slice(partner_, 0, luma_));
}

}  // namespace
