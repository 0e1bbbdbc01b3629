#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace vhtool {
namespace {
constexpr int kBarWidth = 30;
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
}  // namespace

Progress::Progress(bool enabled, int64_t total)
    : enabled_(enabled), total_(total), start_(std::chrono::steady_clock::now()) {}

void Progress::update(int64_t frames) {
  frames_ = frames;
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  if (drawn_ && now - lastDraw_ < kRedrawInterval) return;
  lastDraw_ = now;
  draw(frames);
}

void Progress::draw(int64_t frames) {
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  const double fps = seconds > 0 ? frames / seconds : 0;
  std::string bar;
  if (total_ > 0) {
    const int64_t filled = std::min<int64_t>(kBarWidth, frames * kBarWidth / total_);
    bar = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, ' ') + "] ";
    std::fprintf(stderr, "\r%s%lld/%lld frames  %.1f frames/s\033[K", bar.c_str(),
                 static_cast<long long>(frames), static_cast<long long>(total_), fps);
  } else {
    std::fprintf(stderr, "\r%lld frames  %.1f frames/s\033[K", static_cast<long long>(frames), fps);
  }
  std::fflush(stderr);
  drawn_ = true;
}

void Progress::finish() {
  if (!enabled_) return;
  enabled_ = false;
  draw(frames_);
  std::fputc('\n', stderr);
}

}  // namespace vhtool
