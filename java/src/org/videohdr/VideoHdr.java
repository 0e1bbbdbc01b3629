package org.videohdr;

import java.nio.ByteBuffer;

/**
 * HDR video from alternating exposures, for camera frames as an {@code ImageReader} delivers
 * them (YUV_420_888: three planes with their own strides).
 *
 * <p>Every frame after the first receives, in its own planes, the fusion of itself with the
 * previous frame moved into alignment; the first frame only primes the instance. The bytes and
 * the shift are exactly those the library's contiguous C call gives on a tightly packed copy of
 * the same pixels, however the planes are padded or laid out.
 *
 * <p>One instance serves one frame size and one stream; {@link #close} frees its native memory
 * (12 MB and more, by frame size). Calls on one instance are serialised; instances are
 * independent.
 */
public final class VideoHdr implements AutoCloseable {
  static {
    // The library first: Android before 6.0 does not load an app library's
    // dependencies by itself.
    System.loadLibrary("videohdr");
    System.loadLibrary("videohdr_jni");
  }

  private final int width;
  private final int height;
  private long state; // the native state; 0 once closed

  /**
   * @throws IllegalArgumentException unless width and height are positive and even, with width *
   *     height at most 2,621,440 (for example 2048 x 1280)
   * @throws OutOfMemoryError when the native memory cannot be had
   */
  public VideoHdr(int width, int height) {
    this.state = nativeCreate(width, height);
    this.width = width;
    this.height = height;
  }

  public int width() {
    return width;
  }

  public int height() {
    return height;
  }

  /**
   * Processes one frame in place, as {@code Image.getPlanes()} gives it: {@code y}, {@code u} and
   * {@code v} are the planes' direct buffers, each plane starting at its buffer's first byte
   * (position and limit are not used; pass a {@code slice()} for a plane further in). Only the
   * samples are read and written, never the row padding.
   *
   * <p>The checks come in this order, and the first that fails throws with a message naming the
   * argument, its value and what was expected ({@code width 1920 differs from this instance's
   * 1280}); nothing is written then.
   *
   * @throws IllegalStateException after {@link #close}
   * @throws IllegalArgumentException for a size other than this instance's
   * @throws NullPointerException for a null buffer
   * @throws IllegalArgumentException for a buffer that is not direct or is read-only, strides the
   *     layout cannot have (a pixel stride other than 1 or 2, a row stride below the row), a
   *     capacity below what the strides and size span, or overlapping planes
   */
  public synchronized FrameResult process(
      ByteBuffer y,
      int yRowStride,
      ByteBuffer u,
      ByteBuffer v,
      int uvRowStride,
      int uvPixelStride,
      int width,
      int height) {
    if (state == 0) throw new IllegalStateException("VideoHdr is closed");
    int[] fields = new int[FrameResult.FIELDS];
    nativeProcess(
        state,
        this.width,
        this.height,
        y,
        yRowStride,
        u,
        v,
        uvRowStride,
        uvPixelStride,
        width,
        height,
        fields);
    return new FrameResult(fields);
  }

  /** Frees the native state; later calls of {@link #process} throw. Closing twice is allowed. */
  @Override
  public synchronized void close() {
    if (state == 0) return;
    nativeDestroy(state);
    state = 0;
  }

  private static native long nativeCreate(int width, int height);

  /** Checks the frame against the instance's size and processes it; throws as process says. */
  private static native void nativeProcess(
      long state,
      int expectedWidth,
      int expectedHeight,
      ByteBuffer y,
      int yRowStride,
      ByteBuffer u,
      ByteBuffer v,
      int uvRowStride,
      int uvPixelStride,
      int width,
      int height,
      int[] fields);

  private static native void nativeDestroy(long state);
}
