// JNI glue of org.videohdr.VideoHdr: the planes' direct buffers go to
// videohdr_planes_process and videohdr_planes_process_to as they are (no copy
// here); every check that can fail throws before anything is written, with a
// message that names the side (for the call with an output), the argument,
// its value and what was expected.
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

// One frame as a VideoHdr.process call gives it, with the instance's size.
struct FrameArgs {
  // Put before every name in a message: "" for the in-place call, whose
  // planes are its only ones; "input " or "output " for the other.
  const char *side;
  bool written;  // receives the fused frame: its buffers must be writable
  jobject y, u, v;
  jint yRowStride, uvRowStride, uvPixelStride, width, height;
  jint expectedWidth, expectedHeight;
};

struct Plane {
  char name[16];  // "y", "output v"
  jobject buffer;
  uint8_t *address;
  int64_t bytes;  // what it spans by the strides and size
};

// A frame that passed checkFrame.
struct Frame {
  Plane planes[3];  // y, u, v
  jint uvPixelStride;
};

// The plane's first byte, or null after throwing: the buffer must be there,
// direct, and writable when the fused frame goes into it. A read-only direct
// buffer has an address as well (asReadOnlyBuffer of a direct buffer, and an
// ImageReader's planes on Android, are direct).
uint8_t *bufferAddress(JNIEnv *env, const Plane &p, bool written) {
  if (!p.buffer) {
    throwNew(env, "java/lang/NullPointerException", "%s is null", p.name);
    return nullptr;
  }
  auto *address = static_cast<uint8_t *>(env->GetDirectBufferAddress(p.buffer));
  if (!address) {
    throwNew(env, kIllegalArgument, "%s is not a direct ByteBuffer", p.name);
    return nullptr;
  }
  if (!written) return address;
  const jmethodID isReadOnly = env->GetMethodID(env->GetObjectClass(p.buffer), "isReadOnly", "()Z");
  const bool readOnly = env->CallBooleanMethod(p.buffer, isReadOnly);
  // isReadOnly throws nothing, but a JNI call after a Java method must come
  // after the check for its exception.
  if (env->ExceptionCheck()) return nullptr;
  if (readOnly) {
    throwNew(env, kIllegalArgument, "%s is read-only: the fused frame is written into it", p.name);
    return nullptr;
  }
  return address;
}

