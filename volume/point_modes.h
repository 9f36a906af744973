// The interpolation modes of the per-voxel families, four destination voxels (lanes) at a time.
// Each lane has its own source position (x, y and, in 3-D, z); every position handed in lies
// inside the VOI's bounds. A mode returns the value of each lane in single precision and the
// lanes whose taps were substituted at a border, then Finish brings the values to the element
// type.
//
// Every lane runs the same instructions, so a voxel's bits do not depend on its neighbours in
// the group, on where the group starts, or on which way its taps were fetched.
#ifndef VTQR_VOLUME_POINT_MODES_H_
#define VTQR_VOLUME_POINT_MODES_H_

#include <tmmintrin.h>

#include <cstdint>
#include <type_traits>

#include "frame/code_path.h"
#include "simd/select.h"
#include "volume/blend.h"
#include "volume/element.h"
#include "volume/point_source.h"
#include "volume/table_weights.h"
#include "volume/tap_runs.h"

VTQR_PATH_BEGIN
namespace volume {

// Values of four voxels before they are stored, and, per lane, all ones where some tap was
// replaced at the border of the VOI (the cubic codes only).
struct Samples {
  __m128 value;
  __m128i border;
};

// Integer positions of the four lanes, per axis, for scalar addressing.
template <int kAxes>
struct LaneIndices {
  alignas(16) int32_t axis[kAxes][4];

  void Set(int a, __m128i lanes) { _mm_store_si128(reinterpret_cast<__m128i*>(axis[a]), lanes); }
  int32_t z(int lane) const {
    if constexpr (kAxes == 3) return axis[2][lane];
    return 0;
  }
};

// Whether the four lanes' integer positions share y and z and run x0, x0 + 1, x0 + 2, x0 + 3:
// then every tap along x of the group lies in one run of consecutive voxels per source row,
// which two whole loads fetch. The taps are the same voxels either way, so the values are too.
template <int kAxes>
inline bool InOneRunOfRows(const __m128i (&part)[kAxes]) {
  const __m128i consecutive = _mm_add_epi32(_mm_shuffle_epi32(part[0], 0),
                                            _mm_setr_epi32(0, 1, 2, 3));
  __m128i same = _mm_cmpeq_epi32(part[0], consecutive);
  for (int a = 1; a < kAxes; ++a) {
    same = _mm_and_si128(same, _mm_cmpeq_epi32(part[a], _mm_shuffle_epi32(part[a], 0)));
  }
  return _mm_movemask_epi8(same) == 0xFFFF;
}

// Nearest: the voxel at the positions rounded to the nearest integer, halves to even (the
// processor's default rounding). The value is copied: a float voxel keeps its bits.
struct Nearest {
  static constexpr bool kCubic = false;

  template <class T, int kAxes>
  static Samples Sample(const PointSource<T, kAxes>& src, const __m128 (&pos)[kAxes]) {
    LaneIndices<kAxes> i;
    for (int a = 0; a < kAxes; ++a) i.Set(a, _mm_cvtps_epi32(pos[a]));
    alignas(16) float v[4];
    for (int l = 0; l < 4; ++l) {
      v[l] = Element<T>::Load(src.Row(i.axis[1][l], i.z(l)) + i.axis[0][l]);
    }
    return {_mm_load_ps(v), _mm_setzero_si128()};
  }
};

// Trilinear. Per axis the integer part is trunc(p); on the VOI's upper bound it is one less,
// so that its pair of taps stays inside (the fraction becomes 1). A VOI one voxel wide at
// voxel 0 would so put the lower tap at -1: there the integer part stays 0 (fraction 0), and
// the pair is voxels 0 and 1, which exist since the volume is at least two voxels wide.
struct Linear {
  static constexpr bool kCubic = false;

  static __m128i IntegerPart(__m128 p, __m128i upper) {
    __m128i i = _mm_cvttps_epi32(p);
    i = _mm_add_epi32(i, _mm_cmpeq_epi32(i, upper));  // the comparison's all ones is -1
    return _mm_andnot_si128(_mm_srai_epi32(i, 31), i);
  }

