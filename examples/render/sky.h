// The environment: a procedural sky, seen directly by rays that leave the scene and, projected
// once onto spherical harmonics, lighting every surface as ambient light.
#ifndef VTQR_EXAMPLES_RENDER_SKY_H_
#define VTQR_EXAMPLES_RENDER_SKY_H_

#include <cstdint>
#include <string>
#include <vector>

#include "vtqr.h"

namespace render {

class Sky {
 public:
  // sun: unit direction towards the scene's light, around which the sky glows.
  explicit Sky(const float sun[3]);
  Sky(const Sky&) = delete;  // the SH state holds pointers into its own buffer
  Sky& operator=(const Sky&) = delete;

  // Radiance towards a unit direction, y up.
  void Radiance(float x, float y, float z, float rgb[3]) const;

  // Projects the sky onto spherical harmonics with the forward transform and turns the
  // coefficients into those of the ambient light a white diffuse surface reflects. Call once
  // before Ambient; false with a message when the library refuses.
  bool Project(std::string* error);

  // Ambient light leaving a white diffuse surface, per channel, at n unit normals (P3), through
  // the inverse transform.
  VtqStatus Ambient(const float* const normal[3], float* const rgb[3], int n) const;

 private:
  static constexpr Vtq32u kOrder = 2;  // irradiance needs no more (bands above 2 are tiny)
  float sun_[3];
  std::vector<uint64_t> state_;  // the SH state, 8-byte aligned as the library asks
  std::vector<float> coeff_[3];  // per channel, (kOrder + 1)^2 each
};

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_SKY_H_
