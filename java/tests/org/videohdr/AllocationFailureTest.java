package org.videohdr;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import java.nio.ByteBuffer;
import org.junit.Test;
import org.videohdr.VideoHdrTest.Camera;
import org.videohdr.VideoHdrTest.Chroma;

/**
 * Each native allocation of create, the first two frames and close made to fail in turn (run
 * with the glue and library of failing_allocator.cpp): create and the first frame throw
 * OutOfMemoryError, the frame unfused (unchanged in place, copied into the recording call's
 * output), and the instance, or a new one, then gives the bytes of an undisturbed one. Nothing
 * leaks either way.
 */
public class AllocationFailureTest {
  static final int W = 1040, H = 64;

  private static Camera input(int n) {
    return new Camera(W, H, 1088, 1088, Chroma.NV21).write(VideoHdrTest.packedScene(W, H, n));
  }

  private static Camera output() {
    return new Camera(W, H, W, W / 2, Chroma.I420);
  }

  private static FrameResult process(VideoHdr hdr, Camera in, Camera out, boolean recording) {
    return recording ? hdr.process(in.readOnlyPlanes(), out.planes()) : in.process(hdr);
  }

  /** Frames 0 and 1 through the call, each into planes of its own: the planes of the results. */
  private static ByteBuffer[][] twoFrames(VideoHdr hdr, boolean recording) {
    ByteBuffer[][] results = new ByteBuffer[2][];
    for (int n = 0; n < 2; ++n) {
      Camera in = input(n), out = output();
      process(hdr, in, out, recording);
      results[n] = recording ? out.buffers : in.buffers;
    }
    return results;
  }

  private static void failEachAllocationInTurn(boolean recording) {
    ByteBuffer[][] expected;
    try (VideoHdr hdr = new VideoHdr(W, H)) {
      expected = twoFrames(hdr, recording);
    }
    int createErrors = 0, frameErrors = 0;
    for (int n = 1; ; ++n) {
      String at = (recording ? "recording" : "in place") + ", allocation " + n + " fails";
      long live = NativeAllocations.liveBlocks();
      NativeAllocations.failNth(n);
      VideoHdr hdr = null;
      try {
        hdr = new VideoHdr(W, H);
      } catch (OutOfMemoryError e) {
        assertEquals(at, "1040x64 frames: out of memory", e.getMessage());
        ++createErrors;
        try (VideoHdr again = new VideoHdr(W, H)) {
          assertArrayEquals(at, expected, twoFrames(again, recording));
        }
      }
      if (hdr != null) {
        try (VideoHdr h = hdr) {
          Camera in = input(0), out = output();
          try {
            assertEquals(at, FrameResult.Status.PRIMED, process(h, in, out, recording).status());
            FrameResult next = process(h, input(1), output(), recording);
            assertEquals(at, FrameResult.Status.PROCESSED, next.status());
          } catch (OutOfMemoryError e) {
            assertEquals(
                at,
                "the first frame: out of memory (not fused; the next frame tries again)",
                e.getMessage());
            ++frameErrors;
            assertArrayEquals(at, input(0).buffers, in.buffers);
            Camera unfused = recording ? output().writeSamplesOf(input(0)) : output();
            assertArrayEquals(at, unfused.buffers, out.buffers);
            assertArrayEquals(at, expected, twoFrames(h, recording));
          }
        }
      }
      boolean failed = NativeAllocations.failed();
      NativeAllocations.failNth(0);
      assertEquals(at + ": blocks left", live, NativeAllocations.liveBlocks());
      if (!failed) break;
    }
    assertTrue("create failed " + createErrors + " times", createErrors > 0);
    assertTrue("the first frame failed " + frameErrors + " times", frameErrors > 0);
  }

  @Test
  public void inPlaceCallsAnswerEachAllocationFailure() {
    failEachAllocationInTurn(false);
  }

  @Test
  public void recordingCallsAnswerEachAllocationFailure() {
    failEachAllocationInTurn(true);
  }
}