  // Eight neighbours, blended along x for each (y, z) pair, then along y, then along z:
  // p0 * (1 - f) + p1 * f at every step, in single precision.
  template <class T, int kAxes>
  static Samples Sample(const PointSource<T, kAxes>& src, const __m128 (&pos)[kAxes]) {
    __m128i part[kAxes];
    __m128 f[kAxes][1];
    for (int a = 0; a < kAxes; ++a) {
      part[a] = IntegerPart(pos[a], src.upperIndex[a]);
      f[a][0] = _mm_sub_ps(pos[a], _mm_cvtepi32_ps(part[a]));
    }
    constexpr int kPlanes = kAxes == 3 ? 2 : 1;
    __m128 taps[kPlanes][2][2];  // [z][y][x tap], lanes: the four voxels
    if (InOneRunOfRows(part)) {
      // Smooth maps and small rotations mostly land here: the four voxels share their rows,
      // and their taps along x are the source voxels ix0 .. ix0 + 4, two overlapping loads.
      const int32_t ix = _mm_cvtsi128_si32(part[0]);
      const int32_t iy = _mm_cvtsi128_si32(part[1]);
      int32_t iz = 0;
      if constexpr (kAxes == 3) iz = _mm_cvtsi128_si32(part[2]);
      for (int kz = 0; kz < kPlanes; ++kz) {
        const T* row = src.Row(iy, iz + kz) + ix;
        for (int ky = 0; ky < 2; ++ky, row = src.NextRow(row)) {
          taps[kz][ky][0] = Element<T>::Load4(row);
          taps[kz][ky][1] = Element<T>::Load4(row + 1);
        }
      }
    } else {
      // Each lane's pair of rows in a slice is one row address and the next: a slice pointer
      // and a multiplication per slice, not per row.
      LaneIndices<kAxes> i;
      for (int a = 0; a < kAxes; ++a) i.Set(a, part[a]);
      for (int kz = 0; kz < kPlanes; ++kz) {
        const T* runs[2][4];
        for (int l = 0; l < 4; ++l) {
          runs[0][l] = src.Row(i.axis[1][l], i.z(l) + kz) + i.axis[0][l];
          runs[1][l] = src.NextRow(runs[0][l]);
        }
        for (int ky = 0; ky < 2; ++ky) LoadTapRuns(runs[ky], taps[kz][ky]);
      }
    }
    __m128 planes[2];
    for (int kz = 0; kz < kPlanes; ++kz) {
      __m128 rows[2];
      for (int ky = 0; ky < 2; ++ky) rows[ky] = Blend<2>::Apply(taps[kz][ky], f[0]);
      planes[kz] = Blend<2>::Apply(rows, f[1]);
    }
    if constexpr (kAxes == 3) return {Blend<2>::Apply(planes, f[2]), _mm_setzero_si128()};
    return {planes[0], _mm_setzero_si128()};
  }
};

// Cubic (codes 4 to 7). Per axis i = trunc(p), t = p - i, weights from the code's sampled
// kernel (TableWeights) for the taps i-1, i, i+1, i+2. At the borders of the volume and the VOI
// the taps are replaced: i < 1 takes (0, 0, 1, 2); i one below the upper bound takes
// (i-1, i, i+1, i+1); i on the upper bound (i-1, i, i, i). The weights stay those of the
// offsets -1..2. The 4 x 4 x 4 taps combine separably, each step as Blend<4>: along x for
// every (y, z) pair of taps, then along y, then along z.
struct Cubic {
  static constexpr bool kCubic = true;

  // Tap indices along one axis for integer part i in a VOI whose upper bound is `upper`.
  static void Taps(int32_t i, int32_t upper, int32_t (&taps)[4]) {
    if (i < 1) {
      taps[0] = 0, taps[1] = 0, taps[2] = 1, taps[3] = 2;
    } else if (i == upper - 1) {
      taps[0] = i - 1, taps[1] = i, taps[2] = i + 1, taps[3] = i + 1;
    } else if (i >= upper) {
      taps[0] = i - 1, taps[1] = i, taps[2] = i, taps[3] = i;
    } else {
      taps[0] = i - 1, taps[1] = i, taps[2] = i + 1, taps[3] = i + 2;
    }
  }

