// The scene drawn when no mesh is given: generated here, so the renderer runs with no files.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "scene.h"

namespace render {
namespace {

constexpr float kTwoPi = 2.0f * std::numbers::pi_v<float>;

// A tube around the (2, 3) torus knot (the trefoil), standing upright, facing +z, on the
// floor. Rings of the tube follow the curve; each ring's frame comes from the
// tangent and the fixed axis z, which the trefoil's tangent never points along, so the frame
// turns smoothly and closes on itself.
void AddKnot(Mesh* mesh) {
  constexpr int kAlong = 288, kAround = 24;
  constexpr float kScale = 0.19f, kTube = 0.085f, kCentreX = -0.42f, kCentreZ = -0.35f;
  auto curve = [&](float t, float p[3]) {
    const float r = 2.0f + std::cos(3.0f * t);
    p[0] = kScale * r * std::cos(2.0f * t);
    p[1] = kScale * r * std::sin(2.0f * t);
    p[2] = -kScale * std::sin(3.0f * t);
  };
  const int32_t first = mesh->VertexCount();
  for (int i = 0; i < kAlong; ++i) {
    const float t = kTwoPi * static_cast<float>(i) / kAlong;
    float p[3], ahead[3], behind[3];
    curve(t, p);
    curve(t + 1e-3f, ahead);
    curve(t - 1e-3f, behind);
    float tangent[3] = {ahead[0] - behind[0], ahead[1] - behind[1], ahead[2] - behind[2]};
    // side = tangent x z, normalised; lift = side x tangent, both perpendicular to the curve.
    float side[3] = {tangent[1], -tangent[0], 0.0f};
    const float sideLength = std::hypot(side[0], side[1]);
    side[0] /= sideLength, side[1] /= sideLength;
    float normal[3] = {side[1] * tangent[2], -side[0] * tangent[2],
                       side[0] * tangent[1] - side[1] * tangent[0]};
    const float normalLength = std::hypot(normal[0], normal[1], normal[2]);
    for (float& c : normal) c /= normalLength;
    for (int j = 0; j < kAround; ++j) {
      const float a = kTwoPi * static_cast<float>(j) / kAround;
      float v[3];
      for (int c = 0; c < 3; ++c) {
        v[c] = p[c] + kTube * (std::cos(a) * side[c] + std::sin(a) * normal[c]);
      }
      mesh->AddVertex(v[0] + kCentreX, v[1], v[2] + kCentreZ);
    }
  }
  // Stand the knot on the floor: its lowest vertex at y = 0.
  float lowest = INFINITY;
  for (size_t v = 3 * static_cast<size_t>(first); v < mesh->vert.size(); v += 3) {
    lowest = std::min(lowest, mesh->vert[v + 1]);
  }
  for (size_t v = 3 * static_cast<size_t>(first); v < mesh->vert.size(); v += 3) {
    mesh->vert[v + 1] -= lowest;
  }
  for (int i = 0; i < kAlong; ++i) {
    for (int j = 0; j < kAround; ++j) {
      auto at = [&](int ii, int jj) { return first + (ii % kAlong) * kAround + jj % kAround; };
      mesh->AddTriangle(at(i, j), at(i + 1, j), at(i + 1, j + 1), kCopper);
      mesh->AddTriangle(at(i, j), at(i + 1, j + 1), at(i, j + 1), kCopper);
    }
  }
}

// A UV sphere: rings of latitude between two pole vertices.
void AddSphere(const float centre[3], float radius, Mesh* mesh) {
  constexpr int kRings = 48, kSegments = 96;
  const int32_t north = mesh->AddVertex(centre[0], centre[1] + radius, centre[2]);
  for (int r = 1; r < kRings; ++r) {
    const float polar = std::numbers::pi_v<float> * static_cast<float>(r) / kRings;
    for (int s = 0; s < kSegments; ++s) {
      const float azimuth = kTwoPi * static_cast<float>(s) / kSegments;
      mesh->AddVertex(centre[0] + radius * std::sin(polar) * std::cos(azimuth),
                      centre[1] + radius * std::cos(polar),
                      centre[2] + radius * std::sin(polar) * std::sin(azimuth));
    }
  }
  const int32_t south = mesh->AddVertex(centre[0], centre[1] - radius, centre[2]);
  auto at = [&](int r, int s) { return north + 1 + (r - 1) * kSegments + s % kSegments; };
  for (int s = 0; s < kSegments; ++s) {
    mesh->AddTriangle(north, at(1, s + 1), at(1, s), kChrome);
    mesh->AddTriangle(south, at(kRings - 1, s), at(kRings - 1, s + 1), kChrome);
    for (int r = 1; r + 1 < kRings; ++r) {
      mesh->AddTriangle(at(r, s), at(r, s + 1), at(r + 1, s + 1), kChrome);
      mesh->AddTriangle(at(r, s), at(r + 1, s + 1), at(r + 1, s), kChrome);
    }
  }
}

}  // namespace

Mesh BuiltinMesh() {
  Mesh mesh;
  AddKnot(&mesh);
  AddSphere(kBuiltinSphereCentre, kBuiltinSphereRadius, &mesh);
  return mesh;
}

Camera BuiltinCamera() {
  Camera camera;
  const float eye[3] = {1.15f, 1.55f, 3.55f}, at[3] = {0.05f, 0.52f, 0.0f};
  for (int c = 0; c < 3; ++c) camera.eye[c] = eye[c], camera.at[c] = at[c];
  camera.fovDegrees = 35.0f;
  return camera;
}

}  // namespace render
