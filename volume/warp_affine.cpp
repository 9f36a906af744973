// The affine warp: its work-buffer query and the three entry points. Every destination voxel
// of the dstVOI is sampled at its own source position, the inverse of the caller's map applied
// to the voxel's coordinates, with the per-voxel sampling of remap. A single-slice source is
// warped in two dimensions by the same code with the z axis compiled out.
#include <emmintrin.h>

#include <cstdint>
#include <limits>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "volume/affine_inverse.h"
#include "volume/point_rows.h"
#include "volume/point_source.h"
#include "volume/volume_checks.h"
#include "volume/volume_view.h"

VTQR_PATH_BEGIN
namespace volume {
namespace {

// One destination row's positions. Along the row only x changes, so each axis's position is
// step * x + base, with base = (m1 * y + m2 * z) + t formed once per row (m1 * y + t when
// planar): every voxel's position is a closed formula in double, whatever group or thread
// computes it, then rounded to float.
template <int kAxes>
struct AffineRow {
  __m128d step[kAxes];
  __m128d base[kAxes];
  int64_t x0;  // the row's first voxel, in destination coordinates

  void Load(int64_t x, __m128 (&pos)[kAxes]) const {
    const double first = static_cast<double>(x0 + x);
    const __m128d x01 = _mm_set_pd(first + 1.0, first);
    const __m128d x23 = _mm_set_pd(first + 3.0, first + 2.0);
    for (int a = 0; a < kAxes; ++a) {
      const __m128 lo = _mm_cvtpd_ps(_mm_add_pd(_mm_mul_pd(step[a], x01), base[a]));
      const __m128 hi = _mm_cvtpd_ps(_mm_add_pd(_mm_mul_pd(step[a], x23), base[a]));
      pos[a] = _mm_movelh_ps(lo, hi);
    }
  }
  // Lanes past the row's end are NaN, a position outside any VOI.
  void LoadPartial(int64_t x, int count, __m128 (&pos)[kAxes]) const {
    Load(x, pos);
    alignas(16) int32_t keep[4];
    for (int l = 0; l < 4; ++l) keep[l] = l < count ? -1 : 0;
    const __m128 kept = _mm_load_ps(reinterpret_cast<const float*>(keep));
    const __m128 nan = _mm_set1_ps(std::numeric_limits<float>::quiet_NaN());
    for (int a = 0; a < kAxes; ++a) pos[a] = simd::Select(kept, pos[a], nan);
  }
};

// The inverse map, destination to source.
template <int kAxes>
struct AffinePositions {
  // A rotation walks each destination row obliquely through the source's rows and slices:
  // 16-voxel tiles bring the neighbouring rows back to the same source rows while they are
  // still cached (measured: a 10-degree rotation of a 256^3 32f volume, 83 -> 140 Mvox/s).
  static constexpr int64_t kTile[3] = {16, 16, 16};
  AffineMap<kAxes> inverse;
  int64_t x0;

