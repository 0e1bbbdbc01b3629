package org.videohdr;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;

import java.nio.ByteBuffer;
import org.junit.Test;

/**
 * The binding on direct buffers laid out as a camera's, against Video_HDR_Process on a tightly
 * packed copy of the same pixels; and the exceptions.
 */
public class VideoHdrTest {
  /** NV21, NV12: u and v alias one interleaved buffer, each one byte short of it. */
  enum Chroma {
    NV21,
    NV12,
    I420
  }

  /** A camera's planes; every byte that is not a sample holds 0xA5. */
  static final class Camera {
    final int w, h, yRowStride, uvRowStride, pixelStride;
    final ByteBuffer[] buffers; // whole allocations, compared byte for byte
    final ByteBuffer y, u, v, first, second; // first, second: in the packed frame's order

    Camera(int w, int h, int yRowStride, int uvRowStride, Chroma chroma) {
      this.w = w;
      this.h = h;
      this.yRowStride = yRowStride;
      this.uvRowStride = uvRowStride;
      pixelStride = chroma == Chroma.I420 ? 1 : 2;
      int lumaBytes = yRowStride * (h - 1) + w;
      int chromaBytes = uvRowStride * (h / 2 - 1) + pixelStride * (w / 2 - 1) + 1;
      buffers = // an interleaved pair of planes spans one byte more than either
          chroma == Chroma.I420
              ? new ByteBuffer[] {filled(lumaBytes), filled(chromaBytes), filled(chromaBytes)}
              : new ByteBuffer[] {filled(lumaBytes), filled(chromaBytes + 1)};
      y = buffers[0];
      first = buffers[1].slice(0, chromaBytes);
      second = chroma == Chroma.I420 ? buffers[2] : buffers[1].slice(1, chromaBytes);
      u = chroma == Chroma.NV21 ? second : first;
      v = chroma == Chroma.NV21 ? first : second;
    }

    private static ByteBuffer filled(int bytes) {
      ByteBuffer b = ByteBuffer.allocateDirect(bytes);
      for (int i = 0; i < bytes; ++i) b.put(i, (byte) 0xA5);
      return b;
    }

    /** The pixels of a tightly packed frame, V first for NV21, else U first. */
    Camera write(ByteBuffer packed) {
      for (int r = 0; r < h; ++r) y.put(r * yRowStride, packed, r * w, w);
      for (int r = 0; r < h / 2; ++r) {
        for (int c = 0; c < w / 2; ++c) {
          int at = r * uvRowStride + c * pixelStride, pair = w * h + r * w + 2 * c;
          first.put(at, packed.get(pair));
          second.put(at, packed.get(pair + 1));
        }
      }
      return this;
    }

    FrameResult process(VideoHdr hdr) {
      return hdr.process(y, yRowStride, u, v, uvRowStride, pixelStride, w, h);
    }
  }

