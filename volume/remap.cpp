// The three remap entry points: every destination voxel is sampled at the source position that
// three float maps give for it. A single-slice source is remapped in two dimensions by the
// same code with the z axis compiled out.
//
// These rows have their own build for the in-order low-power path: the same source compiled
// for each path, with the same arithmetic, so the two give the same bits.
#include <cstdint>
#include <cstring>
#include <limits>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "volume/point_rows.h"
#include "volume/point_source.h"
#include "volume/volume_checks.h"
#include "volume/volume_view.h"

VTQR_PATH_BEGIN
namespace volume {
namespace {

// One destination row's positions, read from the rows of the maps (x, y and, in 3-D, z).
template <int kAxes>
struct MapRow {
  const Vtq32f* axis[kAxes];

  void Load(int64_t x, __m128 (&pos)[kAxes]) const {
    for (int a = 0; a < kAxes; ++a) pos[a] = _mm_loadu_ps(axis[a] + x);
  }
  // The maps end with the row: the missing lanes are NaN, a position outside any VOI.
  void LoadPartial(int64_t x, int count, __m128 (&pos)[kAxes]) const {
    for (int a = 0; a < kAxes; ++a) {
      alignas(16) float lanes[4];
      for (float& lane : lanes) lane = std::numeric_limits<float>::quiet_NaN();
      std::memcpy(lanes, axis[a] + x, static_cast<size_t>(count) * sizeof(float));
      pos[a] = _mm_load_ps(lanes);
    }
  }
};

// The maps: one array of slice pointers per axis, sharing one row step.
template <int kAxes>
struct MapPositions {
  // Maps usually follow the destination closely: whole rows keep the map and destination
  // rows streaming.
  static constexpr int64_t kTile[3] = {0, 0, 0};
  const Vtq32f* const* maps[kAxes];
  int64_t rowStep;

  MapRow<kAxes> Row(int64_t y, int64_t z) const {
    MapRow<kAxes> row;
    for (int a = 0; a < kAxes; ++a) row.axis[a] = AtByteOffset(maps[a][z], y * rowStep);
    return row;
  }
};

// Everything after the checks, for a 3-D source or a planar one (kAxes = 2, given as volumes
// of depth 1): the VOI warning, the mode the source supports, and the sampling.
template <class T, int kAxes>
VtqStatus RunRemap(const T* const* src, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,
                   const MapPositions<kAxes>& maps, T* const* dst, int dstStep,
                   VtqVolumeSize dstVolume, int interpolation) {
  if (!OriginInside(srcVOI, srcVolume)) return vtqStsWarnVoiOutside;
  const int code = SupportedCode(interpolation, srcVolume, kAxes);
  const PointJob<T, kAxes, MapPositions<kAxes>> job = {
      MakePointSource<T, kAxes>(src, srcStep, srcVolume, srcVOI, code),
      SliceVolume<T>(dst, dstStep),
      {{0, 0, 0}, {dstVolume.width, dstVolume.height, dstVolume.depth}},
      maps};
  RunPointJob(job, code);
  return vtqStsOk;
}

// The planar remap of one slice. Its sizes and code have passed the caller's checks; its own
// pointers are tested here, the slices of the caller's arrays.
template <class T>
VtqStatus RemapPlanar(const T* src, int width, int height, int srcStep, const VtqCuboid& srcVOI,
                      const Vtq32f* xMap, const Vtq32f* yMap, int mapStep, T* dst, int dstStep,
                      int dstWidth, int dstHeight, int interpolation) {
  if (src == nullptr || dst == nullptr) return vtqStsErrNullPtr;
  if (xMap == nullptr || yMap == nullptr) return vtqStsErrNullPtr;
  const T* const srcSlice[1] = {src};
  T* const dstSlice[1] = {dst};
  const Vtq32f* const xSlice[1] = {xMap};
  const Vtq32f* const ySlice[1] = {yMap};
  return RunRemap<T, 2>(srcSlice, PlanarVolume(width, height), srcStep, PlanarVOI(srcVOI),
                        MapPositions<2>{{xSlice, ySlice}, mapStep}, dstSlice, dstStep,
                        PlanarVolume(dstWidth, dstHeight), interpolation);
}

template <class T>
VtqStatus Remap(const T* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,
                const Vtq32f* const* pxMap, const Vtq32f* const* pyMap, const Vtq32f* const* pzMap,
                int mapStep, T* const* pDst, int dstStep, VtqVolumeSize dstVolume,
                int interpolation) {
  if (pSrc == nullptr || pDst == nullptr) return vtqStsErrNullPtr;
  if (pxMap == nullptr || pyMap == nullptr || pzMap == nullptr) return vtqStsErrNullPtr;
  if (!IsValidVolumeSize(srcVolume) || !IsValidCuboid(srcVOI) || !IsValidVolumeSize(dstVolume)) {
    return vtqStsErrSize;
  }
  if (!IsInterpolationCode(interpolation)) return vtqStsErrInterpolation;
  if (srcVolume.depth == 1) {
    return RemapPlanar(pSrc[0], srcVolume.width, srcVolume.height, srcStep, srcVOI, pxMap[0],
                       pyMap[0], mapStep, pDst[0], dstStep, dstVolume.width, dstVolume.height,
                       interpolation);
  }
  return RunRemap<T, 3>(pSrc, srcVolume, srcStep, srcVOI,
                        MapPositions<3>{{pxMap, pyMap, pzMap}, mapStep}, pDst, dstStep, dstVolume,
                        interpolation);
}

}  // namespace
}  // namespace volume

#define VTQR_REMAP_ENTRY_POINT(suffix, T)                                                      \
  VtqStatus Remap_##suffix##_C1PV(                                                             \
      const T* const* pSrc, VtqVolumeSize srcVolume, int srcStep, VtqCuboid srcVOI,            \
      const Vtq32f* const* pxMap, const Vtq32f* const* pyMap, const Vtq32f* const* pzMap,      \
      int mapStep, T* const* pDst, int dstStep, VtqVolumeSize dstVolume, int interpolation) {  \
    return volume::Remap(pSrc, srcVolume, srcStep, srcVOI, pxMap, pyMap, pzMap, mapStep, pDst, \
                         dstStep, dstVolume, interpolation);                                   \
  }

VTQR_REMAP_ENTRY_POINT(8u, Vtq8u)
VTQR_REMAP_ENTRY_POINT(16u, Vtq16u)
VTQR_REMAP_ENTRY_POINT(32f, Vtq32f)

#undef VTQR_REMAP_ENTRY_POINT

VTQR_PATH_END
