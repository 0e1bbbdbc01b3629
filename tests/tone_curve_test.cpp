// Tone curves and the fusion context: the tables against worked-out values,
// the curve generator's segment rules, and the context's block carving.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "videohdr.h"

namespace {

constexpr uint8_t kUntouched = 0xA7;

// Entries at these indices, worked out independently in high precision and
// checked against the float evaluation order of the curve.
constexpr int kCheckIndex[17] = {0,   1,   16,  32,  64,  91,  92,  96, 119,
                                 120, 127, 128, 160, 192, 224, 254, 255};
constexpr uint8_t kCheckA[17] = {0,   0,   14,  33,  77,  118, 120, 126, 163,
                                 165, 176, 178, 202, 221, 239, 254, 255};
constexpr uint8_t kCheckB[17] = {255, 254, 250, 240, 212, 179, 178, 159, 117,
                                 116, 107, 106, 72,  45,  21,  0,   0};
constexpr uint8_t kCheckC[17] = {0,   3,   30,  53,  92,  122, 123, 127, 151,
                                 153, 158, 159, 183, 207, 231, 254, 255};

struct CurveCase {
  const char *name;
  int32_t knee;
  float level, lowGamma, highGamma;
  int32_t direction;
  const uint8_t *expected;
};
const CurveCase kTables[3] = {{"A", 128, 0.7f, 1.2f, 1.0f / 1.2f, 0, kCheckA},
                              {"B", 92, 0.3f, 1.6f, 0.6f, 1, kCheckB},
                              {"C", 120, 0.6f, 0.8f, 1.0f, 0, kCheckC}};

std::vector<uint8_t> curve(int32_t size, int32_t length, int32_t knee, float level, float lowGamma,
                           float highGamma, int32_t direction) {
  std::vector<uint8_t> t(size, kUntouched);
  GenerateSCurve(t.data(), length, knee, level, lowGamma, highGamma, direction);
  return t;
}

void expectCheckValues(const uint8_t *table, const CurveCase &c, const char *source) {
  for (int k = 0; k < 17; ++k)
    EXPECT_EQ(table[kCheckIndex[k]], c.expected[k])
        << source << " table " << c.name << " at index " << kCheckIndex[k];
}

// A handle as the first frame leaves it, with just the fields the context copies.
struct FusionContextFixture {
  VideoHdrHandle handle{};
  FusionContextFixture(int32_t width, int32_t height, int32_t stride, int32_t scanline) {
    handle.width = width;
    handle.height = height;
    handle.stride = stride;
    handle.scanline = scanline;
    EXPECT_EQ(AllocFusionHandleParams(&handle), 1);
  }
  ~FusionContextFixture() { ReleaseFusionHandleParams(&handle); }
  FusionContext &context() { return *handle.fusionContext; }
};

// The segment rules on curves worked out by hand: which entries each segment
// writes, the high segment's divisor 255 - knee whatever the length, the
// clamp to a byte and NaN (0 / 0 at knee 255) giving 0. Every entry from
// `untouchedFrom` to the end of the buffer keeps its old value.
TEST(ToneCurve, SegmentsClampsAndEdgesByHand) {
  struct Case {
    const char *what;
    int32_t size, length, knee;
    float level, lowGamma, highGamma;
    int32_t direction;
    std::vector<std::pair<int, int>> entries;  // index, value
    int untouchedFrom;
  };
  // clang-format off
  const Case cases[] = {
      // (0.7 * (i / 255)^0.6 + 0.3) * 255, truncated.
      {"knee 0", 256, 256, 0, 0.3f, 9.0f, 0.6f, 0,
       {{0, 76}, {1, 82}, {10, 102}, {100, 178}, {200, 230}}, 256},
      {"knee 0, 10 entries", 12, 10, 0, 0.3f, 9.0f, 0.6f, 0,
       {{0, 76}, {1, 82}, {2, 86}, {3, 88}, {4, 91}, {5, 93}, {6, 95}, {7, 97}, {8, 98}, {9, 100}},
       10},
      // (i / 64)^1.2 * 0.7 * 255; the high-segment parameters are unused.
      {"knee at the length", 66, 64, 64, 0.7f, 1.2f, 9.0f, 0,
       {{0, 0}, {1, 1}, {10, 19}, {32, 77}, {63, 175}}, 64},
      {"knee past the length writes knee entries", 22, 10, 20, 0.7f, 1.2f, 9.0f, 0,
       {{0, 0}, {1, 4}, {2, 11}, {3, 18}, {4, 25}, {5, 33}, {6, 42}, {7, 50}, {8, 59}, {9, 68},
        {10, 77}, {11, 87}, {12, 96}, {13, 106}, {14, 116}, {15, 126}, {16, 136}, {17, 146},
        {18, 157}, {19, 167}}, 20},
      {"direction 2",  256, 256, 92, 0.3f, 1.6f, 0.6f,  2, {}, 0},
      {"direction -1", 256, 256, 92, 0.3f, 1.6f, 0.6f, -1, {}, 0},
      // A straight low segment 2 * i / 128, exact in float: 127.5 at i = 32.
      {"level 2 rising", 256, 256, 128, 2.0f, 1.0f, 1.0f, 0,
       {{32, 127}, {64, 255}, {127, 255}, {128, 255}, {200, 255}, {255, 255}}, 256},
      {"level 2 falling", 256, 256, 128, 2.0f, 1.0f, 1.0f, 1,
       {{32, 127}, {96, 0}, {128, 0}, {200, 0}, {255, 0}}, 256},
      // Far beyond int32: the conversion saturates instead of wrapping.
      {"level 1e30 rising",  256, 256, 128, 1e30f, 1.0f, 1.0f, 0, {{0, 0}, {1, 255}}, 256},
      {"level 1e30 falling", 256, 256, 128, 1e30f, 1.0f, 1.0f, 1, {{0, 255}, {1, 0}}, 256},
      {"knee 255 rising",    256, 256, 255, 0.5f,  1.0f, 0.6f, 0, {{255, 0}}, 256},
      {"knee 255 falling",   256, 256, 255, 0.5f,  1.0f, 0.6f, 1, {{255, 0}}, 256},
  };
  // clang-format on
  for (const Case &c : cases) {
    const auto t = curve(c.size, c.length, c.knee, c.level, c.lowGamma, c.highGamma, c.direction);
    for (const auto &e : c.entries) EXPECT_EQ(t[e.first], e.second) << c.what << " at " << e.first;
    for (int i = c.untouchedFrom; i < c.size; ++i)
      EXPECT_EQ(t[i], kUntouched) << c.what << " wrote " << i;
  }
}

TEST(FusionContext, TablesHoldTheThreeCurvesAndZeros) {
  FusionContextFixture f(64, 32, 64, 40);
  FusionContext &c = f.context();
  const uint8_t *block = c.toneCurves[0];
  for (int k = 0; k < 8; ++k) EXPECT_EQ(c.toneCurves[k], block + 256 * k) << "table " << k;
  for (int k = 0; k < 3; ++k) {
    const CurveCase &p = kTables[k];
    expectCheckValues(c.toneCurves[k], p, "context");
    auto generated = curve(256, 256, p.knee, p.level, p.lowGamma, p.highGamma, p.direction);
    EXPECT_EQ(std::memcmp(c.toneCurves[k], generated.data(), 256), 0) << "table " << p.name;
  }
  for (int i = 768; i < 2048; ++i) ASSERT_EQ(block[i], 0) << "table block byte " << i;
}

TEST(FusionContext, KeepsTheGeometryAndCarvesPlanesFromStrideTimesScanline) {
  // S = 13 * 7 = 91: not a multiple of 4, so the half block is 88 bytes
  // holding four planes of 22, and the quarter planes are 5 bytes each.
  struct Geometry {
    int32_t width, height, stride, scanline, halfStep, quarterStep;
  };
  for (const Geometry &g : {Geometry{13, 5, 13, 7, 22, 5}, Geometry{64, 32, 64, 40, 640, 160},
                            Geometry{30, 3, 31, 3, 23, 5}}) {
    FusionContextFixture f(g.width, g.height, g.stride, g.scanline);
    FusionContext &c = f.context();
    EXPECT_EQ((std::vector<int32_t>{c.width, c.height, c.stride, c.scanline}),
              (std::vector<int32_t>{g.width, g.height, g.stride, g.scanline}));
    const int32_t s = g.stride * g.scanline;
    for (int k = 0; k < 4; ++k) {
      EXPECT_EQ(c.weightPlanes[k], c.weightPlanes[0] + k * s) << "full plane " << k;
      EXPECT_EQ(c.halfWeightPlanes[k], c.halfWeightPlanes[0] + k * g.halfStep) << "half " << k;
      EXPECT_EQ(c.quarterWeightPlanes[k], c.quarterWeightPlanes[0] + k * g.quarterStep)
          << "quarter plane " << k;
    }
    // The whole half block starts zeroed, scratch plane included.
    for (int32_t i = 0; i < (s & ~3); ++i) ASSERT_EQ(c.halfWeightPlanes[0][i], 0) << "byte " << i;
    // Every carved plane is writable to its end (the sanitizer build checks).
    std::memset(c.weightPlanes[0], 1, 4 * static_cast<size_t>(s));
    std::memset(c.quarterWeightPlanes[0], 1, 4 * static_cast<size_t>(s >> 4));
  }
}

}  // namespace