  /** Frame n, packed: a texture panning 2 pixels a frame and shaking 2 rows, bright on even n. */
  static ByteBuffer packedScene(int w, int h, int n) {
    ByteBuffer f = ByteBuffer.allocateDirect(w * h * 3 / 2);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        int sx = x + 2 * n, sy = y + 2 * (n % 2);
        int v = ((sx >> 4) * 73 + (sy >> 4) * 151) % 200 + ((sx * 7 + sy * 13) & 31);
        f.put(y * w + x, (byte) (n % 2 == 0 ? v : v / 2));
      }
    }
    for (int i = w * h; i < f.capacity(); ++i) f.put(i, (byte) (i % 2 == 0 ? i * 7 + n : 200 - n));
    return f;
  }

  private static void expectSameAsPacked(
      String name, int w, int h, int yRowStride, int uvRowStride, Chroma chroma) {
    try (VideoHdr hdr = new VideoHdr(w, h);
        PackedReference reference = new PackedReference()) {
      for (int n = 0; n < 4; ++n) {
        String at = name + ", frame " + n;
        ByteBuffer packed = packedScene(w, h, n);
        Camera camera = new Camera(w, h, yRowStride, uvRowStride, chroma).write(packed);
        FrameResult r = camera.process(hdr);
        int[] shifts = reference.process(packed, w, h); // packed now holds the fused frame
        Camera expected = new Camera(w, h, yRowStride, uvRowStride, chroma);
        assertArrayEquals(at, expected.write(packed).buffers, camera.buffers);
        assertEquals(
            at, n == 0 ? FrameResult.Status.PRIMED : FrameResult.Status.PROCESSED, r.status());
        assertEquals(at, false, r.inPlace()); // padded rows are always packed first
        if (n == 0) continue;
        int[] got = {r.foundDx(), r.foundDy(), r.appliedDx(), r.appliedDy()};
        assertArrayEquals(at, shifts, got);
        assertEquals(at, n % 2 == 0, r.currentBrighter());
      }
    }
  }

  @Test
  public void cameraLayoutsGiveThePackedFramesBytesAndShifts() {
    expectSameAsPacked("nv21 1280 in 1536", 1280, 720, 1536, 1536, Chroma.NV21);
    expectSameAsPacked("nv12 1280 in 1536", 1280, 720, 1536, 1536, Chroma.NV12);
    expectSameAsPacked("i420 1280 in 1536", 1280, 720, 1536, 768, Chroma.I420);
    expectSameAsPacked("nv21 864 in 896", 864, 480, 896, 896, Chroma.NV21);
    expectSameAsPacked("i420 864 in 896", 864, 480, 896, 448, Chroma.I420);
  }

  @Test
  public void badCallsThrowNamingTheArgumentAndWriteNothing() {
    ByteBuffer packed = packedScene(1280, 720, 0);
    Camera c = new Camera(1280, 720, 1536, 1536, Chroma.NV21).write(packed);
    Camera before = new Camera(1280, 720, 1536, 1536, Chroma.NV21).write(packed);
    VideoHdr hdr = new VideoHdr(1280, 720);
    try {
      ByteBuffer heap = ByteBuffer.allocate(c.y.capacity());
      ByteBuffer shortU = c.u.slice(0, c.u.capacity() - 1);
      ByteBuffer readOnlyV = c.v.asReadOnlyBuffer();
      ByteBuffer uInY = c.y.slice(8, c.u.capacity());
      // The size first, as the C entry point: the strides would not fit 1920 either.
      expectThrow(IllegalArgumentException.class, "width 1920 differs from this instance's 1280",
          () -> hdr.process(c.y, 1536, c.u, c.v, 1536, 2, 1920, 1080));
      expectThrow(IllegalArgumentException.class, "height 718 differs from this instance's 720",
          () -> hdr.process(c.y, 1536, c.u, c.v, 1536, 2, 1280, 718));
      expectThrow(NullPointerException.class, "u is null",
          () -> hdr.process(c.y, 1536, null, c.v, 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class, "y is not a direct ByteBuffer",
          () -> hdr.process(heap, 1536, c.u, c.v, 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class,
          "v is read-only: the fused frame is written into it",
          () -> hdr.process(c.y, 1536, c.u, readOnlyV, 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class, "uvPixelStride 3 is neither 1 nor 2",
          () -> hdr.process(c.y, 1536, c.u, c.v, 1536, 3, 1280, 720));
      expectThrow(IllegalArgumentException.class, "yRowStride 1000 is below width 1280",
          () -> hdr.process(c.y, 1000, c.u, c.v, 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class,
          "uvRowStride 1200 is below uvPixelStride * (width / 2) = 1280",
          () -> hdr.process(c.y, 1536, c.u, c.v, 1200, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class, // 1536 * 359 + 2 * 639 + 1
          "u holds 552702 bytes, below the 552703 its plane spans"
              + " (uvRowStride 1536, uvPixelStride 2, 1280x720)",
          () -> hdr.process(c.y, 1536, shortU, c.v, 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class, // 1537 * 719 + 1280
          "y holds 1105664 bytes, below the 1106383 its plane spans (yRowStride 1537, 1280x720)",
          () -> hdr.process(c.y, 1537, c.u, c.v, 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class,
          "y and u overlap: u starts 8 bytes after y, which spans 1105664",
          () -> hdr.process(c.y, 1536, uInY, c.v, 1536, 2, 1280, 720));
      expectThrow(IllegalArgumentException.class,
          "u and v overlap: v starts 0 bytes after u, which spans 552703 (u and v may share"
              + " bytes only interleaved: uvPixelStride 2, one byte apart)",
          () -> hdr.process(c.y, 1536, c.u, c.u, 1536, 2, 1280, 720));
      assertArrayEquals(before.buffers, c.buffers);
      assertEquals(FrameResult.Status.PRIMED, c.process(hdr).status());
      hdr.close();
      expectThrow(IllegalStateException.class, "VideoHdr is closed", () -> c.process(hdr));
      // Closed comes first, before anything about the buffers.
      expectThrow(IllegalStateException.class, "VideoHdr is closed",
          () -> hdr.process(c.y, 1536, c.u, readOnlyV, 1536, 2, 1920, 1080));
    } finally {
      hdr.close(); // a second close is allowed
    }
    expectThrow(IllegalArgumentException.class, "width 1281 is not positive and even (4:2:0"
        + " chroma)", () -> new VideoHdr(1281, 720));
    expectThrow(IllegalArgumentException.class, "height 0 is not positive and even (4:2:0"
        + " chroma)", () -> new VideoHdr(1280, 0));
    expectThrow(IllegalArgumentException.class, "width * height = 2625536 is above the"
        + " library's 2621440", () -> new VideoHdr(2048, 1282));
  }

  private static void expectThrow(Class<? extends Throwable> type, String message, Runnable call) {
    assertEquals(message, assertThrows(type, call::run).getMessage());
  }
}
