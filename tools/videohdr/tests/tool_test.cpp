// End to end: the built videohdr program run on small generated clips, its
// output compared with what the library produces when called directly.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "log_sink.h"
#include "videohdr.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

struct Layout {
  int width, height, stride, scanline;
  size_t chromaOffset() const { return static_cast<size_t>(stride) * scanline; }
  size_t frameBytes() const { return chromaOffset() + static_cast<size_t>(stride) * height / 2; }
  // Luma rows, then the chroma rows.
  size_t rowOffset(int r) const {
    return (r < height ? 0 : chromaOffset() - static_cast<size_t>(stride) * height) +
           static_cast<size_t>(r) * stride;
  }
};

Layout packed(int width, int height) { return {width, height, width, height}; }

// Frames of a textured scene moving two pixels a frame, even frames bright and
// odd frames dark; padding bytes hold 0xA5.
std::vector<Bytes> makeFrames(const Layout &l, int count) {
  std::vector<Bytes> frames;
  for (int n = 0; n < count; ++n) {
    Bytes f(l.frameBytes(), 0xA5);
    for (int y = 0; y < l.height; ++y) {
      for (int x = 0; x < l.width; ++x) {
        const int sx = x + 2 * n;
        const int v = 60 + ((sx / 9 + y / 7) % 2) * 60 + ((sx * 5 + y * 3) % 23);
        f[static_cast<size_t>(y) * l.stride + x] =
            static_cast<uint8_t>(n % 2 ? v / 2 : std::min(255, v * 2));
      }
    }
    for (int r = 0; r < l.height / 2; ++r) {
      for (int x = 0; x < l.width; ++x) {
        f[l.chromaOffset() + static_cast<size_t>(r) * l.stride + x] =
            static_cast<uint8_t>(x % 2 ? 100 + r % 40 : 150 - n);
      }
    }
    frames.push_back(f);
  }
  return frames;
}

// The library called directly, as the tool should call it.
std::vector<Bytes> libraryOutput(const std::vector<Bytes> &frames, const Layout &l) {
  videohdr::setLogSink([](int, const char *, const char *) {});
  VideoHdrHandle *handle = Video_HDR_Initial();
  std::vector<Bytes> out;
  for (size_t n = 0; n < frames.size(); ++n) {
    Bytes buffer = frames[n];
    Video_HDR_Process(handle, buffer.data(), static_cast<int32_t>(n), 1, l.width, l.height,
                      l.stride, l.scanline);
    out.push_back(buffer);
  }
  Video_HDR_Release(handle);
  videohdr::setLogSink(nullptr);
  return out;
}

Bytes swapChroma(Bytes frame, const Layout &l) {
  for (size_t i = l.chromaOffset(); i + 1 < l.frameBytes(); i += 2) {
    std::swap(frame[i], frame[i + 1]);
  }
  return frame;
}

// A frame of `l` whose chroma pairs are U first (V first when `vFirst`) as
// the packed bytes of `format`: "nv12", "nv21" or "i420".
std::string packedAs(const Bytes &f, const Layout &l, bool vFirst, const std::string &format) {
  std::string y, u, v;
  for (int r = 0; r < l.height; ++r) y.append(&f[l.rowOffset(r)], &f[l.rowOffset(r) + l.width]);
  for (int r = l.height; r < l.height * 3 / 2; ++r) {
    for (int c = 0; c < l.width; c += 2) {
      u.push_back(static_cast<char>(f[l.rowOffset(r) + c + vFirst]));
      v.push_back(static_cast<char>(f[l.rowOffset(r) + c + !vFirst]));
    }
  }
  if (format == "i420") return y + u + v;
  for (size_t i = 0; i < u.size(); ++i)
    y += format == "nv12" ? u.substr(i, 1) + v[i] : v.substr(i, 1) + u[i];
  return y;
}

std::string y4mFrame(const Bytes &nv12, const Layout &l, const std::string &params = "") {
  return "FRAME" + params + "\n" + packedAs(nv12, l, false, "i420");
}

std::string y4mStream(const std::string &header, const std::vector<Bytes> &frames,
                      const Layout &l) {
  std::string s = header + "\n";
  for (const Bytes &f : frames) s += y4mFrame(f, l);
  return s;
}

std::string rawStream(const std::vector<Bytes> &frames) {
  std::string s;
  for (const Bytes &f : frames) s.append(f.begin(), f.end());
  return s;
}

