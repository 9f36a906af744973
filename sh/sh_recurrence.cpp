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
#include "simd/lanes.h"
#include "simd/stores.h"

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
    const float* prev = dst + k * k + k;                     // centre of band l-1
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

// Moves one 4 x K block of lanes (lane j = direction j; value k of the block at
// lanes[k * kPitch]) into the four direction-major sets, whole vectors through the store
// policy Out.
template <class Out, int kPitch>
void StoreSets(const __m128* lanes, size_t count, float* dst, size_t stride) {
  size_t k = 0;
  for (; k + 4 <= count; k += 4) {
    __m128 r0 = lanes[k * kPitch], r1 = lanes[(k + 1) * kPitch];
    __m128 r2 = lanes[(k + 2) * kPitch], r3 = lanes[(k + 3) * kPitch];
    _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
    Out::Store(dst + k, r0);
    Out::Store(dst + stride + k, r1);
    Out::Store(dst + 2 * stride + k, r2);
    Out::Store(dst + 3 * stride + k, r3);
  }
  // Even orders give an odd set size; its last values go out lane by lane.
  for (; k < count; ++k) {
    alignas(16) float v[4];
    _mm_store_ps(v, lanes[k * kPitch]);
    for (size_t j = 0; j < 4; ++j) dst[j * stride + k] = v[j];
  }
}

// Where the four-wide forms take their table entries from: the state's scalar tables,
// broadcast as needed (for a block or two of directions), or tables widened once per call.
struct ScalarCoeffs {
  const float* a;
  const float* b;
  __m128 A(size_t i) const { return _mm_set1_ps(a[i]); }
  __m128 B(size_t i) const { return _mm_set1_ps(b[i]); }
};

struct WideCoeffs {
  const WideTables* wide;
  __m128 A(size_t i) const { return wide->a[i]; }
  __m128 B(size_t i) const { return wide->b[i]; }
};

}  // namespace

void WidenTables(const float* a, const float* b, unsigned order, WideTables* wide) {
  const size_t length = static_cast<size_t>(order + 1) * (order + 2) / 2;
  for (size_t i = 0; i < length; ++i) {
    wide->a[i] = _mm_set1_ps(a[i]);
    wide->b[i] = _mm_set1_ps(b[i]);
  }
}

// Runs kGroups register groups of four directions through the recurrence together, so each
// table entry and loop step serves 4 * kGroups lanes. Lane j of group g is direction
// 4g + j; every lane sees exactly the operations of EvalRecurrence1.
template <int kGroups, class Coeffs>
void EvalRecurrenceGroups(Coeffs coeffs, const float* px, const float* py, const float* pz,
                          unsigned order, float* dst, size_t stride, Stores stores) {
  // The whole set lives on the stack (4 KiB per group at order 15, resident in L1); the
  // direction-major destination only sees finished values, four per store after a transpose.
  __m128 v[kMaxSetSize][kGroups];
  __m128 x[kGroups], y[kGroups], z[kGroups];
  for (int g = 0; g < kGroups; ++g) {
    x[g] = simd::UnalignedFour::Load(px + 4 * g);
    y[g] = simd::UnalignedFour::Load(py + 4 * g);
    z[g] = simd::UnalignedFour::Load(pz + 4 * g);
    v[0][g] = coeffs.A(0);
  }
  if (order >= 1) {
    const __m128 a1 = coeffs.A(1);
    const __m128 a2 = coeffs.A(2);
    for (int g = 0; g < kGroups; ++g) {
      v[1][g] = _mm_mul_ps(a2, y[g]);
      v[2][g] = _mm_mul_ps(a1, z[g]);
      v[3][g] = _mm_mul_ps(a2, x[g]);
    }
  }
  for (unsigned l = 2; l <= order; ++l) {
    const size_t s = l * (l + 1) / 2;
    const ptrdiff_t k = l - 1;
    const ptrdiff_t li = l;
    __m128(*prev)[kGroups] = v + k * k + k;
    __m128(*prev2)[kGroups] = v + (k - 1) * (k - 1) + (k - 1);
    __m128(*cur)[kGroups] = v + li * li + li;

    const __m128 sectoralScale = coeffs.A(s + l);
    const __m128 aEdge = coeffs.A(s + k);
    const __m128 a0 = coeffs.A(s);
    const __m128 b0 = coeffs.B(s);
    for (int g = 0; g < kGroups; ++g) {
      const __m128 pPos = prev[k][g];
      const __m128 pNeg = prev[-k][g];
      cur[li][g] = _mm_mul_ps(_mm_sub_ps(_mm_mul_ps(pPos, x[g]), _mm_mul_ps(pNeg, y[g])),
                              sectoralScale);
      cur[-li][g] = _mm_mul_ps(_mm_add_ps(_mm_mul_ps(pPos, y[g]), _mm_mul_ps(pNeg, x[g])),
                               sectoralScale);
      const __m128 az = _mm_mul_ps(aEdge, z[g]);
      cur[k][g] = _mm_mul_ps(az, pPos);
      cur[-k][g] = _mm_mul_ps(az, pNeg);
      cur[0][g] = _mm_add_ps(_mm_mul_ps(_mm_mul_ps(a0, z[g]), prev[0][g]),
                             _mm_mul_ps(b0, prev2[0][g]));
    }
    for (ptrdiff_t m = 1; m <= li - 2; ++m) {
      const __m128 am = coeffs.A(s + m);
      const __m128 u = coeffs.B(s + m);
      for (int g = 0; g < kGroups; ++g) {
        const __m128 t = _mm_mul_ps(am, z[g]);
        cur[m][g] = _mm_add_ps(_mm_mul_ps(t, prev[m][g]), _mm_mul_ps(u, prev2[m][g]));
        cur[-m][g] = _mm_add_ps(_mm_mul_ps(t, prev[-m][g]), _mm_mul_ps(u, prev2[-m][g]));
      }
    }
  }

  const size_t count = static_cast<size_t>(order + 1) * (order + 1);
  for (int g = 0; g < kGroups; ++g) {
    simd::WithStores(stores, [&](auto out) {
      StoreSets<decltype(out), kGroups>(&v[0][g], count, dst + 4 * g * stride, stride);
    });
  }
}

void EvalRecurrence4(const float* a, const float* b, const float* x, const float* y, const float* z,
                     unsigned order, float* dst, size_t stride, Stores stores) {
  EvalRecurrenceGroups<1>(ScalarCoeffs{a, b}, x, y, z, order, dst, stride, stores);
}

void EvalRecurrence4(const WideTables& wide, const float* x, const float* y, const float* z,
                     unsigned order, float* dst, size_t stride, Stores stores) {
  EvalRecurrenceGroups<1>(WideCoeffs{&wide}, x, y, z, order, dst, stride, stores);
}

void EvalRecurrence8(const WideTables& wide, const float* x, const float* y, const float* z,
                     unsigned order, float* dst, size_t stride, Stores stores) {
  EvalRecurrenceGroups<2>(WideCoeffs{&wide}, x, y, z, order, dst, stride, stores);
}

}  // namespace sh
VTQR_PATH_END
