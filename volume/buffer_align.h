// Where the volume kernels start carving a caller's work buffer. The buffer may have any
// alignment; the kernels start at its first 64-byte boundary, so that the parts they hand to
// different threads never share a cache line. Their size queries count the 63 bytes this can
// cost.
#ifndef VTQR_VOLUME_BUFFER_ALIGN_H_
#define VTQR_VOLUME_BUFFER_ALIGN_H_

#include <cstdint>

#include "frame/code_path.h"
#include "vtqr/types.h"

VTQR_PATH_BEGIN
namespace volume {

inline char* AlignUp64(Vtq8u* p) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(p);
  return reinterpret_cast<char*>(p) + ((64 - address % 64) % 64);
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_BUFFER_ALIGN_H_
