// Misalignment fallback: scores the final full-resolution shift, keeps a short
// history of misalignment percentages, and falls back to a given frame when
// the misalignment jumps above its recent level or when blending would lose
// sharpness.
#include <cstddef>
#include <cstring>

#include "../videohdr.h"

namespace {

constexpr int kHistory = 5;
// Frames before the history is trusted, and after which a good frame feeds the
// history with its mean instead of its own percentage.
constexpr int32_t kHistoryTrustedFrom = 16;
constexpr int32_t kMeanFeedsAfter = 20;
constexpr double kJumpFactor = 1.1;
constexpr double kBlurFactor = 0.9;

// The mean of the five entries, summed from 0 in order in float.
float historyMean(const float *history) {
  float sum = 0.0f;
  for (int i = 0; i < kHistory; ++i) sum += history[i];
  return sum / static_cast<float>(kHistory);
}

void ageHistory(float *history) {
  for (int i = kHistory - 1; i > 0; --i) history[i] = history[i - 1];
}

// The blend of two planes, truncated.
void averagePlanes(const uint8_t *a, const uint8_t *b, uint8_t *out, size_t bytes) {
  for (size_t i = 0; i < bytes; ++i) out[i] = static_cast<uint8_t>((a[i] + b[i]) >> 1);
}

}  // namespace

extern "C" void Back(AlignContext *context, int32_t frameCount, uint8_t *target,
                     const uint8_t *partner, const uint8_t *fallback) {
  const int32_t w = context->width;
  const int32_t h = context->height;
  const uint32_t area = static_cast<uint32_t>(w) * static_cast<uint32_t>(h);
  // A context's dimensions come from 16-bit fields; an empty plane copies and
  // blends nothing.
  const uint32_t pixels = w >= 1 && h >= 1 ? area : 0;
  float *history = context->countHistory;
  uint8_t *blend = context->scratchPlane5;

  // The found shift goes in crosswise: its horizontal part in the vertical
  // position and its vertical part in the horizontal one. The history this
  // guard has learnt is in that measure, so the crossing stays.
  const int32_t count =
      xorTwoPyramid_New(context, 0, 0, 0, context->levelDx[0], context->levelDy[0]);
  const float countF = static_cast<float>(count);
  context->lastCount = countF;

  const float mean = frameCount >= kHistoryTrustedFrom ? historyMean(history) : 0.0f;
  const double threshold = static_cast<double>(mean) * kJumpFactor;
  const float percentage = countF / static_cast<float>(static_cast<int32_t>(area)) * 100.0f;
  ageHistory(history);

  if (static_cast<double>(percentage) >= threshold) {
    // A misalignment jump: keep the partner as the blend and take the
    // fallback's luma.
    history[0] = percentage;
    std::memcpy(blend, partner, pixels);
    std::memcpy(target, fallback, pixels);
    return;
  }
  history[0] = frameCount > kMeanFeedsAfter ? mean : percentage;
  averagePlanes(target, partner, blend, pixels);

  // Only the blur check reads the three sharpness sums, so a jump skips them.
  // The blend buffer is the workspace's last region: the block sum's read of
  // at most one byte past it lands in the workspace's slack.
  const double partnerSharpness = Sobel_Neon(partner, w, h);
  const double fallbackSharpness = Sobel_Neon(fallback, w, h);
  const double blendSharpness = Sobel_Neon(blend, w, h);
  const double sharper =
      partnerSharpness > fallbackSharpness ? fallbackSharpness : partnerSharpness;
  if (blendSharpness < sharper * kBlurFactor) std::memcpy(target, fallback, (3u * pixels) >> 1);
}
