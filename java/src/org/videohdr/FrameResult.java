package org.videohdr;

/** What {@link VideoHdr#process} did with a frame. */
public final class FrameResult {
  public enum Status {
    /** The frame now holds the fused result. */
    PROCESSED,
    /** The first frame: taken to prime the instance, left unchanged (or copied to the output). */
    PRIMED
  }

  // The native side fills an int[] in this order.
  static final int FIELDS = 7;

  private final Status status;
  private final int foundDx, foundDy, appliedDx, appliedDy;
  private final boolean currentBrighter, inPlace;

  FrameResult(int[] f) {
    status = Status.values()[f[0] - 1];
    foundDx = f[1];
    foundDy = f[2];
    appliedDx = f[3];
    appliedDy = f[4];
    currentBrighter = f[5] != 0;
    inPlace = f[6] != 0;
  }

  public Status status() {
    return status;
  }

  /** The horizontal shift the motion search found, in pixels (0 unless processed). */
  public int foundDx() {
    return foundDx;
  }

  public int foundDy() {
    return foundDy;
  }

  /** The horizontal shift applied after the jump filter (0 unless processed). */
  public int appliedDx() {
    return appliedDx;
  }

  public int appliedDy() {
    return appliedDy;
  }

  /** Whether the fusion took this frame, rather than the previous one, as the brighter exposure. */
  public boolean currentBrighter() {
    return currentBrighter;
  }

  /**
   * Whether the planes were processed where they lie, without a copy; for the recording call,
   * whether the output planes were, with the input packed into them.
   */
  public boolean inPlace() {
    return inPlace;
  }

  @Override
  public String toString() {
    return status
        + " found (" + foundDx + ", " + foundDy + ") applied (" + appliedDx + ", " + appliedDy
        + ")" + (currentBrighter ? " current brighter" : "") + (inPlace ? " in place" : "");
  }
}
