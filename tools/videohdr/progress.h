// A one-line progress bar on stderr, redrawn at most ten times a second.
#ifndef VIDEOHDR_TOOL_PROGRESS_H
#define VIDEOHDR_TOOL_PROGRESS_H

#include <chrono>
#include <cstdint>

namespace vhtool {

class Progress {
 public:
  // `total` frames, or -1 when unknown (a pipe): then only the count is shown.
  Progress(bool enabled, int64_t total);
  ~Progress() { finish(); }
  void update(int64_t frames);
  void finish();

 private:
  void draw(int64_t frames);

  bool enabled_;
  int64_t total_;
  int64_t frames_ = 0;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point start_, lastDraw_;
};

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_PROGRESS_H