std::string y4mHeader(const Layout &l, const std::string &tags = "F30:1 Ip A1:1 C420jpeg") {
  return "YUV4MPEG2 W" + std::to_string(l.width) + " H" + std::to_string(l.height) + " " + tags;
}

std::string readFile(const fs::path &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void writeFile(const fs::path &path, const std::string &bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::vector<std::string> csvRows(const fs::path &path) {
  std::vector<std::string> rows;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) rows.push_back(line);
  return rows;
}

std::vector<std::string> csvFields(const std::string &row) {
  std::vector<std::string> fields;
  std::stringstream s(row);
  for (std::string f; std::getline(s, f, ',');) fields.push_back(f);
  if (!row.empty() && row.back() == ',') fields.push_back("");
  return fields;
}

struct Result {
  int status = -1;
  std::string err;
};

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/videohdr_tool_test_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { fs::remove_all(dir_); }

  fs::path path(const std::string &name) const { return dir_ / name; }

  // Runs the tool with `args` (standard input from `input` when given).
  Result run(const std::string &args, const std::string &input = "") const {
    const fs::path err = path("stderr.txt");
    std::string command = std::string("'") + VIDEOHDR_TOOL_PATH + "' " + args;
    if (!input.empty()) command += " < '" + input + "'";
    command += " 2> '" + err.string() + "'";
    const int status = std::system(command.c_str());
    Result r;
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.err = readFile(err);
    return r;
  }

  // The tool on `stream` (written to in.y4m) with `args`; out.y4m afterwards.
  Result runY4m(const std::string &stream, const std::string &args = "") const {
    writeFile(path("in.y4m"), stream);
    return run("'" + path("in.y4m").string() + "' -o '" + path("out.y4m").string() + "' " + args);
  }

  fs::path dir_;
};

const Layout kWide = packed(1040, 48);  // wide enough for the motion search

TEST_F(ToolTest, Y4mOutputIsTheLibraryOutputWithTheHeaderKept) {
  const auto frames = makeFrames(kWide, 5);
  const std::string header = y4mHeader(kWide, "F25:1 Ip A4:3 C420mpeg2 XYSCSS=420MPEG2 XFOO=bar");
  const Result r = runY4m(y4mStream(header, frames, kWide));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");  // quiet when stderr is not a terminal
  const auto expected = libraryOutput(frames, kWide);
  EXPECT_EQ(expected[0], frames[0]);  // the first frame only primes the handle
  EXPECT_EQ(readFile(path("out.y4m")), y4mStream(header, expected, kWide));
}

TEST_F(ToolTest, LibraryLogLinesOnlyWhenAskedFor) {
  const auto frames = makeFrames(kWide, 3);
  const Result r = runY4m(y4mStream(y4mHeader(kWide), frames, kWide), "--log");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err,
            "4/VideoHDR: TQ0530 V_HDR Process 0..., 48\n"
            "4/VideoHDR: TQ0530 V_HDR Process 1..., 48\n"
            "4/VideoHDR: V_HDR Process Successfully 2\n"
            "4/VideoHDR: TQ0530 V_HDR Process 2..., 48\n"
            "4/VideoHDR: V_HDR Process Successfully 3\n");
}

TEST_F(ToolTest, Y4mAcceptsEveryFourTwoZeroSiting) {
  const Layout l = packed(1040, 32);
  const auto frames = makeFrames(l, 2);
  const auto expected = libraryOutput(frames, l);
  for (const std::string tags : {"C420", "C420jpeg", "C420paldv", "C420mpeg2", "F30:1"}) {
    const Result r = runY4m(y4mStream(y4mHeader(l, tags), frames, l));
    ASSERT_EQ(r.status, 0) << tags << ": " << r.err;
    EXPECT_EQ(readFile(path("out.y4m")), y4mStream(y4mHeader(l, tags), expected, l)) << tags;
  }
}

TEST_F(ToolTest, FrameHeaderParametersPassThrough) {
  const auto frames = makeFrames(kWide, 2);
  const auto expected = libraryOutput(frames, kWide);
  const std::string header = y4mHeader(kWide);
  const Result r = runY4m(header + "\n" + y4mFrame(frames[0], kWide, " Ixyz") +
                          y4mFrame(frames[1], kWide, " XA=1"));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(readFile(path("out.y4m")), header + "\n" + y4mFrame(expected[0], kWide, " Ixyz") +
                                           y4mFrame(expected[1], kWide, " XA=1"));
}

