import java.nio.ByteBuffer;
import org.videohdr.VideoHdr;

/**
 * A user's Java program, built and run against an installed videohdr (the jar from share/java,
 * the native libraries from java.library.path): consumer.c's frames through the binding, one
 * FNV-1a digest per frame, which the packaging test compares with the C program's "planes" lines.
 */
public final class Consumer {
  static final int WIDTH = 1040, HEIGHT = 64, SCANLINE = 80, FRAMES = 4;
  static final int CHROMA = WIDTH * SCANLINE, FRAME_BYTES = CHROMA + WIDTH * HEIGHT / 2;

  /** consumer.c's fill_frame: blocks over a ramp, moved 2 pixels a frame, bright and dark. */
  static void fillFrame(ByteBuffer frame, int n) {
    for (int y = 0; y < HEIGHT; ++y) {
      for (int x = 0; x < WIDTH; ++x) {
        int scene = ((((x - 2 * n) >> 4) ^ (y >> 4)) & 1) != 0 ? 170 : 50;
        scene += (x >> 4) & 63;
        int level = n % 2 != 0 ? scene / 2 : scene * 3 / 2;
        frame.put(y * WIDTH + x, (byte) Math.min(level, 255));
      }
    }
    for (int i = WIDTH * HEIGHT; i < CHROMA; ++i) frame.put(i, (byte) 0x5a);
    for (int i = 0; i < WIDTH * HEIGHT / 2; ++i) frame.put(CHROMA + i, (byte) (112 + (i * 7 + n) % 32));
  }

  static long fnv1a(ByteBuffer bytes) {
    long hash = 0xcbf29ce484222325L;
    for (int i = 0; i < bytes.capacity(); ++i) hash = (hash ^ (bytes.get(i) & 0xff)) * 0x100000001b3L;
    return hash;
  }

  /** The plane that starts `offset` bytes into `frame` (Java 8 has no slice(index, length)). */
  static ByteBuffer from(ByteBuffer frame, int offset) {
    ByteBuffer view = frame.duplicate();
    view.position(offset);
    return view.slice();
  }

  public static void main(String[] args) {
    new VideoHdr(WIDTH, HEIGHT).close(); // never takes a frame: closes without a line
    ByteBuffer frame = ByteBuffer.allocateDirect(FRAME_BYTES);
    try (VideoHdr hdr = new VideoHdr(WIDTH, HEIGHT)) {
      for (int n = 0; n < FRAMES; ++n) {
        fillFrame(frame, n);
        // NV12 with the chroma 16 rows past the luma, as consumer.c gives it.
        hdr.process(frame, WIDTH, from(frame, CHROMA), from(frame, CHROMA + 1), WIDTH, 2, WIDTH,
            HEIGHT);
        System.out.printf("planes %d %016x%n", n, fnv1a(frame));
      }
    }
  }
}
