// The per-ray arrays of one block of samples: planes of one float or int32 per ray, each
// 64-byte aligned so that the library takes its four-wide paths. One set per thread, reused
// for every block it renders.
#ifndef VTQR_EXAMPLES_RENDER_BLOCK_ARRAYS_H_
#define VTQR_EXAMPLES_RENDER_BLOCK_ARRAYS_H_

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

#include "vtqcore.h"

namespace render {

// Hands out planes of `capacity` elements from aligned blocks it owns.
class PlanePool {
 public:
  explicit PlanePool(int capacity) : capacity_((capacity + 15) / 16 * 16) {}
  int capacity() const { return capacity_; }
  float* Floats() { return static_cast<float*>(Allocate()); }
  int32_t* Ints() { return static_cast<int32_t*>(Allocate()); }
  void Floats3(float* planes[3]) {
    for (int c = 0; c < 3; ++c) planes[c] = Floats();
  }

 private:
  struct Free {
    void operator()(void* p) const { vtqFree(p); }
  };
  void* Allocate() {
    blocks_.emplace_back(vtqMalloc(static_cast<size_t>(capacity_) * 4));
    if (blocks_.back() == nullptr) throw std::bad_alloc();
    return blocks_.back().get();
  }
  int capacity_;
  std::vector<std::unique_ptr<void, Free>> blocks_;
};

// A batch of rays and what they hit.
struct Rays {
  explicit Rays(PlanePool& pool) : dist(pool.Floats()), tri(pool.Ints()), object(pool.Ints()) {
    pool.Floats3(dir);
    hit[0] = pool.Floats();
    hit[1] = pool.Floats();
  }
  float* dir[3];
  float* dist;
  float* hit[2];    // barycentric weights u, v
  int32_t* tri;     // triangle within its object, or -1 when nothing was hit
  int32_t* object;  // 0 the model, 1 the ground, -1 nothing
};

// What shading a batch computes on the way to its colour.
struct Surface {
  explicit Surface(PlanePool& pool)
      : modelMask(pool.Ints()),
        groundMask(pool.Ints()),
        shadowMask(pool.Ints()),
        material(pool.Ints()),
        eyeDot(pool.Floats()),
        lightDot(pool.Floats()),
        lightDistance(pool.Floats()) {
    for (float** planes : {point, normal, floorNormal, shadowDir, albedo, ambient, colour}) {
      pool.Floats3(planes);
    }
    shadowEnd = pool.Floats();
    std::fill_n(shadowEnd, pool.capacity(), kShadowEnd);
  }
  // Shadow rays run from the light (t = 0) to the point (t = 1) and stop just short of it, so
  // that the surface the point lies on does not shadow it.
  static constexpr float kShadowEnd = 0.999f;

  int32_t* modelMask;   // the triangle for rays that hit the model, else -1
  int32_t* groundMask;  // the same for the ground
  int32_t* shadowMask;  // the triangle for rays whose point the light reaches, else negative
  int32_t* material;    // the material hit, or -1
  float* eyeDot;        // -|cosine| between ray and normal, times the ray's length
  float* lightDot;      // cosine towards the light over the squared light distance
  float* lightDistance;
  float* point[3];   // hit points, just in front of the surface
  float* normal[3];  // unit normals, turned to face the ray
  float* floorNormal[3];
  float* shadowDir[3];  // from the light to the point
  float* albedo[3];
  float* ambient[3];
  float* colour[3];  // linear radiance towards the ray's origin
  float* shadowEnd;  // kShadowEnd for every ray
};

// Rays that probe the hemisphere above each hit point for nearby geometry, which shades the
// sky's light (ambient occlusion). rays.tri serves the rays that leave the floor: 0 before
// casting, the triangle hit after it, -1 for the other rays.
struct Occlusion {
  explicit Occlusion(PlanePool& pool) : rays(pool), modelCast(pool.Ints()), open(pool.Floats()) {}
  Rays rays;
  int32_t* modelCast;  // the same for rays leaving the model
  float* open;         // the share of a point's rays that found nothing
};

// The reflection bounce: the reflection rays, the shading of what they hit, and the weights
// that blend it in.
struct Bounce {
  explicit Bounce(PlanePool& pool)
      : rays(pool),
        surface(pool),
        cast(pool.Ints()),
        modelCast(pool.Ints()),
        weight(pool.Floats()),
        keep(pool.Floats()),
        length(pool.Floats()),
        live(pool.Ints()) {}
  Rays rays;
  Surface surface;
  int32_t* cast;       // the eye ray's triangle where a reflection ray is cast, else -1
  int32_t* modelCast;  // the same, for reflection rays leaving the model
  float* weight;       // Fresnel weight of the reflection
  float* keep;         // 1 - weight: what remains of the surface's own colour
  float* length;       // squared length of the eye ray's direction
  int32_t* live;       // zeros: every ray live
};

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_BLOCK_ARRAYS_H_