TEST_F(ToolTest, RawNv12AndNv21) {
  const auto frames = makeFrames(kWide, 4);
  const auto expected = libraryOutput(frames, kWide);
  writeFile(path("in.nv12"), rawStream(frames));
  Result r = run(path("in.nv12").string() + " --size 1040x48 -o " + path("out.nv12").string());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(readFile(path("out.nv12")), rawStream(expected));

  std::vector<Bytes> nv21, nv21Expected;
  for (const Bytes &f : frames) nv21.push_back(swapChroma(f, kWide));
  nv21Expected = libraryOutput(nv21, kWide);
  writeFile(path("in.nv21"), rawStream(nv21));
  r = run(path("in.nv21").string() + " --size 1040x48 --format nv21 -o " +
          path("out.nv21").string());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(readFile(path("out.nv21")), rawStream(nv21Expected));
}

TEST_F(ToolTest, RawPaddedCameraBuffersKeepTheirPadding) {
  const Layout l = {1040, 48, 1040, 56};
  const auto frames = makeFrames(l, 3);
  const auto expected = libraryOutput(frames, l);
  writeFile(path("in.nv12"), rawStream(frames));
  const Result r = run(path("in.nv12").string() + " --size 1040x48 --scanline 56 -o " +
                       path("out.nv12").string());
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string out = readFile(path("out.nv12"));
  EXPECT_EQ(out, rawStream(expected));
  EXPECT_EQ(static_cast<uint8_t>(out[l.width * l.height]), 0xA5);  // first padding row
}

// `into` with the pixels of `from`; its padding stays.
Bytes withPixels(const Bytes &from, const Layout &lf, Bytes into, const Layout &li) {
  for (int r = 0; r < lf.height * 3 / 2; ++r)
    std::copy_n(from.begin() + lf.rowOffset(r), lf.width, into.begin() + li.rowOffset(r));
  return into;
}

// Padded frames reach the library packed, so they align as packed frames do:
// the same pixels and shifts, the padding untouched.
TEST_F(ToolTest, PaddedFramesGiveThePackedOutput) {
  const Layout l = kWide, padded = {1040, 48, 1104, 56};
  const auto frames = makeFrames(l, 4);
  const auto expected = libraryOutput(frames, l);
  const Result y4m = runY4m(y4mStream(y4mHeader(l), frames, l),
                            "--stats " + path("p.csv").string() + " --stride 1104 --scanline 56");
  ASSERT_EQ(y4m.status, 0) << y4m.err;
  EXPECT_EQ(readFile(path("out.y4m")), y4mStream(y4mHeader(l), expected, l));
  ASSERT_EQ(runY4m(y4mStream(y4mHeader(l), frames, l), "--stats " + path("s.csv").string()).status,
            0);
  const auto paddedStats = csvRows(path("p.csv")), stats = csvRows(path("s.csv"));
  ASSERT_EQ(paddedStats.size(), stats.size());
  for (size_t n = 0; n < stats.size(); ++n) {  // every column but the time
    EXPECT_EQ(paddedStats[n].substr(0, paddedStats[n].rfind(',')),
              stats[n].substr(0, stats[n].rfind(',')));
  }

  const auto paddedFrames = makeFrames(padded, 4);
  std::vector<Bytes> paddedExpected;
  for (size_t n = 0; n < frames.size(); ++n)
    paddedExpected.push_back(withPixels(expected[n], l, paddedFrames[n], padded));
  writeFile(path("in.nv12"), rawStream(paddedFrames));
  const Result raw =
      run(path("in.nv12").string() + " --size 1040x48 --stride 1104 --scanline 56 -o " +
          path("out.nv12").string());
  ASSERT_EQ(raw.status, 0) << raw.err;
  EXPECT_EQ(raw.err, "");
  EXPECT_EQ(readFile(path("out.nv12")), rawStream(paddedExpected));
}

