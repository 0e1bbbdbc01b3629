package org.videohdr;

/**
 * The allocator of the glue and the library in the allocation test's libvideohdr_jni.so
 * (failing_allocator.cpp); the other tests' copy has no such functions.
 */
final class NativeAllocations {
  static {
    // The natives are in the glue's library; loading it again is a no-op.
    System.loadLibrary("videohdr");
    System.loadLibrary("videohdr_jni");
  }

  /** From now, the n-th allocation fails, and only that one; 0: none. */
  static native void failNth(int n);

  /** Whether the allocation failNth chose has come. */
  static native boolean failed();

  /** Blocks allocated and not yet freed. */
  static native long liveBlocks();
}
