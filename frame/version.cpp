// The version record of one code path; compiled once per path.

#include "version.h"

#include "code_path.h"
#include "kernels.h"

VTQR_PATH_BEGIN
namespace {

#if VTQR_PATH_INDEX == 0
constexpr char kTargetCpu[4] = "u8";
constexpr const char* kName = "vtqRR SSSE3 (u8)";
#else
constexpr char kTargetCpu[4] = "n8";
constexpr const char* kName = "vtqRR Vell (n8)";
#endif

const VtqLibVersion kVersion = {VTQR_VERSION_MAJOR,
                                VTQR_VERSION_MINOR,
                                VTQR_VERSION_MAJOR_BUILD,
                                VTQR_VERSION_BUILD,
                                {kTargetCpu[0], kTargetCpu[1], kTargetCpu[2], kTargetCpu[3]},
                                kName,
                                kVersionText,
                                kBuildDate};

}  // namespace

const VtqLibVersion* GetLibVersion() { return &kVersion; }

VTQR_PATH_END