// Every input (Y4M, padded raw NV21, raw I420) into every --out-format: the
// C call's output on the input's pixels, converted sample by sample. Only a
// raw output of the input's own format keeps its padding.
TEST_F(ToolTest, EachOutFormatIsTheLibraryOutputConverted) {
  const Layout padded = {1040, 48, 1104, 56};
  const auto nv12 = makeFrames(kWide, 3), blank = makeFrames(padded, 3);
  std::vector<Bytes> nv21;
  for (const Bytes &f : nv12) nv21.push_back(swapChroma(f, kWide));
  const auto fused12 = libraryOutput(nv12, kWide), fused21 = libraryOutput(nv21, kWide);
  std::string i420, paddedNv21, paddedFused21;
  for (size_t n = 0; n < nv12.size(); ++n) {
    i420 += packedAs(nv12[n], kWide, false, "i420");
    paddedNv21 += rawStream({withPixels(nv21[n], kWide, blank[n], padded)});
    paddedFused21 += rawStream({withPixels(fused21[n], kWide, blank[n], padded)});
  }
  struct Input {
    std::string format, args, stream, header;
    const std::vector<Bytes> &fused;
    bool vFirst;
  };
  const std::string made = y4mHeader(kWide, "F30:1 Ip A1:1 C420jpeg");  // the tool's own
  const Input inputs[] = {{"y4m", "", y4mStream(y4mHeader(kWide, "F25:1 C420mpeg2"), nv12, kWide),
                           y4mHeader(kWide, "F25:1 C420mpeg2"), fused12, false},
                          {"nv21", "--size 1040x48 --format nv21 --stride 1104 --scanline 56",
                           paddedNv21, made, fused21, true},
                          {"i420", "--size 1040x48 --format i420", i420, made, fused12, false}};
  for (const Input &in : inputs) {
    writeFile(path("in"), in.stream);
    for (const std::string out : {"y4m", "nv12", "nv21", "i420"}) {
      const bool y4m = out == "y4m";
      std::string expected = y4m ? in.header + "\n" : "";
      for (const Bytes &f : in.fused)
        expected += (y4m ? "FRAME\n" : "") + packedAs(f, kWide, in.vFirst, y4m ? "i420" : out);
      if (out == "nv21" && in.format == "nv21") expected = paddedFused21;
      const Result r = run(path("in").string() + " " + in.args + " --out-format " + out + " -o " +
                           path("out").string());
      ASSERT_EQ(r.status, 0) << in.format << " to " << out << ": " << r.err;
      EXPECT_EQ(readFile(path("out")), expected) << in.format << " to " << out;
    }
  }
}

TEST_F(ToolTest, StdinToStdout) {
  const auto frames = makeFrames(kWide, 3);
  const std::string header = y4mHeader(kWide);
  writeFile(path("in.y4m"), y4mStream(header, frames, kWide));
  Result r = run("- -o - > '" + path("out.y4m").string() + "'", path("in.y4m").string());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(readFile(path("out.y4m")), y4mStream(header, libraryOutput(frames, kWide), kWide));

  writeFile(path("in.nv12"), rawStream(frames));
  r = run("- --size 1040x48 -o - > '" + path("out.nv12").string() + "'", path("in.nv12").string());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(readFile(path("out.nv12")), rawStream(libraryOutput(frames, kWide)));
}

TEST_F(ToolTest, NarrowFramesRunWithMotionCompensationOff) {
  const Layout l = packed(64, 32);
  const auto frames = makeFrames(l, 3);
  const Result r = runY4m(y4mStream(y4mHeader(l), frames, l));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("warning"), std::string::npos);
  EXPECT_NE(r.err.find("width 64 is below 1032: motion compensation is off"), std::string::npos)
      << r.err;
  EXPECT_EQ(readFile(path("out.y4m")), y4mStream(y4mHeader(l), libraryOutput(frames, l), l));
}

