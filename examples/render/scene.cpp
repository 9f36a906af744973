// Building the scene's objects through the library: records, box, tree, normals.
#include "scene.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "vtqcore.h"

namespace render {
namespace {

double Since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Failed(const char* what, VtqStatus status) {
  return std::string(what) + " failed (status " + std::to_string(status) + ")";
}

// Half the side of the floor: far enough that its edge hides in the haze at the horizon.
constexpr float kFloorHalfSide = 100.0f;

}  // namespace

const Material& MaterialOf(uint8_t number) {
  static const Material materials[] = {
      {{0.70f, 0.67f, 0.62f}, 0.03f, 0.25f, 24.0f},   // clay
      {{0.62f, 0.17f, 0.06f}, 0.05f, 0.60f, 60.0f},   // copper-red glaze
      {{0.04f, 0.04f, 0.05f}, 0.75f, 1.50f, 200.0f},  // chrome
      {{0.58f, 0.56f, 0.53f}, 0.08f, 0.15f, 40.0f},   // polished floor
  };
  return materials[number < 4 ? number : 0];
}

SceneObject::~SceneObject() { vtqrKDTreeFree(tree_); }

bool SceneObject::Build(Mesh mesh, std::string* error) {
  mesh_ = std::move(mesh);
  const int vertices = mesh_.VertexCount(), triangles = mesh_.TriangleCount();

  auto start = std::chrono::steady_clock::now();
  accel_.resize(static_cast<size_t>(triangles));
  VtqStatus status = vtqrTriangleAccelInit(accel_.data(), mesh_.vert.data(), mesh_.tri.data(),
                                           triangles);
  if (status == vtqStsOk) status = vtqrSetBoundBox_32f(mesh_.vert.data(), vertices, bound_);
  recordSeconds = Since(start);
  if (status != vtqStsOk) return *error = Failed("building the triangle records", status), false;

  // The SAH build with the deepest trees it allows; the memory budget is only its own
  // bookkeeping, generous enough for meshes of a few million triangles.
  start = std::chrono::steady_clock::now();
  const VtqrKDTreeBuildParams params = {KDTreeAlgSAH, 50, 0.0f, 2047, 0};
  status = vtqrKDTreeBuildAlloc(&tree_, mesh_.vert.data(), mesh_.tri.data(), vertices, triangles,
                                &treeBytes_, &params);
  treeSeconds = Since(start);
  if (status != vtqStsOk) return *error = Failed("building the KD-tree", status), false;
  context_ = {bound_, accel_.data(), tree_};

  // Vertex normals: the unit normals of the triangles around each vertex, summed and scaled
  // back to unit length. A vertex that no triangle uses keeps (0, 0, 0).
  start = std::chrono::steady_clock::now();
  triangleNormals_.resize(3 * static_cast<size_t>(triangles));
  status = vtqrTriangleNormal_32f(mesh_.vert.data(), mesh_.tri.data(), triangleNormals_.data(),
                                  triangles);
  if (status != vtqStsOk) return *error = Failed("computing triangle normals", status), false;
  vertexNormals_.assign(3 * static_cast<size_t>(vertices), 0.0f);
  for (int t = 0; t < triangles; ++t) {
    for (int k = 0; k < 3; ++k) {
      float* sum = &vertexNormals_[3 * static_cast<size_t>(mesh_.tri[4 * t + k])];
      for (int c = 0; c < 3; ++c) sum[c] += triangleNormals_[3 * t + c];
    }
  }
  for (size_t v = 0; v < vertexNormals_.size(); v += 3) {
    float* n = &vertexNormals_[v];
    const float length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    for (int c = 0; c < 3 && length > 0.0f; ++c) n[c] /= length;
  }
  normalSeconds = Since(start);
  return true;
}

void PlaceOnGround(int up, bool flipUp, Mesh* mesh) {
  // Rotate the up axis onto y, keeping the coordinate system right-handed.
  for (size_t v = 0; v < mesh->vert.size(); v += 3) {
    float* p = &mesh->vert[v];
    const float x = p[0], y = p[1], z = p[2];
    if (up == 0) p[0] = -y, p[1] = x, p[2] = z;
    if (up == 2) p[0] = x, p[1] = z, p[2] = -y;
    if (flipUp) p[1] = -p[1], p[2] = -p[2];
  }
  float lo[3] = {INFINITY, INFINITY, INFINITY}, hi[3] = {-INFINITY, -INFINITY, -INFINITY};
  for (size_t v = 0; v < mesh->vert.size(); v += 3) {
    for (int c = 0; c < 3; ++c) {
      lo[c] = std::min(lo[c], mesh->vert[v + c]);
      hi[c] = std::max(hi[c], mesh->vert[v + c]);
    }
  }
  const float half[3] = {0.5f * (hi[0] - lo[0]), 0.5f * (hi[1] - lo[1]), 0.5f * (hi[2] - lo[2])};
  const float radius = std::sqrt(half[0] * half[0] + half[1] * half[1] + half[2] * half[2]);
  const float scale = radius > 0.0f ? 1.0f / radius : 1.0f;
  const float shift[3] = {-0.5f * (lo[0] + hi[0]), -lo[1], -0.5f * (lo[2] + hi[2])};
  for (size_t v = 0; v < mesh->vert.size(); v += 3) {
    for (int c = 0; c < 3; ++c) mesh->vert[v + c] = (mesh->vert[v + c] + shift[c]) * scale;
  }
}

void ModelSphere(const Scene& scene, float centre[3], float* radius) {
  const float* b = scene.model.bound();
  float squared = 0;
  for (int c = 0; c < 3; ++c) {
    centre[c] = 0.5f * (b[c] + b[c + 3]);
    squared += 0.25f * (b[c + 3] - b[c]) * (b[c + 3] - b[c]);
  }
  *radius = std::sqrt(squared);
}

bool BuildScene(Mesh model, Scene* scene, std::string* error) {
  Mesh floor;
  const float s = kFloorHalfSide;
  const int32_t a = floor.AddVertex(-s, 0, -s), b = floor.AddVertex(s, 0, -s);
  const int32_t c = floor.AddVertex(s, 0, s), d = floor.AddVertex(-s, 0, s);
  floor.AddTriangle(a, c, b, kFloor);
  floor.AddTriangle(a, d, c, kFloor);
  if (!scene->model.Build(std::move(model), error) || !scene->ground.Build(floor, error)) {
    return false;
  }

  // The light: above, to the left of and in front of the model, as in a studio, bright
  // enough to light the model's middle about as strongly as the sky does.
  const float light[3] = {-2.3f, 3.5f, 2.4f};
  const float lightColour[3] = {1.0f, 0.93f, 0.84f};
  float centre[3], radius;
  ModelSphere(*scene, centre, &radius);
  float squared = 0, sun[3];
  for (int k = 0; k < 3; ++k) {
    scene->light[k] = light[k];
    sun[k] = light[k] - centre[k];
    squared += sun[k] * sun[k];
  }
  for (int k = 0; k < 3; ++k) {
    scene->lightColour[k] = 1.5f * squared * lightColour[k];
    sun[k] /= std::sqrt(squared);
  }
  scene->sky = std::make_unique<Sky>(sun);
  return scene->sky->Project(error);
}

}  // namespace render
