// A block's way through the library: every step below is one call over the block's arrays,
// with the per-ray mask (the triangle hit, or -1) deciding which rays take part. The few
// loops in between do what the library leaves to its caller: choosing materials, the floor's
// pattern, the highlight and the sky.
#include "shading.h"

#include <algorithm>
#include <cmath>

#include "stopwatch.h"

namespace render {
namespace {

// Hit points are pulled back along the ray by this scale on the distance, so that rays
// leaving them start just in front of the surface and do not find it again.
constexpr float kInFront = 0.9999f;

// The floor: squares of this side, faded into their average colour far away (where they would
// only shimmer), and the whole floor faded into the haze at the horizon.
constexpr float kTile = 0.4f;
constexpr float kPatternFadeStart = 3.0f, kPatternFadeLength = 9.0f;
constexpr float kHazeStart = 4.0f, kHazeLength = 14.0f;

constexpr float kWhite[3] = {1.0f, 1.0f, 1.0f};

float Length(float x, float y, float z) { return std::sqrt(x * x + y * y + z * z); }

// The diffuse colour of the floor at (x, z): a checkerboard around the material's colour.
void FloorAlbedo(float x, float z, float rgb[3]) {
  const bool dark =
      (static_cast<int>(std::floor(x / kTile)) + static_cast<int>(std::floor(z / kTile))) & 1;
  const float fade = std::clamp((std::hypot(x, z) - kPatternFadeStart) / kPatternFadeLength, 0.0f,
                                1.0f);
  const float shade = (dark ? 0.78f : 1.18f) * (1.0f - fade) + fade;
  for (int c = 0; c < 3; ++c) rgb[c] = MaterialOf(kFloor).albedo[c] * shade;
}

// Masks, materials and albedo of the rays: which object each hit, and its diffuse colour.
void SortHits(const Scene& scene, const Rays& rays, int n, Surface& s) {
  const std::vector<uint8_t>& modelMaterial = scene.model.mesh().material;
  for (int i = 0; i < n; ++i) {
    const int32_t object = rays.object[i], tri = rays.tri[i];
    s.modelMask[i] = object == 0 ? tri : -1;
    s.groundMask[i] = object == 1 ? tri : -1;
    s.material[i] = object == 0 ? modelMaterial[tri] : object == 1 ? kFloor : -1;
  }
}

void FillAlbedo(const Surface& s, int n) {
  for (int i = 0; i < n; ++i) {
    float rgb[3] = {0, 0, 0};
    if (s.material[i] == kFloor) {
      FloorAlbedo(s.point[0][i], s.point[2][i], rgb);
    } else if (s.material[i] >= 0) {
      std::copy_n(MaterialOf(static_cast<uint8_t>(s.material[i])).albedo, 3, rgb);
    }
    for (int c = 0; c < 3; ++c) s.albedo[c][i] = rgb[c];
  }
}

// The light's highlight (Blinn's half-vector lobe) on the rays the light reaches, scaled like
// the diffuse term by the cosine over the squared distance.
void AddHighlights(const Scene& scene, const Rays& rays, int n, const Surface& s) {
  for (int i = 0; i < n; ++i) {
    if (s.shadowMask[i] < 0) continue;
    const Material& m = MaterialOf(static_cast<uint8_t>(s.material[i]));
    float half[3];
    const float toLight = Length(s.shadowDir[0][i], s.shadowDir[1][i], s.shadowDir[2][i]);
    const float toEye = Length(rays.dir[0][i], rays.dir[1][i], rays.dir[2][i]);
    for (int c = 0; c < 3; ++c) half[c] = -s.shadowDir[c][i] / toLight - rays.dir[c][i] / toEye;
    const float halfLength = Length(half[0], half[1], half[2]);
    const float cosine =
        (s.normal[0][i] * half[0] + s.normal[1][i] * half[1] + s.normal[2][i] * half[2]) /
        halfLength;
    if (!(cosine > 0.0f)) continue;
    const float strength = m.specular * std::pow(cosine, m.shininess) * s.lightDot[i];
    for (int c = 0; c < 3; ++c) s.colour[c][i] += strength * scene.lightColour[c];
  }
}

// The sky behind rays that hit nothing; haze over the floor far away; black for rays that
// were not cast.
void AddSkyAndHaze(const Scene& scene, const Rays& rays, const int32_t* cast, int n,
                   const Surface& s) {
  for (int i = 0; i < n; ++i) {
    if (cast != nullptr && cast[i] < 0) {
      for (int c = 0; c < 3; ++c) s.colour[c][i] = 0.0f;
      continue;
    }
    const float d[3] = {rays.dir[0][i], rays.dir[1][i], rays.dir[2][i]};
    const float length = Length(d[0], d[1], d[2]);
    float sky[3];
    if (rays.object[i] < 0) {
      scene.sky->Radiance(d[0] / length, d[1] / length, d[2] / length, sky);
      for (int c = 0; c < 3; ++c) s.colour[c][i] = sky[c];
    } else if (rays.object[i] == 1 && (d[0] != 0.0f || d[2] != 0.0f)) {
      const float flat = std::hypot(d[0], d[2]);
      scene.sky->Radiance(d[0] / flat, 0.0f, d[2] / flat, sky);
      const float haze =
          1.0f - std::exp(-std::max(0.0f, rays.dist[i] * length - kHazeStart) / kHazeLength);
      for (int c = 0; c < 3; ++c) s.colour[c][i] += (sky[c] - s.colour[c][i]) * haze;
    }
  }
}

}  // namespace

int CountLive(const int32_t* mask, int n) {
  return static_cast<int>(std::count_if(mask, mask + n, [](int32_t m) { return m >= 0; }));
}

void CastFromSurfaces(const Scene& scene, const Surface& from, Rays& rays, int32_t* modelCast,
                      const Block& block, int count, RayCount& counter) {
  const Stopwatch watch;
  vtqrIntersectMultipleSO_32f(from.point, rays.dir, rays.dist, rays.hit, rays.tri,
                              scene.model.context(), block.size);
  const VtqrIntersectContext* const objects[2] = {scene.model.context(), scene.ground.context()};
  vtqrIntersectMO_32f(from.point, rays.dir, rays.dist, rays.hit, modelCast, rays.object, objects,
                      nullptr, 2, block.size);
  counter.seconds += watch.Seconds();
  counter.rays += count;
}

void CastEyeRays(const Scene& scene, const Camera& camera, const ImagePlane& plane,
                 const Block& block, Rays& rays, RayCounters& counters) {
  const int n = block.rays();
  vtqrCastEye_32f(plane.origin, plane.dW, plane.dH, block.column, block.row, block.cell, rays.dir,
                  block.size);
  std::fill_n(rays.dist, n, INFINITY);

  // The model first, then the ground with the model's distances as the limit: the ground
  // reports only hits in front of the model's. Its triangle numbers go to `object` for now.
  const Stopwatch watch;
  vtqrIntersectEyeSO_32f(camera.eye, rays.dir, rays.dist, rays.hit, rays.tri, scene.model.context(),
                         block.size);
  vtqrIntersectEyeSO_32f(camera.eye, rays.dir, rays.dist, rays.hit, rays.object,
                         scene.ground.context(), block.size);
  counters.eye.seconds += watch.Seconds();
  counters.eye.rays += n;
  for (int i = 0; i < n; ++i) {
    const int32_t groundTri = rays.object[i];
    rays.object[i] = groundTri >= 0 ? 1 : rays.tri[i] >= 0 ? 0 : -1;
    if (groundTri >= 0) rays.tri[i] = groundTri;
  }
}

void ShadeHits(const Scene& scene, const RenderSettings& settings, const Rays& rays,
               const float* origin, const float* const origins[3], const int32_t* cast,
               const Block& block, Surface& s, Occlusion* occlusion, RayCounters& counters) {
  const int n = block.rays();
  const Mesh& model = scene.model.mesh();
  SortHits(scene, rays, n, s);

  // Where each ray hit, and the surface normal there, turned to face the ray.
  if (origin != nullptr) {
    vtqrHitPoint3DEpsS0_32f_M(origin, rays.dir, rays.dist, rays.tri, s.point, n, kInFront);
  } else {
    vtqrHitPoint3DEpsM0_32f_M(origins, rays.dir, rays.dist, rays.tri, s.point, n, kInFront);
  }
  if (settings.smooth) {
    vtqrSurfSmoothNormal_32f(scene.model.vertexNormals(), model.tri.data(), s.modelMask, rays.hit,
                             s.normal, n, 4);
  } else {
    vtqrSurfFlatNormal_32f(scene.model.triangleNormals(), s.modelMask, s.normal, n);
  }
  // Each call gives zeros where its object was not hit, so the sum is each ray's own normal.
  vtqrSurfFlatNormal_32f(scene.ground.triangleNormals(), s.groundMask, s.floorNormal, n);
  for (int c = 0; c < 3; ++c) {
    for (int i = 0; i < n; ++i) s.normal[c][i] += s.floorNormal[c][i];
  }
  vtqrDotChangeNorm_32f_IM(rays.dir, rays.tri, s.normal, s.eyeDot, n);
  FillAlbedo(s, n);

  // Ambient light: the sky's spherical harmonics evaluated at the normals.
  scene.sky->Ambient(s.normal, s.ambient, n);
  if (occlusion != nullptr && settings.occlusionRays > 0) {
    OccludeAmbient(scene, settings.occlusionRays, settings.samples, rays, block, s, *occlusion,
                   counters);
  }
  for (int c = 0; c < 3; ++c) {
    for (int i = 0; i < n; ++i) s.colour[c][i] = s.albedo[c][i] * s.ambient[c][i];
  }

  // The point light: shadow rays from the light towards the points that face it; those that
  // arrive unblocked keep their mask and get albedo * light * cosine / distance^2.
  std::copy_n(rays.tri, n, s.shadowMask);
  vtqrCastShadowSO_32f(scene.light, s.eyeDot, s.normal, s.point, s.shadowMask, s.lightDot,
                       s.shadowDir, n);
  if (const int shadowRays = CountLive(s.shadowMask, n); shadowRays > 0) {
    const Stopwatch watch;
    vtqrIntersectAnySO_32f(scene.light, s.shadowDir, s.shadowEnd, s.shadowMask, block.size,
                           scene.model.context());
    counters.shadow.seconds += watch.Seconds();
    counters.shadow.rays += shadowRays;
  }
  // lightDot is |normal . (point - light)| = distance * cosine: three divisions by the
  // distance leave cosine / distance^2 (and 0 for the rays the light does not reach).
  vtqrDistAttenuationSO_32f_M(scene.light, s.point, s.shadowMask, s.lightDistance, n);
  for (int k = 0; k < 3; ++k) vtqrDiv_32f_C1IM(s.lightDistance, s.shadowMask, s.lightDot, n);
  vtqrAddMulMul_32f_AC1P3IM(scene.lightColour, s.lightDot, s.albedo, s.shadowMask, s.colour, n);
  AddHighlights(scene, rays, n, s);
  AddSkyAndHaze(scene, rays, cast, n, s);
}

void AddReflections(const Scene& scene, const RenderSettings& settings, const Rays& eye, Surface& s,
                    const Block& block, Bounce& bounce, RayCounters& counters) {
  const int n = block.rays();
  Rays& rays = bounce.rays;
  // The Fresnel weight (Schlick's approximation) from the cosine between ray and normal,
  // -eyeDot / |direction|. Reflection rays leave the floor and the model's reflective
  // materials; a ray from the floor can only meet the model, one from the model meets both.
  vtqrDot_32f_P3C1M(eye.dir, eye.dir, eye.tri, bounce.length, n);
  for (int i = 0; i < n; ++i) {
    const float head = s.material[i] < 0
                           ? 0.0f
                           : MaterialOf(static_cast<uint8_t>(s.material[i])).reflectance;
    const bool reflects = settings.reflections && head > 0.0f;
    const float cosine = std::clamp(-s.eyeDot[i] / std::sqrt(bounce.length[i]), 0.0f, 1.0f);
    bounce.weight[i] = reflects ? head + (1.0f - head) * std::pow(1.0f - cosine, 5.0f) : 0.0f;
    bounce.keep[i] = 1.0f - bounce.weight[i];
    bounce.cast[i] = reflects ? eye.tri[i] : -1;
    rays.tri[i] = reflects && eye.object[i] == 1 ? 0 : -1;
    bounce.modelCast[i] = reflects && eye.object[i] == 0 ? 0 : -1;
    rays.dist[i] = INFINITY;
    bounce.live[i] = 0;
  }
  const int reflectionRays = CountLive(bounce.cast, n);
  if (reflectionRays == 0) {
    std::fill_n(rays.object, n, -1);
    return;
  }

  vtqrCastReflectionRay_32f(eye.dir, bounce.cast, s.normal, rays.dir, n);
  CastFromSurfaces(scene, s, rays, bounce.modelCast, block, reflectionRays, counters.reflection);
  for (int i = 0; i < n; ++i) {
    if (eye.object[i] == 0 && bounce.cast[i] >= 0) {
      rays.tri[i] = bounce.modelCast[i];
    } else {
      rays.object[i] = rays.tri[i] >= 0 ? 0 : -1;
    }
  }

  ShadeHits(scene, settings, rays, nullptr, s.point, bounce.cast, block, bounce.surface, nullptr,
            counters);
  // colour = keep * colour + weight * reflected colour.
  vtqrMul_32f_C1P3IM(bounce.keep, bounce.live, s.colour, n);
  vtqrAddMulMul_32f_AC1P3IM(kWhite, bounce.weight, bounce.surface.colour, bounce.cast, s.colour, n);
}

}  // namespace render