TEST_F(ToolTest, StatsHaveOneRowPerFrameAndASummary) {
  const int count = 6;
  const auto frames = makeFrames(kWide, count);
  const Result r =
      runY4m(y4mStream(y4mHeader(kWide), frames, kWide), "--stats " + path("s.csv").string());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("videohdr: 6 frames, "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find(" ms per frame"), std::string::npos) << r.err;

  // The shifts the library holds after each frame, read from a direct run.
  videohdr::setLogSink([](int, const char *, const char *) {});
  VideoHdrHandle *handle = Video_HDR_Initial();
  const auto rows = csvRows(path("s.csv"));
  ASSERT_EQ(rows.size(), count + 1u);
  EXPECT_EQ(rows[0], "frame,found_dx,found_dy,applied_dx,applied_dy,brighter,ms");
  for (int n = 0; n < count; ++n) {
    Bytes buffer = frames[n];
    Video_HDR_Process(handle, buffer.data(), n, 1, kWide.width, kWide.height, kWide.stride,
                      kWide.scanline);
    const auto f = csvFields(rows[n + 1]);
    ASSERT_EQ(f.size(), 7u) << rows[n + 1];
    EXPECT_EQ(f[0], std::to_string(n));
    EXPECT_GE(std::stod(f[6]), 0.0);
    if (n == 0) {
      EXPECT_EQ(rows[1].substr(0, 7), "0,,,,,,");
      continue;
    }
    const AlignContext *a = handle->alignContext;
    EXPECT_EQ(f[1], std::to_string(a->levelDx[0]));
    EXPECT_EQ(f[2], std::to_string(a->levelDy[0]));
    EXPECT_EQ(f[3], std::to_string(a->lastDx));
    EXPECT_EQ(f[4], std::to_string(a->lastDy));
    // Even frames are the bright exposure.
    EXPECT_EQ(f[5], n % 2 == 0 ? "current" : "previous") << "frame " << n;
  }
  Video_HDR_Release(handle);
  videohdr::setLogSink(nullptr);
}

struct BadInput {
  const char *name;
  std::string stream;
  const char *message;
};

TEST_F(ToolTest, BadY4mHeadersAreRefusedWithOneLine) {
  const std::vector<BadInput> cases = {
      {"empty", "", "in.y4m: empty input"},
      {"not y4m", "RIFF....WAVEfmt \n", "not a Y4M stream"},
      {"no height", "YUV4MPEG2 W64 F30:1\n", "malformed Y4M header: no frame height (H)"},
      {"no width", "YUV4MPEG2 H64\n", "malformed Y4M header: no frame width (W)"},
      {"bad width", "YUV4MPEG2 W6x4 H32\n", "width 'W6x4' is not a positive number"},
      {"binary width", "YUV4MPEG2 W6\x1b[2J H32\n", "width 'W6\\x1B[2J' is not a positive"},
      {"frame rate", "YUV4MPEG2 W64 H32 F30\n", "frame rate 'F30' is not two whole numbers N:D"},
      {"aspect", "YUV4MPEG2 W64 H32 A1:x\n", "pixel aspect 'A1:x' is not two whole numbers"},
      {"zero height", "YUV4MPEG2 W64 H0\n", "height 'H0' is not a positive number"},
      {"no newline", "YUV4MPEG2 W64 H32", "the input ends inside it"},
      {"444", "YUV4MPEG2 W64 H32 C444\n", "chroma format 4:4:4 (C444) is not supported"},
      {"422", "YUV4MPEG2 W64 H32 C422\n", "chroma format 4:2:2 (C422) is not supported"},
      {"mono", "YUV4MPEG2 W64 H32 Cmono\n", "(greyscale) is not supported"},
      {"10 bit", "YUV4MPEG2 W64 H32 C420p10\n", "bit depth 10 (C420p10) is not supported"},
      {"unknown", "YUV4MPEG2 W64 H32 Cxyz\n", "unknown colour space Cxyz"},
      {"odd", "YUV4MPEG2 W63 H32\n", "width 63 is odd: 4:2:0 chroma needs an even width"},
      {"top field first", "YUV4MPEG2 W64 H32 It\n",
       "interlaced Y4M (It: top field first) is not supported: the fields of a frame are not two "
       "exposures"},
      {"bottom field first", "YUV4MPEG2 W64 H32 Ib\n", "interlaced Y4M (Ib: bottom field first)"},
      {"mixed", "YUV4MPEG2 W64 H32 Im\n", "interlaced Y4M (Im: mixed per frame)"},
      {"unknown interlacing", "YUV4MPEG2 W64 H32 Ix\n", "unknown interlacing Ix"},
      {"too large", "YUV4MPEG2 W2560 H1088\n",
       "2560x1088 is outside the library's design: a luma plane of width*height = 2785280 "
       "bytes exceeds 2621440"},
  };
  for (const BadInput &c : cases) {
    const Result r = runY4m(c.stream);
    EXPECT_EQ(r.status, 1) << c.name;
    EXPECT_EQ(r.err.rfind("videohdr: error: ", 0), 0u) << c.name << ": " << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << c.name << ": " << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << c.name << ": " << r.err;
    // Refused before any processing: no output at all.
    EXPECT_FALSE(fs::exists(path("out.y4m"))) << c.name;
  }
}

