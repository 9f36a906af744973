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

}  // namespace kdtree
VTQR_PATH_END

#endif  // VTQR_ACCEL_KDTREE_EVENTS_H_
