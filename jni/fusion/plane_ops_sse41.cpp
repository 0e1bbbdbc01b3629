// The byte-plane kernels on SSE4.1 (with SSSE3's multiply-adds): 7-tap
// filters, halving, doubling, chroma split and join. Whole blocks only; the
// portable rows finish a row (plane_rows.h).
#include <cstddef>
#include <cstring>

#include "../any_row.h"
#include "block_spill.h"
#include "plane_ops.h"
#include "plane_rows.h"
#include "x86_filter7.h"
#include "x86_lanes.h"

#if VIDEOHDR_HAVE_X86_SIMD
namespace videohdr {
namespace {

// The block functions of the 7-tap passes (x86_filter7.h): 16 results per
// step, and a last 8 columns in the vertical pass.
struct Sse41Steps {
  template <Filter7 K>
  VIDEOHDR_TARGET_SSE41 static void rowBlocks(const uint8_t *s, uint8_t *d, int32_t end) {
    for (int32_t x = 0; x < end; x += 16) store16(d + x, filterRowStep<K>(s + x));
  }

  template <Filter7 K>
  VIDEOHDR_TARGET_SSE41 static void columnBlocks(FilterWindow window, uint8_t *d, int32_t columns) {
    int32_t c = 0;
    for (; c + 16 <= columns; c += 16) store16(d + c, filterColumnStep<K>(window, c));
    if (c < columns) store8(d + c, filterColumnHalfStep<K>(window, c));
  }
};

// The even and the odd bytes of 32 (the low and the high halves of their
// 16-bit lanes), narrowed.
VIDEOHDR_TARGET_SSE41 inline __m128i evenBytes(__m128i first, __m128i second) {
  const __m128i low = _mm_set1_epi16(0xff);
  return _mm_packus_epi16(_mm_and_si128(first, low), _mm_and_si128(second, low));
}

VIDEOHDR_TARGET_SSE41 inline __m128i oddBytes(__m128i first, __m128i second) {
  return _mm_packus_epi16(_mm_srli_epi16(first, 8), _mm_srli_epi16(second, 8));
}

VIDEOHDR_TARGET_SSE41 void halveBlocks(const uint8_t *s, uint8_t *d, int32_t end) {
  for (int32_t c = 0; c < end; c += 16)
    store16(d + c, evenBytes(load16(s + 2 * c), load16(s + 2 * c + 16)));
}

// Both rows of a doubled source row at once: each source byte twice, into
// the even row and the same into the odd row below it.
VIDEOHDR_TARGET_SSE41 void doubleBlocks(const uint8_t *s, uint8_t *even, ptrdiff_t pitch,
                                        int32_t end) {
  for (int32_t x = 0; x < end; x += 32) {
    const __m128i v = load16(s + x / 2);
    const __m128i low = _mm_unpacklo_epi8(v, v), high = _mm_unpackhi_epi8(v, v);
    store16(even + x, low);
    store16(even + x + 16, high);
    store16(even + pitch + x, low);
    store16(even + pitch + x + 16, high);
  }
}

VIDEOHDR_TARGET_SSE41 void splitBlocks(const uint8_t *uv, uint8_t *u, uint8_t *v, int32_t end) {
  // Both loads before the stores: a store to u could be the bytes a later
  // load reads, which would make the compiler load them a second time.
  for (int32_t k = 0; k < end; k += 16) {
    const __m128i first = load16(uv + 2 * k), second = load16(uv + 2 * k + 16);
    store16(u + k, evenBytes(first, second));
    store16(v + k, oddBytes(first, second));
  }
}

VIDEOHDR_TARGET_SSE41 void joinBlocks(const uint8_t *u, const uint8_t *v, uint8_t *uv,
                                      int32_t end) {
  for (int32_t k = 0; k < end; k += 16) {
    const __m128i first = load16(u + k), second = load16(v + k);
    store16(uv + 2 * k, _mm_unpacklo_epi8(first, second));
    store16(uv + 2 * k + 16, _mm_unpackhi_epi8(first, second));
  }
}

}  // namespace

void filterRows7Sse41(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                      int32_t border, Filter7 kernel) {
  filterRows7With<Sse41Steps>(src, dst, width, height, border, kernel);
}

void filterColumns7Sse41(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                         int32_t border, Filter7 kernel) {
  filterColumns7With<Sse41Steps>(src, dst, width, height, border, kernel);
}

void downScale2xSse41(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                      int32_t stride) {
  halveRows<16, halveBlocks>(src, dst, width, height, stride);
}

// The odd row is the even row copied whole (2 * stride bytes): the vector
// steps write their bytes into both rows, and only the rest of the even row
// is copied afterwards.
void upscale2xReplicateSse41(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                             int32_t stride) {
  if (!doublingRuns(height, stride)) return;
  const int32_t pitch = 2 * stride;
  const int32_t built = doubledRowBytes(width, stride);
  const int32_t end = wholeBlocks<32>(built);
  for (int32_t r = 0; r < height; ++r) {
    const uint8_t *s = planeRow(src, r, stride);
    uint8_t *even = planeRow(dst, 2 * r, pitch);
    doubleBlocks(s, even, pitch, end);
    doubleBytesPortable(s + end / 2, even + end, built - end);
    std::memcpy(even + pitch + end, even + end, static_cast<size_t>(pitch - end));
  }
}

void extractUvSse41(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf, int32_t width,
                    int32_t height, int32_t stride) {
  splitRows<16, splitBlocks>(uvBuf, uBuf, vBuf, width, height, stride);
}

void combineUvSse41(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf, int32_t width,
                    int32_t height) {
  joinRows<16, joinBlocks>(uBuf, vBuf, uvBuf, width, height);
}

}  // namespace videohdr
#endif  // VIDEOHDR_HAVE_X86_SIMD
