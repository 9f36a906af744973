// The separable passes of resize: rows resampled along x, and the blends along y and z that
// combine two (trilinear) or four (cubic) resampled rows.
//
// Every value is one lane of a four-wide computation. Where the x pass cannot load a group's
// taps with vector loads (taps clamped at the VOI's edge), it gathers them one by one into
// the same lanes and runs the same blend, so a voxel gets the same bits whichever way its
// taps were fetched.
#ifndef VTQR_VOLUME_RESIZE_PASSES_H_
#define VTQR_VOLUME_RESIZE_PASSES_H_

#include <tmmintrin.h>

#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "simd/lanes.h"
#include "simd/stores.h"
#include "volume/element.h"
#include "volume/resize_geometry.h"

VTQR_PATH_BEGIN
namespace volume {

// How the taps of one mode combine, lane by lane, in single precision and in this order.
template <int kTaps>
struct Blend;

// Trilinear: r0 * (1 - w) + r1 * w, one weight w per output.
template <>
struct Blend<2> {
  static constexpr int kWeights = 1;
  static __m128 Apply(const __m128 (&r)[2], const __m128 (&w)[1]) {
    const __m128 rest = _mm_sub_ps(_mm_set1_ps(1.0f), w[0]);
    return _mm_add_ps(_mm_mul_ps(r[0], rest), _mm_mul_ps(r[1], w[0]));
  }
};

// Cubic: (w0 * r0 + w1 * r1) + (w2 * r2 + w3 * r3).
template <>
struct Blend<4> {
  static constexpr int kWeights = 4;
  static __m128 Apply(const __m128 (&r)[4], const __m128 (&w)[4]) {
    const __m128 inner = _mm_add_ps(_mm_mul_ps(w[0], r[0]), _mm_mul_ps(w[1], r[1]));
    const __m128 outer = _mm_add_ps(_mm_mul_ps(w[2], r[2]), _mm_mul_ps(w[3], r[3]));
    return _mm_add_ps(inner, outer);
  }
};

// The x tables of a call: per destination x the first tap and the weights, laid out for whole
// groups of four outputs, and the groups whose taps all lie inside the VOI.
struct XTable {
  const int32_t* first;
  const float* weights;  // per group: tap 0 of the four outputs, then tap 1, ...
  size_t groups;
  size_t interiorBegin;  // groups [interiorBegin, interiorEnd) read no clamped tap
  size_t interiorEnd;
  AxisBounds bounds;
};

// Groups whose every tap first[i] .. first[i] + taps - 1 lies inside the bounds. first[] grows
// with i (the map is increasing), so they form one run.
inline void FindInteriorGroups(XTable* t, int taps) {
  size_t begin = 0;
  while (begin < t->groups && t->first[4 * begin] < t->bounds.lo) ++begin;
  size_t end = t->groups;
  while (end > begin && int64_t{t->first[4 * end - 1]} + (taps - 1) > t->bounds.hi) --end;
  t->interiorBegin = begin;
  t->interiorEnd = end;
}

// Taps of the four outputs of a group, read as vectors from inside the row: lane l of taps[k]
// is tap k of output l. Floats and 16-bit cubic taps load each output's run of taps and
// transpose; bytes, and 16-bit pairs, gather all runs into one register and pick each tap's
// lanes with a byte shuffle, which widens them in the same step.
template <class T>
inline void LoadInteriorTaps(const T* row, const int32_t* first, __m128 (&taps)[4]) {
  __m128 a = Element<T>::Load4(row + first[0]);
  __m128 b = Element<T>::Load4(row + first[1]);
  __m128 c = Element<T>::Load4(row + first[2]);
  __m128 d = Element<T>::Load4(row + first[3]);
  _MM_TRANSPOSE4_PS(a, b, c, d);
  taps[0] = a;
  taps[1] = b;
  taps[2] = c;
  taps[3] = d;
}

template <class T>
inline void LoadInteriorTaps(const T* row, const int32_t* first, __m128 (&taps)[2]) {
  const __m128 a = Element<T>::Load2(row + first[0]);  // a0 a1 0 0
  const __m128 b = Element<T>::Load2(row + first[1]);
  const __m128 c = Element<T>::Load2(row + first[2]);
  const __m128 d = Element<T>::Load2(row + first[3]);
  const __m128 ab = _mm_unpacklo_ps(a, b);  // a0 b0 a1 b1
  const __m128 cd = _mm_unpacklo_ps(c, d);  // c0 d0 c1 d1
  taps[0] = _mm_movelh_ps(ab, cd);
  taps[1] = _mm_movehl_ps(cd, ab);
}

// Four runs of `Bits` (the bytes of a run of taps), one per 32-bit lane.
template <class Bits, class T>
inline __m128i GatherRuns(const T* row, const int32_t* first) {
  return _mm_setr_epi32(LoadBits<Bits>(row + first[0]), LoadBits<Bits>(row + first[1]),
                        LoadBits<Bits>(row + first[2]), LoadBits<Bits>(row + first[3]));
}

// Byte k of each 32-bit lane, widened to the lane.
inline __m128 ByteOfEachLane(__m128i v, int k) {
  const char z = -1;  // a shuffle index with the top bit set writes a zero
  const char b = static_cast<char>(k);
  return _mm_cvtepi32_ps(_mm_shuffle_epi8(
      v, _mm_setr_epi8(b, z, z, z, b + 4, z, z, z, b + 8, z, z, z, b + 12, z, z, z)));
}

template <>
inline void LoadInteriorTaps(const Vtq8u* row, const int32_t* first, __m128 (&taps)[4]) {
  const __m128i runs = GatherRuns<int32_t>(row, first);
  for (int k = 0; k < 4; ++k) taps[k] = ByteOfEachLane(runs, k);
}

template <>
inline void LoadInteriorTaps(const Vtq8u* row, const int32_t* first, __m128 (&taps)[2]) {
  const __m128i runs = GatherRuns<uint16_t>(row, first);
  taps[0] = ByteOfEachLane(runs, 0);
  taps[1] = ByteOfEachLane(runs, 1);
}

template <>
inline void LoadInteriorTaps(const Vtq16u* row, const int32_t* first, __m128 (&taps)[2]) {
  const __m128i runs = GatherRuns<int32_t>(row, first);
  taps[0] = _mm_cvtepi32_ps(_mm_and_si128(runs, _mm_set1_epi32(0xFFFF)));
  taps[1] = _mm_cvtepi32_ps(_mm_srli_epi32(runs, 16));
}

// Taps of a group one by one, each index clamped to the VOI: the edge replicates.
template <class T, int kTaps>
inline void LoadClampedTaps(const T* row, const int32_t* first, AxisBounds bounds,
                            __m128 (&taps)[kTaps]) {
  alignas(16) float lanes[kTaps][4];
  for (int l = 0; l < 4; ++l) {
    for (int k = 0; k < kTaps; ++k) {
      lanes[k][l] = Element<T>::Load(row + ClampTap(int64_t{first[l]} + k, bounds));
    }
  }
  for (int k = 0; k < kTaps; ++k) taps[k] = simd::AlignedFour::Load(lanes[k]);
}

// Resamples one source row (`row` points at its voxel x = 0) along x into table.groups * 4
// floats at `out` (16-byte aligned).
template <class T, int kTaps>
void ResampleRow(const T* row, const XTable& tableRef, float* out) {
  using B = Blend<kTaps>;
  const XTable table = tableRef;  // a local copy: the stores to `out` could alias the original
  auto group = [&](size_t g, bool interior) {
    const int32_t* first = table.first + 4 * g;
    __m128 taps[kTaps];
    if (interior) {
      LoadInteriorTaps(row, first, taps);
    } else {
      LoadClampedTaps<T, kTaps>(row, first, table.bounds, taps);
    }
    __m128 w[B::kWeights];
    for (int k = 0; k < B::kWeights; ++k)
      w[k] = simd::AlignedFour::Load(table.weights + 4 * (g * B::kWeights + k));
    simd::AlignedFour::Store(out + 4 * g, B::Apply(taps, w));
  };
  for (size_t g = 0; g < table.interiorBegin; ++g) group(g, false);
  for (size_t g = table.interiorBegin; g < table.interiorEnd; ++g) group(g, true);
  for (size_t g = table.interiorEnd; g < table.groups; ++g) group(g, false);
}

// Weights of one output row or slice, broadcast to every lane.
template <int kTaps>
struct LineWeights {
  explicit LineWeights(const float* w) {
    for (int k = 0; k < Blend<kTaps>::kWeights; ++k) lanes[k] = _mm_set1_ps(w[k]);
  }
  __m128 lanes[Blend<kTaps>::kWeights];
};

// The blend of the rows' floats i .. i+3, loaded through the lane policy `Lanes` (AlignedFour
// at group boundaries of the rows, UnalignedFour anywhere else).
template <class Lanes = simd::AlignedFour, int kTaps>
inline __m128 BlendAt(const float* const (&rows)[kTaps], const LineWeights<kTaps>& w, size_t i) {
  __m128 r[kTaps];
  for (int k = 0; k < kTaps; ++k) r[k] = Lanes::Load(rows[k] + i);
  return Blend<kTaps>::Apply(r, w.lanes);
}

// out = blend of the rows, groups * 4 floats (all 16-byte aligned).
template <int kTaps>
void BlendRows(const float* const (&rows)[kTaps], const float* weights, size_t groups, float* out) {
  const LineWeights<kTaps> w(weights);
  for (size_t i = 0; i < groups * 4; i += 4) simd::AlignedFour::Store(out + i, BlendAt(rows, w, i));
}

// Voxels before `p` reaches a 16-byte boundary, at most `width`; all of them when p is not
// even aligned to its element size, since it then never gets there.
template <class T>
size_t VoxelsToBoundary(const T* p, size_t width) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(p);
  if (address % sizeof(T) != 0) return width;
  const size_t voxels = (16 - address % 16) % 16 / sizeof(T);
  return voxels < width ? voxels : width;
}

