package org.videohdr;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import java.nio.ByteBuffer;
import org.junit.Test;

/**
 * The binding on direct buffers laid out as a camera's, against the library's contiguous C call
 * on a tightly packed copy of the same pixels; and the exceptions.
 */
public class VideoHdrTest {
  private static final byte SENTINEL = (byte) 0xA5;
  private static final int FRAMES = 4;

  enum Chroma {
    NV21, // u and v alias one interleaved buffer, v first; each one byte short of it
    NV12,
    I420 // pixel stride 1, buffers of their own
  }

  /** A camera's planes; every byte that is not a sample holds the sentinel. */
  static final class Camera {
    final int width, height, yRowStride, uvRowStride, pixelStride;
    final Chroma chroma;
    final ByteBuffer[] buffers; // whole allocations, compared byte for byte
    final ByteBuffer y, u, v;

    /** oneBuffer: the chroma right after the luma rows in the luma's buffer. */
    Camera(int w, int h, int yRowStride, int uvRowStride, Chroma chroma, boolean oneBuffer) {
      this.width = w;
      this.height = h;
      this.yRowStride = yRowStride;
      this.uvRowStride = uvRowStride;
      this.pixelStride = chroma == Chroma.I420 ? 1 : 2;
      this.chroma = chroma;
      int lumaBytes = yRowStride * (h - 1) + w;
      int chromaBytes = uvRowStride * (h / 2 - 1) + pixelStride * (w / 2 - 1) + 1;
      int pairBytes = chroma == Chroma.I420 ? chromaBytes : chromaBytes + 1;
      ByteBuffer pairs;
      if (oneBuffer) {
        buffers = new ByteBuffer[] {filled(yRowStride * h + pairBytes)};
        pairs = buffers[0].slice(yRowStride * h, pairBytes);
      } else if (chroma == Chroma.I420) {
        buffers = new ByteBuffer[] {filled(lumaBytes), filled(chromaBytes), filled(chromaBytes)};
        pairs = buffers[1];
      } else {
        buffers = new ByteBuffer[] {filled(lumaBytes), filled(pairBytes)};
        pairs = buffers[1];
      }
      y = buffers[0].slice(0, lumaBytes);
      ByteBuffer first = pairs.slice(0, chromaBytes);
      ByteBuffer second = chroma == Chroma.I420 ? buffers[2] : pairs.slice(1, chromaBytes);
      u = chroma == Chroma.NV21 ? second : first;
      v = chroma == Chroma.NV21 ? first : second;
    }

    private static ByteBuffer filled(int bytes) {
      ByteBuffer b = ByteBuffer.allocateDirect(bytes);
      for (int i = 0; i < bytes; ++i) b.put(i, SENTINEL);
      return b;
    }

    /** Writes pixels {Y, U, V} into the planes. */
    void write(byte[][] p) {
      for (int r = 0; r < height; ++r) y.put(r * yRowStride, p[0], r * width, width);
      for (int r = 0; r < height / 2; ++r) {
        for (int c = 0; c < width / 2; ++c) {
          int i = r * (width / 2) + c;
          u.put(r * uvRowStride + c * pixelStride, p[1][i]);
          v.put(r * uvRowStride + c * pixelStride, p[2][i]);
        }
      }
    }

    FrameResult process(VideoHdr hdr) {
      return hdr.process(y, yRowStride, u, v, uvRowStride, pixelStride, width, height);
    }
  }

