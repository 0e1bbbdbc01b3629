package org.videohdr;

import java.nio.ByteBuffer;

/**
 * One frame's three planes as {@code Image.getPlanes()} gives them, with the frame's size: the
 * argument of {@link VideoHdr#process(Planes, Planes)}. An immutable value; it holds the buffers
 * themselves, not copies, and checks nothing ({@code process} checks everything, in its
 * documented order).
 *
 * <p>Each plane starts at its buffer's first byte (position and limit are not used; pass a
 * {@code slice()} for a plane further in). {@code u} and {@code v} may alias one interleaved
 * buffer, one byte apart at a pixel stride of 2, as a camera's NV21 or NV12 planes do.
 */
public final class Planes {
  final ByteBuffer y, u, v;
  final int yRowStride, uvRowStride, uvPixelStride, width, height;

  private Planes(
      ByteBuffer y,
      int yRowStride,
      ByteBuffer u,
      ByteBuffer v,
      int uvRowStride,
      int uvPixelStride,
      int width,
      int height) {
    this.y = y;
    this.u = u;
    this.v = v;
    this.yRowStride = yRowStride;
    this.uvRowStride = uvRowStride;
    this.uvPixelStride = uvPixelStride;
    this.width = width;
    this.height = height;
  }

  /**
   * The planes of a {@code width} x {@code height} frame, in the order of {@link
   * VideoHdr#process(ByteBuffer, int, ByteBuffer, ByteBuffer, int, int, int, int)}. The size is
   * the frame's own ({@code Image.getWidth()}, {@code getHeight()}): {@code process} checks it on
   * both sides against the instance's, which catches a camera and an encoder set up for different
   * sizes.
   */
  public static Planes of(
      ByteBuffer y,
      int yRowStride,
      ByteBuffer u,
      ByteBuffer v,
      int uvRowStride,
      int uvPixelStride,
      int width,
      int height) {
    return new Planes(y, yRowStride, u, v, uvRowStride, uvPixelStride, width, height);
  }
}
