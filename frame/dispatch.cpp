// The dispatch table and the load-time choice of its column.

#include "dispatch.h"

#include "vtqcore.h"

namespace vtqr {
namespace {

// A SHARED row names u8's implementation in both columns; a DISTINCT row has n8's own build.
#define VTQR_COLUMN_N8_SHARED(name) u8::name
#define VTQR_COLUMN_N8_DISTINCT(name) n8::name
#define VTQR_TABLE_ENTRY(name, columns, ret, params, args) \
  {u8::name, VTQR_COLUMN_N8_##columns(name)},

// Runs when the dynamic loader maps the library (or, in a static link, at program start), after
// vtqcore's own initialisation, since vtqcore is loaded first as a dependency. It cannot fail.
__attribute__((constructor)) void SelectPath() {
  gActivePath = ChoosePath(vtqGetEnabledCpuFeatures());
}

}  // namespace

int32_t gActivePath = kPathU8;

constinit const DispatchTable kDispatchTable = {VTQR_FOR_EACH_EXPORT(VTQR_TABLE_ENTRY)};

CodePath ActivePath() { return static_cast<CodePath>(gActivePath); }

CodePath ChoosePath(uint64_t enabledFeatures) {
  // No other test: a processor without SSSE3 still gets u8, whose kernels need SSSE3.
  const uint64_t n8Features = VTQ_CPU_SSSE3 | VTQ_CPU_MOVBE;
  return (enabledFeatures & n8Features) == n8Features ? kPathN8 : kPathU8;
}

}  // namespace vtqr
