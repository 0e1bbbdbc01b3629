package org.videohdr;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;

import java.nio.ByteBuffer;
import java.util.function.Supplier;
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

  /**
   * A camera's planes; every byte that is not a sample holds 0xA5. Contiguous: one buffer of the
   * library's own layout (strides = width, interleaved chroma right after the luma).
   */
  static final class Camera {
    final int w, h, yRowStride, uvRowStride, pixelStride;
    final Chroma chroma;
    final boolean contiguous;
    final ByteBuffer[] buffers; // whole allocations, compared byte for byte
    final ByteBuffer y, u, v;

    Camera(int w, int h, int yRowStride, int uvRowStride, Chroma chroma) {
      this(w, h, yRowStride, uvRowStride, chroma, false);
    }

    Camera(int w, int h, int yRowStride, int uvRowStride, Chroma chroma, boolean contiguous) {
      this.w = w;
      this.h = h;
      this.yRowStride = yRowStride;
      this.uvRowStride = uvRowStride;
      this.chroma = chroma;
      this.contiguous = contiguous;
      pixelStride = chroma == Chroma.I420 ? 1 : 2;
      int lumaBytes = yRowStride * (h - 1) + w;
      int chromaBytes = uvRowStride * (h / 2 - 1) + pixelStride * (w / 2 - 1) + 1;
      buffers = // an interleaved pair of planes spans one byte more than either
          contiguous
              ? new ByteBuffer[] {filled(lumaBytes + chromaBytes + 1)}
              : chroma == Chroma.I420
                  ? new ByteBuffer[] {filled(lumaBytes), filled(chromaBytes), filled(chromaBytes)}
                  : new ByteBuffer[] {filled(lumaBytes), filled(chromaBytes + 1)};
      y = buffers[0].slice(0, lumaBytes);
      ByteBuffer pairs = contiguous ? buffers[0].slice(lumaBytes, chromaBytes + 1) : buffers[1];
      ByteBuffer first = pairs.slice(0, chromaBytes);
      ByteBuffer second = chroma == Chroma.I420 ? buffers[2] : pairs.slice(1, chromaBytes);
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
      return move(packed, chroma == Chroma.NV21, false);
    }

    /** Another camera of this one's layout, holding the same pixels. */
    Camera copy() {
      return new Camera(w, h, yRowStride, uvRowStride, chroma, contiguous).writeSamplesOf(this);
    }

    /** The samples between the planes and a packed frame (V first or U first), either way. */
    private Camera move(ByteBuffer packed, boolean vFirst, boolean intoPacked) {
      for (int r = 0; r < h; ++r) {
        if (intoPacked) packed.put(r * w, y, r * yRowStride, w);
        else y.put(r * yRowStride, packed, r * w, w);
      }
      for (int r = 0; r < h / 2; ++r) {
        for (int c = 0; c < w / 2; ++c) {
          int at = r * uvRowStride + c * pixelStride, pair = w * h + r * w + 2 * c;
          int uAt = pair + (vFirst ? 1 : 0), vAt = pair + (vFirst ? 0 : 1);
          if (intoPacked) {
            packed.put(uAt, u.get(at)).put(vAt, v.get(at));
          } else {
            u.put(at, packed.get(uAt));
            v.put(at, packed.get(vAt));
          }
        }
      }
      return this;
    }

    /** The pixels of another camera's planes, sample by sample. */
    Camera writeSamplesOf(Camera other) {
      ByteBuffer packed = ByteBuffer.allocateDirect(w * h * 3 / 2);
      other.move(packed, true, true);
      return move(packed, true, false);
    }

    Planes planes() {
      return Planes.of(y, yRowStride, u, v, uvRowStride, pixelStride, w, h);
    }

    /** The same planes through read-only views, as an ImageReader may hand them out. */
    Planes readOnlyPlanes() {
      return Planes.of(y.asReadOnlyBuffer(), yRowStride, u.asReadOnlyBuffer(),
          v.asReadOnlyBuffer(), uvRowStride, pixelStride, w, h);
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

  /** What the recording call must share with the in-place call: all but where it ran. */
  static String outcome(FrameResult r) {
    return r.status() + " found " + r.foundDx() + "," + r.foundDy() + " applied " + r.appliedDx()
        + "," + r.appliedDy() + " brighter " + r.currentBrighter();
  }

  /**
   * process(input, output) from read-only views of each input against the in-place call on a
   * writable copy of it: the output's samples are the copy's, its other bytes stay 0xA5, and the
   * input is unchanged.
   */
  private static void expectRecordingAsInPlace(
      String name, Supplier<Camera> input, Supplier<Camera> output, boolean inPlace) {
    Camera shape = input.get();
    try (VideoHdr recorder = new VideoHdr(shape.w, shape.h);
        VideoHdr reference = new VideoHdr(shape.w, shape.h)) {
      for (int n = 0; n < 4; ++n) {
        String at = name + ", frame " + n;
        ByteBuffer scene = packedScene(shape.w, shape.h, n);
        Camera in = input.get().write(scene), copy = in.copy(), out = output.get();
        FrameResult r = recorder.process(in.readOnlyPlanes(), out.planes());
        assertEquals(at, outcome(copy.process(reference)), outcome(r));
        assertArrayEquals(at, output.get().writeSamplesOf(copy).buffers, out.buffers);
        assertArrayEquals(at, input.get().write(scene).buffers, in.buffers);
        assertEquals(at, inPlace, r.inPlace());
      }
    }
  }

  @Test
  public void recordingFromReadOnlyPlanesGivesTheInPlaceCallsSamples() {
    Supplier<Camera> nv21 = () -> new Camera(1280, 720, 1536, 1536, Chroma.NV21);
    Supplier<Camera> i420 = () -> new Camera(1280, 720, 1536, 768, Chroma.I420);
    Supplier<Camera> packedNv12 = () -> new Camera(1280, 720, 1280, 1280, Chroma.NV12, true);
    expectRecordingAsInPlace(
        "nv21 into nv12", nv21, () -> new Camera(1280, 720, 1344, 1344, Chroma.NV12), false);
    expectRecordingAsInPlace(
        "nv21 into i420", nv21, () -> new Camera(1280, 720, 1280, 640, Chroma.I420), false);
    // Outputs of the library's own layout: processed where they lie when the order is the input's.
    expectRecordingAsInPlace("nv21 into packed nv12", nv21, packedNv12, false);
    expectRecordingAsInPlace("i420 into packed nv12", i420, packedNv12, true);
    expectRecordingAsInPlace("nv21 into packed nv21",
        nv21, () -> new Camera(1280, 720, 1280, 1280, Chroma.NV21, true), true);
    // The input as its own output is the in-place call.
    try (VideoHdr recorder = new VideoHdr(1280, 720); VideoHdr reference = new VideoHdr(1280, 720)) {
      for (int n = 0; n < 2; ++n) {
        Camera c = nv21.get().write(packedScene(1280, 720, n)), copy = c.copy();
        FrameResult r = recorder.process(c.planes(), c.planes());
        assertEquals(outcome(copy.process(reference)), outcome(r));
        assertArrayEquals(copy.buffers, c.buffers);
      }
    }
  }

  @Test
  public void restartPrimesAgainAsANewInstance() {
    Supplier<Camera> nv21 = () -> new Camera(1280, 720, 1536, 1536, Chroma.NV21);
    Supplier<Camera> i420 = () -> new Camera(1280, 720, 1280, 640, Chroma.I420);
    try (VideoHdr restarted = new VideoHdr(1280, 720); VideoHdr fresh = new VideoHdr(1280, 720)) {
      for (int n = 0; n < 5; ++n) {
        if (n == 3) restarted.restart();
        Camera in = nv21.get().write(packedScene(1280, 720, n)), out = i420.get();
        FrameResult r = restarted.process(in.readOnlyPlanes(), out.planes());
        if (n < 3) continue;
        Camera expected = i420.get();
        assertEquals(outcome(fresh.process(in.readOnlyPlanes(), expected.planes())), outcome(r));
        assertArrayEquals(expected.buffers, out.buffers);
      }
    }
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

  @Test
  public void badRecordingCallsThrowNamingTheSideAndWriteNothing() {
    Camera in = new Camera(1280, 720, 1536, 1536, Chroma.NV21).write(packedScene(1280, 720, 0));
    Camera out = new Camera(1280, 720, 1280, 640, Chroma.I420);
    Camera inBefore = in.copy(), outBefore = out.copy();
    Planes ro = in.readOnlyPlanes(), o = out.planes();
    VideoHdr hdr = new VideoHdr(1280, 720);
    try {
      expectThrow(NullPointerException.class, "input is null", () -> hdr.process(null, o));
      expectThrow(NullPointerException.class, "output is null", () -> hdr.process(ro, null));
      expectThrow(IllegalArgumentException.class, "input width 1920 differs from this instance's"
          + " 1280", () -> hdr.process(Planes.of(in.y, 1536, in.u, in.v, 1536, 2, 1920, 1080), o));
      expectThrow(IllegalArgumentException.class, "output height 718 differs from this"
          + " instance's 720", () -> hdr.process(ro, output(out.y, out.u, out.v, 640, 1, 718)));
      expectThrow(NullPointerException.class, "input u is null",
          () -> hdr.process(Planes.of(in.y, 1536, null, in.v, 1536, 2, 1280, 720), o));
      expectThrow(IllegalArgumentException.class, "output y is not a direct ByteBuffer",
          () -> hdr.process(ro, output(ByteBuffer.allocate(921600), out.u, out.v, 640, 1, 720)));
      expectThrow(IllegalArgumentException.class, "output v is read-only: the fused frame is"
          + " written into it",
          () -> hdr.process(ro, output(out.y, out.u, out.v.asReadOnlyBuffer(), 640, 1, 720)));
      expectThrow(IllegalArgumentException.class, "input uvPixelStride 3 is neither 1 nor 2",
          () -> hdr.process(Planes.of(in.y, 1536, in.u, in.v, 1536, 3, 1280, 720), o));
      expectThrow(IllegalArgumentException.class,
          "output uvRowStride 639 is below uvPixelStride * (width / 2) = 640",
          () -> hdr.process(ro, output(out.y, out.u, out.v, 639, 1, 720)));
      expectThrow(IllegalArgumentException.class, "output u holds 230399 bytes, below the 230400"
          + " its plane spans (uvRowStride 640, uvPixelStride 1, 1280x720)",
          () -> hdr.process(ro, output(out.y, out.u.slice(0, 230399), out.v, 640, 1, 720)));
      expectThrow(IllegalArgumentException.class, "input y and input u overlap: input u starts 8"
          + " bytes after input y, which spans 1105664",
          () -> hdr.process(Planes.of(in.y, 1536, in.y.slice(8, 552703), in.v, 1536, 2, 1280,
              720), o));
      expectThrow(IllegalArgumentException.class, "output u and output v overlap: output v starts"
          + " 0 bytes after output u, which spans 230400 (u and v may share bytes only"
          + " interleaved: uvPixelStride 2, one byte apart)",
          () -> hdr.process(ro, output(out.y, out.u, out.u, 640, 1, 720)));
      expectThrow(IllegalArgumentException.class, "input y and output y overlap: output y starts"
          + " 0 bytes after input y, which spans 1105664",
          () -> hdr.process(ro, output(in.y, out.u, out.v, 640, 1, 720)));
      assertArrayEquals(inBefore.buffers, in.buffers);
      assertArrayEquals(outBefore.buffers, out.buffers);
      hdr.close();
      expectThrow(IllegalStateException.class, "VideoHdr is closed", () -> hdr.process(ro, o));
      expectThrow(IllegalStateException.class, "VideoHdr is closed", hdr::restart);
    } finally {
      hdr.close();
    }
  }

  /** A 1280-wide output of rows 1280 bytes apart. */
  private static Planes output(ByteBuffer y, ByteBuffer u, ByteBuffer v, int uvRowStride,
      int uvPixelStride, int height) {
    return Planes.of(y, 1280, u, v, uvRowStride, uvPixelStride, 1280, height);
  }

  private static void expectThrow(Class<? extends Throwable> type, String message, Runnable call) {
    assertEquals(message, assertThrows(type, call::run).getMessage());
  }
}
