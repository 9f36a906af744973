// The dispatch table: one row per export, two columns (0 = u8, 1 = n8). Exposed to the tests so
// they can call both columns of every row on this machine, whichever path the loader chose.
#ifndef VTQR_FRAME_DISPATCH_H_
#define VTQR_FRAME_DISPATCH_H_

#include <cstdint>

#include "kernels.h"

namespace vtqr {

enum CodePath : int32_t { kPathU8 = 0, kPathN8 = 1, kPathCount = 2 };

// Rows are members in export-name order; each holds the two columns' entry points.
struct DispatchTable {
#define VTQR_TABLE_ROW(name, columns, ret, params, args) ret(*name[kPathCount]) params;
  VTQR_FOR_EACH_EXPORT(VTQR_TABLE_ROW)
#undef VTQR_TABLE_ROW
};

extern const DispatchTable kDispatchTable;

// The column every export uses. Written once, when the library is loaded, before any export
// can run; afterwards only read, so it needs no synchronisation.
extern int32_t gActivePath;

CodePath ActivePath();

// The rule that picks the column from a processor feature mask: n8 needs both SSSE3 and MOVBE.
CodePath ChoosePath(uint64_t enabledFeatures);

}  // namespace vtqr

#endif  // VTQR_FRAME_DISPATCH_H_
