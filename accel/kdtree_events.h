// Presorted per-axis event lists of the SAH build's nodes, and the clipping of straddlers.
#ifndef VTQR_ACCEL_KDTREE_EVENTS_H_
#define VTQR_ACCEL_KDTREE_EVENTS_H_

#include <cstddef>
#include <cstdint>

#include "accel/kdtree_sah.h"

VTQR_PATH_BEGIN
namespace kdtree {

// One entry of a presorted list: the key (a triangle's start or end on the list's axis) and the
// triangle number, with kFlatBit set when the triangle is flat on that axis.
struct Event {
  float key;
  uint32_t tri;
};
inline constexpr uint32_t kFlatBit = 0x80000000u;

// A node of `count` triangles keeps its lists as runs of `count` events, two per axis: starts
// of x, ends of x, starts of y, ...
inline constexpr int kListsPerAxis = 2;
inline constexpr int kListsPerNode = 3 * kListsPerAxis;

// Events a node of `count` triangles keeps.
inline size_t NodeEvents(int count) { return kListsPerNode * size_t(count); }

// The starts of `axis` in a node's lists; its ends follow them, `count` events on.
inline const Event* AxisStarts(const Event* lists, int count, int axis) {
  return lists + kListsPerAxis * size_t(axis) * size_t(count);
}
inline Event* AxisStarts(Event* lists, int count, int axis) {
  return lists + kListsPerAxis * size_t(axis) * size_t(count);
}

// The list split stores one event past the end of the last list it writes, so the store it
// writes into keeps this many spare events behind its lists.
inline constexpr size_t kSplitSpareEvents = 1;

// Fills the six lists of the triangles `ids[0..count)`, each sorted by key. `scratch` holds
// `count` events.
void BuildRootEvents(const Box* boxes, const int32_t* ids, int count, Event* lists, Event* scratch);

// Hands each of a node's six lists on to the children, keeping the order: a triangle goes below
// when side[triangle] has kSideBelow and above when it has kSideAbove. A null child is skipped.
// The upper lists must lie directly in front of the lower ones (when both are written), and
// kSplitSpareEvents must follow the last list written.
void SplitEventLists(const Event* lists, int count, const uint8_t* side, Event* upper,
                     int upperCount, Event* lower, int lowerCount);

// The search over a node's starts and ends of one axis, each sorted by key. Keys outside the
// cell are clamped to it, which keeps the order. Every node is searched this way: positions
// arrive in the same order, with the same counts, as from sorting the node's own clamped starts
// and ends, so a small node gets exactly the split of that exact sweep without sorting.
AxisSplit SearchAxisEvents(const Event* starts, const Event* ends, int count, const Box& cell,
                           int axis, double leafCost);

// Bounds of the triangle with corners a, b, c clipped to `cell`, rounded outward to float and
// never looser than `box`, the triangle's own bounds. Returns false when the triangle misses the
// closed cell. Conservative: a triangle within rounding distance of the cell counts as meeting
// it, and the bounds hold every point of the triangle that lies in the cell.
bool ClipTriangle(const float* a, const float* b, const float* c, const Box& box, const Box& cell,
                  Box* clipped);

// A triangle's bounds in one child after clipping, with bit `axis` of `flatAxes` set when the
// whole triangle is flat on that axis (the events carry kFlatBit for it, as at the root).
struct ClippedTriangle {
  Box box;
  uint32_t tri;
  uint32_t flatAxes;
};

// Fills the six lists of `count` clipped triangles, each sorted by key.
void ClippedEvents(const ClippedTriangle* clipped, int count, Event* lists);

// Merges each of six sorted lists of `countA` events with the matching one of `countB` into six
// sorted lists of countA + countB at `out`, which overlaps neither input.
void MergeEventLists(const Event* a, int countA, const Event* b, int countB, Event* out);

}  // namespace kdtree
VTQR_PATH_END

#endif  // VTQR_ACCEL_KDTREE_EVENTS_H_