  /** Frame n of a textured scene panning 2 pixels a frame and shaking 2 rows, bright on even n. */
  static byte[][] scene(int w, int h, int n) {
    byte[][] p = {new byte[w * h], new byte[w * h / 4], new byte[w * h / 4]};
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        int sx = x + 2 * n, sy = y + 2 * (n % 2);
        int v = ((sx >> 4) * 73 + (sy >> 4) * 151) % 200 + ((sx * 7 + sy * 13) & 31);
        p[0][y * w + x] = (byte) (n % 2 == 0 ? v : v / 2);
      }
    }
    for (int i = 0; i < w * h / 4; ++i) {
      p[1][i] = (byte) (i * 7 + n * 3);
      p[2][i] = (byte) (200 - i * 5 % 150 - n);
    }
    return p;
  }

  /** Packs pixels into a tightly packed NV21 (vFirst) or NV12 frame, or back (toPacked false). */
  static void pack(byte[][] p, ByteBuffer frame, boolean vFirst, boolean toPacked) {
    int luma = p[0].length;
    if (toPacked) frame.put(0, p[0]);
    else frame.get(0, p[0]);
    for (int i = 0; i < p[1].length; ++i) {
      int first = luma + 2 * i, second = first + 1;
      int at1 = vFirst ? second : first, at2 = vFirst ? first : second;
      if (toPacked) {
        frame.put(at1, p[1][i]).put(at2, p[2][i]);
      } else {
        p[1][i] = frame.get(at1);
        p[2][i] = frame.get(at2);
      }
    }
  }

  private static void expectSameAsPacked(
      String name, int w, int h, int yRowStride, int uvRowStride, Chroma chroma, boolean oneBuffer) {
    boolean vFirst = chroma == Chroma.NV21; // planes that do not interleave pack U first
    try (VideoHdr hdr = new VideoHdr(w, h);
        PackedReference reference = new PackedReference()) {
      ByteBuffer packed = ByteBuffer.allocateDirect(w * h * 3 / 2);
      for (int n = 0; n < FRAMES; ++n) {
        String at = name + ", frame " + n;
        byte[][] pixels = scene(w, h, n);
        Camera camera = new Camera(w, h, yRowStride, uvRowStride, chroma, oneBuffer);
        camera.write(pixels);
        FrameResult r = camera.process(hdr);

        pack(pixels, packed, vFirst, true);
        int[] shifts = reference.process(packed, w, h);
        byte[][] fused = scene(w, h, 0); // sized; every byte is overwritten
        pack(fused, packed, vFirst, false);
        Camera expected = new Camera(w, h, yRowStride, uvRowStride, chroma, oneBuffer);
        expected.write(fused);
        assertArrayEquals(at, expected.buffers, camera.buffers);
        assertEquals(at, n == 0 ? FrameResult.Status.PRIMED : FrameResult.Status.PROCESSED,
            r.status());
        assertEquals(at, oneBuffer && yRowStride == w, r.inPlace());
        if (n == 0) continue;
        int[] got = {r.foundDx(), r.foundDy(), r.appliedDx(), r.appliedDy()};
        assertArrayEquals(at, shifts, got);
        assertEquals(at, n % 2 == 0, r.currentBrighter());
      }
    }
  }

  @Test
  public void cameraLayoutsGiveThePackedFramesBytesAndShifts() {
    expectSameAsPacked("nv21 1280 in 1536", 1280, 720, 1536, 1536, Chroma.NV21, false);
    expectSameAsPacked("nv12 1280 in 1536", 1280, 720, 1536, 1536, Chroma.NV12, false);
    expectSameAsPacked("i420 1280 in 1536", 1280, 720, 1536, 768, Chroma.I420, false);
    expectSameAsPacked("nv21 864 in 896", 864, 480, 896, 896, Chroma.NV21, false);
    expectSameAsPacked("i420 864 in 896", 864, 480, 896, 448, Chroma.I420, false);
    expectSameAsPacked("nv21 padded, one buffer", 1280, 720, 1536, 1536, Chroma.NV21, true);
    expectSameAsPacked("nv21 packed, one buffer", 1280, 720, 1280, 1280, Chroma.NV21, true);
  }

  @Test
  public void badCallsThrowAndWriteNothing() {
    Camera c = new Camera(1280, 720, 1536, 1536, Chroma.NV21, false);
    c.write(scene(1280, 720, 0));
    Camera before = new Camera(1280, 720, 1536, 1536, Chroma.NV21, false);
    before.write(scene(1280, 720, 0));
    VideoHdr hdr = new VideoHdr(1280, 720);
    try {
      ByteBuffer heap = ByteBuffer.allocate(c.y.capacity());
      ByteBuffer shortU = c.u.slice(0, c.u.capacity() - 1);
      expectThrow(IllegalArgumentException.class, "y is not a direct ByteBuffer",
          () -> hdr.process(heap, 1536, c.u, c.v, 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class, "u holds 552702 bytes; the strides and size"
          + " given need 552703", () -> hdr.process(c.y, 1536, shortU, c.v, 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class, "v is read-only",
          () -> hdr.process(c.y, 1536, c.u, c.v.asReadOnlyBuffer(), 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class, "uvPixelStride must be 1 or 2",
          () -> hdr.process(c.y, 1536, c.u, c.v, 1536, 3, 1280, 720));
      expectThrow(IllegalArgumentException.class, "yRowStride is below width",
          () -> hdr.process(c.y, 1000, c.u, c.v, 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class, "differ from the state's",
          () -> hdr.process(c.y, 1536, c.u, c.v, 1536, 2, 1280, 718));
      expectThrow(IllegalArgumentException.class, "planes overlap",
          () -> hdr.process(c.y, 1536, c.u, c.u, 1536, 2, 1280, 720));
      expectThrow(NullPointerException.class, "u",
          () -> hdr.process(c.y, 1536, null, c.v, 1536, 2, 1280, 720));
      assertArrayEquals(before.buffers, c.buffers);
      assertEquals(FrameResult.Status.PRIMED, c.process(hdr).status());
      hdr.close();
      expectThrow(IllegalStateException.class, "VideoHdr is closed", () -> c.process(hdr));
    } finally {
      hdr.close(); // a second close is allowed
    }
    expectThrow(IllegalArgumentException.class, "width and height must be positive and even",
        () -> new VideoHdr(1281, 720));
  }

  private static void expectThrow(Class<? extends Throwable> type, String message, Runnable call) {
    Throwable t = assertThrows(type, call::run);
    assertTrue(t.getMessage(), t.getMessage().contains(message));
  }
}
