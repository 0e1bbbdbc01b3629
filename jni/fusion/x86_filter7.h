// The 7-tap filters' vector steps on SSE4.1, shared by the SSE4.1 and the
// AVX2 plane kernels (the AVX2 ones finish their rows with them), and the
// passes' loops around either instance's steps.
//
// pmaddubsw multiplies the bytes of two adjacent pixels by a pair of taps and
// adds the products into a 16-bit lane, so a result takes four such pairs:
// (k0, k1), (k2, k3), (k4, k5) and (k6, 0) over its seven pixels. The sums
// stay below 255 x 32, far from the instruction's saturation.
#ifndef VIDEOHDR_FUSION_X86_FILTER7_H
#define VIDEOHDR_FUSION_X86_FILTER7_H

#include "../any_row.h"
#include "plane_rows.h"
#include "x86_lanes.h"

#if VIDEOHDR_HAVE_X86_SIMD
namespace videohdr {

// The taps k0..k6 (t0 t1 t2 t3 t2 t1 t0) as 16-bit lanes of byte pairs, the
// first byte low; `lastHigh` is (0, k6).
template <Filter7 K>
struct TapPairs {
  using k = Kernel7<K>;
  static constexpr int16_t first = k::t0 | k::t1 << 8;
  static constexpr int16_t second = k::t2 | k::t3 << 8;
  static constexpr int16_t third = k::t2 | k::t1 << 8;
  static constexpr int16_t last = k::t0;
  static constexpr int16_t lastHigh = k::t0 << 8;
};

VIDEOHDR_TARGET_SSE41 inline __m128i multiplyPairs(__m128i pixels, int16_t taps) {
  return _mm_maddubs_epi16(pixels, _mm_set1_epi16(taps));
}

// Four pixel-pair vectors against the four tap pairs, summed; the last pair
// of taps may also be (0, k6).
template <Filter7 K>
VIDEOHDR_TARGET_SSE41 inline __m128i sevenTapSums(__m128i p01, __m128i p23, __m128i p45, __m128i p6,
                                                  int16_t last = TapPairs<K>::last) {
  using t = TapPairs<K>;
  return _mm_add_epi16(_mm_add_epi16(multiplyPairs(p01, t::first), multiplyPairs(p23, t::second)),
                       _mm_add_epi16(multiplyPairs(p45, t::third), multiplyPairs(p6, last)));
}

// Sixteen results of a row from source bytes s[0 .. 21] (exactly those the
// results use). Loads at offsets 0, 2, 4, 6 pair the pixels of the even
// results, loads at 1, 3, 5 those of the odd ones, whose seventh pixel is the
// high byte of the load at 6. The even results are the low bytes of the
// output lanes, the odd ones the high bytes.
template <Filter7 K>
VIDEOHDR_TARGET_SSE41 inline __m128i filterRowStep(const uint8_t *s) {
  const __m128i seventh = load16(s + 6);
  const __m128i even = sevenTapSums<K>(load16(s), load16(s + 2), load16(s + 4), seventh);
  const __m128i odd =
      sevenTapSums<K>(load16(s + 1), load16(s + 3), load16(s + 5), seventh, TapPairs<K>::lastHigh);
  constexpr int shift = Kernel7<K>::shift;
  return _mm_or_si128(_mm_srli_epi16(even, shift), _mm_slli_epi16(_mm_srli_epi16(odd, shift), 8));
}

// The seven source rows of an output row of the vertical pass. The block
// functions take it by value: a byte store may alias anything in memory, so
// row pointers read through a reference would be reloaded after every store.
struct FilterWindow {
  const uint8_t *row[kFilterTaps];
};

// Sixteen columns from column c of the seven window rows: the rows' bytes
// interleaved in pairs, low and high eight columns.
template <Filter7 K>
VIDEOHDR_TARGET_SSE41 inline __m128i filterColumnStep(const FilterWindow &window, int32_t c) {
  __m128i r[kFilterTaps];
  for (int m = 0; m < kFilterTaps; ++m) r[m] = load16(window.row[m] + c);
  const __m128i zero = _mm_setzero_si128();
  const __m128i low = sevenTapSums<K>(_mm_unpacklo_epi8(r[0], r[1]), _mm_unpacklo_epi8(r[2], r[3]),
                                      _mm_unpacklo_epi8(r[4], r[5]), _mm_unpacklo_epi8(r[6], zero));
  const __m128i high =
      sevenTapSums<K>(_mm_unpackhi_epi8(r[0], r[1]), _mm_unpackhi_epi8(r[2], r[3]),
                      _mm_unpackhi_epi8(r[4], r[5]), _mm_unpackhi_epi8(r[6], zero));
  constexpr int shift = Kernel7<K>::shift;
  return _mm_packus_epi16(_mm_srli_epi16(low, shift), _mm_srli_epi16(high, shift));
}

// Eight columns (the low half of the result), reading eight bytes per row.
template <Filter7 K>
VIDEOHDR_TARGET_SSE41 inline __m128i filterColumnHalfStep(const FilterWindow &window, int32_t c) {
  __m128i r[kFilterTaps];
  for (int m = 0; m < kFilterTaps; ++m) r[m] = load8(window.row[m] + c);
  const __m128i low =
      sevenTapSums<K>(_mm_unpacklo_epi8(r[0], r[1]), _mm_unpacklo_epi8(r[2], r[3]),
                      _mm_unpacklo_epi8(r[4], r[5]), _mm_unpacklo_epi8(r[6], _mm_setzero_si128()));
  return _mm_packus_epi16(_mm_srli_epi16(low, Kernel7<K>::shift), _mm_setzero_si128());
}

// The passes' size tests and row loops around an instance's block functions:
// Steps::rowBlocks<K>(s, d, end) writes results [0, end) of a row (end a
// multiple of 16; the portable row takes the rest), and
// Steps::columnBlocks<K>(window, d, columns) one output row of the vertical
// pass.
template <class Steps, Filter7 K>
void filterRows7With(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                     int32_t border) {
  const int32_t outputs = rowPassOutputs(width, border);
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t *s = planeRow(src, y, width);
    uint8_t *d = planeRow(dst, y, width) + border;
    blocksThenRest(
        wholeBlocks<16>(outputs), outputs,
        [=](int32_t end) { Steps::template rowBlocks<K>(s, d, end); },
        [=](int32_t at, int32_t rest) { filterRow7Portable<K>(s + at, d + at, rest); });
  }
}

