// The 7-tap filters on AVX2, 32 results per step; a row's last 16 and 8
// results take the SSE4.1 steps, and the portable row the rest. The other
// plane kernels are memory-bound and the AVX2 instance runs their SSE4.1
// members (plane_ops.h).
#include "plane_ops.h"
#include "plane_rows.h"
#include "x86_filter7.h"
#include "x86_lanes.h"

#if VIDEOHDR_HAVE_X86_SIMD
namespace videohdr {
namespace {

VIDEOHDR_TARGET_AVX2 inline __m256i multiplyPairs(__m256i pixels, int16_t taps) {
  return _mm256_maddubs_epi16(pixels, _mm256_set1_epi16(taps));
}

template <Filter7 K>
VIDEOHDR_TARGET_AVX2 inline __m256i sevenTapSums(__m256i p01, __m256i p23, __m256i p45, __m256i p6,
                                                 int16_t last = TapPairs<K>::last) {
  using t = TapPairs<K>;
  return _mm256_add_epi16(
      _mm256_add_epi16(multiplyPairs(p01, t::first), multiplyPairs(p23, t::second)),
      _mm256_add_epi16(multiplyPairs(p45, t::third), multiplyPairs(p6, last)));
}

// filterRowStep on 32 results from s[0 .. 37]: each 16-byte lane holds the
// pairs of its own 16 results.
template <Filter7 K>
VIDEOHDR_TARGET_AVX2 inline __m256i filterRowStep32(const uint8_t *s) {
  const __m256i seventh = load32(s + 6);
  const __m256i even = sevenTapSums<K>(load32(s), load32(s + 2), load32(s + 4), seventh);
  const __m256i odd =
      sevenTapSums<K>(load32(s + 1), load32(s + 3), load32(s + 5), seventh, TapPairs<K>::lastHigh);
  constexpr int shift = Kernel7<K>::shift;
  return _mm256_or_si256(_mm256_srli_epi16(even, shift),
                         _mm256_slli_epi16(_mm256_srli_epi16(odd, shift), 8));
}

// filterColumnStep on 32 columns: unpacking and packing stay within each
// 16-byte lane, so the columns come out in order.
template <Filter7 K>
VIDEOHDR_TARGET_AVX2 inline __m256i filterColumnStep32(const FilterWindow &window, int32_t c) {
  __m256i r[kFilterTaps];
  for (int m = 0; m < kFilterTaps; ++m) r[m] = load32(window.row[m] + c);
  const __m256i zero = _mm256_setzero_si256();
  const __m256i low =
      sevenTapSums<K>(_mm256_unpacklo_epi8(r[0], r[1]), _mm256_unpacklo_epi8(r[2], r[3]),
                      _mm256_unpacklo_epi8(r[4], r[5]), _mm256_unpacklo_epi8(r[6], zero));
  const __m256i high =
      sevenTapSums<K>(_mm256_unpackhi_epi8(r[0], r[1]), _mm256_unpackhi_epi8(r[2], r[3]),
                      _mm256_unpackhi_epi8(r[4], r[5]), _mm256_unpackhi_epi8(r[6], zero));
  constexpr int shift = Kernel7<K>::shift;
  return _mm256_packus_epi16(_mm256_srli_epi16(low, shift), _mm256_srli_epi16(high, shift));
}

// The block functions of the 7-tap passes (x86_filter7.h): 32 results per
// step, then the SSE4.1 steps for a last 16 and 8.
struct Avx2Steps {
  template <Filter7 K>
  VIDEOHDR_TARGET_AVX2 static void rowBlocks(const uint8_t *s, uint8_t *d, int32_t end) {
    int32_t x = 0;
    for (; x + 32 <= end; x += 32) store32(d + x, filterRowStep32<K>(s + x));
    if (x < end) store16(d + x, filterRowStep<K>(s + x));
  }

  template <Filter7 K>
  VIDEOHDR_TARGET_AVX2 static void columnBlocks(FilterWindow window, uint8_t *d, int32_t columns) {
    int32_t c = 0;
    for (; c + 32 <= columns; c += 32) store32(d + c, filterColumnStep32<K>(window, c));
    if (c + 16 <= columns) {
      store16(d + c, filterColumnStep<K>(window, c));
      c += 16;
    }
    if (c < columns) store8(d + c, filterColumnHalfStep<K>(window, c));
  }
};

}  // namespace

void filterRows7Avx2(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                     int32_t border, Filter7 kernel) {
  filterRows7With<Avx2Steps>(src, dst, width, height, border, kernel);
}

void filterColumns7Avx2(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                        int32_t border, Filter7 kernel) {
  filterColumns7With<Avx2Steps>(src, dst, width, height, border, kernel);
}

}  // namespace videohdr
#endif  // VIDEOHDR_HAVE_X86_SIMD
