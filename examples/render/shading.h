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

// How many rays of a mask are live.
int CountLive(const int32_t* mask, int n);

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

// Casts rays that leave the hit points of `from`: a ray leaving the floor (rays.tri 0) can
// only meet the model, one leaving the model (modelCast 0) meets either object, through the
// multi-object query; other rays have -1 in both and are skipped. Afterwards rays.tri and
// modelCast hold the triangles hit (-1: none), and rays.object the object each of the model's
// rays hit.
void CastFromSurfaces(const Scene& scene, const Surface& from, Rays& rays, int32_t* modelCast,
                      const Block& block, int count, RayCount& counter);

// Ambient occlusion: `count` rays from each hit point of `rays`, cosine-distributed over the
// hemisphere the normal faces and about a sixth of the model's size long; the sky's light
// in surface.ambient is scaled by the share of them that meet nothing (`samples`: samples a
// pixel along each axis, so that a pixel's rays share one well-spread set of directions).
void OccludeAmbient(const Scene& scene, int count, int samples, const Rays& rays,
                    const Block& block, Surface& surface, Occlusion& occlusion,
                    RayCounters& counters);

// The mirror bounce: casts a reflection ray from every hit on a reflective material, shades
// what it finds, and blends it into the eye rays' colours by the Fresnel weight. Afterwards
// bounce.rays.object holds the object each reflection ray hit (-1: none), for the rays whose
// bounce.cast is not negative.
void AddReflections(const Scene& scene, const RenderSettings& settings, const Rays& eye,
                    Surface& eyeSurface, const Block& block, Bounce& bounce, RayCounters& counters);

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_SHADING_H_