  template <class T, int kAxes>
  static Samples Sample(const PointSource<T, kAxes>& src, const __m128 (&pos)[kAxes]) {
    LaneIndices<kAxes> i;
    __m128 w[kAxes][4];
    __m128i border = _mm_setzero_si128();
    for (int a = 0; a < kAxes; ++a) {
      const __m128i part = _mm_cvttps_epi32(pos[a]);
      TableWeights(src.samples, _mm_sub_ps(pos[a], _mm_cvtepi32_ps(part)), w[a]);
      // i < 1, or i >= upper - 1
      const __m128i nearUpper =
          _mm_cmpgt_epi32(part, _mm_sub_epi32(src.upperIndex[a], _mm_set1_epi32(2)));
      border = _mm_or_si128(border,
                            _mm_or_si128(_mm_cmplt_epi32(part, _mm_set1_epi32(1)), nearUpper));
      i.Set(a, part);
    }
    // The rows of x taps, blended along x: interior lanes read each run of four taps whole;
    // a group with a lane at a border fetches every tap through the substitution rules.
    constexpr int kPlanes = kAxes == 3 ? 4 : 1;
    __m128 rows[kPlanes][4];
    if (_mm_movemask_epi8(border) == 0) {
      for (int kz = 0; kz < kPlanes; ++kz) {
        for (int ky = 0; ky < 4; ++ky) {
          const T* runs[4];
          for (int l = 0; l < 4; ++l) {
            const int32_t z = kAxes == 3 ? i.z(l) - 1 + kz : 0;
            runs[l] = src.Row(i.axis[1][l] - 1 + ky, z) + (i.axis[0][l] - 1);
          }
          __m128 taps[4];
          LoadTapRuns(runs, taps);
          rows[kz][ky] = Blend<4>::Apply(taps, w[0]);
        }
      }
    } else {
      int32_t taps[kAxes][4][4];  // [axis][lane][tap]
      for (int a = 0; a < kAxes; ++a) {
        for (int l = 0; l < 4; ++l) Taps(i.axis[a][l], src.upper[a], taps[a][l]);
      }
      for (int kz = 0; kz < kPlanes; ++kz) {
        for (int ky = 0; ky < 4; ++ky) {
          alignas(16) float lanes[4][4];  // [tap][lane]
          for (int l = 0; l < 4; ++l) {
            int32_t z = 0;
            if constexpr (kAxes == 3) z = taps[2][l][kz];
            const T* row = src.Row(taps[1][l][ky], z);
            for (int kx = 0; kx < 4; ++kx) lanes[kx][l] = Element<T>::Load(row + taps[0][l][kx]);
          }
          __m128 x[4];
          for (int kx = 0; kx < 4; ++kx) x[kx] = _mm_load_ps(lanes[kx]);
          rows[kz][ky] = Blend<4>::Apply(x, w[0]);
        }
      }
    }
    __m128 planes[4];
    for (int kz = 0; kz < kPlanes; ++kz) planes[kz] = Blend<4>::Apply(rows[kz], w[1]);
    if constexpr (kAxes == 3) return {Blend<4>::Apply(planes, w[2]), border};
    return {planes[0], border};
  }
};

// trunc(double(v) + 0.5000001) clamped to [0, 255], per lane. Clamping before truncating
// gives the same integers, as the bounds are integers, and keeps the conversion in range.
inline __m128i BiasedTruncate8u(__m128 v) {
  const __m128d bias = _mm_set1_pd(0.5000001);
  const __m128d lowest = _mm_setzero_pd();
  const __m128d highest = _mm_set1_pd(255.0);
  auto two = [&](__m128 lanes01) {
    const __m128d biased = _mm_add_pd(_mm_cvtps_pd(lanes01), bias);
    return _mm_cvttpd_epi32(_mm_min_pd(_mm_max_pd(biased, lowest), highest));
  };
  return _mm_unpacklo_epi64(two(v), two(_mm_movehl_ps(v, v)));
}

// The four voxels as 32-bit lanes ready to store: float bits for 32f, integers within the
// type's range for 8u and 16u, which round to nearest with halves to even after clamping to
// the range (the cubic kernels of codes 4, 6 and 7 overshoot it). A cubic 8u voxel whose taps
// were replaced at a border is instead rounded as trunc(double(v) + 0.5000001), clamped: the
// two roundings are kept apart deliberately, and differ on exact halves.
template <class T, class Mode>
__m128i Finish(const Samples& s) {
  if constexpr (std::is_same_v<T, Vtq32f>) {
    return _mm_castps_si128(s.value);
  } else {
    const __m128i rounded = Element<T>::Round(s.value);
    if constexpr (std::is_same_v<T, Vtq8u> && Mode::kCubic) {
      return _mm_or_si128(_mm_and_si128(s.border, BiasedTruncate8u(s.value)),
                          _mm_andnot_si128(s.border, rounded));
    }
    return rounded;
  }
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_POINT_MODES_H_