template <class Steps>
void filterRows7With(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                     int32_t border, Filter7 kernel) {
  if (!rowPassRuns(width, height, border)) return;
  if (kernel == Filter7::Tent)
    filterRows7With<Steps, Filter7::Tent>(src, dst, width, height, border);
  else
    filterRows7With<Steps, Filter7::Smooth>(src, dst, width, height, border);
}

template <class Steps, Filter7 K>
void filterColumns7With(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                        int32_t border) {
  const int32_t columns = columnPassColumns(width);
  for (int32_t t = 0; t < height - 2 * border; ++t) {
    FilterWindow window;
    for (int m = 0; m < kFilterTaps; ++m)
      window.row[m] = planeRow(src, windowRow(t + m, border), width);
    Steps::template columnBlocks<K>(window, planeRow(dst, border + t, width), columns);
  }
}

template <class Steps>
void filterColumns7With(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                        int32_t border, Filter7 kernel) {
  if (!columnPassRuns(width, height, border)) return;
  if (kernel == Filter7::Tent)
    filterColumns7With<Steps, Filter7::Tent>(src, dst, width, height, border);
  else
    filterColumns7With<Steps, Filter7::Smooth>(src, dst, width, height, border);
}

}  // namespace videohdr
#endif  // VIDEOHDR_HAVE_X86_SIMD

#endif  // VIDEOHDR_FUSION_X86_FILTER7_H