TEST_F(ToolTest, BadRawGeometryIsRefusedWithTheReason) {
  writeFile(path("in.nv12"), std::string(64 * 48 * 3, '\0'));
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"--size 64x32 --stride 32", "stride 32 is below the width 64"},
      {"--size 64x32 --scanline 30", "scanline 30 is below the height 32"},
      {"--size 2048x1282", "a luma plane of width*height = 2625536 bytes exceeds 2621440"},
      {"--size 1024x1024 --stride 2600", "stride 2600 is more than twice the width 1024"},
      {"--size 64x32 --scanline 70", "scanline 70 is more than twice the height 32"},
      {"--size 64", "--size '64' is not WxH"},
      {"--size 64x31", "height 31 is odd: 4:2:0 chroma needs an even width and height"},
      {"--size 64x32 --format i420 --scanline 40",
       "--stride and --scanline describe nv12 and nv21 frames; i420 frames are read packed"},
  };
  for (const auto &[args, message] : cases) {
    const Result r = run(path("in.nv12").string() + " " + args + " -o " + path("out").string());
    EXPECT_EQ(r.status, 1) << args;
    EXPECT_NE(r.err.find(message), std::string::npos) << args << ": " << r.err;
    EXPECT_FALSE(fs::exists(path("out"))) << args;
  }
}

TEST_F(ToolTest, MissingFilesAndUsageErrors) {
  Result r = run(path("nope.y4m").string() + " -o " + path("out.y4m").string());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(
      r.err.find("cannot open '" + path("nope.y4m").string() + "': No such file or directory"),
      std::string::npos)
      << r.err;

  writeFile(path("in.y4m"), y4mStream(y4mHeader(kWide), makeFrames(kWide, 1), kWide));
  r = run(path("in.y4m").string() + " -o " + path("no/such/dir/out.y4m").string());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("for writing"), std::string::npos) << r.err;

  r = run(path("in.y4m").string() + " -o " + path("in.y4m").string());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("it would be overwritten"), std::string::npos) << r.err;
  for (const auto &[stats, which] : {std::pair{"in.y4m", "input"}, {"out.y4m", "output"}}) {
    r = run(path("in.y4m").string() + " -o " + path("out.y4m").string() + " --stats " +
            path("x/../").string() + stats);  // named another way; out.y4m is not there yet
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find(std::string("is the ") + which + ": it would be overwritten"),
              std::string::npos)
        << r.err;
  }

  r = run(path("in.y4m").string());  // no output
  EXPECT_EQ(r.status, 2);
  const std::pair<const char *, int> usage[] = {
      {" --format yuv", 2}, {" --out-format yuv", 2}, {" --format i420", 1}};  // no --size
  for (const auto &[args, status] : usage) {
    r = run(path("in.y4m").string() + " -o x" + args);
    EXPECT_EQ(r.status, status) << args << ": " << r.err;
  }
}

// Every output is opened before any is emptied: one that cannot be opened
// leaves the others as they were, or not there at all.
TEST_F(ToolTest, AnOutputThatCannotBeOpenedLeavesTheOthersAlone) {
  writeFile(path("in.y4m"), y4mStream(y4mHeader(kWide), makeFrames(kWide, 2), kWide));
  writeFile(path("out.y4m"), "an earlier result");
  const std::string stats = path("no/such/dir/s.csv").string();
  Result r = run(path("in.y4m").string() + " -o " + path("out.y4m").string() + " --stats " + stats);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "videohdr: error: cannot open '" + stats +
                       "' for writing: No such file or directory\n");
  EXPECT_EQ(readFile(path("out.y4m")), "an earlier result");

  r = run(path("in.y4m").string() + " -o " + path("new.y4m").string() + " --stats " + stats);
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(fs::exists(path("new.y4m")));
}

// An empty input is refused in either layout, before any output is opened.
TEST_F(ToolTest, EmptyInputIsAnError) {
  writeFile(path("empty"), "");
  for (const std::string args : {"", " --size 1040x48"}) {
    const Result r = run(path("empty").string() + args + " -o " + path("out").string());
    EXPECT_EQ(r.status, 1) << args;
    EXPECT_EQ(r.err, "videohdr: error: " + path("empty").string() + ": empty input\n") << args;
    EXPECT_FALSE(fs::exists(path("out"))) << args;
  }
}

