// Split search of the SAH build: the candidate rules along one axis of a node.
#ifndef VTQR_ACCEL_KDTREE_SAH_H_
#define VTQR_ACCEL_KDTREE_SAH_H_

#include <cstdint>

#include "frame/code_path.h"

VTQR_PATH_BEGIN
namespace kdtree {

// Extents not above this are too thin to split.
inline constexpr float kThinExtent = 1e-5f;

// Axis-aligned box, minimum corner first.
struct Box {
  float lo[3];
  float hi[3];
};

// The best split found on one axis. `cost` is comparable with the node's leaf cost: a child's
// count times its half surface area, summed over both children.
struct AxisSplit {
  double cost;
  float position;
  int countBelow;
  int countAbove;
  bool planarBelow;  // triangles lying in the plane go to the lower child
};

// What the candidate rules need to know about a node along one axis: the cell's extent
// [lo, hi] on it, the other two extents' contribution g = ab / (a + b) and a + b itself.
struct AxisFrame {
  float lo;
  float hi;
  double g;
  double aPlusB;
  int total;  // triangles in the node, flat or not
};

AxisFrame MakeAxisFrame(const Box& cell, int axis, int total);

inline constexpr double kNoCandidate = 1e300;

// Accumulates the candidates of one axis in the order they are generated; a later candidate
// replaces the best only when strictly cheaper, so the first of equal costs wins.
class AxisSearch {
 public:
  explicit AxisSearch(const AxisFrame& frame) : frame_(frame) {}

  // Cuts off more than a tenth of the extent left empty below the lowest start or above the
  // highest end. Returns true when it did, which ends the search of this axis.
  bool TryEmptySpace(float lowestStart, float highestEnd);

  // Candidates at the cell's faces for triangles lying in them.
  void FlatCandidates(int flatAtLo, int flatAtHi);

  // One sweep position x with the counts of triangles ending at, lying in and starting at x.
  // Positions must arrive in ascending order.
  void Position(float x, int endsAt, int planarAt, int startsAt) {
    above_ -= planarAt + endsAt;
    if (planarAt > 0) {
      Offer(x, below_ + planarAt, above_, true, SweepCost(x, below_ + planarAt, above_));
      Offer(x, below_, above_ + planarAt, false, SweepCost(x, below_, above_ + planarAt));
    } else {
      Offer(x, below_, above_, true, SweepCost(x, below_, above_));
    }
    below_ += startsAt + planarAt;
  }

  // The best candidate with its cost scaled to the leaf cost's units; `leafCost` when there was
  // none.
  AxisSplit Result(double leafCost) const;

 private:
  double SweepCost(float x, int below, int above) const {
    double w = static_cast<double>(x) - frame_.lo;
    double v = static_cast<double>(frame_.hi) - x;
    return below * (w + frame_.g) + above * (v + frame_.g);
  }
  void Offer(float x, int below, int above, bool planarBelow, double cost) {
    if (cost < best_.cost) best_ = {cost, x, below, above, planarBelow};
  }

  AxisFrame frame_;
  AxisSplit best_{kNoCandidate, 0.0f, 0, 0, true};
  int below_ = 0;
  int above_ = frame_.total;
};

// Which child a triangle goes to under a split, as a set of side bits.
inline constexpr uint8_t kSideBelow = 1;
inline constexpr uint8_t kSideAbove = 2;
inline constexpr uint8_t kSideBoth = kSideBelow | kSideAbove;
// The hot loops count sides by shifting a bit down rather than by comparing.
static_assert(kSideBelow == 1 << 0 && kSideAbove == 1 << 1);

// The side bits of a triangle spanning [start, end] on the split axis. A triangle lying in the
// plane goes to the side the search chose for such triangles.
inline uint8_t Side(float start, float end, float position, bool planarBelow) {
  if (start == end && start == position) return planarBelow ? kSideBelow : kSideAbove;
  return static_cast<uint8_t>((start < position ? kSideBelow : 0) |
                              (end > position ? kSideAbove : 0));
}

}  // namespace kdtree
VTQR_PATH_END

#endif  // VTQR_ACCEL_KDTREE_SAH_H_
