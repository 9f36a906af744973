// Per-triangle acceleration records. The ray/triangle test projects onto the plane of the two
// minor axes of the normal, so each record stores the dominant axis k, the normal scaled to
// N[k] = 1, the base vertex and both edges scaled by 1/N[k]: the test then needs no division
// until a hit is confirmed.
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

#include "frame/code_path.h"
#include "frame/kernels.h"

VTQR_PATH_BEGIN
namespace {

// Both minor normal components below this are treated as exactly zero, so that a triangle lying
// in an axis plane gets coefficients that are exactly 0 rather than rounding noise.
constexpr double kNegligible = std::numeric_limits<double>::epsilon();

// Minor axes (ascending) and orientation sign of each dominant axis. The sign keeps the
// barycentrics of the projected test with the orientation of the 3-D triangle: projecting along
// y swaps the handedness of the (x, z) plane.
constexpr int kAxisU[3] = {1, 0, 0};
constexpr int kAxisV[3] = {2, 2, 1};
constexpr double kSign[3] = {1.0, -1.0, 1.0};

void BuildRecord(const Vtq32f* pVert, const Vtq32s* index, VtqrTriangleAccel* record) {
  // Vertex 2 is the base point; the edges lead to vertices 0 and 1. All in double, so the
  // cross product of float inputs is exact up to one rounding per component.
  double p[3], e1[3], e2[3];
  for (int j = 0; j < 3; ++j) {
    p[j] = pVert[3 * static_cast<std::ptrdiff_t>(index[2]) + j];
    e1[j] = pVert[3 * static_cast<std::ptrdiff_t>(index[0]) + j] - p[j];
    e2[j] = pVert[3 * static_cast<std::ptrdiff_t>(index[1]) + j] - p[j];
  }
  const double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e2[2] * e1[0],
                       e2[1] * e1[0] - e1[1] * e2[0]};

  // Dominant axis; strict comparisons give ties to x, then y, then z.
  int k = std::fabs(n[1]) > std::fabs(n[0]) ? 1 : 0;
  if (std::fabs(n[2]) > std::fabs(n[k])) k = 2;

  // A zero-area triangle can never be hit: an all-zero record tells the intersection to skip.
  if (std::fabs(n[k]) == 0) {
    std::memset(record, 0, sizeof(*record));
    return;
  }

  const int u = kAxisU[k], v = kAxisV[k];
  const double q = 1.0 / n[k];
  const double sq = kSign[k] * q;
  Vtq32u axes = static_cast<Vtq32u>(v | (u << 2) | (k << 4));
  if (std::fabs(n[u]) < kNegligible && std::fabs(n[v]) < kNegligible) {
    axes |= 0x80000000u;  // the triangle is perpendicular to axis k
    record->nu = 0;
    record->nv = 0;
  } else {
    record->nu = static_cast<float>(n[u] * q);
    record->nv = static_cast<float>(n[v] * q);
  }
  record->axes = axes;
  record->pk = static_cast<float>(p[k]);
  record->pu = static_cast<float>(p[u]);
  record->pv = static_cast<float>(p[v]);
  record->e2u = static_cast<float>(e2[u] * sq);
  record->e2v = static_cast<float>(e2[v] * sq);
  record->e1u = static_cast<float>(e1[u] * sq);
  record->e1v = static_cast<float>(e1[v] * sq);
}

}  // namespace

VtqStatus TriangleAccelGetSize(Vtq32s* pSize) {
  if (pSize == nullptr) return vtqStsErrNullPtr;
  *pSize = static_cast<Vtq32s>(sizeof(VtqrTriangleAccel));
  return vtqStsOk;
}

VtqStatus TriangleAccelInit(VtqrTriangleAccel* pAccel, const Vtq32f* pVert, const Vtq32s* pTriIndex,
                            int triCount) {
  for (int t = 0; t < triCount; ++t) {
    BuildRecord(pVert, pTriIndex + 4 * static_cast<std::ptrdiff_t>(t), pAccel + t);
  }
  return vtqStsOk;
}

VTQR_PATH_END
