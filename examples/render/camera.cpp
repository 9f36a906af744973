// Camera geometry.
#include "camera.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace render {
namespace {

constexpr float kRadiansPerDegree = static_cast<float>(std::numbers::pi / 180.0);

void Normalize(float v[3]) {
  const float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  for (int c = 0; c < 3; ++c) v[c] /= length;
}

void Cross(const float a[3], const float b[3], float out[3]) {
  out[0] = a[1] * b[2] - a[2] * b[1];
  out[1] = a[2] * b[0] - a[0] * b[2];
  out[2] = a[0] * b[1] - a[1] * b[0];
}

}  // namespace

ImagePlane MakeImagePlane(const Camera& camera, int width, int height) {
  float forward[3], right[3], up[3];
  for (int c = 0; c < 3; ++c) forward[c] = camera.at[c] - camera.eye[c];
  Normalize(forward);
  Cross(forward, camera.up, right);
  if (right[0] == 0.0f && right[1] == 0.0f && right[2] == 0.0f) {
    // Looking along the up direction: any right-angled "up" will do; take the z axis.
    const float z[3] = {0, 0, 1};
    Cross(forward, z, right);
  }
  Normalize(right);
  Cross(right, forward, up);

  // Half the plane's height and width at distance 1; square samples.
  const float halfHeight = std::tan(0.5f * camera.fovDegrees * kRadiansPerDegree);
  const float step = 2.0f * halfHeight / static_cast<float>(height);
  const float halfWidth = 0.5f * step * static_cast<float>(width);
  ImagePlane plane;
  for (int c = 0; c < 3; ++c) {
    plane.dW[c] = right[c] * step;
    plane.dH[c] = -up[c] * step;
    // The centre of the top-left sample: half a step in from the corner.
    plane.origin[c] = forward[c] - right[c] * halfWidth + up[c] * halfHeight +
                      0.5f * (plane.dW[c] + plane.dH[c]);
  }
  return plane;
}

Camera OrbitCamera(const float centre[3], float radius, float azimuthDegrees,
                   float elevationDegrees, float fovDegrees, float aspect) {
  const float azimuth = azimuthDegrees * kRadiansPerDegree;
  const float elevation = elevationDegrees * kRadiansPerDegree;
  const float direction[3] = {std::cos(elevation) * std::sin(azimuth), std::sin(elevation),
                              std::cos(elevation) * std::cos(azimuth)};
  // The narrower of the two fields of view decides; 10% margin around the sphere.
  const float halfVertical = 0.5f * fovDegrees * kRadiansPerDegree;
  const float halfNarrow = std::atan(std::tan(halfVertical) * std::min(1.0f, aspect));
  const float distance = 1.1f * radius / std::sin(halfNarrow);
  Camera camera;
  for (int c = 0; c < 3; ++c) {
    camera.at[c] = centre[c];
    camera.eye[c] = centre[c] + direction[c] * distance;
  }
  camera.fovDegrees = fovDegrees;
  return camera;
}

}  // namespace render
