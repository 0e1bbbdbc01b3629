#include "image_io.h"

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>

// clang-format off
#include <jpeglib.h>  // needs <cstdio> first
// clang-format on
#include <png.h>

#include "tool_error.h"

namespace vhtool {
namespace {

struct JpegErrors {
  jpeg_error_mgr manager;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

// libjpeg's default handler exits the process; this one returns to decode().
[[noreturn]] void onJpegError(j_common_ptr info) {
  auto *errors = reinterpret_cast<JpegErrors *>(info->err);
  info->err->format_message(info, errors->message);
  std::longjmp(errors->jump, 1);
}

// Decodes into `image`. Plain C state only between setjmp and longjmp; the
// vector is resized once the header is known and never touched after an error.
bool decode(FILE *file, ArgbImage *image, char *message) {
  jpeg_decompress_struct info;
  JpegErrors errors;
  info.err = jpeg_std_error(&errors.manager);
  errors.manager.error_exit = onJpegError;
  if (setjmp(errors.jump)) {
    std::memcpy(message, errors.message, JMSG_LENGTH_MAX);
    jpeg_destroy_decompress(&info);
    return false;
  }
  jpeg_create_decompress(&info);
  jpeg_stdio_src(&info, file);
  jpeg_read_header(&info, TRUE);
  info.out_color_space = JCS_EXT_BGRA;
  jpeg_start_decompress(&info);
  image->width = static_cast<int32_t>(info.output_width);
  image->height = static_cast<int32_t>(info.output_height);
  image->pixels.resize(static_cast<size_t>(image->stride()) * image->height);
  while (info.output_scanline < info.output_height) {
    JSAMPROW row =
        image->pixels.data() + static_cast<size_t>(info.output_scanline) * image->stride();
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return true;
}

}  // namespace

ArgbImage readJpeg(const std::string &path) {
  FILE *file = std::fopen(path.c_str(), "rb");
  if (!file) throw ToolError("cannot open '" + path + "': " + std::strerror(errno));
  ArgbImage image;
  char message[JMSG_LENGTH_MAX] = {};
  const bool ok = decode(file, &image, message);
  std::fclose(file);
  if (!ok) throw ToolError(path + ": not a readable JPEG (" + message + ")");
  return image;
}

void writePng(const std::string &path, const uint8_t *rgb, int32_t width, int32_t height) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  image.format = PNG_FORMAT_RGB;
  if (!png_image_write_to_file(&image, path.c_str(), 0, rgb, width * 3, nullptr)) {
    throw ToolError("cannot write '" + path + "': " + image.message);
  }
}

}  // namespace vhtool
