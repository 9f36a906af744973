#include "version.h"

#include "vtqr/version.h"

namespace vtqr {
const char kVersionText[] = VTQR_VERSION_STRING;
// The date of the release this version record identifies, not of the compilation: two builds of
// one release must report the same record.
const char kBuildDate[] = "Jul 23 2012";
}  // namespace vtqr