// Says which stride the entry point refused (VIDEOHDR_PLANES_ERR_PIXEL_STRIDE
// or ERR_ROW_STRIDE) and against what.
void throwStrides(JNIEnv *env, int32_t status, const FrameArgs &a) {
  if (status == VIDEOHDR_PLANES_ERR_PIXEL_STRIDE) {
    throwNew(env, kIllegalArgument, "%suvPixelStride %d is neither 1 nor 2", a.side,
             a.uvPixelStride);
  } else if (a.yRowStride < a.width) {
    throwNew(env, kIllegalArgument, "%syRowStride %d is below width %d", a.side, a.yRowStride,
             a.width);
  } else {
    throwNew(env, kIllegalArgument, "%suvRowStride %d is below uvPixelStride * (width / 2) = %d",
             a.side, a.uvRowStride, a.uvPixelStride * (a.width / 2));
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

// Checks one side of a call in the order the entry point checks its planes
// (size, planes, strides), and then the capacities the strides call for;
// true with the frame's planes, or false after throwing. Overlapping planes
// are left to the entry point, which sees all planes together (throwOverlap).
bool checkFrame(JNIEnv *env, const FrameArgs &a, Frame *frame) {
  if (a.width != a.expectedWidth || a.height != a.expectedHeight) {
    const bool width = a.width != a.expectedWidth;
    throwNew(env, kIllegalArgument, "%s%s %d differs from this instance's %d", a.side,
             width ? "width" : "height", width ? a.width : a.height,
             width ? a.expectedWidth : a.expectedHeight);
    return false;
  }
  const char *names[] = {"y", "u", "v"};
  const jobject buffers[] = {a.y, a.u, a.v};
  for (int i = 0; i < 3; ++i) {
    Plane &p = frame->planes[i];
    std::snprintf(p.name, sizeof p.name, "%s%s", a.side, names[i]);
    p.buffer = buffers[i];
    if (!(p.address = bufferAddress(env, p, a.written))) return false;
  }
  Plane *planes = frame->planes;
  const int32_t strides =
      videohdr_planes_plane_bytes(a.width, a.height, a.yRowStride, a.uvRowStride, a.uvPixelStride,
                                  &planes[0].bytes, &planes[1].bytes);
  if (strides != VIDEOHDR_PLANES_OK) {
    throwStrides(env, strides, a);
    return false;
  }
  planes[2].bytes = planes[1].bytes;
  frame->uvPixelStride = a.uvPixelStride;
  char yLayout[64], uvLayout[96];
  std::snprintf(yLayout, sizeof yLayout, "yRowStride %d, %dx%d", a.yRowStride, a.width, a.height);
  std::snprintf(uvLayout, sizeof uvLayout, "uvRowStride %d, uvPixelStride %d, %dx%d", a.uvRowStride,
                a.uvPixelStride, a.width, a.height);
  return holdsSpan(env, planes[0], yLayout) && holdsSpan(env, planes[1], uvLayout) &&
         holdsSpan(env, planes[2], uvLayout);
}

uintptr_t begin(const Plane &p) { return reinterpret_cast<uintptr_t>(p.address); }

// Throws for two planes whose spans meet, and answers whether they do.
bool throwIfOverlapping(JNIEnv *env, const Plane &a, const Plane &b, const char *hint) {
  const Plane &first = begin(a) <= begin(b) ? a : b, &second = &first == &a ? b : a;
  const uintptr_t distance = begin(second) - begin(first);
  if (distance >= static_cast<uint64_t>(first.bytes)) return false;
  throwNew(env, kIllegalArgument,
           "%s and %s overlap: %s starts %" PRIuPTR " bytes after %s, which spans %" PRId64 "%s",
           a.name, b.name, second.name, distance, first.name, first.bytes, hint);
  return true;
}

// Throws for the first two planes of one frame that overlap; u and v, whose
// spans also meet where they interleave (pixel stride 2, one byte apart),
// only when they do not.
bool throwIfOverlapping(JNIEnv *env, const Frame &f) {
  const Plane &y = f.planes[0], &u = f.planes[1], &v = f.planes[2];
  const uintptr_t apart = begin(u) > begin(v) ? begin(u) - begin(v) : begin(v) - begin(u);
  const bool interleaved = f.uvPixelStride == 2 && apart == 1;
  return throwIfOverlapping(env, y, u, "") || throwIfOverlapping(env, y, v, "") ||
         (!interleaved &&
          throwIfOverlapping(env, u, v,
                             " (u and v may share bytes only interleaved: uvPixelStride 2, one "
                             "byte apart)"));
}

// The entry point refused overlapping planes: throws naming which two, and
// how, and answers true. Within each frame first, in the order the entry
// point checks them, then between them.
bool throwOverlap(JNIEnv *env, const Frame *frames, int count) {
  for (int i = 0; i < count; ++i) {
    if (throwIfOverlapping(env, frames[i])) return true;
  }
  for (const Plane &in : frames[0].planes) {
    for (int i = 1; i < count; ++i) {
      for (const Plane &out : frames[i].planes) {
        if (throwIfOverlapping(env, in, out, "")) return true;
      }
    }
  }
  return false;
}

// Turns the entry point's answer into the result fields, or into the
// exception the Java call documents.
void answer(JNIEnv *env, int32_t status, const VideoHdrPlanesResult &r, const Frame *frames,
            int count, jintArray fields) {
  if (status == VIDEOHDR_PLANES_ERR_OVERLAP && throwOverlap(env, frames, count)) return;
  // A first frame without memory is refused (the frame unchanged, or copied
  // into the output) and the next one tries again: Java says so as the error
  // it has for memory, which a caller can catch and go on from.
  if (status == VIDEOHDR_PLANES_REFUSED) {
    return throwNew(env, "java/lang/OutOfMemoryError",
                    "the first frame: out of memory (not fused; the next frame tries again)");
  }
  // Errors the checks before the call already rule out, should one come.
  if (status < 0) return throwNew(env, kIllegalArgument, "%s", videohdr_planes_status_text(status));
  // FrameResult reads them in this order (its Status enum from 1: processed,
  // primed).
  const jint values[] = {r.status,    r.foundDx,         r.foundDy, r.appliedDx,
                         r.appliedDy, r.currentBrighter, r.inPlace};
  env->SetIntArrayRegion(fields, 0, sizeof values / sizeof values[0], values);
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
  const FrameArgs args = {"",
                          true,
                          y,
                          u,
                          v,
                          yRowStride,
                          uvRowStride,
                          uvPixelStride,
                          width,
                          height,
                          expectedWidth,
                          expectedHeight};
  Frame frame;
  if (!checkFrame(env, args, &frame)) return;
  const Plane *p = frame.planes;
  VideoHdrPlanesResult r;
  const int32_t status =
      videohdr_planes_process(stateOf(state), p[0].address, yRowStride, p[1].address, p[2].address,
                              uvRowStride, uvPixelStride, width, height, &r);
  answer(env, status, r, &frame, 1, fields);
}

JNIEXPORT void JNICALL Java_org_videohdr_VideoHdr_nativeProcessTo(
    JNIEnv *env, jclass, jlong state, jint expectedWidth, jint expectedHeight, jobject y,
    jint yRowStride, jobject u, jobject v, jint uvRowStride, jint uvPixelStride, jint width,
    jint height, jobject outY, jint outYRowStride, jobject outU, jobject outV, jint outUvRowStride,
    jint outUvPixelStride, jint outWidth, jint outHeight, jintArray fields) {
  const FrameArgs args[] = {{"input ", false, y, u, v, yRowStride, uvRowStride, uvPixelStride,
                             width, height, expectedWidth, expectedHeight},
                            {"output ", true, outY, outU, outV, outYRowStride, outUvRowStride,
                             outUvPixelStride, outWidth, outHeight, expectedWidth, expectedHeight}};
  Frame frames[2];
  if (!checkFrame(env, args[0], &frames[0]) || !checkFrame(env, args[1], &frames[1])) return;
  const Plane *in = frames[0].planes, *out = frames[1].planes;
  VideoHdrPlanesResult r;
  const int32_t status = videohdr_planes_process_to(
      stateOf(state), in[0].address, yRowStride, in[1].address, in[2].address, uvRowStride,
      uvPixelStride, out[0].address, outYRowStride, out[1].address, out[2].address, outUvRowStride,
      outUvPixelStride, width, height, &r);
  answer(env, status, r, frames, 2, fields);
}

JNIEXPORT void JNICALL Java_org_videohdr_VideoHdr_nativeRestart(JNIEnv *, jclass, jlong state) {
  videohdr_planes_restart(stateOf(state));
}

JNIEXPORT void JNICALL Java_org_videohdr_VideoHdr_nativeDestroy(JNIEnv *, jclass, jlong state) {
  videohdr_planes_destroy(stateOf(state));
}

}  // extern "C"
