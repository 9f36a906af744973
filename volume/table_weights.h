// Cubic weights looked up by distance, four voxels at a time: the per-voxel families (remap
// and warp) take each tap's weight from its code's kernel sampled every 1/100 voxel, linearly
// interpolated between samples, instead of evaluating the polynomial. The sampled kernels are
// built by the compiler, so they are constant data of the library.
#ifndef VTQR_VOLUME_TABLE_WEIGHTS_H_
#define VTQR_VOLUME_TABLE_WEIGHTS_H_

#include <xmmintrin.h>

#include "frame/code_path.h"
#include "volume/interpolation.h"
#include "volume/tap_runs.h"

VTQR_PATH_BEGIN
namespace volume {

// The four cubic codes' kernels, sampled, in code order (4 to 7).
inline constexpr SampledKernel kSampledCubics[4] = {
    SampleCubicKernel(vtqInterCubicLagrange), SampleCubicKernel(vtqInterCubicBSpline),
    SampleCubicKernel(vtqInterCubicCatmullRom), SampleCubicKernel(vtqInterCubicB05C03)};

// The samples of a cubic code (4 to 7).
inline const float* SampledCubic(int code) {
  return kSampledCubics[code - vtqInterCubicLagrange].weight;
}

// Weights w[0..3] of the taps at offsets -1, 0, 1, 2 from a position's integer part, for its
// fraction t (0 <= t < 1) in each lane. Per tap, in single precision:
//   d = min(|k - t|, 2),  u = 100 * d,  i = floor(u),  r = u - i,
//   w = K[i] + (K[i + 1] - K[i]) * r.
// A distance of exactly 2 (it occurs at t = 0 for k = 2) would read past the last sample;
// taking it as i = 199, r = 1 instead gives K[199] + (0 - K[199]) = +0, the last sample, so
// the index is held at 199 and nothing is read beyond the table.
inline void TableWeights(const float* samples, __m128 t, __m128 (&w)[4]) {
  const __m128 absMask = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
  const float offsets[4] = {-1.0f, 0.0f, 1.0f, 2.0f};
  for (int k = 0; k < 4; ++k) {
    const __m128 d = _mm_min_ps(_mm_and_ps(_mm_sub_ps(_mm_set1_ps(offsets[k]), t), absMask),
                                _mm_set1_ps(2.0f));
    const __m128 u = _mm_mul_ps(d, _mm_set1_ps(static_cast<float>(kKernelSamplesPerVoxel)));
    const __m128i i = _mm_cvttps_epi32(_mm_min_ps(u, _mm_set1_ps(kKernelSamples - 2)));
    const __m128 r = _mm_sub_ps(u, _mm_cvtepi32_ps(i));
    alignas(16) int32_t index[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(index), i);
    const float* const runs[4] = {samples + index[0], samples + index[1], samples + index[2],
                                  samples + index[3]};
    __m128 pair[2];  // K[i], K[i + 1]
    LoadTapRuns(runs, pair);
    w[k] = _mm_add_ps(pair[0], _mm_mul_ps(_mm_sub_ps(pair[1], pair[0]), r));
  }
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_TABLE_WEIGHTS_H_
