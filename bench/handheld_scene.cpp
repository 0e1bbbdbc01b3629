// The handheld scene: a real photograph (tests/data/evening_glow_2112x1344.pgm,
// boats on a shore at sunset, origin and licence in tests/data/README.md) seen
// through a camera held in the hand and shot with alternating exposures.
//
// - Exposure: the photo's values are linearised (a gamma of 2), multiplied by
//   2 (bright, one stop up) or 0.5 (dark, one stop down), saturated at white
//   and put through a camera tone curve (the gamma back, then a mild S-curve).
//   The bright frames clip the sunset sky as a camera's would; the dark ones
//   keep it. One grey level of sensor noise, different on every frame, is
//   added to the luma.
// - Colour: the photograph is grey, so the chroma is made from it: warm
//   highlights and cooler shadows with a slight left-to-right change of hue,
//   scaled with each exposure's brightness and grey where the luma clips.
//   The fused bytes depend on it, the work done does not.
// - Motion: a seeded hand-shake path (kPathFrames positions within +-20
//   pixels, played forwards and backwards so the sequence has no jump); see
//   handShakePath.
//
// Only IEEE-exact arithmetic (+, -, *, /, sqrt) and integers, so every
// processor renders the same bytes.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "scene.h"

namespace videohdr_bench {
namespace {

constexpr int32_t kPathFrames = 64;
constexpr int32_t kReach = 20;        // the view stays within +-kReach of the centre
constexpr int32_t kMaxSpeed = 6;      // pixels per frame along one axis
constexpr uint32_t kPathSeed = 2112;  // any seed gives a path of the same kind

struct GreyPhoto {
  int32_t width = 0, height = 0;
  std::vector<uint8_t> pixels;
  uint8_t at(int32_t x, int32_t y) const {
    return pixels[static_cast<size_t>(y) * width + static_cast<size_t>(x)];
  }
};

[[noreturn]] void fail(const std::string &why) {
  std::fprintf(stderr, "handheld scene: %s\n", why.c_str());
  std::exit(1);
}

// A binary 8-bit PGM ("P5", maximum 255, no comment lines).
GreyPhoto loadPgm(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  GreyPhoto photo;
  std::string magic;
  int maxValue = 0;
  in >> magic >> photo.width >> photo.height >> maxValue;
  if (!in || magic != "P5" || maxValue != 255 || photo.width <= 0 || photo.height <= 0)
    fail("cannot read " + path + " as an 8-bit binary PGM");
  in.get();  // the one whitespace byte before the pixels
  photo.pixels.resize(static_cast<size_t>(photo.width) * photo.height);
  in.read(reinterpret_cast<char *>(photo.pixels.data()),
          static_cast<std::streamsize>(photo.pixels.size()));
  if (!in) fail(path + " is shorter than its header says");
  return photo;
}

// xorshift32: a fixed sequence from the seed on every processor.
class Random {
 public:
  explicit Random(uint32_t seed) : state_(seed ? seed : 1) {}
  uint32_t next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }
  // True with probability 1 / n.
  bool oneIn(uint32_t n) { return next() % n == 0; }

 private:
  uint32_t state_;
};

// One axis of a hand's tremor: every few frames the speed (even, up to
// kMaxSpeed) changes by one even step, more often back towards the centre
// than away from it, so the view sways back and forth and mostly turns through
// rest; when the next step would leave the reach it turns back at once (a
// reversal, which the library's shift filter suppresses). One frame in eight
// adds a pixel of jitter: an odd move, which the search (even shifts only)
// cannot find exactly.
class ShakeAxis {
 public:
  int32_t step(Random &random) {
    if (random.oneIn(3)) speed_ = std::clamp(speed_ + acceleration(random), -kMaxSpeed, kMaxSpeed);
    if (std::abs(position_ + speed_) > kReach) speed_ = -speed_;
    int32_t move = speed_;
    if (random.oneIn(8)) move += position_ + move + 1 > kReach ? -1 : 1;
    position_ += move;
    return position_;
  }

 private:
  // Towards the centre three times in four once the view is off it by more
  // than a third of the reach, either way with equal odds near it.
  int32_t acceleration(Random &random) const {
    const int32_t towardCentre = position_ > 0 ? -2 : 2;
    if (std::abs(position_) <= kReach / 3) return random.next() & 1 ? 2 : -2;
    return random.next() % 4 != 0 ? towardCentre : -towardCentre;
  }

