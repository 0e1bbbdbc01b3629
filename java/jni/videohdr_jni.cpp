// JNI glue of org.videohdr.VideoHdr: the planes' direct buffers go to
// videohdr_planes_process as they are (no copy here); every check that can
// fail throws before anything is written.
#include <jni.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>

#include "videohdr_planes.h"

namespace {

void throwNew(JNIEnv *env, const char *className, const char *message) {
  if (jclass c = env->FindClass(className)) env->ThrowNew(c, message);
}

void throwStatus(JNIEnv *env, int32_t status) {
  const char *text = videohdr_planes_status_text(status);
  if (status == VIDEOHDR_PLANES_ERR_OUT_OF_MEMORY) {
    throwNew(env, "java/lang/OutOfMemoryError", text);
  } else {
    throwNew(env, "java/lang/IllegalArgumentException", text);
  }
}

VideoHdrPlanes *stateOf(jlong state) {
  return reinterpret_cast<VideoHdrPlanes *>(static_cast<uintptr_t>(state));
}

// The plane's first byte, or null after throwing: the buffer must be direct
// and hold the `bytes` the layout spans.
uint8_t *planeAddress(JNIEnv *env, jobject buffer, const char *name, int64_t bytes) {
  auto *address = static_cast<uint8_t *>(env->GetDirectBufferAddress(buffer));
  char message[160];
  if (!address) {
    std::snprintf(message, sizeof message, "%s is not a direct ByteBuffer", name);
    throwNew(env, "java/lang/IllegalArgumentException", message);
    return nullptr;
  }
  const int64_t capacity = env->GetDirectBufferCapacity(buffer);
  if (capacity < bytes) {
    std::snprintf(message, sizeof message,
                  "%s holds %" PRId64 " bytes; the strides and size given need %" PRId64, name,
                  capacity, bytes);
    throwNew(env, "java/lang/IllegalArgumentException", message);
    return nullptr;
  }
  return address;
}

}  // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_org_videohdr_VideoHdr_nativeCreate(JNIEnv *env, jclass, jint width,
                                                                jint height) {
  VideoHdrPlanes *planes = nullptr;
  const int32_t status = videohdr_planes_create(width, height, &planes);
  if (status != VIDEOHDR_PLANES_OK) throwStatus(env, status);
  return static_cast<jlong>(reinterpret_cast<uintptr_t>(planes));
}

JNIEXPORT void JNICALL Java_org_videohdr_VideoHdr_nativeProcess(
    JNIEnv *env, jclass, jlong state, jobject y, jint yRowStride, jobject u, jobject v,
    jint uvRowStride, jint uvPixelStride, jint width, jint height, jintArray fields) {
  int64_t yBytes = 0, uvBytes = 0;
  const int32_t layout = videohdr_planes_plane_bytes(width, height, yRowStride, uvRowStride,
                                                     uvPixelStride, &yBytes, &uvBytes);
  if (layout != VIDEOHDR_PLANES_OK) return throwStatus(env, layout);
  uint8_t *yPlane = planeAddress(env, y, "y", yBytes);
  if (!yPlane) return;
  uint8_t *uPlane = planeAddress(env, u, "u", uvBytes);
  if (!uPlane) return;
  uint8_t *vPlane = planeAddress(env, v, "v", uvBytes);
  if (!vPlane) return;

  VideoHdrPlanesResult r;
  const int32_t status = videohdr_planes_process(stateOf(state), yPlane, yRowStride, uPlane, vPlane,
                                                 uvRowStride, uvPixelStride, width, height, &r);
  if (status < 0) return throwStatus(env, status);
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
