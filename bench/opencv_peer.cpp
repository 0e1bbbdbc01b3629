// The peer: OpenCV's median-threshold-bitmap alignment and Mertens exposure
// fusion on one thread, given the same two NV21 frames as the per-frame call.
// Per iteration: both frames to BGR (Mertens takes colour images, not NV21),
// the shift from the two luma planes, the previous frame moved by it, the
// fusion, and the result back to 8 bits. The conversion back to NV21 is left
// out (OpenCV has none from BGR), which favours the peer slightly.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/photo.hpp>

#include "peer.h"
#include "scene.h"

namespace videohdr_bench {
namespace {

struct Nv21Mats {
  cv::Mat luma;
  cv::Mat chroma;
};

Nv21Mats wrap(const Geometry &g, std::vector<uint8_t> &frame) {
  return {cv::Mat(g.height, g.width, CV_8UC1, frame.data(), g.stride),
          cv::Mat(g.height / 2, g.width / 2, CV_8UC2, frame.data() + g.chromaOffset(), g.stride)};
}

void alignAndMerge(benchmark::State &state, int32_t width, int32_t height) {
  cv::setNumThreads(1);
  const Geometry g = cameraGeometry(width, height);
  // Frames 1 (dark) and 2 (bright, the camera moved on) of the handheld scene.
  const std::unique_ptr<Scene> scene = makeHandheldScene(g);
  std::vector<uint8_t> previousFrame(g.frameBytes()), currentFrame(g.frameBytes());
  scene->render(1, previousFrame.data());
  scene->render(2, currentFrame.data());
  Nv21Mats previous = wrap(g, previousFrame), current = wrap(g, currentFrame);
  cv::Ptr<cv::AlignMTB> align = cv::createAlignMTB();
  cv::Ptr<cv::MergeMertens> merge = cv::createMergeMertens();
  cv::Mat previousBgr, currentBgr, moved, fused, out;
  for (auto _ : state) {
    cv::cvtColorTwoPlane(previous.luma, previous.chroma, previousBgr, cv::COLOR_YUV2BGR_NV21);
    cv::cvtColorTwoPlane(current.luma, current.chroma, currentBgr, cv::COLOR_YUV2BGR_NV21);
    cv::Point shift = align->calculateShift(current.luma, previous.luma);
    align->shiftMat(previousBgr, moved, shift);
    std::vector<cv::Mat> pair = {currentBgr, moved};
    merge->process(pair, fused);
    fused.convertTo(out, CV_8U, 255.0);
    benchmark::DoNotOptimize(out.data);
  }
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

}  // namespace

PeerFunction peerBenchmark() { return alignAndMerge; }
const char *peerName() { return "opencv_mtb_mertens"; }

}  // namespace videohdr_bench
