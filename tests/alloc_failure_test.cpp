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

#include "log_sink.h"
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

// Runs `scenario` with the n-th allocation failing, for n = 1, 2, ... while
// there is an n-th, first that one only, then it and every later one; the
// scenario answers whether the failure showed, which it must unless a
// zero-byte block was refused. The library keeps no state across handles, so
// `worksAgain` is checked after every run.
template <typename Scenario, typename Check>
void failEach(Scenario scenario, Check worksAgain) {
  for (const bool failRest : {false, true}) {
    for (long n = 1;; ++n) {
      SCOPED_TRACE(testing::Message() << "allocation " << n << (failRest ? " and on" : " only"));
      g = {true, 0, n, failRest};
      const bool showed = scenario();
      g.armed = false;
      if (g.refused == 0) break;
      EXPECT_EQ(g.live, 0) << "blocks left allocated";
      EXPECT_EQ(showed, g.firstRefusedBytes > 0) << "a failure not noticed";
      worksAgain();
    }
  }
}

// The frames after the handle calls, or after a new plane state given them
// from `first` on (the earlier ones unchanged), without failures.
std::vector<Frame> handleOutputs() {
  std::vector<Frame> frames = scenes();
  VideoHdrHandle *handle = createVideoHdrHandle();
  for (Frame &f : frames)
    Video_HDR_Process(handle, f.data(), 0, 0, kWidth, kHeight, kWidth, kHeight);
  destroyVideoHdrHandle(handle);
  return frames;
}
std::vector<int32_t> processPlanes(VideoHdrPlanes *state, std::vector<Frame> &frames, int first) {
  std::vector<int32_t> statuses;
  for (int n = first; n < kFrames; ++n) {
    uint8_t *y = frames[n].data(), *uv = y + kWidth * kHeight;
    statuses.push_back(
        videohdr_planes_process(state, y, kWidth, uv, uv + 1, kWidth, 2, kWidth, kHeight, nullptr));
  }
  return statuses;
}
std::vector<Frame> planesOutputs(int first) {
  std::vector<Frame> frames = scenes();
  VideoHdrPlanes *state = nullptr;
  videohdr_planes_create(kWidth, kHeight, &state);
  processPlanes(state, frames, first);
  videohdr_planes_destroy(state);
  return frames;
}

class AllocationFailure : public ::testing::Test {
 protected:
  void SetUp() override { videohdr::setLogSink(discard); }
  void TearDown() override { videohdr::setLogSink(nullptr); }
};

// Create answers null; a first frame that could not make a context primes
// the handle all the same, and the handle then goes on without it: frames
// unfused without the fusion context (refused when no context at all was
// made), unaligned (here: the same bytes) without the alignment.
TEST_F(AllocationFailure, HandleCalls) {
  const std::vector<Frame> healthy = handleOutputs();
  bool seen[4] = {};  // create, alignment records, workspace, fusion context failed
  const auto scenario = [&] {
    std::vector<Frame> frames = scenes();
    VideoHdrHandle *handle = createVideoHdrHandle();
    if (!handle) return seen[0] = true;
    int32_t answers[kFrames];
    for (int f = 0; f < kFrames; ++f)
      answers[f] =
          Video_HDR_Process(handle, frames[f].data(), 0, 0, kWidth, kHeight, kWidth, kHeight);
    const bool noAlignment = !handle->alignContext, noFusion = !handle->fusionContext;
    const bool noWorkspace = !noAlignment && !handle->alignContext->workBuf;
    EXPECT_EQ(destroyVideoHdrHandle(handle), 1);
    EXPECT_EQ(answers[0], 1);
    EXPECT_EQ(frames[0], scenes()[0]);
    for (int f = 1; f < kFrames; ++f) {
      EXPECT_EQ(answers[f], noAlignment && noFusion ? 0 : 1) << "frame " << f;
      EXPECT_EQ(frames[f], noFusion ? scenes()[f] : healthy[f]) << "frame " << f;
    }
    seen[1] |= noAlignment, seen[2] |= noWorkspace, seen[3] |= noFusion;
    return noAlignment || noWorkspace || noFusion;
  };
  failEach(scenario, [&] { EXPECT_EQ(handleOutputs(), healthy) << "a new handle"; });
  for (int k = 0; k < 4; ++k) EXPECT_TRUE(seen[k]) << "failure kind " << k << " never reached";
}

// Create answers ERR_OUT_OF_MEMORY with *planes untouched; a first frame that
// could not make everything is REFUSED and unchanged, and the next frame is a
// first frame again: primed, then fused as by a new state.
TEST_F(AllocationFailure, PlaneEntry) {
  std::vector<std::vector<Frame>> fused;  // by the frame that primed the state
  for (int first = 0; first <= kFrames; ++first) fused.push_back(planesOutputs(first));
  bool createFailed = false, frameRefused = false;
  const auto scenario = [&] {
    std::vector<Frame> frames = scenes();
    VideoHdrPlanes *const untouched = reinterpret_cast<VideoHdrPlanes *>(&frames);
    VideoHdrPlanes *state = untouched;
    const int32_t created = videohdr_planes_create(kWidth, kHeight, &state);
    if (created != VIDEOHDR_PLANES_OK) {
      EXPECT_EQ(created, VIDEOHDR_PLANES_ERR_OUT_OF_MEMORY);
      EXPECT_EQ(state, untouched);
      return createFailed = true;
    }
    const std::vector<int32_t> statuses = processPlanes(state, frames, 0);
    videohdr_planes_destroy(state);
    int first = 0;
    while (first < kFrames && statuses[first] == VIDEOHDR_PLANES_REFUSED) ++first;
    for (int f = 0; f < kFrames; ++f) {
      EXPECT_EQ(statuses[f], f < first    ? VIDEOHDR_PLANES_REFUSED
                             : f == first ? VIDEOHDR_PLANES_PRIMED
                                          : VIDEOHDR_PLANES_PROCESSED)
          << "frame " << f;
      EXPECT_EQ(frames[f], fused[first][f]) << "frame " << f;
    }
    frameRefused |= first > 0;
    return first > 0;
  };
  failEach(scenario, [&] { EXPECT_EQ(planesOutputs(0), fused[0]) << "a new state"; });
  EXPECT_TRUE(createFailed);
  EXPECT_TRUE(frameRefused);
}

}  // namespace
