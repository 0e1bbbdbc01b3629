// Soak run: pushes 1,000,003 frames through one handle (across the frame
// counter's wrap from 1,000,000 to 1) and checks that
//   - the fused output keeps matching a fresh handle: every kCheckEvery
//     frames, at the wrap and at a sample of the frames that moved or follow
//     one that did, a new handle is primed with frame n - 1, given the
//     long-lived handle's applied shift (lastDx, lastDy: the only state that
//     carries from one frame pair to the next), and fed frame n; its output
//     must equal the long-lived handle's byte for byte;
//   - the history buffers keep alternating by counter parity across the wrap;
//   - fusion and the motion search really are in the path: it counts the
//     frames the fusion changed and the frames that went out with a non-zero
//     applied shift, and fails when either count is 0;
//   - resident memory stays flat (read from /proc/self/statm).
// Not a unit test: it runs for minutes. Prints its figures; exits 1 on a mismatch.
// Usage: videohdr_soak [FRAMES]
#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "log_sink.h"
#include "videohdr.h"

namespace {

// Small, but wide enough for the motion search; every pyramid level's width
// is a multiple of 4.
constexpr int32_t kWidth = 1056, kHeight = 64, kStride = 1056, kScanline = 64;
constexpr size_t kFrameBytes = size_t(kStride) * kScanline + size_t(kStride) * kHeight / 2;
constexpr long kCheckEvery = 50000;
constexpr long kFirstAfterWrap = 1000000;  // frame index whose counter is 1,000,000

void quiet(int, const char *, const char *) {}

long residentKiB() {
  long pages = 0, resident = 0;
  FILE *f = std::fopen("/proc/self/statm", "r");
  if (!f) return -1;
  if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = -1;
  std::fclose(f);
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// A textured scene that drifts slowly (a few pixels over hundreds of frames)
// in steps of two pixels (which the motion search can find and its shift
// filter lets through from rest) and alternates between a bright and a dark
// exposure. Both exposures and the chroma are made once, so that a frame is a few row copies.
class Scene {
 public:
  Scene() : exposures_{std::vector<uint8_t>(kTexW * kTexH), std::vector<uint8_t>(kTexW * kTexH)} {
    uint32_t s = 12345;
    for (int32_t y = 0; y < kTexH; ++y)
      for (int32_t x = 0; x < kTexW; ++x) {
        s = s * 1664525u + 1013904223u;
        const int v = ((x / 24 + y / 12) % 2) * 120 + ((x * 3 + y * 5) % 90) + int(s >> 29);
        const uint8_t texel = uint8_t(v > 255 ? 255 : v);
        exposures_[0][y * kTexW + x] = uint8_t(texel / 2 + 127);
        exposures_[1][y * kTexW + x] = uint8_t(texel / 2);
      }
    chroma_.resize(size_t(kStride) * kHeight / 2);
    for (size_t i = 0; i < chroma_.size(); ++i) chroma_[i] = uint8_t(112 + (i * 7) % 32);
  }
  void frame(long n, std::vector<uint8_t> &out) const {
    const int32_t ox = 2 * int32_t((n / 97) % 8), oy = 2 * int32_t((n / 131) % 4);
    const std::vector<uint8_t> &texture = exposures_[n & 1];
    for (int32_t y = 0; y < kHeight; ++y)
      std::memcpy(&out[size_t(y) * kStride], &texture[(y + oy) * kTexW + ox], kWidth);
    std::memcpy(&out[size_t(kStride) * kScanline], chroma_.data(), chroma_.size());
  }

 private:
  static constexpr int32_t kTexW = kWidth + 16, kTexH = kHeight + 8;
  std::vector<uint8_t> exposures_[2];
  std::vector<uint8_t> chroma_;
};

// Primes a new handle with frame n - 1, gives it the shift the long-lived
// handle had applied before frame n, feeds frame n and compares the result.
// That is a complete account of the state one frame pair hands to the next:
// the history buffer holds frame n - 1 as it came in (not its fused output),
// the search starts afresh from the two frames' bitmaps, only its shift
// filter looks back (at lastDx, lastDy), and the fusion context's planes are
// rewritten for every frame. Anything else carried over (a plane region read
// before it is written, a counter, a stale table) shows up as a difference.
bool freshHandleAgrees(const Scene &scene, long n, int32_t lastDx, int32_t lastDy,
                       const std::vector<uint8_t> &expected) {
  std::vector<uint8_t> prev(kFrameBytes), cur(kFrameBytes);
  scene.frame(n - 1, prev);
  scene.frame(n, cur);
  VideoHdrHandle *fresh = createVideoHdrHandle();
  Video_HDR_Process(fresh, prev.data(), 0, 0, kWidth, kHeight, kStride, kScanline);
  fresh->alignContext->lastDx = lastDx;
  fresh->alignContext->lastDy = lastDy;
  Video_HDR_Process(fresh, cur.data(), 0, 0, kWidth, kHeight, kStride, kScanline);
  destroyVideoHdrHandle(fresh);
  return cur == expected;
}

}  // namespace

int main(int argc, char **argv) {
  const long frames = argc > 1 ? std::atol(argv[1]) : kFirstAfterWrap + 3;
  videohdr::setLogSink(quiet);
  // A fixed threshold keeps glibc from raising it after the first large free:
  // the fresh handles' blocks then go back to the system when destroyed, and
  // the resident figure shows the long-lived handle alone.
  mallopt(M_MMAP_THRESHOLD, 256 * 1024);
  Scene scene;
  std::vector<uint8_t> input(kFrameBytes), frame(kFrameBytes);
  VideoHdrHandle *h = createVideoHdrHandle();
  const auto start = std::chrono::steady_clock::now();
  long rssStart = residentKiB(), rssWarm = 0, rssPeak = 0, checks = 0, failures = 0;
  long fusedFrames = 0, shiftedFrames = 0;
  for (long n = 0; n < frames; ++n) {
    scene.frame(n, input);
    frame = input;
    const int32_t counter = h->frameCount;
    const int32_t lastDx = h->alignContext ? h->alignContext->lastDx : 0;
    const int32_t lastDy = h->alignContext ? h->alignContext->lastDy : 0;
    if (Video_HDR_Process(h, frame.data(), 0, 0, kWidth, kHeight, kStride, kScanline) != 1) {
      std::printf("frame %ld refused\n", n);
      return 1;
    }
    // Frame n lands in buffer 1 at odd counters, in buffer 0 at even ones
    // (the first frame, at counter 0, primes buffer 0).
    const uint8_t *landed = (counter & 1) ? h->frameBuf1 : h->frameBuf0;
    if (std::memcmp(landed, input.data(), size_t(kStride) * kHeight) != 0) {
      std::printf("frame %ld (counter %d) is not in history buffer %d\n", n, counter, counter & 1);
      ++failures;
    }
    if (n > 0 && frame != input) ++fusedFrames;
    if (n > 0 && (h->alignContext->lastDx != 0 || h->alignContext->lastDy != 0)) ++shiftedFrames;
    const bool nearWrap = n >= kFirstAfterWrap - 2 && n <= kFirstAfterWrap + 2;
    // Frames that moved, or came after one that did, are the ones whose
    // result depends on the carried shift: those in the first 100 of every
    // 1,000 frames are checked too (a fresh handle costs some 15 frames).
    const bool moving =
        lastDx != 0 || lastDy != 0 || h->alignContext->lastDx != 0 || h->alignContext->lastDy != 0;
    const bool sampledMove = moving && n % 1000 < 100;
    if (n > 0 && (n % kCheckEvery == 0 || nearWrap || sampledMove)) {
      ++checks;
      if (!freshHandleAgrees(scene, n, lastDx, lastDy, frame)) {
        std::printf("frame %ld (counter %d): output differs from a fresh handle's\n", n, counter);
        ++failures;
      }
    }
    if (n % 10000 == 0) {
      const long rss = residentKiB();
      if (n == 100000) rssWarm = rss;
      if (rss > rssPeak) rssPeak = rss;
    }
  }
  const int32_t finalCount = h->frameCount;
  destroyVideoHdrHandle(h);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const long rssEnd = residentKiB();
  std::printf("frames %ld in %.1f s (%.1f us/frame), final counter %d\n", frames, seconds,
              1e6 * seconds / double(frames), finalCount);
  std::printf("resident KiB: start %ld, after 100000 frames %ld, peak %ld, end %ld\n", rssStart,
              rssWarm, rssPeak, rssEnd);
  std::printf("fresh-handle comparisons %ld, failures %ld\n", checks, failures);
  std::printf("frames changed by fusion %ld, frames with a non-zero shift %ld\n", fusedFrames,
              shiftedFrames);
  if (fusedFrames == 0 || shiftedFrames == 0) {
    std::printf("fusion or the motion search never acted\n");
    ++failures;
  }
  // Flat: no growth past the warm-up beyond noise (1 MiB).
  const bool flat = rssPeak - rssWarm <= 1024;
  if (!flat) std::printf("resident memory grew by %ld KiB\n", rssPeak - rssWarm);
  return failures == 0 && flat ? 0 : 1;
}
