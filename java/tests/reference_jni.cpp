// Test support for the Java binding's tests: Video_HDR_Process itself on a
// tightly packed frame, the reference the binding's results must equal.
#include <jni.h>

#include <cstdint>

#include "videohdr.h"

extern "C" {

JNIEXPORT jlong JNICALL Java_org_videohdr_PackedReference_create(JNIEnv *, jclass) {
  return static_cast<jlong>(reinterpret_cast<uintptr_t>(Video_HDR_Initial()));
}

// `frame`: NV12 or NV21, stride = width, scanline = height; processed in
// place. `shifts` receives the found and the applied shift.
JNIEXPORT void JNICALL Java_org_videohdr_PackedReference_process(JNIEnv *env, jclass, jlong handle,
                                                                 jobject frame, jint width,
                                                                 jint height, jintArray shifts) {
  auto *h = reinterpret_cast<VideoHdrHandle *>(static_cast<uintptr_t>(handle));
  Video_HDR_Process(h, static_cast<uint8_t *>(env->GetDirectBufferAddress(frame)), 0, 1, width,
                    height, width, height);
  const AlignContext *a = h->alignContext;
  if (!a->levelDx) return;  // carved from the workspace on the second frame
  const jint values[] = {a->levelDx[0], a->levelDy[0], a->lastDx, a->lastDy};
  env->SetIntArrayRegion(shifts, 0, 4, values);
}

JNIEXPORT void JNICALL Java_org_videohdr_PackedReference_release(JNIEnv *, jclass, jlong handle) {
  Video_HDR_Release(reinterpret_cast<VideoHdrHandle *>(static_cast<uintptr_t>(handle)));
}

}  // extern "C"
