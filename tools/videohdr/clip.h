// Builds an alternating-exposure clip from bracketed photographs: even frames
// are cut from the bright exposure, odd frames from the dark one, each at a
// position that follows a simulated hand shake, so the shift between any two
// consecutive frames is known exactly.
#ifndef VIDEOHDR_TOOL_CLIP_H
#define VIDEOHDR_TOOL_CLIP_H

#include <cstdint>
#include <string>
#include <vector>

#include "frame_io.h"
#include "image_io.h"

namespace vhtool {

struct Offset {
  int32_t x = 0;
  int32_t y = 0;
};

// Where each frame is cut, relative to the centred cut, within +-amplitude in
// both directions: a slow sway plus a faster tremor. The step from frame n - 1
// to frame n is even in both directions for odd n and odd for even n, so that
// a clip exercises both kinds of shift in equal measure.
std::vector<Offset> shakePath(int32_t frames, int32_t amplitude);

// One bracketed pair of a scene.
struct Scene {
  std::string name;
  std::string darkPath, brightPath;
  ArgbImage dark, bright;
};

// A pair given by the user; both photos must have the same size.
Scene loadPair(const std::string &darkPath, const std::string &brightPath);

// Every bracketed set under `dir`: each sub-directory (or `dir` itself) that
// holds two or more JPEG files gives a scene made of its two darkest
// photographs (by mean level): neighbouring brackets, a couple of stops apart
// as a video sensor alternates them. Sorted by name.
std::vector<Scene> loadScenes(const std::string &dir);

struct ClipPlan {
  Geometry geometry;
  std::vector<Scene> scenes;
  std::vector<int32_t> firstFrame;  // of each scene; the scenes share the clip evenly
  std::vector<Offset> shake;
  int32_t amplitude = 0;

  int32_t frames() const { return static_cast<int32_t>(shake.size()); }
  static bool isBright(int32_t index) { return index % 2 == 0; }
  int32_t sceneOf(int32_t index) const;
  // The shift the motion search should find for frame `index` (how far the
  // previous frame's content lies from the current one's); false for the first
  // frame of a scene, which has no previous frame of the same scene.
  bool simulatedShift(int32_t index, Offset *shift) const;
};

// Plans `frames` frames over `scenes` with a shake of +-`amplitude` pixels.
// The frames are the photographs less the shake margin; photographs too large
// for the library's frame buffers are scaled down first. Throws ToolError.
ClipPlan planClip(std::vector<Scene> scenes, int32_t frames, int32_t amplitude);

// The layout of the clip's frames: packed I420, as Y4M holds them.
FrameLayout clipLayout(const ClipPlan &plan);

// Renders frame `index` into `frame` (of clipLayout).
void renderFrame(const ClipPlan &plan, int32_t index, Frame *frame);

// The clip as Y4M ("-" for standard output).
void writeClip(const ClipPlan &plan, const std::string &path);

// frame,x,y,dx,dy: each frame's cut position and its simulated shift.
void writeShakeCsv(const ClipPlan &plan, const std::string &path);

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_CLIP_H
