// The stages a block of samples goes through, each a string of library calls on the block's
// per-ray arrays: casting the eye rays, shading what they hit, and the reflection bounce.
#ifndef VTQR_EXAMPLES_RENDER_SHADING_H_
#define VTQR_EXAMPLES_RENDER_SHADING_H_

#include "block_arrays.h"
#include "camera.h"
#include "renderer.h"
#include "scene.h"

namespace render {

// One block of samples: its place among the image's blocks, its size (smaller than `cell` at
// the right and bottom edges) and its ray count.
struct Block {
  int column, row;
  VtqSize cell;
  VtqSize size;
  int rays() const { return size.width * size.height; }
};

// The ray counters of one thread.
struct RayCounters {
  RayCount eye, shadow, reflection, occlusion;
};

// Eye rays of the block and their nearest hits over the model and the ground.
void CastEyeRays(const Scene& scene, const Camera& camera, const ImagePlane& plane,
                 const Block& block, Rays& rays, RayCounters& counters);

// Colours of the rays in `rays` (the linear radiance coming back along each): hit points,
// normals, ambient light from the sky (shaded by nearby geometry when `occlusion` is given),
// the point light where shadow rays find it unblocked, a highlight, and the sky for rays that
// hit nothing. Rays start at `origin` (eye rays) or, when it is null, at `origins` (rays
// leaving earlier hits). Only rays whose `cast` value is not negative are shaded (all when
// `cast` is null); the others get black.
void ShadeHits(const Scene& scene, const RenderSettings& settings, const Rays& rays,
               const float* origin, const float* const origins[3], const int32_t* cast,
               const Block& block, Surface& surface, Occlusion* occlusion, RayCounters& counters);

// The mirror bounce: casts a reflection ray from every hit on a reflective material, shades
// what it finds, and blends it into the eye rays' colours by the Fresnel weight. `reflected`
// receives, per ray, the object the reflection ray hit (-1: none, or no reflection ray).
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
void AddReflections(const Scene& scene, const RenderSettings& settings, const Rays& eye,
                    Surface& eyeSurface, const Block& block, Bounce& bounce, RayCounters& counters);

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_SHADING_H_
