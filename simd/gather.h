// Gathers: per-ray triples fetched through per-ray numbers (the normal of the triangle a ray
// hit, the normals of that triangle's vertices), turned into the x, y, z vectors of a step.
#ifndef VTQR_SIMD_GATHER_H_
#define VTQR_SIMD_GATHER_H_

#include <emmintrin.h>

#include <cstddef>

#include "frame/code_path.h"
#include "simd/lanes.h"
#include "simd/vec3.h"
#include "vtqr/types.h"

VTQR_PATH_BEGIN
namespace simd {

// The three floats at p as (x, y, z, 0). One 8-byte and one 4-byte load, so nothing past the
// triple is read: it may be the last one of its array. Loads and shuffles only move bits, so a
// gathered value arrives bit for bit, signalling NaNs included.
inline __m128 LoadTriple(const float* p) {
  __m128 xy = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
  return _mm_movelh_ps(xy, _mm_load_ss(p + 2));
}

// The triples base[3n .. 3n+2] for the numbers n[0 .. width-1] of a step, as its x, y and z
// vectors. A lane whose number is negative, and every lane past the policy's width, gets zeros
// without touching memory, so dead rays never index the array.
template <class Lanes>
Vec3 GatherTriples(const float* base, const Vtq32s* number) {
  __m128 row[4];
  for (int lane = 0; lane < 4; ++lane) {
    const bool used = lane < Lanes::kWidth && number[lane] >= 0;
    row[lane] = used ? LoadTriple(base + 3 * static_cast<ptrdiff_t>(number[lane]))
                     : _mm_setzero_ps();
  }
  _MM_TRANSPOSE4_PS(row[0], row[1], row[2], row[3]);
  return {row[0], row[1], row[2]};
}

}  // namespace simd
VTQR_PATH_END

#endif  // VTQR_SIMD_GATHER_H_