TEST_F(ToolTest, TruncatedY4mWritesEveryCompleteFrame) {
  const auto frames = makeFrames(kWide, 4);
  const std::string header = y4mHeader(kWide);
  const std::string whole = y4mStream(header, frames, kWide);
  const std::string lastFrame = y4mFrame(frames[3], kWide);
  const auto expected = libraryOutput(frames, kWide);
  const std::vector<Bytes> complete(expected.begin(), expected.begin() + 3);

  // Cut inside the planes, and inside the FRAME line.
  for (size_t cut : {lastFrame.size() / 2, size_t{3}}) {
    const Result r = runY4m(whole.substr(0, whole.size() - lastFrame.size() + cut));
    EXPECT_EQ(r.status, 1) << cut;
    EXPECT_NE(r.err.find("frame 3 is truncated"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("the 3 complete frames before it were written"), std::string::npos);
    EXPECT_EQ(readFile(path("out.y4m")), y4mStream(header, complete, kWide)) << cut;
  }

  // The first or the second frame cut short.
  const size_t frameBytes = y4mFrame(frames[0], kWide).size();
  const size_t start = header.size() + 1;
  Result r = runY4m(whole.substr(0, start + frameBytes + 10), "--stats " + path("s.csv").string());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("frame 1 is truncated (4 of 74880 bytes); the 1 complete frame before it "
                       "was written"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(readFile(path("out.y4m")), y4mStream(header, {expected[0]}, kWide));
  EXPECT_EQ(csvRows(path("s.csv")).size(), 2u);
  fs::remove(path("out.y4m"));
  fs::remove(path("s.csv"));
  r = runY4m(whole.substr(0, start + 100), "--stats " + path("s.csv").string());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("frame 0 is truncated (94 of 74880 bytes); there is no complete frame, "
                       "nothing was written"),
            std::string::npos)
      << r.err;
  EXPECT_FALSE(fs::exists(path("out.y4m")));
  EXPECT_FALSE(fs::exists(path("s.csv")));
}

TEST_F(ToolTest, TruncatedRawAndBrokenFrameHeaders) {
  const auto frames = makeFrames(kWide, 3);
  const auto expected = libraryOutput(frames, kWide);
  std::string raw = rawStream(frames);
  writeFile(path("in.nv12"), raw.substr(0, raw.size() - 100));
  Result r = run(path("in.nv12").string() + " --size 1040x48 -o " + path("out.nv12").string());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("frame 2 is truncated (74780 of 74880 bytes)"), std::string::npos) << r.err;
  EXPECT_EQ(readFile(path("out.nv12")), rawStream({expected[0], expected[1]}));

  const std::string first = y4mStream(y4mHeader(kWide), {frames[0]}, kWide);
  for (const auto &[line, message] :
       {std::pair<std::string, std::string>{"FRAMX\n",
                                            "expected a FRAME line, found 'FRAMX' (a "
                                            "frame of 1040x48 4:2:0 is 74880 bytes)"},
        {"FRAME " + std::string(5000, 'X'), "FRAME line longer than 4096 bytes"}}) {
    r = runY4m(first + line);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("in.y4m: frame 1 at byte 74929: " + message), std::string::npos) << r.err;
  }
}

std::vector<std::string> y4mFrames(const std::string &stream, const Layout &l,
                                   std::string *header) {
  const size_t end = stream.find('\n');
  *header = stream.substr(0, end);
  const size_t frameBytes = static_cast<size_t>(l.width) * l.height * 3 / 2;
  std::vector<std::string> frames;
  for (size_t at = end + 1; at < stream.size();) {
    const size_t data = stream.find('\n', at) + 1;
    frames.push_back(stream.substr(data, frameBytes));
    at = data + frameBytes;
  }
  return frames;
}

