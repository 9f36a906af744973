// The exported entry points of libvtqr.so.

#include "dispatch.h"

// Each export reads the column and tail-calls that column's entry with the caller's arguments
// untouched, so the implementation returns straight to the caller.
#define VTQR_FORWARDER(name, columns, ret, params, args)      \
  extern "C" VTQR_API ret vtqr##name params {                 \
    return vtqr::kDispatchTable.name[vtqr::gActivePath] args; \
  }
VTQR_FOR_EACH_EXPORT(VTQR_FORWARDER)
