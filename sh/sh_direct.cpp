// Closed-form spherical harmonics. The polynomials themselves are generated (sh_direct_gen.inc,
// written by tools/gen_sh_direct.py from exact rational arithmetic); this file supplies the lane
// types the generated templates run on and the loops over directions.
//
// Numerics: components are widened to double, the squares x^2, y^2 and z^2 are rounded to float
// once and widened back, and everything else (powers of z^2, the parts of (x+iy)^m, the
// polynomial sums and the constant factors) stays in double until the one rounding of each
// value to float. The two-lane type issues exactly the operations of the scalar one, lane by
// lane, and SSE2 arithmetic on doubles rounds like scalar double arithmetic, so a direction
// gives the same bits whether it travels alone or paired with a neighbour.
#include "sh/sh_direct.h"

#include <emmintrin.h>

#include <cstddef>

VTQR_PATH_BEGIN
namespace sh {
namespace {

// ---- Lane types ---------------------------------------------------------------------------
// One direction: plain double.
inline double RoundToFloat(double v) { return static_cast<double>(static_cast<float>(v)); }

// Two directions per SSE register, lane 0 the first.
struct Lane2 {
  __m128d v;
  explicit Lane2(__m128d lanes) : v(lanes) {}
  explicit Lane2(double c) : v(_mm_set1_pd(c)) {}
};
inline Lane2 operator+(Lane2 a, Lane2 b) { return Lane2(_mm_add_pd(a.v, b.v)); }
inline Lane2 operator-(Lane2 a, Lane2 b) { return Lane2(_mm_sub_pd(a.v, b.v)); }
inline Lane2 operator*(Lane2 a, Lane2 b) { return Lane2(_mm_mul_pd(a.v, b.v)); }
inline Lane2 RoundToFloat(Lane2 a) { return Lane2(_mm_cvtps_pd(_mm_cvtpd_ps(a.v))); }

inline Lane2 LoadPair(const float* p) {
  return Lane2(_mm_setr_pd(static_cast<double>(p[0]), static_cast<double>(p[1])));
}

// ---- Sinks: where value k of a set goes -----------------------------------------------------
struct ScalarSink {
  float* set;
  void Put(int k, double v) { set[k] = static_cast<float>(v); }
};

struct PairSink {
  float* set0;
  float* set1;
  void Put(int k, Lane2 v) {
    // cvtpd2ps rounds each lane like the scalar cvtsd2ss of ScalarSink.
    const __m128 f = _mm_cvtpd_ps(v.v);
    _mm_store_ss(set0 + k, f);
    _mm_store_ss(set1 + k, _mm_shuffle_ps(f, f, _MM_SHUFFLE(1, 1, 1, 1)));
  }
};

#include "sh/sh_direct_gen.inc"

// Runs `eval(x, y, z, sink)` over all directions: pairs through the two-lane type, an odd last
// direction alone.
template <class Eval>
void ForEachDirection(const float* x, const float* y, const float* z, int n, float* dst,
                      size_t setSize, Eval eval) {
  int i = 0;
  for (; i + 2 <= n; i += 2) {
    float* set = dst + static_cast<size_t>(i) * setSize;
    PairSink sink{set, set + setSize};
    eval(LoadPair(x + i), LoadPair(y + i), LoadPair(z + i), sink);
  }
  if (i < n) {
    ScalarSink sink{dst + static_cast<size_t>(i) * setSize};
    eval(static_cast<double>(x[i]), static_cast<double>(y[i]), static_cast<double>(z[i]), sink);
  }
}

}  // namespace

void EvalDirect(const float* x, const float* y, const float* z, int n, float* dst, unsigned order) {
  const size_t setSize = static_cast<size_t>(order + 1) * (order + 1);
  ForEachDirection(x, y, z, n, dst, setSize, [order](auto vx, auto vy, auto vz, auto& sink) {
    EvalBands(vx, vy, vz, sink, order);
  });
}

void EvalDirectBand(const float* x, const float* y, const float* z, int n, float* dst,
                    unsigned band) {
  const size_t setSize = 2 * static_cast<size_t>(band) + 1;
  ForEachDirection(x, y, z, n, dst, setSize, [band](auto vx, auto vy, auto vz, auto& sink) {
    EvalOneBand(vx, vy, vz, sink, band);
  });
}

}  // namespace sh
VTQR_PATH_END