TEST_F(ToolTest, MakeClipCutsKnownTranslations) {
  const std::string photos = VIDEOHDR_PHOTOS_DIR;
  const Result r = run("make-clip " + photos + "/OldHouse/OldHouse1.jpg " + photos +
                       "/OldHouse/OldHouse3.jpg -o " + path("clip.y4m").string() +
                       " --frames 5 --shake 6 --shake-csv " + path("shake.csv").string());
  ASSERT_EQ(r.status, 0) << r.err;
  const Layout l = packed(1068, 708);  // 1080x720 less 6 pixels on every side
  std::string header;
  const auto frames = y4mFrames(readFile(path("clip.y4m")), l, &header);
  EXPECT_EQ(header, "YUV4MPEG2 W1068 H708 F30:1 Ip A1:1 C420jpeg");
  ASSERT_EQ(frames.size(), 5u);

  const auto rows = csvRows(path("shake.csv"));
  ASSERT_EQ(rows.size(), 6u);
  EXPECT_EQ(rows[0], "frame,x,y,dx,dy");
  std::vector<int> x, y;
  for (int n = 0; n < 5; ++n) {
    const auto f = csvFields(rows[n + 1]);
    x.push_back(std::stoi(f[1]));
    y.push_back(std::stoi(f[2]));
    if (n > 0) {
      EXPECT_EQ(std::stoi(f[3]), x[n] - x[n - 1]);
      EXPECT_EQ(std::stoi(f[4]), y[n] - y[n - 1]);
    }
  }
  // Frames of one exposure differ only by the translation between their cuts:
  // frame 2's pixel (i, j) is frame 0's pixel (i + dx, j + dy), luma exactly.
  for (int n : {2, 3, 4}) {
    const int dx = x[n] - x[n - 2];
    const int dy = y[n] - y[n - 2];
    int compared = 0;
    for (int j = std::max(0, -dy); j < l.height - std::max(0, dy); j += 7) {
      for (int i = std::max(0, -dx); i < l.width - std::max(0, dx); i += 5) {
        ASSERT_EQ(frames[n][j * l.width + i], frames[n - 2][(j + dy) * l.width + i + dx])
            << "frame " << n << " at " << i << "," << j;
        ++compared;
      }
    }
    EXPECT_GT(compared, 10000);
  }
  // Even frames come from the bright exposure.
  auto meanLuma = [&](const std::string &f) {
    double sum = 0;
    for (int i = 0; i < l.width * l.height; ++i) sum += static_cast<uint8_t>(f[i]);
    return sum / (l.width * l.height);
  };
  EXPECT_GT(meanLuma(frames[0]), meanLuma(frames[1]) + 30);
  EXPECT_GT(meanLuma(frames[2]), meanLuma(frames[3]) + 30);
}

TEST_F(ToolTest, DemoFindsTheSimulatedEvenShifts) {
  // OldHouse's exposures are registered to well under a pixel, so the cut
  // positions are the whole truth about the motion between its frames.
  const Result r =
      run("demo --frames 8 --photos " + std::string(VIDEOHDR_PHOTOS_DIR) + "/OldHouse --out " +
          path("demo").string() + " > " + path("report.txt").string());
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string report = readFile(path("report.txt"));
  EXPECT_NE(report.find("search, even shifts: found exactly in"), std::string::npos) << report;
  EXPECT_NE(report.find("the same shifts in 7 of 7 fused frames, the same pixels in 8 of 8"),
            std::string::npos)
      << report;
  EXPECT_EQ(readFile(path("demo/contact.png")).substr(1, 3), "PNG");
  std::string header;
  const Layout l = packed(1040, 680);
  EXPECT_EQ(y4mFrames(readFile(path("demo/input.y4m")), l, &header).size(), 8u);
  EXPECT_EQ(y4mFrames(readFile(path("demo/output.y4m")), l, &header).size(), 8u);

  const auto stats = csvRows(path("demo/stats.csv"));
  const auto shake = csvRows(path("demo/shake.csv"));
  ASSERT_EQ(stats.size(), 9u);
  ASSERT_EQ(shake.size(), 9u);
  int evenShifts = 0;
  for (int n = 1; n < 8; ++n) {
    const auto s = csvFields(shake[n + 1]);
    const int dx = std::stoi(s[3]), dy = std::stoi(s[4]);
    if (dx % 2 || dy % 2) continue;
    ++evenShifts;
    const auto f = csvFields(stats[n + 1]);
    EXPECT_EQ(f[1] + "," + f[2], s[3] + "," + s[4]) << "frame " << n;
  }
  EXPECT_EQ(evenShifts, 4);
}

}  // namespace
