// Packet schemes: how a kernel's rays are split between four-wide steps and single rays.
//
// A kernel states its per-step formula once, as a callable step(lanes, i) that handles the
// rays from i on, as many as the lane policy `lanes` is wide, and hands it to the scheme its
// contract names. The scheme owns the loops and the alignment tests; the step is inlined into
// each loop, so a scheme costs what the hand-written loops cost.
//
//   PeelToBoundary        single rays up to the destination's 16-byte boundary, then fours,
//                         aligned when every array is aligned there, then the tail singly
//   AlignedFoursOrSingle  aligned fours when every array is aligned and len % 4 == 0,
//                         otherwise every ray singly
//   FoursThenSingle       fours from the first ray, aligned or not, then the tail singly
//   FoursOrSingle         fours, aligned or not, when len % 4 == 0, otherwise every ray singly
//
// Steps of any width compute the same bits for a ray, so the schemes differ in speed only,
// unless a step itself asks its policy's width (a shadow packet rewrites dead rays' masks).
#ifndef VTQR_SIMD_SCHEMES_H_
#define VTQR_SIMD_SCHEMES_H_

#include <cstdint>
#include <tuple>

#include "frame/code_path.h"
#include "simd/lanes.h"
#include "simd/vec3.h"

VTQR_PATH_BEGIN
namespace simd {

// Number of single rays to run before the destination reaches a 16-byte boundary. A plane that
// is not even 4-byte aligned never gets there, so all of it runs singly.
inline int RaysToBoundary(const float* dst, int len) {
  auto address = reinterpret_cast<uintptr_t>(dst);
  if ((address & 3) != 0) return len;
  int rays = static_cast<int>(((16 - (address & 15)) & 15) / sizeof(float));
  return rays < len ? rays : len;
}

// The arrays a step reads or writes, plain or P3, for the schemes' alignment tests.
template <class... Arrays>
struct Touched {
  std::tuple<Arrays...> arrays;
  // Element i of every array lies on a 16-byte boundary.
  bool Aligned16At(int i) const {
    return std::apply([i](const auto&... a) { return (AlignedAt(a, i) && ...); }, arrays);
  }

 private:
  template <class T>
  static bool AlignedAt(T* p, int i) {
    return Aligned16(p + i);
  }
  template <class T>
  static bool AlignedAt(const Planes<T>& p, int i) {
    return p.Aligned16At(i);
  }
};

template <class... Arrays>
Touched<Arrays...> Touches(Arrays... arrays) {
  return {{arrays...}};
}

// step(Lanes{}, i) for i = begin, begin + width, ... below end.
template <class Lanes, class Step>
void Steps(int begin, int end, Step& step) {
  for (int i = begin; i < end; i += Lanes::kWidth) step(Lanes{}, i);
}

template <class Step>
void FourSteps(bool aligned, int begin, int end, Step& step) {
  if (aligned) {
    Steps<AlignedFour>(begin, end, step);
  } else {
    Steps<UnalignedFour>(begin, end, step);
  }
}

template <class... Arrays, class Step>
void PeelToBoundary(int len, const float* dst, const Touched<Arrays...>& arrays, Step&& step) {
  const int head = RaysToBoundary(dst, len);
  const int bodyEnd = head + (len - head) / 4 * 4;
  Steps<OneRay>(0, head, step);
  FourSteps(arrays.Aligned16At(head), head, bodyEnd, step);
  Steps<OneRay>(bodyEnd, len, step);
}

template <class... Arrays, class Step>
void AlignedFoursOrSingle(int len, const Touched<Arrays...>& arrays, Step&& step) {
  if (arrays.Aligned16At(0) && len % 4 == 0) {
    Steps<AlignedFour>(0, len, step);
  } else {
    Steps<OneRay>(0, len, step);
  }
}

template <class... Arrays, class Step>
void FoursThenSingle(int len, const Touched<Arrays...>& arrays, Step&& step) {
  const int packed = len / 4 * 4;
  FourSteps(arrays.Aligned16At(0), 0, packed, step);
  Steps<OneRay>(packed, len, step);
}

template <class... Arrays, class Step>
void FoursOrSingle(int len, const Touched<Arrays...>& arrays, Step&& step) {
  if (len % 4 == 0) {
    FourSteps(arrays.Aligned16At(0), 0, len, step);
  } else {
    Steps<OneRay>(0, len, step);
  }
}

}  // namespace simd
VTQR_PATH_END

#endif  // VTQR_SIMD_SCHEMES_H_
