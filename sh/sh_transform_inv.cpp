// Inverse SH transforms: value = sum over k of coefficient[k] * Y_k(direction).
//
// The dot product is single precision with eight partial sums: p_r accumulates the products
// of the indices k = r (mod 8) in increasing k, each product rounded before its add, and the
// result is ((p0 + p4) + (p2 + p6)) + ((p1 + p5) + (p3 + p7)). The grouping is fixed, so the
// result does not depend on the alignment of the caller's arrays. Eight sums keep two SSE
// adds in flight instead of waiting on one chain of up to 256 dependent adds.
#include <xmmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "sh/sh_basis.h"
#include "sh/sh_state.h"

VTQR_PATH_BEGIN
namespace {

constexpr size_t kStride = sh::kMaxSetSize;

size_t RoundUp8(size_t count) { return (count + 7) & ~size_t{7}; }

// Dot product of two aligned arrays whose length is a multiple of 8.
float Dot(const float* basis, const float* coeff, size_t paddedCount) {
  __m128 sum0 = _mm_setzero_ps();
  __m128 sum1 = _mm_setzero_ps();
  for (size_t k = 0; k < paddedCount; k += 8) {
    sum0 = _mm_add_ps(sum0, _mm_mul_ps(_mm_load_ps(basis + k), _mm_load_ps(coeff + k)));
    sum1 = _mm_add_ps(sum1, _mm_mul_ps(_mm_load_ps(basis + k + 4), _mm_load_ps(coeff + k + 4)));
  }
  const __m128 lanes = _mm_add_ps(sum0, sum1);                          // p_r + p_(r+4)
  const __m128 pairs = _mm_add_ps(lanes, _mm_movehl_ps(lanes, lanes));  // lane 0: r=0,2
  return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_shuffle_ps(pairs, pairs, 1)));
}

// Runs the inverse transform over n > 0 directions with a valid state. `store(i, c, value)`
// writes channel c of direction i.
template <int kChannels, class Store>
void Inverse(const float* const* src, Vtq32u order, const float* x, const float* y, const float* z,
             int n, const VtqrSHState* state, Store store) {
  const size_t setSize = static_cast<size_t>(order + 1) * (order + 1);
  const size_t padded = RoundUp8(setSize);

  // Copy the coefficients once into aligned arrays padded with zeros to a multiple of 8, so
  // every dot product runs on whole vectors. The padding's products are +0.0 and leave the
  // partial sums, which start at +0.0, unchanged.
  alignas(16) float coeff[kChannels][kStride];
  alignas(16) float basis[sh::kBlock * kStride];
  for (int c = 0; c < kChannels; ++c) {
    std::memcpy(coeff[c], src[c], setSize * sizeof(float));
    std::fill(coeff[c] + setSize, coeff[c] + padded, 0.0f);
  }
  for (int j = 0; j < sh::kBlock; ++j) {
    std::fill(basis + j * kStride + setSize, basis + j * kStride + padded, 0.0f);
  }

  for (size_t i = 0; i < static_cast<size_t>(n); i += sh::kBlock) {
    const int count = static_cast<int>(std::min<size_t>(sh::kBlock, static_cast<size_t>(n) - i));
    sh::EvalBasisBlock(state, x + i, y + i, z + i, count, order, basis, kStride);
    for (int j = 0; j < count; ++j) {
      for (int c = 0; c < kChannels; ++c) {
        store(i + j, c, Dot(basis + j * kStride, coeff[c], padded));
      }
    }
  }
}

}  // namespace

VtqStatus SHTInv_32f_C1(const Vtq32f* pSrc, Vtq32u order, const Vtq32f* pX, const Vtq32f* pY,
                        const Vtq32f* pZ, Vtq32f* pDst, int n, const VtqrSHState* pState) {
  if (!pSrc || !pX || !pY || !pZ || !pDst || !pState) return vtqStsErrNullPtr;
  const VtqStatus status = sh::CheckTransform(n, order, pState);
  if (status != sh::kProceed) return status;
  const float* const src[1] = {pSrc};
  Inverse<1>(src, order, pX, pY, pZ, n, pState,
             [pDst](size_t i, int, float value) { pDst[i] = value; });
  return vtqStsOk;
}

VtqStatus SHTInv_32f_P3(const Vtq32f* const pSrc[3], Vtq32u order, const Vtq32f* pX,
                        const Vtq32f* pY, const Vtq32f* pZ, Vtq32f* const pDst[3], int n,
                        const VtqrSHState* pState) {
  if (!pX || !pY || !pZ || !pState) return vtqStsErrNullPtr;
  if (sh::PlanesNull(pSrc)) return vtqStsErrNullPtr;
  if (sh::PlanesNull(pDst)) return vtqStsErrNullPtr;
  const VtqStatus status = sh::CheckTransform(n, order, pState);
  if (status != sh::kProceed) return status;
  Inverse<3>(pSrc, order, pX, pY, pZ, n, pState,
             [pDst](size_t i, int c, float value) { pDst[c][i] = value; });
  return vtqStsOk;
}

VtqStatus SHTInv_32f_P3C3(const Vtq32f* const pSrc[3], Vtq32u order, const Vtq32f* pX,
                          const Vtq32f* pY, const Vtq32f* pZ, Vtq32f* pDst, int n,
                          const VtqrSHState* pState) {
  if (!pX || !pY || !pZ || !pDst || !pState) return vtqStsErrNullPtr;
  if (sh::PlanesNull(pSrc)) return vtqStsErrNullPtr;
  const VtqStatus status = sh::CheckTransform(n, order, pState);
  if (status != sh::kProceed) return status;
  Inverse<3>(pSrc, order, pX, pY, pZ, n, pState,
             [pDst](size_t i, int c, float value) { pDst[3 * i + c] = value; });
  return vtqStsOk;
}

VTQR_PATH_END
