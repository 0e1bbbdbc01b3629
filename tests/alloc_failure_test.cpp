// Allocation failure, as on a phone under memory pressure: the n-th
// allocation fails (that one only, or it and every later one) for n = 1, 2,
// ... through every allocation that creating a handle or a camera-plane
// state, its first frames and destroying it make. Each failure must get the
// header's answer, leave nothing allocated and let a new handle or state
// work; and each allocation must be one the library checks (a zero-byte one
// may answer null without failing, so that one needs no check).
//
// The program is linked with --wrap for the C allocator: the library's calls,
// from the static archive, come through here. Under AddressSanitizer
// __real_malloc is the sanitizer's, so LeakSanitizer checks the program at
// exit too; each run is checked on its own by counting the blocks it made and
// did not free.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "hdr_log.h"
#include "videohdr.h"
#include "videohdr_planes.h"

namespace {

struct Injection {
  bool armed = false;
  long seen = 0;          // allocations asked for while armed
  long failAt = 0;        // the first one refused (counting from 1)
  bool failRest = false;  // and every one after it
  long refused = 0;
  size_t firstRefusedBytes = 0;
  long live = 0;  // blocks allocated while armed and not freed
} g;

bool refuse(size_t bytes) {
  if (!g.armed) return false;
  ++g.seen;
  const bool fail = g.seen == g.failAt || (g.failRest && g.seen > g.failAt);
  if (fail && g.refused++ == 0) g.firstRefusedBytes = bytes;
  return fail;
}

void *counted(void *p) {
  if (p && g.armed) ++g.live;
  return p;
}

}  // namespace

extern "C" {
void *__real_malloc(size_t bytes);
void *__real_calloc(size_t count, size_t bytes);
void *__real_realloc(void *p, size_t bytes);
void __real_free(void *p);

void *__wrap_malloc(size_t bytes) {
  return refuse(bytes) ? nullptr : counted(__real_malloc(bytes));
}
void *__wrap_calloc(size_t count, size_t bytes) {
  return refuse(count * bytes) ? nullptr : counted(__real_calloc(count, bytes));
}
// A block that grows or moves is still one block.
void *__wrap_realloc(void *p, size_t bytes) {
  if (refuse(bytes)) return nullptr;
  return p ? __real_realloc(p, bytes) : counted(__real_realloc(p, bytes));
}
void __wrap_free(void *p) {
  if (p && g.armed) --g.live;
  __real_free(p);
}
}  // extern "C"

namespace {

// Narrower than the motion search: frames are fused unmoved whether or not
// the alignment could be set up, so a handle without it still gives the
// healthy bytes.
constexpr int32_t kWidth = 64, kHeight = 32;
constexpr int kFrames = 3;
using Frame = std::vector<uint8_t>;

// Packed NV12 frames of a texture moving a pixel a frame, a stop darker on odd frames.
std::vector<Frame> scenes() {
  std::vector<Frame> frames;
  for (int n = 0; n < kFrames; ++n) {
    Frame f(size_t{kWidth} * kHeight * 3 / 2);
    for (size_t i = 0; i < f.size(); ++i) {
      const size_t x = i % kWidth + n, y = i / kWidth;
      const int v = int((x * 37 + y * 11) % 200 + (x / 8 + y / 8) % 2 * 40);
      f[i] = uint8_t(n % 2 ? v / 2 : v);
    }
    frames.push_back(f);
  }
  return frames;
}

void discard(int, const char *, const char *) {}

class AllocationFailure : public ::testing::Test {
 protected:
  void SetUp() override { videohdr::setLogSink(discard); }
  void TearDown() override { videohdr::setLogSink(nullptr); }

  static void arm(long failAt, bool failRest) {
    g = {};
    g.failAt = failAt;
    g.failRest = failRest;
    g.armed = true;
  }
  // Ends the injection; false when n was past the last allocation.
  static bool disarm() {
    g.armed = false;
    EXPECT_EQ(g.live, 0) << "blocks left allocated";
    return g.refused > 0;
  }
  // Whether the failure should show: anything but a zero-byte block.
  static bool mustShow() { return g.firstRefusedBytes > 0; }

