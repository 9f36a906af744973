// The scene: a model standing on a ground plane, each an object with its own records, box,
// KD-tree and normals, lit by a point light and the sky.
#ifndef VTQR_EXAMPLES_RENDER_SCENE_H_
#define VTQR_EXAMPLES_RENDER_SCENE_H_

#include <memory>
#include <string>
#include <vector>

#include "camera.h"
#include "mesh.h"
#include "sky.h"
#include "vtqr.h"

namespace render {

// Materials, by the number each triangle carries.
enum MaterialNumber : uint8_t { kClay = 0, kCopper = 1, kChrome = 2, kFloor = 3 };

struct Material {
  float albedo[3];    // diffuse colour; the floor's checker is drawn around this one
  float reflectance;  // mirror reflectance head-on, rising to 1 at grazing angles (Fresnel);
                      // 0 casts no reflection rays
  float specular;     // strength of the light's highlight
  float shininess;    // its sharpness
};
const Material& MaterialOf(uint8_t number);

// One object for the intersection functions: a mesh in scene units and what is built from it
// once, before rendering.
class SceneObject {
 public:
  SceneObject() = default;
  SceneObject(const SceneObject&) = delete;
  SceneObject& operator=(const SceneObject&) = delete;
  ~SceneObject();

  // Triangle records and bound box, the SAH KD-tree, triangle normals and vertex normals (the
  // average of the normals of the triangles around each vertex). False with a message when
  // the library refuses.
  bool Build(Mesh mesh, std::string* error);

  const Mesh& mesh() const { return mesh_; }
  const VtqrIntersectContext* context() const { return &context_; }
  const float* triangleNormals() const { return triangleNormals_.data(); }
  const float* vertexNormals() const { return vertexNormals_.data(); }
  const float* bound() const { return bound_; }
  int treeBytes() const { return treeBytes_; }

  // Seconds spent building, for the report.
  double recordSeconds = 0, treeSeconds = 0, normalSeconds = 0;

 private:
  Mesh mesh_;
  std::vector<VtqrTriangleAccel> accel_;
  float bound_[6] = {};
  VtqrKDTreeNode* tree_ = nullptr;
  int treeBytes_ = 0;
  VtqrIntersectContext context_ = {};
  std::vector<float> triangleNormals_, vertexNormals_;
};

struct Scene {
  SceneObject model;   // object 0 of the multi-object queries
  SceneObject ground;  // object 1: a large square floor in y = 0
  float light[3];      // a point light
  float lightColour[3];
  std::unique_ptr<Sky> sky;
};

// Builds both objects and the sky's ambient light around `model`, which must already be in
// scene units (see PlaceOnGround).
bool BuildScene(Mesh model, Scene* scene, std::string* error);

// Scene units: the model scaled to fit a sphere of radius 1, standing on the floor y = 0,
// centred above the origin. `up` names the model's up axis (0 x, 1 y, 2 z), pointing the
// other way when `flipUp` is set.
void PlaceOnGround(int up, bool flipUp, Mesh* mesh);

// The middle of the model's bound box and the radius of a sphere around it, for framing.
void ModelSphere(const Scene& scene, float centre[3], float* radius);

// The built-in scene, in scene units: a copper trefoil knot standing behind a chrome sphere.
Mesh BuiltinMesh();
inline constexpr float kBuiltinSphereCentre[3] = {0.62f, 0.34f, 0.42f};
inline constexpr float kBuiltinSphereRadius = 0.34f;
Camera BuiltinCamera();

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_SCENE_H_
