// The four 7-tap filters with random width, height and border (mostly 3, the
// value the fusion uses, but also 0 .. 2, larger ones, negative ones and, now
// and then, any 32-bit values at all). The source holds exactly the plane and
// the bytes the header says the call reads before or after it; the
// destination holds exactly the plane. The exported call, the portable and
// the NEON variant must leave the same bytes, and nothing outside the
// documented output region may change.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>

#include "exact_buffer.h"
#include "fusion/plane_ops.h"
#include "videohdr.h"

namespace {

using videohdr::Filter7;

constexpr int32_t kBlock = 8;

struct Call {
  bool vertical;
  Filter7 kernel;
  int32_t width, height, border;
};

using Exported = void (*)(const uint8_t *, uint8_t *, int32_t, int32_t, int32_t);

Exported exportedOf(const Call &c) {
  if (c.vertical)
    return c.kernel == Filter7::Tent ? VerticalFilter7x7neon : VerticalFilter7x7neon_Smooth;
  return c.kernel == Filter7::Tent ? horizontalFilter7x7neon : horizontalFilter7x7neon_Smooth;
}

// The entry tests as the header states them, in 64 bits.
bool runs(const Call &c) {
  if (c.border < 0) return false;
  if (c.vertical) return c.width >= kBlock && int64_t{c.height} - 2 * int64_t{c.border} > 0;
  return c.height >= 1 && int64_t{c.width} - kBlock - 2 * int64_t{c.border} >= 0;
}

// Blocks of eight results per row in the horizontal pass.
int64_t rowBlocks(const Call &c) { return (int64_t{c.width} - kBlock - 2 * c.border) / kBlock + 1; }

// Source bytes the call reads before and after the plane, as documented.
struct Outside {
  int64_t before, after;
};
Outside outsideBytes(const Call &c) {
  if (!runs(c)) return {0, 0};
  if (!c.vertical) return {0, std::max<int64_t>(0, kBlock * rowBlocks(c) + 6 - c.width)};
  const int64_t columns = c.width / kBlock * kBlock;
  const int64_t rowsBefore = std::max(0, 3 - c.border);
  const int64_t rowsAfter = std::max(0, c.border + 4 - c.height);
  return {rowsBefore * c.width, rowsAfter ? (rowsAfter - 1) * c.width + columns : 0};
}

// Whether destination byte (x, y) is one the call may write.
bool inOutputRegion(const Call &c, int32_t x, int32_t y) {
  if (!runs(c)) return false;
  if (c.vertical) return y >= c.border && y < c.height - c.border && x < c.width / kBlock * kBlock;
  return x >= c.border && x < c.border + kBlock * rowBlocks(c);
}

Call pickCall(FuzzedDataProvider &in) {
  Call c;
  c.vertical = in.ConsumeBool();
  c.kernel = in.ConsumeBool() ? Filter7::Tent : Filter7::Smooth;
  if (in.ConsumeIntegralInRange<int>(0, 15) == 0) {
    // Anything at all: the entry tests must hold in every case, and a call
    // that runs on a plane too large to hold is skipped below.
    c.width = in.ConsumeIntegral<int32_t>();
    c.height = in.ConsumeIntegral<int32_t>();
    c.border = in.ConsumeIntegral<int32_t>();
    return c;
  }
  c.width = in.ConsumeIntegralInRange<int32_t>(-3, 200);
  c.height = in.ConsumeIntegralInRange<int32_t>(-3, 40);
  c.border = in.ConsumeBool() ? 3 : in.ConsumeIntegralInRange<int32_t>(-4, 12);
  return c;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  const Call c = pickCall(in);
  const Outside outside = outsideBytes(c);
  const size_t plane = fuzz::planeBytes(c.height, c.width);
  if (runs(c) && plane + outside.before + outside.after > (size_t{1} << 18)) return 0;

  // A call that does not run gets empty buffers: any access is reported.
  const size_t planeIfRuns = runs(c) ? plane : 0;
  fuzz::ExactBuffer src(static_cast<size_t>(outside.before),
                        planeIfRuns + static_cast<size_t>(outside.after));
  fuzz::ExactBuffer before(0, planeIfRuns);
  src.fill(in);
  before.fill(in);

  fuzz::ExactBuffer exported(before);
  exportedOf(c)(src.plane(), exported.plane(), c.width, c.height, c.border);
  for (const videohdr::Kernels *k : fuzz::kInstances) {
    fuzz::ExactBuffer variant(before);
    (c.vertical ? k->plane.filterColumns7 : k->plane.filterRows7)(
        src.plane(), variant.plane(), c.width, c.height, c.border, c.kernel);
    if (variant != exported) fuzz::fail("a filter variant differs from the exported filter");
  }

  if (!runs(c)) return 0;
  for (int32_t y = 0; y < c.height; ++y)
    for (int32_t x = 0; x < c.width; ++x) {
      const ptrdiff_t i = static_cast<ptrdiff_t>(y) * c.width + x;
      if (!inOutputRegion(c, x, y) && exported.at(i) != before.at(i))
        fuzz::fail("filter wrote outside its output region");
    }
  return 0;
}