  int32_t position_ = 0, speed_ = 0;
};

std::vector<Offset> handShakePath() {
  Random random(kPathSeed);
  ShakeAxis x, y;
  std::vector<Offset> path = {{0, 0}};
  while (static_cast<int32_t>(path.size()) < kPathFrames)
    path.push_back({x.step(random), y.step(random)});
  return path;
}

struct Exposure {
  uint8_t luma[256];        // by the photo's grey level
  int32_t chromaGain[256];  // chroma scale by the photo's grey level, in 1/256
};

// The camera's tone curve on a linear value in [0, 1]: the gamma of 2 back,
// then half of a smoothstep for a little more contrast in the mid-tones.
double toneCurve(double linear) {
  const double t = std::sqrt(linear);
  return 0.5 * t + 0.5 * t * t * (3.0 - 2.0 * t);
}

Exposure makeExposure(double gain) {
  Exposure e;
  for (int v = 0; v < 256; ++v) {
    const double linear = std::min(1.0, gain * (v / 255.0) * (v / 255.0));
    const int out = static_cast<int>(255.0 * toneCurve(linear) + 0.5);
    e.luma[v] = static_cast<uint8_t>(out);
    // Colour grows with the exposure's brightness and is gone where it clips.
    e.chromaGain[v] = out >= 255 ? 0 : 256 * out / std::max(v, 16);
  }
  return e;
}

uint32_t hash(uint32_t a, uint32_t b, uint32_t c) {
  uint32_t h = a * 0x9E3779B1u ^ b * 0x85EBCA77u ^ c * 0xC2B2AE3Du;
  h ^= h >> 15;
  h *= 0x2C1B3C6Du;
  h ^= h >> 13;
  return h;
}

// -1, 0 or +1, different for every pixel and frame.
int32_t sensorNoise(int32_t x, int32_t y, int32_t index) {
  return static_cast<int32_t>(hash(x, y, index) % 3) - 1;
}

class HandheldScene : public Scene {
 public:
  explicit HandheldScene(const Geometry &g)
      : geometry_(g),
        photo_(loadPgm(VIDEOHDR_BENCH_PHOTO)),
        path_(handShakePath()),
        exposures_{makeExposure(2.0), makeExposure(0.5)} {
    left_ = (photo_.width - g.width) / 2;
    top_ = (photo_.height - g.height) / 2;
    if (left_ < kReach + 1 || top_ < kReach + 1)
      fail("the photograph is too small for " + std::to_string(g.width) + "x" +
           std::to_string(g.height) + " frames and the hand's reach");
  }

  void render(int32_t index, uint8_t *frame) const override {
    const Exposure &e = exposures_[index & 1];
    const Offset v = view(index);
    std::memset(frame, 0, geometry_.frameBytes());
    for (int32_t y = 0; y < geometry_.height; ++y) renderLumaRow(e, v, index, y, frame);
    for (int32_t cy = 0; cy < geometry_.height / 2; ++cy) renderChromaRow(e, v, cy, frame);
  }

  // The path forwards, then backwards, and so on.
  Offset view(int32_t index) const override {
    const int32_t period = 2 * (kPathFrames - 1);
    const int32_t i = ((index % period) + period) % period;
    const Offset p = path_[i < kPathFrames ? i : period - i];
    return {left_ + p.x, top_ + p.y};
  }

 private:
  void renderLumaRow(const Exposure &e, Offset v, int32_t index, int32_t y, uint8_t *frame) const {
    uint8_t *row = frame + static_cast<size_t>(y) * geometry_.stride;
    for (int32_t x = 0; x < geometry_.width; ++x) {
      const int32_t value = e.luma[photo_.at(v.x + x, v.y + y)] + sensorNoise(x, y, index);
      row[x] = static_cast<uint8_t>(std::clamp(value, 0, 255));
    }
  }

  // NV21: V, then U, for the 2x2 block whose top-left pixel the chroma
  // sample stands for.
  void renderChromaRow(const Exposure &e, Offset v, int32_t cy, uint8_t *frame) const {
    uint8_t *row = frame + geometry_.chromaOffset() + static_cast<size_t>(cy) * geometry_.stride;
    for (int32_t cx = 0; cx < geometry_.width / 2; ++cx) {
      const int32_t px = v.x + 2 * cx;
      const int32_t grey = photo_.at(px, v.y + 2 * cy);
      const int32_t hue = 8 * (2 * px - photo_.width) / photo_.width;  // -8 .. 8
      const int32_t warm = (44 * grey) / 255 - 14;
      row[2 * cx] = chromaByte(warm + hue, e.chromaGain[grey]);
      row[2 * cx + 1] = chromaByte(-(3 * warm) / 4 + hue / 2, e.chromaGain[grey]);
    }
  }

  static uint8_t chromaByte(int32_t deviation, int32_t gain) {
    return static_cast<uint8_t>(std::clamp(128 + deviation * gain / 256, 1, 255));
  }

  Geometry geometry_;
  GreyPhoto photo_;
  std::vector<Offset> path_;
  Exposure exposures_[2];  // bright, dark
  int32_t left_ = 0, top_ = 0;
};

}  // namespace

std::unique_ptr<Scene> makeHandheldScene(const Geometry &g) {
  return std::make_unique<HandheldScene>(g);
}

}  // namespace videohdr_bench
