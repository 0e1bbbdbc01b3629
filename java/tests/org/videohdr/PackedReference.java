package org.videohdr;

import java.nio.ByteBuffer;

/** The library's contiguous C call on tightly packed frames: what the binding must equal. */
final class PackedReference implements AutoCloseable {
  static {
    System.loadLibrary("videohdr_jni_reference");
  }

  private final long handle = create();

  /** Processes a packed NV12 or NV21 frame in place; answers the found and the applied shift. */
  int[] process(ByteBuffer frame, int width, int height) {
    int[] shifts = new int[4];
    process(handle, frame, width, height, shifts);
    return shifts;
  }

  @Override
  public void close() {
    release(handle);
  }

  private static native long create();

  private static native void process(long handle, ByteBuffer frame, int w, int h, int[] shifts);

  private static native void release(long handle);
}
