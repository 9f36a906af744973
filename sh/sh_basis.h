// Basis evaluation for the transforms: a few directions at a time, either method.
#ifndef VTQR_SH_SH_BASIS_H_
#define VTQR_SH_SH_BASIS_H_

#include <cstddef>

#include "frame/code_path.h"
#include "vtqr/sh.h"

VTQR_PATH_BEGIN
namespace sh {

// Directions per basis block: the width of the recurrence's SSE form.
inline constexpr int kBlock = 4;

// Whether `state` can evaluate sets of `order`: a known method and order <= 15. The caller
// has already checked order against maxOrder.
bool CanEvaluate(const VtqrSHState* state, Vtq32u order);

// Writes the sets of directions j = 0..count-1 (count 1..kBlock) to dst + j*stride, with the
// state's method. Requires CanEvaluate(state, order). The values are those of vtqrSH_32f.
void EvalBasisBlock(const VtqrSHState* state, const float* x, const float* y, const float* z,
                    int count, Vtq32u order, float* dst, size_t stride);

// Shared argument checks of the six transforms after the null pointers: returns the status to
// hand back, or kProceed when the transform should run.
inline constexpr VtqStatus kProceed = 1;
VtqStatus CheckTransform(int n, Vtq32u order, const VtqrSHState* state);

// A three-plane argument is null when the array or any of its planes is.
template <class T>
bool PlanesNull(T* const* planes) {
  return planes == nullptr || planes[0] == nullptr || planes[1] == nullptr || planes[2] == nullptr;
}

}  // namespace sh
VTQR_PATH_END

#endif  // VTQR_SH_SH_BASIS_H_
