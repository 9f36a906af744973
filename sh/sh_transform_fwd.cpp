// Forward SH transforms: coefficient[k] += value * Y_k(direction), sample after sample.
//
// The rounding sequence is fixed: each product basis * value is rounded to float, then added
// to its coefficient with one float add, samples in their given order. The adds are
// elementwise across coefficients, so doing four coefficients per SSE add gives the same
// bits as one at a time. Basis sets are evaluated four directions at a time (the values do
// not depend on the grouping), but the accumulation stays strictly sequential over samples.
#include <xmmintrin.h>

#include <algorithm>
#include <cstddef>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "sh/sh_basis.h"
#include "sh/sh_state.h"

VTQR_PATH_BEGIN
namespace {

// coefficient[k] += basis[k] * value for k < count, with the exact-value rules: 1.0 adds the
// basis unchanged and +-0.0 adds +0.0 even where the basis is infinite or NaN.
void AccumulateScaled(const float* basis, float value, float* coeff, size_t count) {
  size_t k = 0;
  if (value == 1.0f) {
    for (; k + 4 <= count; k += 4) {
      _mm_storeu_ps(coeff + k, _mm_add_ps(_mm_loadu_ps(coeff + k), _mm_load_ps(basis + k)));
    }
    for (; k < count; ++k) coeff[k] = coeff[k] + basis[k];
  } else if (value == 0.0f) {
    // Still an add: -0.0 + +0.0 is +0.0, so the coefficient's sign of zero can change.
    const __m128 zero = _mm_setzero_ps();
    for (; k + 4 <= count; k += 4) {
      _mm_storeu_ps(coeff + k, _mm_add_ps(_mm_loadu_ps(coeff + k), zero));
    }
    for (; k < count; ++k) coeff[k] = coeff[k] + 0.0f;
  } else {
    const __m128 v = _mm_set1_ps(value);
    for (; k + 4 <= count; k += 4) {
      const __m128 product = _mm_mul_ps(_mm_load_ps(basis + k), v);
      _mm_storeu_ps(coeff + k, _mm_add_ps(_mm_loadu_ps(coeff + k), product));
    }
    for (; k < count; ++k) coeff[k] = coeff[k] + basis[k] * value;
  }
}

// Runs the forward transform over n > 0 samples with a valid state; `valueOf(i, c)` reads
// channel c of sample i and `dst[c]` is channel c's coefficient array.
template <int kChannels, class ValueOf>
void Forward(const float* x, const float* y, const float* z, int n, float* const* dst, Vtq32u order,
             const VtqrSHState* state, ValueOf valueOf) {
  constexpr size_t kStride = sh::kMaxSetSize;
  alignas(16) float basis[sh::kBlock * kStride];
  const size_t setSize = static_cast<size_t>(order + 1) * (order + 1);
  for (size_t i = 0; i < static_cast<size_t>(n); i += sh::kBlock) {
    const int count = static_cast<int>(std::min<size_t>(sh::kBlock, static_cast<size_t>(n) - i));
    sh::EvalBasisBlock(state, x + i, y + i, z + i, count, order, basis, kStride);
    for (int j = 0; j < count; ++j) {
      for (int c = 0; c < kChannels; ++c) {
        AccumulateScaled(basis + j * kStride, valueOf(i + j, c), dst[c], setSize);
      }
    }
  }
}

}  // namespace

VtqStatus SHTFwd_32f_C1I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, const Vtq32f* pSrc,
                         int n, Vtq32f* pSrcDst, Vtq32u order, const VtqrSHState* pState) {
  if (!pX || !pY || !pZ || !pSrc || !pSrcDst || !pState) return vtqStsErrNullPtr;
  const VtqStatus status = sh::CheckTransform(n, order, pState);
  if (status != sh::kProceed) return status;
  float* const dst[1] = {pSrcDst};
  Forward<1>(pX, pY, pZ, n, dst, order, pState, [pSrc](size_t i, int) { return pSrc[i]; });
  return vtqStsOk;
}

VtqStatus SHTFwd_32f_C3P3I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, const Vtq32f* pSrc,
                           int n, Vtq32f* const pSrcDst[3], Vtq32u order,
                           const VtqrSHState* pState) {
  if (!pX || !pY || !pZ || !pSrc || !pState) return vtqStsErrNullPtr;
  if (sh::PlanesNull(pSrcDst)) return vtqStsErrNullPtr;
  const VtqStatus status = sh::CheckTransform(n, order, pState);
  if (status != sh::kProceed) return status;
  Forward<3>(pX, pY, pZ, n, pSrcDst, order, pState,
             [pSrc](size_t i, int c) { return pSrc[3 * i + c]; });
  return vtqStsOk;
}

VtqStatus SHTFwd_32f_P3I(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ,
                         const Vtq32f* const pSrc[3], int n, Vtq32f* const pSrcDst[3], Vtq32u order,
                         const VtqrSHState* pState) {
  if (!pX || !pY || !pZ || !pState) return vtqStsErrNullPtr;
  if (sh::PlanesNull(pSrc)) return vtqStsErrNullPtr;
  if (sh::PlanesNull(pSrcDst)) return vtqStsErrNullPtr;
  const VtqStatus status = sh::CheckTransform(n, order, pState);
  if (status != sh::kProceed) return status;
  Forward<3>(pX, pY, pZ, n, pSrcDst, order, pState, [pSrc](size_t i, int c) { return pSrc[c][i]; });
  return vtqStsOk;
}

VTQR_PATH_END
