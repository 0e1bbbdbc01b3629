#include "clip.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "libyuv/convert_from_argb.h"
#include "libyuv/scale_argb.h"
#include "tool_error.h"
#include "videohdr.h"
#include "y4m.h"

namespace vhtool {
namespace {

namespace fs = std::filesystem;

constexpr double kTwoPi = 6.283185307179586;

// One axis of the shake, in [-1, 1]: a slow sway and a faster tremor, with
// periods and phases that differ between the axes so the path is not diagonal.
// The sway turns slowly enough that the library's jump filter (which holds a
// shift back when it starts from rest too fast or reverses) follows most steps.
double sway(int32_t n, int axis) {
  static const double kPeriods[2][2] = {{17.0, 6.0}, {16.0, 8.0}};
  static const double kPhases[2][2] = {{0.3, 1.9}, {2.2, 0.7}};
  return 0.75 * std::sin(kTwoPi * n / kPeriods[axis][0] + kPhases[axis][0]) +
         0.25 * std::sin(kTwoPi * n / kPeriods[axis][1] + kPhases[axis][1]);
}

// The position nearest `target` whose step from `from` has the wanted parity
// and that stays within +-amplitude (one pixel short of the target first).
int32_t stepWithParity(int32_t from, int32_t target, bool even, int32_t amplitude) {
  if (((target - from) % 2 == 0) == even) return target;
  const int32_t shorter = target > from ? target - 1 : target + 1;
  const int32_t longer = 2 * target - shorter;
  if (std::abs(shorter) <= amplitude) return shorter;
  if (std::abs(longer) <= amplitude) return longer;
  return target;
}

double meanLevel(const ArgbImage &image) {
  uint64_t sum = 0;
  for (size_t i = 0; i < image.pixels.size(); i += 4) {
    sum += image.pixels[i] + image.pixels[i + 1] + image.pixels[i + 2];
  }
  return image.pixels.empty() ? 0 : sum / (0.75 * image.pixels.size());
}

bool isJpeg(const fs::path &path) {
  std::string ext = path.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext == ".jpg" || ext == ".jpeg";
}

std::vector<fs::path> jpegsIn(const fs::path &dir) {
  std::vector<fs::path> files;
  for (const auto &entry : fs::directory_iterator(dir)) {
    if (entry.is_regular_file() && isJpeg(entry.path())) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void requireSameSize(const ArgbImage &a, const std::string &aPath, const ArgbImage &b,
                     const std::string &bPath) {
  if (a.width == b.width && a.height == b.height) return;
  throw ToolError("a bracketed set must have one size: " + aPath + " is " +
                  std::to_string(a.width) + "x" + std::to_string(a.height) + ", " + bPath + " is " +
                  std::to_string(b.width) + "x" + std::to_string(b.height));
}

Scene sceneFromSet(const fs::path &dir) {
  std::vector<fs::path> files = jpegsIn(dir);
  std::vector<ArgbImage> photos;
  std::vector<double> levels;
  for (const fs::path &file : files) {
    photos.push_back(readJpeg(file.string()));
    levels.push_back(meanLevel(photos.back()));
    requireSameSize(photos.front(), files.front().string(), photos.back(), file.string());
  }
  // The darkest and the next brighter. The bitmap alignment needs the two
  // exposures to agree on which half of the scene is bright: across the widest
  // brackets (four to five stops, with much of one frame black and much of the
  // other clipped) they do not.
  std::vector<size_t> order(files.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return levels[a] < levels[b]; });
  const size_t dark = order[0];
  const size_t bright = order[1];
  Scene scene;
  scene.name = dir.filename().string();
  scene.darkPath = files[dark].string();
  scene.brightPath = files[bright].string();
  scene.dark = std::move(photos[dark]);
  scene.bright = std::move(photos[bright]);
  return scene;
}

ArgbImage scaled(const ArgbImage &photo, double factor) {
  ArgbImage out;
  out.width = static_cast<int32_t>(photo.width * factor) & ~1;
  out.height = static_cast<int32_t>(photo.height * factor) & ~1;
  out.pixels.resize(static_cast<size_t>(out.stride()) * out.height);
  libyuv::ARGBScale(photo.pixels.data(), photo.stride(), photo.width, photo.height,
                    out.pixels.data(), out.stride(), out.width, out.height, libyuv::kFilterBox);
  return out;
}

// The frame size: the smallest photograph less the shake margin on each side.
Geometry frameGeometry(const std::vector<Scene> &scenes, int32_t amplitude) {
  int32_t width = scenes.front().dark.width;
  int32_t height = scenes.front().dark.height;
  for (const Scene &s : scenes) {
    width = std::min(width, s.dark.width);
    height = std::min(height, s.dark.height);
  }
  Geometry g;
  g.width = g.stride = (width - 2 * amplitude) & ~1;
  g.height = g.scanline = (height - 2 * amplitude) & ~1;
  if (g.width < 2 || g.height < 2) {
    throw ToolError("the photographs (" + std::to_string(width) + "x" + std::to_string(height) +
                    ") are too small for a shake of " + std::to_string(amplitude) + " pixels");
  }
  return g;
}

}  // namespace

std::vector<Offset> shakePath(int32_t frames, int32_t amplitude) {
  std::vector<Offset> path(std::max(frames, 0));
  for (int32_t n = 0; n < frames; ++n) {
    const int32_t tx = static_cast<int32_t>(std::lround(amplitude * sway(n, 0)));
    const int32_t ty = static_cast<int32_t>(std::lround(amplitude * sway(n, 1)));
    if (n == 0) {
      path[n] = {tx, ty};
      continue;
    }
    const bool even = n % 2 == 1;
    path[n].x = stepWithParity(path[n - 1].x, tx, even, amplitude);
    path[n].y = stepWithParity(path[n - 1].y, ty, even, amplitude);
  }
  return path;
}

Scene loadPair(const std::string &darkPath, const std::string &brightPath) {
  Scene scene;
  scene.name = fs::path(darkPath).stem().string();
  scene.darkPath = darkPath;
  scene.brightPath = brightPath;
  scene.dark = readJpeg(darkPath);
  scene.bright = readJpeg(brightPath);
  requireSameSize(scene.dark, darkPath, scene.bright, brightPath);
  return scene;
}

std::vector<Scene> loadScenes(const std::string &dir) {
  std::error_code error;
  if (!fs::is_directory(dir, error)) throw ToolError("photo directory '" + dir + "' not found");
  std::vector<fs::path> sets;
  if (jpegsIn(dir).size() >= 2) sets.push_back(dir);
  for (const auto &entry : fs::directory_iterator(dir)) {
    if (entry.is_directory() && jpegsIn(entry.path()).size() >= 2) sets.push_back(entry.path());
  }
  if (sets.empty()) {
    throw ToolError("no bracketed photographs (a directory with two or more JPEG files) in '" +
                    dir + "'");
  }
  std::sort(sets.begin(), sets.end());
  std::vector<Scene> scenes;
  for (const fs::path &set : sets) scenes.push_back(sceneFromSet(set));
  return scenes;
}

int32_t ClipPlan::sceneOf(int32_t index) const {
  int32_t scene = 0;
  while (scene + 1 < static_cast<int32_t>(firstFrame.size()) && firstFrame[scene + 1] <= index) {
    ++scene;
  }
  return scene;
}

bool ClipPlan::simulatedShift(int32_t index, Offset *shift) const {
  if (index < 1 || index >= frames() || firstFrame[sceneOf(index)] == index) return false;
  // The current frame's pixel (x, y) shows what the previous frame has at
  // (x + dx, y + dy): the difference of the two cut positions.
  shift->x = shake[index].x - shake[index - 1].x;
  shift->y = shake[index].y - shake[index - 1].y;
  return true;
}

ClipPlan planClip(std::vector<Scene> scenes, int32_t frames, int32_t amplitude) {
  if (scenes.empty()) throw ToolError("no photographs to build a clip from");
  if (frames < 1) throw ToolError("a clip needs at least one frame");
  if (amplitude < 0) throw ToolError("the shake must not be negative");
  Geometry g = frameGeometry(scenes, amplitude);
  const double lumaBytes = static_cast<double>(g.width) * g.height;
  if (lumaBytes > VIDEOHDR_MAX_LUMA_BYTES) {
    // Scaling the photographs by f scales the frame by less than f (the shake
    // margin stays), so the frame then fits.
    const double factor = std::sqrt(VIDEOHDR_MAX_LUMA_BYTES / lumaBytes);
    for (Scene &s : scenes) {
      s.dark = scaled(s.dark, factor);
      s.bright = scaled(s.bright, factor);
    }
    g = frameGeometry(scenes, amplitude);
  }

  ClipPlan plan;
  plan.geometry = g;
  plan.amplitude = amplitude;
  plan.shake = shakePath(frames, amplitude);
  // Every scene gets at least two frames, so that it has one fused frame.
  const size_t sceneCount = std::min<size_t>(scenes.size(), std::max(1, frames / 2));
  scenes.resize(sceneCount);
  plan.scenes = std::move(scenes);
  for (size_t s = 0; s < sceneCount; ++s) {
    plan.firstFrame.push_back(static_cast<int32_t>(s * frames / sceneCount));
  }
  return plan;
}

FrameLayout clipLayout(const ClipPlan &plan) {
  return packedLayout(PixelFormat::kI420, plan.geometry.width, plan.geometry.height);
}

void renderFrame(const ClipPlan &plan, int32_t index, Frame *frame) {
  const Scene &scene = plan.scenes[plan.sceneOf(index)];
  const ArgbImage &photo = ClipPlan::isBright(index) ? scene.bright : scene.dark;
  const Geometry &g = plan.geometry;
  const int32_t x = (photo.width - g.width) / 2 + plan.shake[index].x;
  const int32_t y = (photo.height - g.height) / 2 + plan.shake[index].y;
  const uint8_t *origin = photo.pixels.data() + static_cast<size_t>(y) * photo.stride() + x * 4;
  const Planes p = planesOf(clipLayout(plan), frame->data());
  libyuv::ARGBToI420(origin, photo.stride(), p.y, p.yRowStride, p.u, p.uvRowStride, p.v,
                     p.uvRowStride, g.width, g.height);
}

void writeClip(const ClipPlan &plan, const std::string &path) {
  StreamInfo info;
  info.y4m = true;
  info.frame = clipLayout(plan);
  info.y4mHeader = y4mStreamHeader(plan.geometry.width, plan.geometry.height);
  FrameWriter writer(path, info);
  Frame frame = makeFrame(info.frame);
  for (int32_t n = 0; n < plan.frames(); ++n) {
    renderFrame(plan, n, &frame);
    writer.write(frame);
  }
  writer.finish();
}

void writeShakeCsv(const ClipPlan &plan, const std::string &path) {
  std::ofstream out(path);
  if (!out) throw ToolError("cannot open '" + path + "' for writing");
  out << "frame,x,y,dx,dy\n";
  for (int32_t n = 0; n < plan.frames(); ++n) {
    out << n << ',' << plan.shake[n].x << ',' << plan.shake[n].y << ',';
    Offset shift;
    if (plan.simulatedShift(n, &shift)) {
      out << shift.x << ',' << shift.y << '\n';
    } else {
      out << ",\n";
    }
  }
  if (!out.flush()) throw ToolError("cannot write '" + path + "'");
}

}  // namespace vhtool
