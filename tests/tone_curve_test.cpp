// Tone curves and the fusion context: the tables against worked-out values,
// the curve generator's segment rules, and the context's block carving.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "log_capture.h"
#include "videohdr.h"

namespace {

constexpr uint8_t kUntouched = 0xA7;

struct CurveCase {
  const char *name;
  int32_t knee;
  float level, lowGamma, highGamma;
  int32_t direction;
  uint8_t expected[17];
};

// Entries at these indices, worked out independently in high precision and
// checked against the float evaluation order of the curve.
constexpr int kCheckIndex[17] = {0,   1,   16,  32,  64,  91,  92,  96, 119,
                                 120, 127, 128, 160, 192, 224, 254, 255};
const CurveCase kTables[3] = {
    {"A",
     128,
     0.7f,
     1.2f,
     1.0f / 1.2f,
     0,
     {0, 0, 14, 33, 77, 118, 120, 126, 163, 165, 176, 178, 202, 221, 239, 254, 255}},
    {"B",
     92,
     0.3f,
     1.6f,
     0.6f,
     1,
     {255, 254, 250, 240, 212, 179, 178, 159, 117, 116, 107, 106, 72, 45, 21, 0, 0}},
    {"C",
     120,
     0.6f,
     0.8f,
     1.0f,
     0,
     {0, 3, 30, 53, 92, 122, 123, 127, 151, 153, 158, 159, 183, 207, 231, 254, 255}},
};

uint32_t floatBits(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  return bits;
}

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

TEST(ToneCurve, TableParametersHaveTheirSinglePrecisionBits) {
  EXPECT_EQ(floatBits(kTables[0].level), 0x3F333333u);
  EXPECT_EQ(floatBits(kTables[0].lowGamma), 0x3F99999Au);
  EXPECT_EQ(floatBits(kTables[0].highGamma), 0x3F555555u);
  EXPECT_EQ(floatBits(kTables[1].level), 0x3E99999Au);
  EXPECT_EQ(floatBits(kTables[1].lowGamma), 0x3FCCCCCDu);
  EXPECT_EQ(floatBits(kTables[1].highGamma), 0x3F19999Au);
  EXPECT_EQ(floatBits(kTables[2].lowGamma), 0x3F4CCCCDu);
}

TEST(ToneCurve, GeneratorGivesTheCheckValuesOfAllThreeTables) {
  for (const CurveCase &c : kTables) {
    auto t = curve(256, 256, c.knee, c.level, c.lowGamma, c.highGamma, c.direction);
    expectCheckValues(t.data(), c, "GenerateSCurve");
  }
}

TEST(ToneCurve, TableBFallsSteeplyAtItsKnee) {
  const CurveCase &b = kTables[1];
  auto t = curve(256, 256, b.knee, b.level, b.lowGamma, b.highGamma, b.direction);
  EXPECT_EQ(t[91], 179);
  EXPECT_EQ(t[92], 178);  // (1 - 0.3) * 255 = 178.5, truncated
  EXPECT_EQ(t[93], 170);
  EXPECT_EQ(t[94], 165);
  for (int i = 1; i < 256; ++i) EXPECT_LE(t[i], t[i - 1]) << "table B rises at " << i;
}

TEST(ToneCurve, KneeZeroWritesOnlyTheHighSegmentOverTwoFiftyFive) {
  // (0.7 * (i / 255)^0.6 + 0.3) * 255, truncated.
  auto t = curve(256, 256, 0, 0.3f, 9.0f, 0.6f, 0);
  EXPECT_EQ(t[0], 76);
  EXPECT_EQ(t[1], 82);
  EXPECT_EQ(t[10], 102);
  EXPECT_EQ(t[100], 178);
  EXPECT_EQ(t[200], 230);
  // The divisor stays 255 - knee for a shorter curve too, so it ends low.
  auto shortCurve = curve(12, 10, 0, 0.3f, 9.0f, 0.6f, 0);
  const uint8_t expectedShort[10] = {76, 82, 86, 88, 91, 93, 95, 97, 98, 100};
  for (int i = 0; i < 10; ++i) EXPECT_EQ(shortCurve[i], expectedShort[i]) << "index " << i;
  EXPECT_EQ(shortCurve[10], kUntouched);
  EXPECT_EQ(shortCurve[11], kUntouched);
}

TEST(ToneCurve, KneeAtLengthWritesOnlyTheLowSegment) {
  // (i / 64)^1.2 * 0.7 * 255, truncated; the high-segment parameters are unused.
  auto t = curve(66, 64, 64, 0.7f, 1.2f, 9.0f, 0);
  EXPECT_EQ(t[0], 0);
  EXPECT_EQ(t[1], 1);
  EXPECT_EQ(t[10], 19);
  EXPECT_EQ(t[32], 77);
  EXPECT_EQ(t[63], 175);
  EXPECT_EQ(t[64], kUntouched);
  EXPECT_EQ(t[65], kUntouched);
}

TEST(ToneCurve, KneePastLengthWritesKneeLowEntries) {
  auto t = curve(22, 10, 20, 0.7f, 1.2f, 9.0f, 0);
  const uint8_t expected[20] = {0,  4,  11, 18,  25,  33,  42,  50,  59,  68,
                                77, 87, 96, 106, 116, 126, 136, 146, 157, 167};
  for (int i = 0; i < 20; ++i) EXPECT_EQ(t[i], expected[i]) << "index " << i;
  EXPECT_EQ(t[20], kUntouched);
}

TEST(ToneCurve, OtherDirectionsWriteNothing) {
  for (int32_t direction : {2, -1, 7}) {
    auto t = curve(256, 256, 92, 0.3f, 1.6f, 0.6f, direction);
    for (int i = 0; i < 256; ++i) ASSERT_EQ(t[i], kUntouched) << "direction " << direction;
  }
}

TEST(ToneCurve, LevelAboveOneSaturates) {
  // Straight low segment 2 * i / 128: exact in float, so 127.5 at i = 32.
  auto rising = curve(256, 256, 128, 2.0f, 1.0f, 1.0f, 0);
  EXPECT_EQ(rising[32], 127);
  EXPECT_EQ(rising[64], 255);
  EXPECT_EQ(rising[127], 255);
  for (int i = 128; i < 256; ++i) EXPECT_EQ(rising[i], 255) << "index " << i;
  auto falling = curve(256, 256, 128, 2.0f, 1.0f, 1.0f, 1);
  EXPECT_EQ(falling[32], 127);
  EXPECT_EQ(falling[96], 0);
  for (int i = 128; i < 256; ++i) EXPECT_EQ(falling[i], 0) << "index " << i;
}

TEST(ToneCurve, OutOfRangeAndNanValuesSaturateOrGiveZero) {
  // Far beyond int32: the conversion saturates instead of wrapping.
  auto huge = curve(256, 256, 128, 1e30f, 1.0f, 1.0f, 0);
  EXPECT_EQ(huge[0], 0);
  EXPECT_EQ(huge[1], 255);
  auto hugeFalling = curve(256, 256, 128, 1e30f, 1.0f, 1.0f, 1);
  EXPECT_EQ(hugeFalling[0], 255);
  EXPECT_EQ(hugeFalling[1], 0);
  // Knee 255: the high segment's first entry is 0 / 0, NaN, which gives 0.
  auto nan = curve(256, 256, 255, 0.5f, 1.0f, 0.6f, 0);
  EXPECT_EQ(nan[255], 0);
  auto nanFalling = curve(256, 256, 255, 0.5f, 1.0f, 0.6f, 1);
  EXPECT_EQ(nanFalling[255], 0);
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

TEST(FusionContext, CopiesTheHandleGeometry) {
  FusionContextFixture f(60, 30, 64, 34);
  EXPECT_EQ(f.context().width, 60);
  EXPECT_EQ(f.context().height, 30);
  EXPECT_EQ(f.context().stride, 64);
  EXPECT_EQ(f.context().scanline, 34);
  EXPECT_NE(f.handle.fusionContext, nullptr);
}

TEST(FusionContext, PlanesAreCarvedFromStrideTimesScanline) {
  // S = 13 * 7 = 91: not a multiple of 4, so the half block is 88 bytes
  // holding four planes of 22, and the quarter planes are 5 bytes each.
  struct Geometry {
    int32_t width, height, stride, scanline, halfStep, quarterStep;
  };
  for (const Geometry &g : {Geometry{13, 5, 13, 7, 22, 5}, Geometry{64, 32, 64, 40, 640, 160},
                            Geometry{30, 3, 31, 3, 23, 5}}) {
    FusionContextFixture f(g.width, g.height, g.stride, g.scanline);
    FusionContext &c = f.context();
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

TEST(FusionContext, ReleaseWithoutContextFreesOnlyTheAuxBlock) {
  VideoHdrHandle handle{};
  handle.fusionAux = std::malloc(0);  // the leak checker sees it if it is not freed
  EXPECT_EQ(ReleaseFusionHandleParams(&handle), 1);
  VideoHdrHandle empty{};
  EXPECT_EQ(ReleaseFusionHandleParams(&empty), 1);
}

TEST(FusionContext, HandleDestroyedBeforeItsFirstFrameReleasesCleanly) {
  LogCapture log;  // the alignment release reports its missing workspace
  VideoHdrHandle *handle = createVideoHdrHandle();
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->fusionContext, nullptr);
  EXPECT_EQ(destroyVideoHdrHandle(handle), 1);
}

}  // namespace
