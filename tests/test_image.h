// Reads the grey test photograph from tests/data (binary PGM, 8 bits).
#ifndef VIDEOHDR_TESTS_TEST_IMAGE_H
#define VIDEOHDR_TESTS_TEST_IMAGE_H

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

struct GreyImage {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> pixels;  // row pitch = width
  uint8_t at(int32_t x, int32_t y) const { return pixels[size_t(y) * width + x]; }
};

// The photograph the motion tests are built from; empty when it cannot be read.
inline GreyImage loadTestPhoto() {
  GreyImage img;
  std::ifstream in(std::string(VIDEOHDR_TEST_DATA_DIR) + "/evening_glow_2112x1344.pgm",
                   std::ios::binary);
  std::string magic;
  int maxValue = 0;
  in >> magic >> img.width >> img.height >> maxValue;
  if (!in || magic != "P5" || maxValue != 255 || img.width <= 0 || img.height <= 0) return {};
  in.get();  // the single whitespace byte before the pixels
  img.pixels.resize(size_t(img.width) * img.height);
  in.read(reinterpret_cast<char *>(img.pixels.data()), std::streamsize(img.pixels.size()));
  if (!in) return {};
  return img;
}

#endif  // VIDEOHDR_TESTS_TEST_IMAGE_H
