package org.videohdr;

import java.nio.ByteBuffer;

/**
 * HDR video from alternating exposures, for camera frames as an {@code ImageReader} delivers
 * them (YUV_420_888: three planes with their own strides).
 *
 * <p>Every frame after the first receives the fusion of itself with the previous frame moved
 * into alignment: in its own planes ({@link #process(ByteBuffer, int, ByteBuffer, ByteBuffer, int,
 * int, int, int) process}), or in other planes, for recording from a camera image that may not be
 * written into an encoder's input image ({@link #process(Planes, Planes)}). The first frame only
 * primes the instance. The bytes and the shift are exactly those the library's contiguous C call
 * gives on a tightly packed copy of the same pixels, however the planes are padded or laid out.
 *
 * <p>One instance serves one frame size and one stream; {@link #close} frees its native memory
 * (12 MB and more, by frame size).
 *
 * <p>Threads: an instance may be used from several threads. Its calls ({@code process}, {@link
 * #restart}, {@code close}) take one lock each, so they run one at a time, in the order they get
 * it: {@code close} waits for a frame being processed on another thread and frees the native
 * state after it, and every call that comes after {@code close} throws {@link
 * IllegalStateException}. Instances share nothing and run in parallel. Buffers must stay valid
 * while a call that was given them runs (an {@code Image} closed by another thread meanwhile is
 * not detected).
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
  // Private, so that nobody else's synchronized (hdr) can hold up a frame.
  private final Object lock = new Object();
  // Guarded by lock: the native state (0 once closed), and the result fields
  // the native side fills, kept to allocate nothing per frame but the result.
  private long state;
  private final int[] fields = new int[FrameResult.FIELDS];

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
   * @throws OutOfMemoryError when the first frame cannot have its native memory: the frame is
   *     left unchanged (by the recording call: copied into the output), nothing stays allocated,
   *     and the next frame is a first frame again and tries again
   */
  public FrameResult process(
      ByteBuffer y,
      int yRowStride,
      ByteBuffer u,
      ByteBuffer v,
      int uvRowStride,
      int uvPixelStride,
      int width,
      int height) {
    synchronized (lock) {
      nativeProcess(
          open(),
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
  }

  /**
   * Processes one frame from {@code input}, which is only read, into {@code output}, for
   * recording: the output's samples receive exactly what the in-place {@code process} would leave
   * in a writable copy of the input, with the same status and shift (on the first frame, a copy
   * of the input). The input's buffers may be read-only, as an {@code ImageReader}'s may be; the
   * output's must be writable.
   *
   * <p>The input's layout decides the chroma order the fusion sees; the output's (pixel stride 1
   * or 2, either order, its own strides) only says where each sample goes, so NV21 camera planes
   * can go into an NV12 or I420 encoder image. Of the output only the samples are written, never
   * the row padding. The output may be the input itself (the same memory at the same strides),
   * which is the in-place call; otherwise no output plane may share a byte with an input plane.
   *
   * <p>The checks come in this order, and the first that fails throws with a message that names
   * the side, the argument, its value and what was expected ({@code output uvPixelStride 3 is
   * neither 1 nor 2}); nothing is written then: closed; a null input or output; then for the
   * input and then for the output: the size against this instance's, null, indirect (and for the
   * output read-only) buffers, strides, capacities; last, overlapping planes.
   *
   * @throws IllegalStateException after {@link #close}
   * @throws NullPointerException for a null plane set or buffer
   * @throws IllegalArgumentException for a size other than this instance's, a buffer that is not
   *     direct or an output buffer that is read-only, bad strides, a capacity below what the
   *     strides and size span, or overlapping planes
   * @throws OutOfMemoryError as the in-place {@code process}
   */
  public FrameResult process(Planes input, Planes output) {
    synchronized (lock) {
      final long s = open();
      if (input == null) throw new NullPointerException("input is null");
      if (output == null) throw new NullPointerException("output is null");
      nativeProcessTo(
          s,
          width,
          height,
          input.y,
          input.yRowStride,
          input.u,
          input.v,
          input.uvRowStride,
          input.uvPixelStride,
          input.width,
          input.height,
          output.y,
          output.yRowStride,
          output.u,
          output.v,
          output.uvRowStride,
          output.uvPixelStride,
          output.width,
          output.height,
          fields);
      return new FrameResult(fields);
    }
  }

  /**
   * Starts a new sequence: the next frame primes the instance as its first frame did ({@link
   * FrameResult.Status#PRIMED}: left unchanged, or copied to the output), and the frame after it
   * is fused with it as on a new instance. For when the alternation of exposures breaks: a
   * dropped frame, an exposure change that took effect late, a seek. Allocates nothing.
   *
   * @throws IllegalStateException after {@link #close}
   */
  public void restart() {
    synchronized (lock) {
      nativeRestart(open());
    }
  }

  /**
   * Frees the native state, after a frame being processed on another thread; later calls throw
   * {@link IllegalStateException}. Closing twice is allowed.
   */
  @Override
  public void close() {
    synchronized (lock) {
      if (state == 0) return;
      nativeDestroy(state);
      state = 0;
    }
  }

  // The native state, held by lock; throws once closed.
  private long open() {
    if (state == 0) throw new IllegalStateException("VideoHdr is closed");
    return state;
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

  /** The two plane sets unpacked (the glue then reads no Java fields); throws as process says. */
  private static native void nativeProcessTo(
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
      ByteBuffer outY,
      int outYRowStride,
      ByteBuffer outU,
      ByteBuffer outV,
      int outUvRowStride,
      int outUvPixelStride,
      int outWidth,
      int outHeight,
      int[] fields);

  private static native void nativeRestart(long state);

  private static native void nativeDestroy(long state);
}
