// Three-term recurrence for real spherical harmonics, band by band.
//
// With c the centre index l*l + l of band l, s = l(l+1)/2 its table segment, A and B the
// state's tables:
//   Y(l, l)      = (Y(l-1, l-1) x - Y(l-1, -(l-1)) y) A[s+l]
//   Y(l,-l)      = (Y(l-1, l-1) y + Y(l-1, -(l-1)) x) A[s+l]
//   Y(l,+-(l-1)) = (A[s+l-1] z) Y(l-1, +-(l-1))
//   Y(l,+-m)     = (A[s+m] z) Y(l-1, +-m) + B[s+m] Y(l-2, +-m),  m = 0..l-2
// The sectoral pair rotates the previous pair by (x, y), the rest is the associated Legendre
// recurrence in z with the normalisation folded into A and B. All arithmetic is single
// precision, one rounding per operation, in exactly this order in both forms below; the
// build disables contraction, so no multiply-add can merge two roundings.
#include <emmintrin.h>
#include <xmmintrin.h>

#include <cstddef>

#include "frame/code_path.h"
#include "sh/sh_recurrence.h"
#include "sh/sh_state.h"

VTQR_PATH_BEGIN
namespace sh {

void EvalRecurrence1(const float* a, const float* b, float x, float y, float z, unsigned order,
                     float* dst) {
  dst[0] = a[0];
  if (order == 0) return;
  dst[1] = a[2] * y;
  dst[2] = a[1] * z;
  dst[3] = a[2] * x;
  for (unsigned l = 2; l <= order; ++l) {
    const size_t s = l * (l + 1) / 2;
    const unsigned k = l - 1;
    const float* prev = dst + k * k + k;                    // centre of band l-1
    const float* prev2 = dst + (l - 2) * (l - 2) + (l - 2);  // centre of band l-2
    float* cur = dst + l * l + l;

    const float sectoralScale = a[s + l];
    const float pPos = prev[k];
    const float pNeg = prev[-static_cast<ptrdiff_t>(k)];
    cur[l] = (pPos * x - pNeg * y) * sectoralScale;
    cur[-static_cast<ptrdiff_t>(l)] = (pPos * y + pNeg * x) * sectoralScale;

    const float az = a[s + k] * z;
    cur[k] = az * pPos;
    cur[-static_cast<ptrdiff_t>(k)] = az * pNeg;

    cur[0] = (a[s] * z) * prev[0] + b[s] * prev2[0];
    for (ptrdiff_t m = 1; m <= static_cast<ptrdiff_t>(l) - 2; ++m) {
      const float t = a[s + m] * z;
      const float u = b[s + m];
      cur[m] = t * prev[m] + u * prev2[m];
      cur[-m] = t * prev[-m] + u * prev2[-m];
    }
  }
}

namespace {

// Moves one 4 x K block of lanes (lane j = direction j) into the four direction-major sets.
template <bool kStream>
void StoreSets(const __m128* lanes, size_t count, float* dst, size_t stride) {
  size_t k = 0;
  for (; k + 4 <= count; k += 4) {
    __m128 r0 = lanes[k], r1 = lanes[k + 1], r2 = lanes[k + 2], r3 = lanes[k + 3];
    _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
    if constexpr (kStream) {
      _mm_stream_ps(dst + k, r0);
      _mm_stream_ps(dst + stride + k, r1);
      _mm_stream_ps(dst + 2 * stride + k, r2);
      _mm_stream_ps(dst + 3 * stride + k, r3);
    } else {
      _mm_storeu_ps(dst + k, r0);
      _mm_storeu_ps(dst + stride + k, r1);
      _mm_storeu_ps(dst + 2 * stride + k, r2);
      _mm_storeu_ps(dst + 3 * stride + k, r3);
    }
  }
  // Even orders give an odd set size; its last values go out lane by lane.
  for (; k < count; ++k) {
    alignas(16) float v[4];
    _mm_store_ps(v, lanes[k]);
    for (size_t j = 0; j < 4; ++j) dst[j * stride + k] = v[j];
  }
}

}  // namespace

void EvalRecurrence4(const float* a, const float* b, const float* px, const float* py,
                     const float* pz, unsigned order, float* dst, size_t stride, bool stream) {
  // The whole 4-lane set lives on the stack (4 KiB at order 15, resident in L1); the
  // direction-major destination only sees finished values, four per store after a transpose.
  __m128 v[kMaxSetSize];
  const __m128 x = _mm_loadu_ps(px);
  const __m128 y = _mm_loadu_ps(py);
  const __m128 z = _mm_loadu_ps(pz);

  v[0] = _mm_set1_ps(a[0]);
  if (order >= 1) {
    const __m128 a2 = _mm_set1_ps(a[2]);
    v[1] = _mm_mul_ps(a2, y);
    v[2] = _mm_mul_ps(_mm_set1_ps(a[1]), z);
    v[3] = _mm_mul_ps(a2, x);
  }
  for (unsigned l = 2; l <= order; ++l) {
    const size_t s = l * (l + 1) / 2;
    const unsigned k = l - 1;
    const __m128* prev = v + k * k + k;
    const __m128* prev2 = v + (l - 2) * (l - 2) + (l - 2);
    __m128* cur = v + l * l + l;

    const __m128 sectoralScale = _mm_set1_ps(a[s + l]);
    const __m128 pPos = prev[k];
    const __m128 pNeg = prev[-static_cast<ptrdiff_t>(k)];
    cur[l] = _mm_mul_ps(_mm_sub_ps(_mm_mul_ps(pPos, x), _mm_mul_ps(pNeg, y)), sectoralScale);
    cur[-static_cast<ptrdiff_t>(l)] =
        _mm_mul_ps(_mm_add_ps(_mm_mul_ps(pPos, y), _mm_mul_ps(pNeg, x)), sectoralScale);

    const __m128 az = _mm_mul_ps(_mm_set1_ps(a[s + k]), z);
    cur[k] = _mm_mul_ps(az, pPos);
    cur[-static_cast<ptrdiff_t>(k)] = _mm_mul_ps(az, pNeg);

    cur[0] = _mm_add_ps(_mm_mul_ps(_mm_mul_ps(_mm_set1_ps(a[s]), z), prev[0]),
                        _mm_mul_ps(_mm_set1_ps(b[s]), prev2[0]));
    for (ptrdiff_t m = 1; m <= static_cast<ptrdiff_t>(l) - 2; ++m) {
      const __m128 t = _mm_mul_ps(_mm_set1_ps(a[s + m]), z);
      const __m128 u = _mm_set1_ps(b[s + m]);
      cur[m] = _mm_add_ps(_mm_mul_ps(t, prev[m]), _mm_mul_ps(u, prev2[m]));
      cur[-m] = _mm_add_ps(_mm_mul_ps(t, prev[-m]), _mm_mul_ps(u, prev2[-m]));
    }
  }

  const size_t count = static_cast<size_t>(order + 1) * (order + 1);
  if (stream) {
    StoreSets<true>(v, count, dst, stride);
  } else {
    StoreSets<false>(v, count, dst, stride);
  }
}

}  // namespace sh
VTQR_PATH_END
