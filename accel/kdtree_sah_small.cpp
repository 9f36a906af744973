// Exact sweep of a small node: the node's own triangle starts and ends, sorted on the spot.
#include <algorithm>
#include <bit>

#include "accel/kdtree_sah.h"

VTQR_PATH_BEGIN
namespace kdtree {
namespace {

// Event kinds in the order they sort at one position: a triangle ending at x has left the
// upper side before the ones lying in x are counted, and those before the ones starting at x.
enum EventKind : uint64_t { kEnd = 0, kPlanar = 1, kStart = 2 };

// Sort key: the float's bits mapped to an unsigned order, then the kind.
uint64_t EventKey(float x, EventKind kind) {
  uint32_t bits = std::bit_cast<uint32_t>(x);
  bits ^= (bits >> 31) != 0 ? 0xFFFFFFFFu : 0x80000000u;
  return (uint64_t{bits} << 2) | kind;
}

float EventPosition(uint64_t key) {
  auto bits = static_cast<uint32_t>(key >> 2);
  bits ^= (bits >> 31) != 0 ? 0x80000000u : 0xFFFFFFFFu;
  return std::bit_cast<float>(bits);
}

}  // namespace

AxisSplit SearchAxisSmall(const Box* boxes, const int32_t* ids, int count, const Box& cell,
                          int axis, double leafCost) {
  AxisSearch search(MakeAxisFrame(cell, axis, count));
  float lo = cell.lo[axis];
  float hi = cell.hi[axis];
  uint64_t events[2 * kSmallNodeLimit];
  int eventCount = 0;
  float lowestStart = hi;
  float highestEnd = lo;
  int flatAtLo = 0;
  int flatAtHi = 0;
  // Clamp each triangle to the cell: a triangle reaching out of it only matters inside it.
  for (int i = 0; i < count; ++i) {
    const Box& box = boxes[ids[i]];
    float start = std::max(lo, box.lo[axis]);
    float end = std::min(hi, box.hi[axis]);
    lowestStart = std::min(lowestStart, start);
    highestEnd = std::max(highestEnd, end);
    if (box.lo[axis] == box.hi[axis]) {
      events[eventCount++] = EventKey(start, kPlanar);
      flatAtLo += start == lo ? 1 : 0;
      flatAtHi += start == hi ? 1 : 0;
    } else {
      events[eventCount++] = EventKey(start, kStart);
      events[eventCount++] = EventKey(end, kEnd);
    }
  }
  if (search.TryEmptySpace(lowestStart, highestEnd)) return search.Result(leafCost);
  search.FlatCandidates(flatAtLo, flatAtHi);

  std::sort(events, events + eventCount);
  int counts[3];
  for (int i = 0; i < eventCount;) {
    float x = EventPosition(events[i]);
    counts[kEnd] = counts[kPlanar] = counts[kStart] = 0;
    for (; i < eventCount && EventPosition(events[i]) == x; ++i) ++counts[events[i] & 3];
    search.Position(x, counts[kEnd], counts[kPlanar], counts[kStart]);
  }
  return search.Result(leafCost);
}

}  // namespace kdtree
VTQR_PATH_END
