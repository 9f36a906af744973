// Procedural sky and its spherical-harmonic ambient light.
#include "sky.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace render {
namespace {

constexpr float kZenith[3] = {0.16f, 0.34f, 0.74f};
constexpr float kHorizon[3] = {0.78f, 0.84f, 0.92f};
constexpr float kBelow[3] = {0.30f, 0.28f, 0.26f};  // what the ground sends back up, roughly
constexpr float kGlow[3] = {1.0f, 0.82f, 0.58f};

// Directions for the projection: a Fibonacci spiral covers the sphere evenly, so every sample
// stands for the same solid angle, 4 pi / n.
constexpr int kSamples = 4096;

}  // namespace

Sky::Sky(const float sun[3]) : sun_{sun[0], sun[1], sun[2]} {}

void Sky::Radiance(float x, float y, float z, float rgb[3]) const {
  for (int c = 0; c < 3; ++c) {
    if (y >= 0.0f) {
      // Pale at the horizon, deepening quickly towards the zenith.
      const float t = std::pow(1.0f - y, 4.0f);
      rgb[c] = kZenith[c] + (kHorizon[c] - kZenith[c]) * t;
    } else {
      // Below the horizon only beyond the floor's edge, where the haze has made the floor the
      // horizon's colour: stay that colour near it, so no seam shows where the floor ends.
      const float t = std::min(1.0f, -2.5f * y);
      rgb[c] = kHorizon[c] + (kBelow[c] - kHorizon[c]) * t * t * (3.0f - 2.0f * t);
    }
  }
  const float toSun = std::max(0.0f, x * sun_[0] + y * sun_[1] + z * sun_[2]);
  const float glow = 0.5f * std::pow(toSun, 48.0f) + 0.15f * std::pow(toSun, 4.0f);
  for (int c = 0; c < 3; ++c) rgb[c] += kGlow[c] * glow;
}

bool Sky::Project(std::string* error) {
  Vtq32u bytes = 0;
  VtqStatus status = vtqrSHGetSize_32f(kOrder, vtqrSHDirect, &bytes);
  if (status == vtqStsOk) {
    state_.assign((bytes + 7) / 8, 0);
    status = vtqrSHInit_32f(reinterpret_cast<VtqrSHState*>(state_.data()), kOrder, vtqrSHDirect);
  }
  // Samples: unit directions and their radiance times the solid angle each stands for.
  std::vector<float> x(kSamples), y(kSamples), z(kSamples), weighted(3 * kSamples);
  const float golden = static_cast<float>(std::numbers::pi * (3.0 - std::sqrt(5.0)));
  const float solidAngle = static_cast<float>(4.0 * std::numbers::pi / kSamples);
  for (int i = 0; i < kSamples; ++i) {
    y[i] = 1.0f - (2.0f * static_cast<float>(i) + 1.0f) / kSamples;
    const float r = std::sqrt(1.0f - y[i] * y[i]), phi = golden * static_cast<float>(i);
    x[i] = r * std::cos(phi);
    z[i] = r * std::sin(phi);
    Radiance(x[i], y[i], z[i], &weighted[3 * i]);
    for (int c = 0; c < 3; ++c) weighted[3 * i + c] *= solidAngle;
  }
  const Vtq32u count = (kOrder + 1) * (kOrder + 1);
  for (auto& channel : coeff_) channel.assign(count, 0.0f);
  Vtq32f* const coeff[3] = {coeff_[0].data(), coeff_[1].data(), coeff_[2].data()};
  if (status == vtqStsOk) {
    status = vtqrSHTFwd_32f_C3P3I(x.data(), y.data(), z.data(), weighted.data(), kSamples, coeff,
                                  kOrder, reinterpret_cast<const VtqrSHState*>(state_.data()));
  }
  if (status != vtqStsOk) {
    *error = "projecting the sky onto spherical harmonics failed (status " +
             std::to_string(status) + ")";
    return false;
  }
  // Irradiance is the radiance convolved with the clamped cosine, which in this basis scales
  // band l by A_l = pi, 2 pi / 3, pi / 4 for l = 0, 1, 2. A white diffuse surface sends out
  // irradiance / pi, so band l is scaled by A_l / pi.
  const float band[kOrder + 1] = {1.0f, 2.0f / 3.0f, 0.25f};
  for (auto& channel : coeff_) {
    for (Vtq32u l = 0; l <= kOrder; ++l) {
      for (Vtq32u k = l * l; k < (l + 1) * (l + 1); ++k) channel[k] *= band[l];
    }
  }
  return true;
}

VtqStatus Sky::Ambient(const float* const normal[3], float* const rgb[3], int n) const {
  const Vtq32f* const coeff[3] = {coeff_[0].data(), coeff_[1].data(), coeff_[2].data()};
  return vtqrSHTInv_32f_P3(coeff, kOrder, normal[0], normal[1], normal[2], rgb, n,
                           reinterpret_cast<const VtqrSHState*>(state_.data()));
}

}  // namespace render
