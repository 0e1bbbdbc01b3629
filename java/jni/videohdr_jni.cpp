// JNI glue of org.videohdr.VideoHdr: the planes' direct buffers go to
// videohdr_planes_process as they are (no copy here); every check that can
// fail throws before anything is written, with a message that names the
// argument, its value and what was expected.
#include <jni.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "videohdr_planes.h"

namespace {

constexpr const char *kIllegalArgument = "java/lang/IllegalArgumentException";

__attribute__((format(printf, 3, 4))) void throwNew(JNIEnv *env, const char *className,
                                                    const char *format, ...) {
  char message[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof message, format, args);
  va_end(args);
  if (jclass c = env->FindClass(className)) env->ThrowNew(c, message);
}

// Says why videohdr_planes_create refused the size (ERR_BAD_SIZE).
void throwBadSize(JNIEnv *env, jint width, jint height) {
  const bool widthBad = width <= 0 || width % 2 != 0;
  if (widthBad || height <= 0 || height % 2 != 0) {
    throwNew(env, kIllegalArgument, "%s %d is not positive and even (4:2:0 chroma)",
             widthBad ? "width" : "height", widthBad ? width : height);
  } else {
    throwNew(env, kIllegalArgument, "width * height = %" PRId64 " is above the library's %d",
             int64_t{width} * height, VIDEOHDR_MAX_LUMA_BYTES);
  }
}

VideoHdrPlanes *stateOf(jlong state) {
  return reinterpret_cast<VideoHdrPlanes *>(static_cast<uintptr_t>(state));
}

// One frame as VideoHdr.process takes it, with the instance's size.
struct FrameArgs {
  jobject y, u, v;
  jint yRowStride, uvRowStride, uvPixelStride, width, height;
  jint expectedWidth, expectedHeight;
};

struct Plane {
  const char *name;
  jobject buffer;
  uint8_t *address;
  int64_t bytes;  // what it spans by the strides and size
};

// The plane's first byte, or null after throwing: the buffer must be there,
// direct and writable.
uint8_t *writableAddress(JNIEnv *env, const char *name, jobject buffer) {
  if (!buffer) {
    throwNew(env, "java/lang/NullPointerException", "%s is null", name);
    return nullptr;
  }
  auto *address = static_cast<uint8_t *>(env->GetDirectBufferAddress(buffer));
  if (!address) {
    throwNew(env, kIllegalArgument, "%s is not a direct ByteBuffer", name);
    return nullptr;
  }
  const jmethodID isReadOnly = env->GetMethodID(env->GetObjectClass(buffer), "isReadOnly", "()Z");
  if (env->CallBooleanMethod(buffer, isReadOnly)) {
    throwNew(env, kIllegalArgument, "%s is read-only: the fused frame is written into it", name);
    return nullptr;
  }
  return address;
}

// Says which stride the entry point refused (VIDEOHDR_PLANES_ERR_PIXEL_STRIDE
// or ERR_ROW_STRIDE) and against what.
void throwStrides(JNIEnv *env, int32_t status, const FrameArgs &a) {
  if (status == VIDEOHDR_PLANES_ERR_PIXEL_STRIDE) {
    throwNew(env, kIllegalArgument, "uvPixelStride %d is neither 1 nor 2", a.uvPixelStride);
  } else if (a.yRowStride < a.width) {
    throwNew(env, kIllegalArgument, "yRowStride %d is below width %d", a.yRowStride, a.width);
  } else {
    throwNew(env, kIllegalArgument, "uvRowStride %d is below uvPixelStride * (width / 2) = %d",
             a.uvRowStride, a.uvPixelStride * (a.width / 2));
  }
}

bool holdsSpan(JNIEnv *env, const Plane &p, const char *strides) {
  const int64_t capacity = env->GetDirectBufferCapacity(p.buffer);
  if (capacity >= p.bytes) return true;
  throwNew(env, kIllegalArgument,
           "%s holds %" PRId64 " bytes, below the %" PRId64 " its plane spans (%s)", p.name,
           capacity, p.bytes, strides);
  return false;
}

// Checks a frame in the order videohdr_planes_process checks its own (size,
// planes, strides), and then the capacities the strides call for; true with
// the three planes, or false after throwing. Overlapping planes are left to
// the entry point, which sees the addresses together (throwOverlap).
bool checkFrame(JNIEnv *env, const FrameArgs &a, Plane planes[3]) {
  if (a.width != a.expectedWidth || a.height != a.expectedHeight) {
    const bool width = a.width != a.expectedWidth;
    throwNew(env, kIllegalArgument, "%s %d differs from this instance's %d",
             width ? "width" : "height", width ? a.width : a.height,
             width ? a.expectedWidth : a.expectedHeight);
    return false;
  }
  planes[0] = {"y", a.y, nullptr, 0};
  planes[1] = {"u", a.u, nullptr, 0};
  planes[2] = {"v", a.v, nullptr, 0};
  for (int i = 0; i < 3; ++i) {
    if (!(planes[i].address = writableAddress(env, planes[i].name, planes[i].buffer))) return false;
  }
  const int32_t strides =
      videohdr_planes_plane_bytes(a.width, a.height, a.yRowStride, a.uvRowStride, a.uvPixelStride,
                                  &planes[0].bytes, &planes[1].bytes);
  if (strides != VIDEOHDR_PLANES_OK) {
    throwStrides(env, strides, a);
    return false;
  }
  planes[2].bytes = planes[1].bytes;
  char yLayout[64], uvLayout[96];
  std::snprintf(yLayout, sizeof yLayout, "yRowStride %d, %dx%d", a.yRowStride, a.width, a.height);
  std::snprintf(uvLayout, sizeof uvLayout, "uvRowStride %d, uvPixelStride %d, %dx%d", a.uvRowStride,
                a.uvPixelStride, a.width, a.height);
  return holdsSpan(env, planes[0], yLayout) && holdsSpan(env, planes[1], uvLayout) &&
         holdsSpan(env, planes[2], uvLayout);
}

// The entry point refused overlapping planes: which two, and how.
void throwOverlap(JNIEnv *env, const Plane planes[3]) {
  auto begin = [](const Plane &p) { return reinterpret_cast<uintptr_t>(p.address); };
  // u and v come last: their spans also meet where they interleave, which is
  // no overlap; when neither meets y, they are the two that overlap.
  const int pairs[][2] = {{0, 1}, {0, 2}, {1, 2}};
  for (const auto &pair : pairs) {
    const Plane &a = planes[pair[0]], &b = planes[pair[1]];
    const Plane &first = begin(a) <= begin(b) ? a : b, &second = &first == &a ? b : a;
    const uintptr_t distance = begin(second) - begin(first);
    if (distance >= static_cast<uint64_t>(first.bytes)) continue;
    throwNew(env, kIllegalArgument,
             "%s and %s overlap: %s starts %" PRIuPTR " bytes after %s, which spans %" PRId64 "%s",
             a.name, b.name, second.name, distance, first.name, first.bytes,
             pair[0] == 1 ? " (u and v may share bytes only interleaved: uvPixelStride 2, one "
                            "byte apart)"
                          : "");
    return;
  }
}

}  // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_org_videohdr_VideoHdr_nativeCreate(JNIEnv *env, jclass, jint width,
                                                                jint height) {
  VideoHdrPlanes *planes = nullptr;
  const int32_t status = videohdr_planes_create(width, height, &planes);
  if (status == VIDEOHDR_PLANES_ERR_OUT_OF_MEMORY) {
    throwNew(env, "java/lang/OutOfMemoryError", "%dx%d frames: out of memory", width, height);
  } else if (status != VIDEOHDR_PLANES_OK) {
    throwBadSize(env, width, height);
  }
  return static_cast<jlong>(reinterpret_cast<uintptr_t>(planes));
}

