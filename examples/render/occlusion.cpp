// Ambient occlusion: how much of the sky each hit point sees, probed with short rays.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "shading.h"

namespace render {
namespace {

// How far the rays look: about a sixth of the model's size, enough to darken creases and
// contacts without dimming open surfaces.
constexpr float kReach = 0.35f;
// Occluders are lit too and pass some light on: they take away only most of the sky's.
constexpr float kStrength = 0.8f;

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

}  // namespace

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
      o.rays.dist[i] = kReach;
      o.rays.tri[i] = rays.object[i] == 1 ? 0 : -1;
      o.modelCast[i] = rays.object[i] == 0 ? 0 : -1;
    }
    CastFromSurfaces(scene, s, o.rays, o.modelCast, block, hits, counters.occlusion);
    for (int i = 0; i < n; ++i) {
      if (rays.tri[i] >= 0 && o.rays.tri[i] < 0 && o.modelCast[i] < 0) o.open[i] += 1.0f;
    }
  }
  for (int i = 0; i < n; ++i) {
    o.open[i] = 1.0f - kStrength * (1.0f - o.open[i] / static_cast<float>(count));
  }
  vtqrMul_32f_C1P3IM(o.open, rays.tri, s.ambient, n);
}

}  // namespace render
