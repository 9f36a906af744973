// Candidate rules of the split search along one axis.
#include "accel/kdtree_sah.h"

VTQR_PATH_BEGIN
namespace kdtree {

AxisFrame MakeAxisFrame(const Box& cell, int axis, int total) {
  int axisA = axis == 0 ? 1 : 0;
  int axisB = axis == 2 ? 1 : 2;
  double a = cell.hi[axisA] - cell.lo[axisA];
  double b = cell.hi[axisB] - cell.lo[axisB];
  double ab = a * b;
  // A child's surface area over 2 (a + b) is its width plus g; a cell flat on both other axes
  // has no area to share out, and the quotient would be noise.
  double g = ab < 1e-9 ? 0.0 : ab / (a + b);
  return {cell.lo[axis], cell.hi[axis], g, a + b, total};
}

bool AxisSearch::TryEmptySpace(float lowestStart, float highestEnd) {
  float tenth = 0.1f * (frame_.hi - frame_.lo);
  bool cutBelow = lowestStart - frame_.lo > tenth;
  bool cutAbove = frame_.hi - highestEnd > tenth;
  if (!cutBelow && !cutAbove) return false;
  double n = frame_.total;
  // Cutting empty space away costs only the occupied child; the discount of 0.7 makes such a
  // cut win over a sweep position of about the same cost, since it shrinks every later cell.
  if (cutBelow) {
    double cost = n * ((static_cast<double>(frame_.hi) - lowestStart) + frame_.g);
    best_ = {0.7 * cost, lowestStart, 0, frame_.total, false};
  }
  if (cutAbove) {
    double cost = n * ((static_cast<double>(highestEnd) - frame_.lo) + frame_.g);
    if (!cutBelow || 0.7 * cost < best_.cost) {
      best_ = {0.7 * cost, highestEnd, frame_.total, 0, true};
    }
  }
  return true;
}

void AxisSearch::FlatCandidates(int flatAtLo, int flatAtHi) {
  double width = static_cast<double>(frame_.hi) - frame_.lo;
  int others = frame_.total;
  // Triangles lying in a face of the cell go into an empty-volume child of their own.
  if (flatAtLo > 0) {
    double cost = flatAtLo * frame_.g + (others - flatAtLo) * (width + frame_.g);
    Offer(frame_.lo, flatAtLo, others - flatAtLo, true, 0.7 * cost);
  }
  if (flatAtHi > 0) {
    double cost = (others - flatAtHi) * (width + frame_.g) + flatAtHi * frame_.g;
    Offer(frame_.hi, others - flatAtHi, flatAtHi, false, 0.7 * cost);
  }
}

AxisSplit AxisSearch::Result(double leafCost) const {
  if (best_.cost == kNoCandidate) return {leafCost, frame_.lo, 0, 0, true};
  AxisSplit result = best_;
  result.cost *= frame_.aPlusB;
  return result;
}

}  // namespace kdtree
VTQR_PATH_END
