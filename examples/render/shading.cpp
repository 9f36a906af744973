// A block's way through the library: every step below is one call over the block's arrays,
// with the per-ray mask (the triangle hit, or -1) deciding which rays take part. The few
// loops in between do what the library leaves to its caller: choosing materials, the floor's
// pattern, the highlight and the sky.
#include "shading.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <numbers>

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

// How far ambient-occlusion rays look: a fifth of the model's size, enough to darken creases
// and contacts without dimming open surfaces.
constexpr float kOcclusionReach = 0.35f;
constexpr float kOcclusionStrength = 0.8f;

// The calling thread's processor time since construction: on a machine shared with other
// work, time the thread spent waiting for a core does not count against the library.
class Stopwatch {
 public:
  double Seconds() const { return Now() - start_; }

 private:
  static double Now() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
  }
  double start_ = Now();
};

int CountLive(const int32_t* mask, int n) {
  return static_cast<int>(std::count_if(mask, mask + n, [](int32_t m) { return m >= 0; }));
}

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
    } else if (rays.object[i] == 1) {
      const float flat = std::hypot(d[0], d[2]);
      scene.sky->Radiance(d[0] / flat, 0.0f, d[2] / flat, sky);
      const float haze =
          1.0f - std::exp(-std::max(0.0f, rays.dist[i] * length - kHazeStart) / kHazeLength);
      for (int c = 0; c < 3; ++c) s.colour[c][i] += (sky[c] - s.colour[c][i]) * haze;
    }
  }
}

// Casts rays that leave the hit points of `from`: a ray leaving the floor (rays.tri 0) can
// only meet the model, one leaving the model (modelCast 0) meets either object, through the
// multi-object query; other rays have -1 in both and are skipped. Afterwards rays.tri and
// modelCast hold the triangles hit (-1: none), and rays.object the object each of the model's
// rays hit.
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

// Two numbers in [0, 1) from a pixel's position: the same whichever thread renders it.
void PixelRandom(uint64_t x, uint64_t y, float* u, float* v) {
  uint64_t h = (y << 32 | x) * 0x9E3779B97F4A7C15ull + 1;
  h = (h ^ (h >> 30)) * 0xBF58476D1CE4E5B9ull;
  h = (h ^ (h >> 27)) * 0x94D049BB133111EBull;
  h ^= h >> 31;
  *u = static_cast<float>(h >> 40) * 0x1p-24f;
  *v = static_cast<float>((h >> 16) & 0xFFFFFF) * 0x1p-24f;
}

// Point `index` of `count` of a Hammersley set in the unit square, shifted by (du, dv) modulo
// 1. The rays of one pixel (all its samples' rays together) then cover the hemisphere evenly,
// each pixel with its own shift: far less grain than independent random directions.
void Hammersley(uint32_t index, uint32_t count, float du, float dv, float* u, float* v) {
  const float first = (static_cast<float>(index) + 0.5f) / static_cast<float>(count) + du;
  // The base-2 radical inverse: the index's bits mirrored behind the binary point.
  uint32_t bits = index;
  bits = (bits << 16) | (bits >> 16);
  bits = ((bits & 0x00FF00FFu) << 8) | ((bits & 0xFF00FF00u) >> 8);
  bits = ((bits & 0x0F0F0F0Fu) << 4) | ((bits & 0xF0F0F0F0u) >> 4);
  bits = ((bits & 0x33333333u) << 2) | ((bits & 0xCCCCCCCCu) >> 2);
  bits = ((bits & 0x55555555u) << 1) | ((bits & 0xAAAAAAAAu) >> 1);
  const float second = static_cast<float>(bits >> 8) * 0x1p-24f + dv;
  *u = first - std::floor(first);
  *v = second - std::floor(second);
}

// A direction over the hemisphere around unit normal n, cosine-distributed (more rays near
// the normal, where the sky's light counts most), from two numbers in [0, 1); the frame
// around n is Duff et al.'s branch-free one.
void HemisphereDirection(const float n[3], float u, float v, float d[3]) {
  const float sign = std::copysign(1.0f, n[2]);
  const float a = -1.0f / (sign + n[2]), b = n[0] * n[1] * a;
  const float t[3] = {1.0f + sign * n[0] * n[0] * a, sign * b, -sign * n[0]};
  const float s[3] = {b, sign + n[1] * n[1] * a, -n[1]};
  const float r = std::sqrt(u), phi = 2.0f * std::numbers::pi_v<float> * v;
  const float x = r * std::cos(phi), y = r * std::sin(phi), z = std::sqrt(1.0f - u);
  for (int c = 0; c < 3; ++c) d[c] = t[c] * x + s[c] * y + n[c] * z;
}

// Ambient occlusion: `count` rays from each hit point, no longer than kOcclusionReach; the
// sky's light there is scaled by the share of them that meet nothing. As for reflections, rays
// from the floor can only meet the model, rays from the model meet both objects.
void OccludeAmbient(const Scene& scene, int count, int samples, const Rays& rays,
                    const Block& block, Surface& s, Occlusion& o, RayCounters& counters) {
  const int n = block.rays();
  const int hits = CountLive(rays.tri, n);
  std::fill_n(o.open, n, 0.0f);
  for (int k = 0; k < count; ++k) {
    for (int i = 0; i < n; ++i) {
      float d[3] = {0, 0, 0};
      if (rays.tri[i] >= 0) {
        const int x = block.column * block.cell.width + i % block.size.width;
        const int y = block.row * block.cell.height + i / block.size.width;
        const int sub = (y % samples) * samples + x % samples;  // the sample within its pixel
        float du, dv, u, v;
        PixelRandom(static_cast<uint64_t>(x / samples), static_cast<uint64_t>(y / samples), &du,
                    &dv);
        Hammersley(static_cast<uint32_t>(sub * count + k),
                   static_cast<uint32_t>(samples * samples * count), du, dv, &u, &v);
        const float normal[3] = {s.normal[0][i], s.normal[1][i], s.normal[2][i]};
        HemisphereDirection(normal, u, v, d);
      }
      for (int c = 0; c < 3; ++c) o.rays.dir[c][i] = d[c];
      o.rays.dist[i] = kOcclusionReach;
      o.rays.tri[i] = rays.object[i] == 1 ? 0 : -1;
      o.modelCast[i] = rays.object[i] == 0 ? 0 : -1;
    }
    CastFromSurfaces(scene, s, o.rays, o.modelCast, block, hits, counters.occlusion);
    for (int i = 0; i < n; ++i) {
      if (rays.tri[i] >= 0 && o.rays.tri[i] < 0 && o.modelCast[i] < 0) o.open[i] += 1.0f;
    }
  }
  // Occluders are lit too and pass some light on: they take away only most of the sky's.
  for (int i = 0; i < n; ++i) {
    o.open[i] = 1.0f - kOcclusionStrength * (1.0f - o.open[i] / static_cast<float>(count));
  }
  vtqrMul_32f_C1P3IM(o.open, rays.tri, s.ambient, n);
}

}  // namespace

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
