// Rendering a frame: the image is cut into blocks of 8 x 8 pixels, spread over threads; each
// block's samples go through the library's whole pipeline, from eye rays to colours.
#ifndef VTQR_EXAMPLES_RENDER_RENDERER_H_
#define VTQR_EXAMPLES_RENDER_RENDERER_H_

#include <cstdint>
#include <vector>

#include "camera.h"
#include "scene.h"

namespace render {

struct RenderSettings {
  int width = 1024;  // pixels
  int height = 768;
  int samples = 2;  // per pixel along each axis: samples x samples rays per pixel
  int threads = 1;
  int occlusionRays = 8;  // ambient-occlusion rays per sample; 0: none
  bool smooth = true;     // vertex normals blended; false: each triangle's own normal
  bool reflections = true;
  bool progress = false;  // a progress line on stderr once the frame takes over a second
};

// Rays of one kind: how many were cast, and the processor time the library's intersection
// functions spent on them, summed over threads.
struct RayCount {
  int64_t rays = 0;
  double seconds = 0;
};

struct RenderStats {
  double seconds = 0;     // the whole frame, wall time
  double cpuSeconds = 0;  // the whole frame, processor time of all threads
  RayCount eye, shadow, reflection, occlusion;
};

// What each sample saw, for tests: the object its eye ray hit (0 the model, 1 the ground,
// -1 none), whether the light reaches that point, and the object its reflection ray hit (-1
// none, or no reflection ray). Row-major over the grid of samples.
struct SampleProbe {
  int width = 0, height = 0;
  std::vector<int8_t> object, reflected;
  std::vector<uint8_t> lit;
};

// 8-bit sRGB, row-major, three bytes a pixel.
struct Image {
  int width = 0, height = 0;
  std::vector<uint8_t> rgb;
};

// Renders the scene. The result depends on the scene, camera and settings, never on the
// thread count.
Image Render(const Scene& scene, const Camera& camera, const RenderSettings& settings,
             RenderStats* stats, SampleProbe* probe = nullptr);

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_RENDERER_H_
