// Test support for AllocationFailureTest: the JNI glue and the library are
// linked into a test copy of libvideohdr_jni.so with -Wl,--wrap for malloc,
// calloc and free, so that every allocation of theirs comes here, and only
// theirs: --wrap renames the calls of the objects in that link, not the
// JVM's. NativeAllocations (Java) makes the n-th one fail and reads how many
// blocks are live. The test drives it from one thread.
#include <jni.h>

#include <cstddef>

namespace {
long g_untilFailure = 0;  // counts down to the allocation that fails; 0: none
bool g_failed = false;    // whether that allocation came
long g_liveBlocks = 0;

bool failsNow() {
  if (g_untilFailure == 0 || --g_untilFailure != 0) return false;
  return g_failed = true;
}

void *counted(void *block) {
  if (block) ++g_liveBlocks;
  return block;
}
}  // namespace

extern "C" {

void *__real_malloc(size_t bytes);
void *__real_calloc(size_t count, size_t bytes);
void __real_free(void *block);

void *__wrap_malloc(size_t bytes) { return failsNow() ? nullptr : counted(__real_malloc(bytes)); }

void *__wrap_calloc(size_t count, size_t bytes) {
  return failsNow() ? nullptr : counted(__real_calloc(count, bytes));
}

void __wrap_free(void *block) {
  if (block) --g_liveBlocks;
  __real_free(block);
}

JNIEXPORT void JNICALL Java_org_videohdr_NativeAllocations_failNth(JNIEnv *, jclass, jint n) {
  g_untilFailure = n;
  g_failed = false;
}

JNIEXPORT jboolean JNICALL Java_org_videohdr_NativeAllocations_failed(JNIEnv *, jclass) {
  return g_failed;
}

JNIEXPORT jlong JNICALL Java_org_videohdr_NativeAllocations_liveBlocks(JNIEnv *, jclass) {
  return g_liveBlocks;
}

}  // extern "C"