// dst[begin .. end) one voxel at a time, each taken from the aligned group of four it sits in.
template <class T, int kTaps>
void StoreEachVoxel(const float* const (&rows)[kTaps], const LineWeights<kTaps>& w, size_t begin,
                    size_t end, T* dst) {
  for (size_t group = begin & ~size_t{3}; group < end; group += 4) {
    alignas(16) float lanes[4];
    simd::AlignedFour::Store(lanes, BlendAt(rows, w, group));
    const size_t last = group + 4 < end ? group + 4 : end;
    for (size_t i = group > begin ? group : begin; i < last; ++i) {
      Element<T>::Store(dst + i, lanes[i - group]);
    }
  }
}

// dst[0 .. width) = blend of the rows, stored as T. With `stream`, whole 16-byte blocks of the
// destination go out with non-temporal stores, for destinations far larger than the caches:
// their lines are then written without first being read. The blocks start wherever the
// destination reaches a 16-byte boundary, so their lanes are blended from unaligned positions
// of the rows; every lane computes the same operations either way.
template <class T, int kTaps>
void BlendRowsToVoxels(const float* const (&rows)[kTaps], const float* weights, size_t width,
                       T* dst, bool stream) {
  const LineWeights<kTaps> w(weights);
  if (!stream) {
    size_t i = 0;
    for (; i + 4 <= width; i += 4) Element<T>::Store4(dst + i, BlendAt(rows, w, i));
    StoreEachVoxel(rows, w, i, width, dst);
    return;
  }
  constexpr size_t kBlock = Element<T>::kPerBlock;
  const size_t head = VoxelsToBoundary(dst, width);
  StoreEachVoxel(rows, w, 0, head, dst);
  size_t i = head;
  for (; i + kBlock <= width; i += kBlock) {
    __m128 lanes[kBlock / 4];
    for (size_t j = 0; j < kBlock / 4; ++j)
      lanes[j] = BlendAt<simd::UnalignedFour>(rows, w, i + 4 * j);
    simd::StreamBytes(dst + i, Element<T>::Pack(lanes));
  }
  StoreEachVoxel(rows, w, i, width, dst);
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_RESIZE_PASSES_H_
