// Scene bound box: per-axis minimum and maximum of all vertices, widened by a relative margin so
// that rays grazing the outermost vertices are not clipped away by rounding in the slab test.
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstddef>

#include "frame/code_path.h"
#include "frame/kernels.h"

VTQR_PATH_BEGIN
namespace {

// 1e-4 as the nearest float; the margin is this share of the largest coordinate magnitude.
constexpr float kMarginShare = std::bit_cast<float>(0x38D1B717u);

// NaN never replaces the running value, so a NaN coordinate is simply ignored.
inline void Fold(const Vtq32f* vertex, float lo[3], float hi[3]) {
  for (int j = 0; j < 3; ++j) {
    float x = vertex[j];
    lo[j] = x < lo[j] ? x : lo[j];
    hi[j] = x > hi[j] ? x : hi[j];
  }
}

}  // namespace

VtqStatus SetBoundBox_32f(const Vtq32f* pVert, int vertCount, Vtq32f pBound[6]) {
  if (pVert == nullptr) return vtqStsErrNullPtr;

  // Start inverted, so that an empty vertex array yields a box containing nothing.
  float lo[3] = {FLT_MAX, FLT_MAX, FLT_MAX};
  float hi[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX};
  int i = 0;
  // Eight vertices per pass keep the loads streaming; min and max do not depend on order.
  for (; i + 8 <= vertCount; i += 8) {
    const Vtq32f* block = pVert + 3 * static_cast<std::ptrdiff_t>(i);
    for (int k = 0; k < 8; ++k) Fold(block + 3 * k, lo, hi);
  }
  for (; i < vertCount; ++i) Fold(pVert + 3 * static_cast<std::ptrdiff_t>(i), lo, hi);

  // The margin scales with the largest magnitude, and never drops below the smallest normal
  // float so that a box around the origin still gets a (tiny) non-zero widening.
  float largest = FLT_MIN;
  for (int j = 0; j < 3; ++j) {
    largest = std::fmax(largest, std::fabs(lo[j]));
    largest = std::fmax(largest, std::fabs(hi[j]));
  }
  float margin = kMarginShare * largest;
  for (int j = 0; j < 3; ++j) {
    pBound[j] = lo[j] - margin;
    pBound[j + 3] = hi[j] + margin;
  }
  return vtqStsOk;
}

VTQR_PATH_END