JNIEXPORT void JNICALL Java_org_videohdr_VideoHdr_nativeProcess(
    JNIEnv *env, jclass, jlong state, jint expectedWidth, jint expectedHeight, jobject y,
    jint yRowStride, jobject u, jobject v, jint uvRowStride, jint uvPixelStride, jint width,
    jint height, jintArray fields) {
  const FrameArgs args = {y,
                          u,
                          v,
                          yRowStride,
                          uvRowStride,
                          uvPixelStride,
                          width,
                          height,
                          expectedWidth,
                          expectedHeight};
  Plane planes[3];
  if (!checkFrame(env, args, planes)) return;
  VideoHdrPlanesResult r;
  const int32_t status =
      videohdr_planes_process(stateOf(state), planes[0].address, yRowStride, planes[1].address,
                              planes[2].address, uvRowStride, uvPixelStride, width, height, &r);
  if (status == VIDEOHDR_PLANES_ERR_OVERLAP) return throwOverlap(env, planes);
  if (status == VIDEOHDR_PLANES_ERR_OUT_OF_MEMORY) {
    return throwNew(env, "java/lang/OutOfMemoryError", "the first frame: out of memory");
  }
  if (status < 0) return throwNew(env, kIllegalArgument, "%s", videohdr_planes_status_text(status));
  // FrameResult reads them in this order (its Status enum from 1: processed,
  // primed, refused).
  const jint values[] = {r.status,    r.foundDx,         r.foundDy, r.appliedDx,
                         r.appliedDy, r.currentBrighter, r.inPlace};
  env->SetIntArrayRegion(fields, 0, sizeof values / sizeof values[0], values);
}

JNIEXPORT void JNICALL Java_org_videohdr_VideoHdr_nativeDestroy(JNIEnv *, jclass, jlong state) {
  videohdr_planes_destroy(stateOf(state));
}

}  // extern "C"
