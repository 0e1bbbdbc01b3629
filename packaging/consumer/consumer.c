/*
 * A user's program, built against an installed or embedded videohdr: it runs
 * a short synthetic alternating-exposure clip through the public calls of
 * both headers (the contiguous call, then the camera-plane entry point on the
 * same frames) and prints one FNV-1a digest per frame. The packaging test builds it in
 * several ways and requires the same digests from each as from the in-tree
 * build, so a stale header, a wrong library or a missing export shows up as a
 * build failure or a different line.
 */
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "videohdr.h"
#include "videohdr_planes.h"

enum {
  kWidth = 1040, /* just above the motion search's minimum width */
  kHeight = 64,
  kScanline = 80, /* padding rows between luma and chroma, as cameras have */
  kFrames = 4,
  kFrameBytes = kWidth * kScanline + kWidth * kHeight / 2
};

/* Blocks over a ramp, moved 2 pixels right per frame, bright and dark in turn. */
static void fill_frame(uint8_t *frame, int n) {
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      int scene = (((x - 2 * n) >> 4 ^ y >> 4) & 1 ? 170 : 50) + (x >> 4 & 63);
      int level = n % 2 ? scene / 2 : scene * 3 / 2;
      frame[y * kWidth + x] = (uint8_t)(level > 255 ? 255 : level);
    }
  }
  memset(frame + kWidth * kHeight, 0x5a, kWidth * (kScanline - kHeight)); /* never touched */
  uint8_t *chroma = frame + kWidth * kScanline;
  for (int i = 0; i < kWidth * kHeight / 2; ++i) chroma[i] = (uint8_t)(112 + (i * 7 + n) % 32);
}

#ifdef CONSUMER_OWN_LOG
/* liblog's call, defined by the application: it takes the library's lines in
 * place of the stand-in libvideohdr_log, linked shared or static. */
int __android_log_print(int prio, const char *tag, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  fprintf(stderr, "consumer's own log, %d %s: ", prio, tag);
  vfprintf(stderr, fmt, args);
  va_end(args);
  fputc('\n', stderr);
  return 0;
}
#endif

static uint64_t fnv1a(const uint8_t *bytes, size_t size) {
  uint64_t hash = 14695981039346656037ull;
  for (size_t i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * 1099511628211ull;
  return hash;
}

int main(void) {
  uint8_t *frame = malloc(kFrameBytes);
  VideoHdrHandle *hdr = Video_HDR_Initial();
  if (!frame || !hdr) {
    fprintf(stderr, "out of memory\n");
    return 1;
  }
  int status = 0;
  for (int n = 0; n < kFrames; ++n) {
    fill_frame(frame, n);
    if (Video_HDR_Process(hdr, frame, n, 1, kWidth, kHeight, kWidth, kScanline) != 1) {
      fprintf(stderr, "frame %d refused\n", n);
      status = 1;
    }
    printf("frame %d %016llx\n", n, (unsigned long long)fnv1a(frame, kFrameBytes));
  }
  Video_HDR_Release(hdr);

  /* The same frames as a camera's planes: U and V alias the interleaved chroma. */
  VideoHdrPlanes *planes = NULL;
  if (videohdr_planes_create(kWidth, kHeight, &planes) != VIDEOHDR_PLANES_OK) return 1;
  for (int n = 0; n < kFrames; ++n) {
    fill_frame(frame, n);
    uint8_t *chroma = frame + kWidth * kScanline;
    if (videohdr_planes_process(planes, frame, kWidth, chroma, chroma + 1, kWidth, 2, kWidth,
                                kHeight, NULL) < 0) {
      fprintf(stderr, "planes frame %d refused\n", n);
      status = 1;
    }
    printf("planes %d %016llx\n", n, (unsigned long long)fnv1a(frame, kFrameBytes));
  }
  videohdr_planes_destroy(planes);
  free(frame);
  return status;
}
