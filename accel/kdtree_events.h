// Presorted per-axis event lists of the large nodes of the SAH build.
#ifndef VTQR_ACCEL_KDTREE_EVENTS_H_
#define VTQR_ACCEL_KDTREE_EVENTS_H_

#include <cstdint>

#include "accel/kdtree_sah.h"

VTQR_PATH_BEGIN
namespace kdtree {

// A node's lists are six runs of `count` events: starts of x, ends of x, starts of y, ...

// Fills the six lists of the triangles `ids[0..count)`, each sorted by key. `scratch` holds
// `count` events.
void BuildRootEvents(const Box* boxes, const int32_t* ids, int count, Event* lists,
                     Event* scratch);

// Hands each of a node's six lists on to the children, keeping the order: a triangle goes below
// when bit 0 of side[triangle] is set and above when bit 1 is. A null child
// is skipped. The upper lists must lie directly in front of the lower ones (when both are
// written), and one spare event must follow the last list written.
void SplitEventLists(const Event* lists, int count, const uint8_t* side, Event* upper,
                     int upperCount, Event* lower, int lowerCount);

// Bounds of the triangle with corners a, b, c clipped to `cell`, rounded outward to float and
// never looser than `box`, the triangle's own bounds. Returns false when the triangle misses the
// closed cell. Conservative: a triangle within rounding distance of the cell counts as meeting
// it, and the bounds hold every point of the triangle that lies in the cell.
bool ClipTriangle(const float* a, const float* b, const float* c, const Box& box,
                  const Box& cell, Box* clipped);

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
