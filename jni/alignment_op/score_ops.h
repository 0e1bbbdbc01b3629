// The scoring kernels of the alignment: the XOR counts of the pyramid search
// and of the full-resolution search, and the gradient sum that Back compares
// sharpness with. A table with a portable instance and, where the build has
// NEON (natively or through SIMDe), a NEON instance that gives the same
// results.
#ifndef VIDEOHDR_ALIGN_SCORE_OPS_H
#define VIDEOHDR_ALIGN_SCORE_OPS_H

#include <cstdint>

#include "../simd.h"
#include "../videohdr.h"

namespace videohdr {

// Narrowest level the search's counting layout supports: 129 pixels give six
// words per bitmap row (four data words, the last data word and the pad word).
constexpr int32_t kMinSearchLevelWidth = 129;

struct ScoreKernels {
  // Pixels of movedBitmap[level] that disagree with curBitmap[level] when the
  // former is displaced by (dx, dy), counted with the search's margins, edge
  // masks and 8-bit per-row lane counters (see xorTwoPyramid_New in
  // videohdr.h).
  int32_t (*countCandidate)(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx);

  // The nine candidate counts of shiftPyramid for `level`, candidate i being
  // (dy, dx) = (offsets[i / 3], offsets[i % 3]) with offsets 0, -s, +s (s the
  // context's searchStep), each equal to countCandidate's. Answers false,
  // writing nothing, for the layouts these passes do not reproduce: |s| of 0
  // or above 16, levels narrower than kMinSearchLevelWidth, rows of more than
  // 31 counted blocks (whose lane counters can wrap), and a rightward
  // candidate that would mask its last body block's partner. Reads words
  // 0 .. W - 2 of every compared row only.
  bool (*scoreNineCandidates)(const AlignContext *ctx, int32_t level, int32_t scores[9]);

  // Counts the disagreeing bits of `rows` row pairs (pitch `pitchWords`
  // words): the first `words` words of row `displaced`, funnelled by `shift`
  // bits towards bit 31 (0..31; word i takes its low bits from word i + 1),
  // XORed with the same words of row `other`. Words go in blocks of four with
  // sixteen 8-bit lanes per row, so a lane wraps when a row holds more than
  // 31 blocks. Writes the four 32-bit totals (word k of every block in total
  // k). Reads words 0 .. words - 1 of each row, and word `words` of a
  // displaced row when `shift` is not 0.
  void (*countXorBlocks)(const uint32_t *displaced, const uint32_t *other, int32_t pitchWords,
                         int32_t rows, int32_t words, int32_t shift, uint32_t totals[4]);

  // Sobel_Neon: clamped 3 x 3 gradient magnitudes summed over blocks of
  // eight centres, ceil((width - 8) / 8) blocks per interior row from column
  // 1, in 16-bit lanes that wrap and are widened as signed once per row. 0.0
  // below 3 rows or 9 columns.
  double (*sobelBlockSum)(const uint8_t *image, int32_t width, int32_t height);
};

int32_t countCandidatePortable(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx);
bool scoreNineCandidatesPortable(const AlignContext *ctx, int32_t level, int32_t scores[9]);
void countXorBlocksPortable(const uint32_t *displaced, const uint32_t *other, int32_t pitchWords,
                            int32_t rows, int32_t words, int32_t shift, uint32_t totals[4]);
double sobelBlockSumPortable(const uint8_t *image, int32_t width, int32_t height);
inline constexpr ScoreKernels kScorePortable = {countCandidatePortable, scoreNineCandidatesPortable,
                                                countXorBlocksPortable, sobelBlockSumPortable};

#if VIDEOHDR_HAVE_NEON
int32_t countCandidateNeon(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx);
bool scoreNineCandidatesNeon(const AlignContext *ctx, int32_t level, int32_t scores[9]);
void countXorBlocksNeon(const uint32_t *displaced, const uint32_t *other, int32_t pitchWords,
                        int32_t rows, int32_t words, int32_t shift, uint32_t totals[4]);
double sobelBlockSumNeon(const uint8_t *image, int32_t width, int32_t height);
inline constexpr ScoreKernels kScoreNeon = {countCandidateNeon, scoreNineCandidatesNeon,
                                            countXorBlocksNeon, sobelBlockSumNeon};
#endif

#if VIDEOHDR_HAVE_X86_SIMD
int32_t countCandidateSse41(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx);
bool scoreNineCandidatesSse41(const AlignContext *ctx, int32_t level, int32_t scores[9]);
void countXorBlocksSse41(const uint32_t *displaced, const uint32_t *other, int32_t pitchWords,
                         int32_t rows, int32_t words, int32_t shift, uint32_t totals[4]);
double sobelBlockSumSse41(const uint8_t *image, int32_t width, int32_t height);
inline constexpr ScoreKernels kScoreSse41 = {countCandidateSse41, scoreNineCandidatesSse41,
                                             countXorBlocksSse41, sobelBlockSumSse41};
bool scoreNineCandidatesAvx2(const AlignContext *ctx, int32_t level, int32_t scores[9]);
double sobelBlockSumAvx2(const uint8_t *image, int32_t width, int32_t height);
inline constexpr ScoreKernels kScoreAvx2 = {countCandidateSse41, scoreNineCandidatesAvx2,
                                            countXorBlocksSse41, sobelBlockSumAvx2};
#endif

// Runs shiftPyramid from the coarsest level down to level 0, or stores a zero
// shift at every level when the coarsest level is narrower than the layout
// supports.
void searchAllLevels(AlignContext *ctx);

}  // namespace videohdr

#endif  // VIDEOHDR_ALIGN_SCORE_OPS_H