  AffineRow<kAxes> Row(int64_t y, int64_t z) const {
    AffineRow<kAxes> row;
    const auto& m = inverse.linear;
    for (int a = 0; a < kAxes; ++a) {
      double base = m[a][1] * static_cast<double>(y);
      if constexpr (kAxes == 3) base += m[a][2] * static_cast<double>(z);
      row.step[a] = _mm_set1_pd(m[a][0]);
      row.base[a] = _mm_set1_pd(base + inverse.offset[a]);
    }
    row.x0 = x0;
    return row;
  }
};

// Everything after the checks, for a 3-D source or a planar one (kAxes = 2, given as volumes
// of depth 1 and VOIs of their x/y parts).
template <class T, int kAxes>
VtqStatus RunWarp(const T* const* src, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,
                  T* const* dst, int dstStep, VtqCuboid dstVOI, const AffineMap<kAxes>& inverse,
                  int interpolation) {
  if (!OriginInside(srcVOI, srcVolume)) return vtqStsWarnVoiOutside;
  const int code = SupportedCode(interpolation, srcVolume, kAxes);
  const PointJob<T, kAxes, AffinePositions<kAxes>> job = {
      MakePointSource<T, kAxes>(src, srcStep, srcVolume, srcVOI, code),
      SliceVolume<T>(dst, dstStep),
      {{dstVOI.x, dstVOI.y, dstVOI.z}, {dstVOI.width, dstVOI.height, dstVOI.depth}},
      {inverse, dstVOI.x}};
  RunPointJob(job, code);
  return vtqStsOk;
}

// The planar warp of slice 0 into slice 0, by the x/y part of the coefficients. Its sizes and
// code have passed the caller's checks; its own pointers and its 2 x 2 matrix are tested here.
template <class T>
VtqStatus WarpAffinePlanar(const T* src, int width, int height, int srcStep,
                           const VtqCuboid& srcVOI, T* dst, int dstStep, const VtqCuboid& dstVOI,
                           const double (*coeffs)[4], int interpolation) {
  if (src == nullptr || dst == nullptr) return vtqStsErrNullPtr;
  AffineMap<2> inverse;
  if (!InvertAffine(ReadAffine<2>(coeffs), &inverse)) return vtqStsErrCoeff;
  const T* const srcSlice[1] = {src};
  T* const dstSlice[1] = {dst};
  return RunWarp<T, 2>(srcSlice, PlanarVolume(width, height), srcStep, PlanarVOI(srcVOI), dstSlice,
                       dstStep, PlanarVOI(dstVOI), inverse, interpolation);
}

template <class T>
VtqStatus WarpAffine(const T* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,
                     T* const* pDst, int dstStep, VtqCuboid dstVOI, const double (*coeffs)[4],
                     int interpolation) {
  if (pSrc == nullptr || pDst == nullptr || coeffs == nullptr) return vtqStsErrNullPtr;
  if (!IsValidVolumeSize(srcVolume) || !IsValidCuboid(srcVOI) || !IsValidCuboid(dstVOI)) {
    return vtqStsErrSize;
  }
  AffineMap<3> inverse;
  if (!InvertAffine(ReadAffine<3>(coeffs), &inverse)) return vtqStsErrCoeff;
  if (!IsInterpolationCode(interpolation)) return vtqStsErrInterpolation;
  if (srcVolume.depth == 1) {
    return WarpAffinePlanar(pSrc[0], srcVolume.width, srcVolume.height, srcStep, srcVOI, pDst[0],
                            dstStep, dstVOI, coeffs, interpolation);
  }
  return RunWarp<T, 3>(pSrc, srcVolume, srcStep, srcVOI, pDst, dstStep, dstVOI, inverse,
                       interpolation);
}

}  // namespace
}  // namespace volume

VtqStatus WarpAffineGetBufSize(const VtqCuboid* srcVOI, const VtqCuboid* dstVOI, int nChannel,
                               int interpolation, int* pSize) {
  const VtqStatus status = volume::CheckCuboidQuery(srcVOI, dstVOI, nChannel, interpolation, pSize);
  if (status != vtqStsOk) return status;
  *pSize = 0;
  return vtqStsOk;
}

// The work buffer is taken so that code written for the size query's pattern (query, allocate,
// pass) works unchanged; it is never read, and may be null.
#define VTQR_WARP_ENTRY_POINT(suffix, T)                                                           \
  VtqStatus WarpAffine_##suffix##_C1PV(const T* const* pSrc, VtqVolumeSize srcVolume, int srcStep, \
                                       VtqCuboid srcVOI, T* const* pDst, int dstStep,              \
                                       VtqCuboid dstVOI, const double coeffs[3][4],                \
                                       int interpolation, Vtq8u* /*pBuffer*/) {                    \
    return volume::WarpAffine(pSrc, srcVolume, srcStep, srcVOI, pDst, dstStep, dstVOI, coeffs,     \
                              interpolation);                                                      \
  }

VTQR_WARP_ENTRY_POINT(8u, Vtq8u)
VTQR_WARP_ENTRY_POINT(16u, Vtq16u)
VTQR_WARP_ENTRY_POINT(32f, Vtq32f)

#undef VTQR_WARP_ENTRY_POINT

VTQR_PATH_END
