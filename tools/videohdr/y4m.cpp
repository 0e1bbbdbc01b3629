#include "y4m.h"

#include <cctype>
#include <cstdlib>
#include <sstream>

#include "tool_error.h"

namespace vhtool {
namespace {

bool parsePositive(const std::string &digits, int32_t *value) {
  if (digits.empty() || digits.size() > 6 ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  *value = std::atoi(digits.c_str());
  return *value > 0;
}

bool isWholeNumber(const std::string &digits) {
  return !digits.empty() && digits.size() <= 9 &&
         digits.find_first_not_of("0123456789") == std::string::npos;
}

// Frame rate (F) and pixel aspect (A) are ratios N:D (0:0 where unknown).
// They pass through to the output, so a malformed one is refused here rather
// than handed on to the next reader. Answers what is wrong, or "".
std::string checkRatio(const char *what, const std::string &token, const char *example) {
  const size_t colon = token.find(':');
  if (colon != std::string::npos && isWholeNumber(token.substr(1, colon - 1)) &&
      isWholeNumber(token.substr(colon + 1))) {
    return "";
  }
  return std::string("malformed Y4M header: ") + what + " '" + quoted(token) +
         "' is not two whole numbers N:D (for example " + example + ")";
}

// Colour space tags look like 420jpeg, 420paldv, 420mpeg2, 420, 422, 444,
// 444alpha, mono, 420p10, 444p12 ... Answers what is wrong, or "".
std::string checkColourSpace(const std::string &tag) {
  const std::string name = "C" + quoted(tag);
  size_t digits = 0;
  while (digits < tag.size() && std::isdigit(static_cast<unsigned char>(tag[digits]))) ++digits;
  const std::string subsampling = tag.substr(0, digits);
  const std::string suffix = tag.substr(digits);
  if (tag.rfind("mono", 0) == 0) {
    return "chroma format " + name + " (greyscale) is not supported: only 8-bit 4:2:0";
  }
  if (subsampling == "422" || subsampling == "444" || subsampling == "411") {
    return "chroma format 4:" + subsampling.substr(1, 1) + ":" + subsampling.substr(2, 1) + " (" +
           name + ") is not supported: only 8-bit 4:2:0";
  }
  if (subsampling != "420") return "unknown colour space " + name;
  if (suffix.empty() || suffix == "jpeg" || suffix == "paldv" || suffix == "mpeg2") return "";
  if (suffix[0] == 'p' && suffix.size() > 1 &&
      suffix.find_first_not_of("0123456789", 1) == std::string::npos) {
    const int bits = std::atoi(suffix.c_str() + 1);
    if (bits == 8) return "";
    return "bit depth " + suffix.substr(1) + " (" + name + ") is not supported: only 8-bit 4:2:0";
  }
  return "unknown colour space " + name;
}

// Interlacing tags: Ip (progressive) and I? (unknown) are taken as
// progressive. Interlaced streams are refused: the two fields of a frame are
// taken at different instants but with one exposure, so fusing frames would
// blend fields, not the exposures the library expects to alternate frame by
// frame. Answers what is wrong, or "".
std::string checkInterlacing(const std::string &tag) {
  if (tag == "p" || tag == "?") return "";
  static const char *const kInterlaced[][2] = {
      {"t", "top field first"}, {"b", "bottom field first"}, {"m", "mixed per frame"}};
  for (const auto &[value, meaning] : kInterlaced) {
    if (tag == value) {
      return "interlaced Y4M (I" + tag + ": " + meaning +
             ") is not supported: the fields of a frame are not two exposures (frames that are "
             "progressive in fact can be marked so: ffmpeg -vf setfield=prog)";
    }
  }
  return "unknown interlacing I" + quoted(tag);
}

}  // namespace

std::string parseY4mHeader(const std::string &line, Y4mHeader *header) {
  const std::string magic = kY4mMagic;
  if (line.compare(0, magic.size(), magic) != 0 ||
      (line.size() > magic.size() && line[magic.size()] != ' ')) {
    return "not a Y4M stream (it does not start with YUV4MPEG2); for raw NV12/NV21 give --size "
           "WxH";
  }
  *header = Y4mHeader();
  header->line = line;
  std::istringstream tokens(line.substr(magic.size()));
  std::string token;
  while (tokens >> token) {
    const char tag = token[0];
    const std::string value = token.substr(1);
    if (tag == 'W' && !parsePositive(value, &header->width)) {
      return "malformed Y4M header: width '" + quoted(token) + "' is not a positive number";
    }
    if (tag == 'H' && !parsePositive(value, &header->height)) {
      return "malformed Y4M header: height '" + quoted(token) + "' is not a positive number";
    }
    const std::string problem = tag == 'C'   ? checkColourSpace(value)
                                : tag == 'I' ? checkInterlacing(value)
                                : tag == 'F' ? checkRatio("frame rate", token, "F30:1")
                                : tag == 'A' ? checkRatio("pixel aspect", token, "A1:1")
                                             : "";
    if (!problem.empty()) return problem;
  }
  if (header->width == 0) return "malformed Y4M header: no frame width (W)";
  if (header->height == 0) return "malformed Y4M header: no frame height (H)";
  return "";
}

std::string y4mStreamHeader(int32_t width, int32_t height) {
  return std::string(kY4mMagic) + " W" + std::to_string(width) + " H" + std::to_string(height) +
         " F30:1 Ip A1:1 C420jpeg";
}

}  // namespace vhtool