  // What the handle calls give in a healthy run, and the outputs of a new
  // plane state given the frames from `first` on.
  static std::vector<Frame> handleOutputs() {
    std::vector<Frame> frames = scenes();
    VideoHdrHandle *handle = createVideoHdrHandle();
    for (Frame &f : frames)
      Video_HDR_Process(handle, f.data(), 0, 0, kWidth, kHeight, kWidth, kHeight);
    destroyVideoHdrHandle(handle);
    return frames;
  }
  static std::vector<int32_t> processPlanes(VideoHdrPlanes *state, std::vector<Frame> &frames,
                                            int first) {
    std::vector<int32_t> statuses;
    for (int n = first; n < kFrames; ++n) {
      uint8_t *y = frames[n].data(), *uv = y + kWidth * kHeight;
      statuses.push_back(videohdr_planes_process(state, y, kWidth, uv, uv + 1, kWidth, 2, kWidth,
                                                 kHeight, nullptr));
    }
    return statuses;
  }
  static std::vector<Frame> planesOutputs(int first) {
    std::vector<Frame> frames = scenes();
    VideoHdrPlanes *state = nullptr;
    EXPECT_EQ(videohdr_planes_create(kWidth, kHeight, &state), VIDEOHDR_PLANES_OK);
    processPlanes(state, frames, first);
    videohdr_planes_destroy(state);
    return frames;
  }
};

// Create answers null; a first frame that could not make a context primes
// the handle all the same, and the handle then goes on without it: frames
// unfused without the fusion context (refused when no context at all was
// made), unaligned (here: the same bytes) without the alignment.
TEST_F(AllocationFailure, HandleCalls) {
  const std::vector<Frame> healthy = handleOutputs();
  bool seen[4] = {};  // create, alignment records, workspace, fusion context failed
  for (const bool failRest : {false, true}) {
    for (long n = 1;; ++n) {
      SCOPED_TRACE(testing::Message() << "allocation " << n << (failRest ? " and on" : " only"));
      std::vector<Frame> frames = scenes();
      int32_t answers[kFrames] = {};
      arm(n, failRest);
      VideoHdrHandle *handle = createVideoHdrHandle();
      bool missing[4] = {!handle};
      if (handle) {
        for (int f = 0; f < kFrames; ++f)
          answers[f] =
              Video_HDR_Process(handle, frames[f].data(), 0, 0, kWidth, kHeight, kWidth, kHeight);
        missing[1] = !handle->alignContext;
        missing[2] = !missing[1] && !handle->alignContext->workBuf;
        missing[3] = !handle->fusionContext;
        EXPECT_EQ(destroyVideoHdrHandle(handle), 1);
      }
      if (!disarm()) break;
      EXPECT_EQ(missing[0] || missing[1] || missing[2] || missing[3], mustShow());
      for (int k = 0; k < 4; ++k) seen[k] |= missing[k];
      if (!handle) continue;
      EXPECT_EQ(answers[0], 1);
      EXPECT_EQ(frames[0], scenes()[0]);
      for (int f = 1; f < kFrames; ++f) {
        EXPECT_EQ(answers[f], missing[1] && missing[3] ? 0 : 1) << "frame " << f;
        EXPECT_EQ(frames[f], missing[3] ? scenes()[f] : healthy[f]) << "frame " << f;
      }
      EXPECT_EQ(handleOutputs(), healthy) << "a new handle";
    }
  }
  for (int k = 0; k < 4; ++k) EXPECT_TRUE(seen[k]) << "failure kind " << k << " never reached";
}

// Create answers ERR_OUT_OF_MEMORY with *planes untouched; a first frame that
// could not make everything is REFUSED and unchanged, and the next frame is a
// first frame again: primed, then fused as by a new state.
TEST_F(AllocationFailure, PlaneEntry) {
  bool createFailed = false, frameRefused = false;
  for (const bool failRest : {false, true}) {
    for (long n = 1;; ++n) {
      SCOPED_TRACE(testing::Message() << "allocation " << n << (failRest ? " and on" : " only"));
      std::vector<Frame> frames = scenes();
      VideoHdrPlanes *const untouched = reinterpret_cast<VideoHdrPlanes *>(&frames);
      VideoHdrPlanes *state = untouched;
      std::vector<int32_t> statuses;
      arm(n, failRest);
      const int32_t created = videohdr_planes_create(kWidth, kHeight, &state);
      if (created == VIDEOHDR_PLANES_OK) {
        statuses = processPlanes(state, frames, 0);
        videohdr_planes_destroy(state);
      }
      if (!disarm()) break;
      int first = 0;  // the frame that primed the state
      while (first < int(statuses.size()) && statuses[first] == VIDEOHDR_PLANES_REFUSED) ++first;
      EXPECT_EQ(created != VIDEOHDR_PLANES_OK || first > 0, mustShow());
      createFailed |= created != VIDEOHDR_PLANES_OK;
      frameRefused |= first > 0;
      if (created != VIDEOHDR_PLANES_OK) {
        EXPECT_EQ(created, VIDEOHDR_PLANES_ERR_OUT_OF_MEMORY);
        EXPECT_EQ(state, untouched);
        continue;
      }
      const std::vector<Frame> fused = planesOutputs(first);
      for (int f = 0; f < kFrames; ++f) {
        const int32_t expected = f < first    ? VIDEOHDR_PLANES_REFUSED
                                 : f == first ? VIDEOHDR_PLANES_PRIMED
                                              : VIDEOHDR_PLANES_PROCESSED;
        EXPECT_EQ(statuses[f], expected) << "frame " << f;
        EXPECT_EQ(frames[f], f <= first ? scenes()[f] : fused[f]) << "frame " << f;
      }
    }
  }
  EXPECT_TRUE(createFailed);
  EXPECT_TRUE(frameRefused);
}

}  // namespace
