// Signed 32-bit arithmetic that wraps instead of overflowing. The work-buffer size queries of
// the volume functions are defined in int32 arithmetic without overflow checks; this type
// computes them with that meaning (and without the undefined behaviour of a signed overflow).
#ifndef VTQR_VOLUME_WRAPPING32_H_
#define VTQR_VOLUME_WRAPPING32_H_

#include <cstdint>

#include "frame/code_path.h"

VTQR_PATH_BEGIN
namespace volume {

// Sums and products modulo 2^32, division truncating like int32 division.
class Wrapping32 {
 public:
  constexpr Wrapping32(int64_t v) : v_(static_cast<int32_t>(static_cast<uint32_t>(v))) {}
  constexpr int32_t value() const { return v_; }
  friend constexpr Wrapping32 operator+(Wrapping32 a, Wrapping32 b) {
    return Wrapping32(static_cast<uint32_t>(a.v_) + static_cast<uint32_t>(b.v_));
  }
  friend constexpr Wrapping32 operator*(Wrapping32 a, Wrapping32 b) {
    return Wrapping32(static_cast<uint32_t>(a.v_) * static_cast<uint32_t>(b.v_));
  }
  friend constexpr Wrapping32 operator/(Wrapping32 a, int32_t divisor) {
    return Wrapping32(a.v_ / divisor);
  }
  friend constexpr Wrapping32 operator&(Wrapping32 a, int32_t mask) {
    return Wrapping32(a.v_ & mask);
  }

 private:
  int32_t v_;
};

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_WRAPPING32_H_
