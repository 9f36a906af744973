// Views of a caller's volume in either layout, so that one kernel source serves both.
//
// A view answers one question, where row y of slice z starts, and forms the address in 64-bit
// pointer arithmetic from the caller's signed 32-bit byte steps. The steps are never checked:
// a negative step simply walks backwards (a volume stored bottom-up), and a 1024^3 volume of
// floats (4 GiB) is addressed like any other, since no offset passes through a 32-bit int.
#ifndef VTQR_VOLUME_VOLUME_VIEW_H_
#define VTQR_VOLUME_VOLUME_VIEW_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/code_path.h"

VTQR_PATH_BEGIN
namespace volume {

// Byte address `base + offset` as a T*, keeping T's constness.
template <class T>
T* AtByteOffset(T* base, ptrdiff_t offset) {
  using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + offset);
}

// Layout V: the whole volume is one block; voxel (x, y, z) lies at
// base + z * planeStep + y * rowStep + x * sizeof(T).
template <class T>
class BlockVolume {
 public:
  using Element = std::remove_const_t<T>;

  BlockVolume(T* base, int rowStep, int planeStep)
      : base_(base), rowStep_(rowStep), planeStep_(planeStep) {}

  T* Row(int64_t y, int64_t z) const {
    return AtByteOffset(base_, static_cast<ptrdiff_t>(z * planeStep_ + y * rowStep_));
  }

 private:
  T* base_;
  int64_t rowStep_;
  int64_t planeStep_;
};

// Layout PV: an array of slice pointers; voxel (x, y, z) lies at
// slices[z] + y * rowStep + x * sizeof(T).
template <class T>
class SliceVolume {
 public:
  using Element = std::remove_const_t<T>;

  SliceVolume(T* const* slices, int rowStep) : slices_(slices), rowStep_(rowStep) {}

  T* Row(int64_t y, int64_t z) const {
    return AtByteOffset(slices_[z], static_cast<ptrdiff_t>(y * rowStep_));
  }
  // The row after `row` in the same slice.
  T* NextRow(T* row) const { return AtByteOffset(row, static_cast<ptrdiff_t>(rowStep_)); }

 private:
  T* const* slices_;
  int64_t rowStep_;
};

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_VOLUME_VIEW_H_
