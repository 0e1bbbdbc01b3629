package org.videohdr;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;

import java.nio.ByteBuffer;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.function.Supplier;
import org.junit.Test;
import org.videohdr.VideoHdrTest.Camera;
import org.videohdr.VideoHdrTest.Chroma;

/**
 * Misuse from several threads: one instance driven and closed by racing threads, and instances
 * in parallel. A race on the native state would crash the JVM or change bytes; here every call
 * gives what one thread alone would get, or throws IllegalStateException once closed.
 */
public class ConcurrencyTest {
  static final int W = 1040, H = 64;

  interface Task {
    void run() throws Exception;
  }

  /** Runs each task on a thread of its own and fails with the first task's failure. */
  static void runTogether(Task... tasks) throws Exception {
    ExecutorService pool = Executors.newFixedThreadPool(tasks.length);
    try {
      List<Future<?>> running = new ArrayList<>();
      for (Task t : tasks) {
        running.add(pool.submit(() -> {
          t.run();
          return null;
        }));
      }
      for (Future<?> f : running) f.get(); // throws what the task threw
    } finally {
      pool.shutdown();
    }
  }

  /** One call: the output must be a copy of the frame (primed) or its fusion with itself. */
  static void processOnce(VideoHdr hdr, Planes frame, Camera out, Camera primed, Camera fused) {
    FrameResult r = hdr.process(frame, out.planes());
    Camera expected = r.status() == FrameResult.Status.PRIMED ? primed : fused;
    assertArrayEquals(r.toString(), expected.buffers, out.buffers);
  }

  /**
   * Three threads feed one instance the same read-only frame, two of them restarting it now and
   * then, and the third closes it under them after a growing number of its own calls. Until the
   * close every call gives what it gives on one thread; after it, every call throws.
   */
  @Test
  public void oneInstanceTakesRacingCallsAndACloseUnderThem() throws Exception {
    Planes frame = new Camera(W, H, 1088, 1088, Chroma.NV21)
        .write(VideoHdrTest.packedScene(W, H, 0)).readOnlyPlanes();
    Supplier<Camera> output = () -> new Camera(W, H, W, W / 2, Chroma.I420);
    Camera primed = output.get(), fused = output.get();
    try (VideoHdr alone = new VideoHdr(W, H)) {
      alone.process(frame, primed.planes());
      alone.process(frame, fused.planes());
    }
    for (int round = 0; round < 24; ++round) {
      final int callsBeforeClose = 4 * round;
      VideoHdr hdr = new VideoHdr(W, H);
      Task worker = () -> {
        Camera out = output.get();
        try {
          for (int i = 1; ; ++i) {
            processOnce(hdr, frame, out, primed, fused);
            if (i % 5 == 0) hdr.restart();
          }
        } catch (IllegalStateException closed) {
          assertEquals("VideoHdr is closed", closed.getMessage());
        }
      };
      Task closer = () -> {
        Camera out = output.get();
        try {
          for (int i = 0; i < callsBeforeClose; ++i) processOnce(hdr, frame, out, primed, fused);
        } finally {
          hdr.close();
        }
      };
      runTogether(worker, worker, closer);
    }
  }

  /** Instances on three threads at once give the bytes one instance gives alone. */
  @Test
  public void instancesInParallelGiveTheSameBytes() throws Exception {
    Supplier<Camera> camera = () -> new Camera(W, H, 1088, 1088, Chroma.NV21);
    ByteBuffer[][] expected = new ByteBuffer[6][];
    try (VideoHdr alone = new VideoHdr(W, H)) {
      for (int n = 0; n < expected.length; ++n) {
        Camera c = camera.get().write(VideoHdrTest.packedScene(W, H, n));
        c.process(alone);
        expected[n] = c.buffers;
      }
    }
    Task worker = () -> {
      for (int round = 0; round < 12; ++round) {
        try (VideoHdr hdr = new VideoHdr(W, H)) {
          for (int n = 0; n < expected.length; ++n) {
            Camera c = camera.get().write(VideoHdrTest.packedScene(W, H, n));
            c.process(hdr);
            assertArrayEquals(expected[n], c.buffers);
          }
        }
      }
    };
    runTogether(worker, worker, worker);
  }
}
