// The interpolation codes of the volume functions and the one definition of each code's
// weights. Resize, remap and warp all take their weights from here; they differ only in where
// they put the taps at a volume's border, which each family decides for itself.
//
// Everything here is constexpr or computed per call: nothing may run as a static initialiser,
// which would execute before the code path is chosen.
#ifndef VTQR_VOLUME_INTERPOLATION_H_
#define VTQR_VOLUME_INTERPOLATION_H_

#include "frame/code_path.h"
#include "vtqr/volume.h"

VTQR_PATH_BEGIN
namespace volume {

inline constexpr bool IsCubicCode(int code) {
  return code >= vtqInterCubicLagrange && code <= vtqInterCubicB05C03;
}

// The codes every volume function accepts: 1, 2 and 4 to 7 (3 is not one of them).
inline constexpr bool IsInterpolationCode(int code) {
  return code == vtqInterNearest || code == vtqInterLinear || IsCubicCode(code);
}

// Taps per axis: 1, 2 or 4.
inline constexpr int TapCount(int code) {
  return code == vtqInterNearest ? 1 : code == vtqInterLinear ? 2 : 4;
}

// The cubic through the four taps at -1, 0, 1, 2 as a kernel of the distance d >= 0.
inline constexpr double LagrangeKernel(double d) {
  if (d < 1.0) return (d - 1.0) * (d - 2.0) * (d + 1.0) / 2.0;
  if (d < 2.0) return -(d - 1.0) * (d - 2.0) * (d - 3.0) / 6.0;
  return 0.0;
}

// The two-parameter cubic family of Mitchell and Netravali ("Reconstruction filters in
// computer graphics", 1988): C1-continuous, weights summing to 1 for any B and C.
inline constexpr double MitchellNetravaliKernel(double b, double c, double d) {
  if (d < 1.0) {
    return ((12.0 - 9.0 * b - 6.0 * c) * d * d * d + (-18.0 + 12.0 * b + 6.0 * c) * d * d +
            (6.0 - 2.0 * b)) /
           6.0;
  }
  if (d < 2.0) {
    return ((-b - 6.0 * c) * d * d * d + (6.0 * b + 30.0 * c) * d * d + (-12.0 * b - 48.0 * c) * d +
            (8.0 * b + 24.0 * c)) /
           6.0;
  }
  return 0.0;
}

// Kernel weight of a cubic code (4 to 7) at distance d >= 0 from the sample position.
inline constexpr double CubicKernel(int code, double d) {
  switch (code) {
    case vtqInterCubicLagrange:
      return LagrangeKernel(d);
    case vtqInterCubicBSpline:
      return MitchellNetravaliKernel(1.0, 0.0, d);
    case vtqInterCubicCatmullRom:
      return MitchellNetravaliKernel(0.0, 0.5, d);
    default:
      return MitchellNetravaliKernel(0.5, 0.3, d);
  }
}

// Weights of the four taps i-1, i, i+1, i+2 for a position i + t, 0 <= t < 1, each rounded
// to float once from the double kernel.
inline void CubicTapWeights(int code, double t, float w[4]) {
  w[0] = static_cast<float>(CubicKernel(code, 1.0 + t));
  w[1] = static_cast<float>(CubicKernel(code, t));
  w[2] = static_cast<float>(CubicKernel(code, 1.0 - t));
  w[3] = static_cast<float>(CubicKernel(code, 2.0 - t));
}

// A cubic kernel sampled every 1/100 voxel over its support, entry i = K(i / 100) for
// i = 0..200, for code that looks weights up by distance instead of evaluating the kernel. The
// compiler builds it: a `static constexpr` table is constant data, never an initialiser that
// would run at load time, before the code path is chosen.
inline constexpr int kKernelSamplesPerVoxel = 100;
inline constexpr int kKernelSamples = 2 * kKernelSamplesPerVoxel + 1;

struct SampledKernel {
  float weight[kKernelSamples];
};

inline constexpr SampledKernel SampleCubicKernel(int code) {
  SampledKernel table{};
  for (int i = 0; i < kKernelSamples; ++i) {
    table.weight[i] = static_cast<float>(
        CubicKernel(code, static_cast<double>(i) / static_cast<double>(kKernelSamplesPerVoxel)));
  }
  return table;
}

static_assert(SampleCubicKernel(vtqInterCubicCatmullRom).weight[0] == 1.0f &&
                  SampleCubicKernel(vtqInterCubicCatmullRom).weight[100] == 0.0f &&
                  SampleCubicKernel(vtqInterCubicBSpline).weight[200] == 0.0f,
              "the sampled kernels are built at compile time");

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_INTERPOLATION_H_
