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

// One entry of a presorted list: the key (a triangle's start or end on the list's axis) and the
// triangle number, with kFlatBit set when the triangle is flat on that axis.
struct Event {
  float key;
  uint32_t tri;
};
inline constexpr uint32_t kFlatBit = 0x80000000u;

// The search over a node's starts and ends of one axis, each sorted by key. Keys outside the
// cell are clamped to it, which keeps the order. Every node is searched this way: positions
// arrive in the same order, with the same counts, as from sorting the node's own clamped starts
// and ends, so a small node gets exactly the split of that exact sweep without sorting.
AxisSplit SearchAxisEvents(const Event* starts, const Event* ends, int count, const Box& cell,
                           int axis, double leafCost);

// Which child a triangle belongs to under a split: bit 0 below, bit 1 above.
inline int Side(float start, float end, float position, bool planarBelow) {
  if (start == end && start == position) return planarBelow ? 1 : 2;
  return (start < position ? 1 : 0) | (end > position ? 2 : 0);
}

}  // namespace kdtree
VTQR_PATH_END

#endif  // VTQR_ACCEL_KDTREE_SAH_H_
