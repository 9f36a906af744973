// The frame: blocks of pixels handed out to threads, each block shaded by the library and its
// samples tone-mapped and averaged into pixels.
#include "renderer.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "shading.h"

namespace render {
namespace {

// Blocks are 8 x 8 pixels: with 2 x 2 samples a pixel, 256 rays whose arrays (a few dozen
// planes of 1 KiB) stay in the first-level cache of the thread working on them.
constexpr int kBlockPixels = 8;

// Display transform: an exposure that puts a lit mid-grey surface at mid-grey, a filmic curve
// (a fit of the usual film response) that rolls highlights off instead of clipping them, then
// the sRGB encoding.
constexpr float kExposure = 0.4f;

float Filmic(float x) {
  x = std::max(0.0f, kExposure * x);
  return std::clamp(x * (2.51f * x + 0.03f) / (x * (2.43f * x + 0.59f) + 0.14f), 0.0f, 1.0f);
}

uint8_t EncodeSrgb(float linear) {
  const float encoded = linear <= 0.0031308f ? 12.92f * linear
                                             : 1.055f * std::pow(linear, 1.0f / 2.4f) - 0.055f;
  return static_cast<uint8_t>(std::lround(255.0f * encoded));
}

// Averages each pixel's samples after the curve, so that a bright highlight next to a dark
// edge does not swamp the pixel it shares with it.
void WritePixels(const Surface& s, const Block& block, int samples, Image* image) {
  const int x0 = block.column * kBlockPixels, y0 = block.row * kBlockPixels;
  const int width = block.size.width / samples, height = block.size.height / samples;
  const float share = 1.0f / static_cast<float>(samples * samples);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* pixel = &image->rgb[3 * (static_cast<size_t>(y0 + y) * image->width + x0 + x)];
      for (int c = 0; c < 3; ++c) {
        float sum = 0.0f;
        for (int j = 0; j < samples; ++j) {
          const float* row = s.colour[c] + (y * samples + j) * block.size.width + x * samples;
          for (int i = 0; i < samples; ++i) sum += Filmic(row[i]);
        }
        pixel[c] = EncodeSrgb(sum * share);
      }
    }
  }
}

void RecordSamples(const Rays& eye, const Surface& s, const Bounce& bounce, const Block& block,
                   SampleProbe* probe) {
  for (int j = 0; j < block.size.height; ++j) {
    for (int i = 0; i < block.size.width; ++i) {
      const int k = j * block.size.width + i;
      const size_t at = static_cast<size_t>(block.row * block.cell.height + j) * probe->width +
                        block.column * block.cell.width + i;
      probe->object[at] = static_cast<int8_t>(eye.object[k]);
      probe->lit[at] = s.shadowMask[k] >= 0;
      probe->reflected[at] = static_cast<int8_t>(bounce.cast[k] >= 0 ? bounce.rays.object[k] : -1);
    }
  }
}

// "rendering  42%" on one line of stderr, rewritten in place, once the frame has taken more
// than a second; cleared at the end.
class Progress {
 public:
  Progress(bool enabled, int total) : enabled_(enabled), total_(total) {}
  void Update(int done) {
    const auto now = std::chrono::steady_clock::now();
    if (!enabled_ || now - start_ < std::chrono::seconds(1) ||
        now - shown_ < std::chrono::milliseconds(200)) {
      return;
    }
    shown_ = now;
    std::fprintf(stderr, "\rrendering %3d%%", 100 * done / total_);
    std::fflush(stderr);
  }
  ~Progress() {
    if (shown_ != std::chrono::steady_clock::time_point()) std::fprintf(stderr, "\r%20s\r", "");
  }

 private:
  bool enabled_;
  int total_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now(), shown_;
};

}  // namespace

Image Render(const Scene& scene, const Camera& camera, const RenderSettings& settings,
             RenderStats* stats, SampleProbe* probe) {
  const int samples = settings.samples;
  const int sampleWidth = settings.width * samples, sampleHeight = settings.height * samples;
  const ImagePlane plane = MakeImagePlane(camera, sampleWidth, sampleHeight);
  const int cell = kBlockPixels * samples;
  const int columns = (settings.width + kBlockPixels - 1) / kBlockPixels;
  const int rows = (settings.height + kBlockPixels - 1) / kBlockPixels;
  const int blocks = columns * rows;

  Image image;
  image.width = settings.width;
  image.height = settings.height;
  image.rgb.resize(3 * static_cast<size_t>(image.width) * image.height);
  if (probe != nullptr) {
    probe->width = sampleWidth;
    probe->height = sampleHeight;
    const size_t count = static_cast<size_t>(sampleWidth) * sampleHeight;
    probe->object.assign(count, -1);
    probe->reflected.assign(count, -1);
    probe->lit.assign(count, 0);
  }

  std::vector<RayCounters> counters(static_cast<size_t>(settings.threads));
  std::atomic<int> done{0};
  const auto start = std::chrono::steady_clock::now();
  const std::clock_t cpuStart = std::clock();
  {
    Progress progress(settings.progress, blocks);
#pragma omp parallel num_threads(settings.threads)
    {
      // Each thread's arrays, reused for every block it takes.
      PlanePool pool(cell * cell);
      Rays eye(pool);
      Surface surface(pool);
      Bounce bounce(pool);
      Occlusion occlusion(pool);
      RayCounters& mine = counters[static_cast<size_t>(omp_get_thread_num())];
#pragma omp for schedule(dynamic, 1)
      for (int b = 0; b < blocks; ++b) {
        const int column = b % columns, row = b / columns;
        const Block block{column,
                          row,
                          {cell, cell},
                          {std::min(cell, sampleWidth - column * cell),
                           std::min(cell, sampleHeight - row * cell)}};
        CastEyeRays(scene, camera, plane, block, eye, mine);
        ShadeHits(scene, settings, eye, camera.eye, nullptr, nullptr, block, surface, &occlusion,
                  mine);
        AddReflections(scene, settings, eye, surface, block, bounce, mine);
        WritePixels(surface, block, samples, &image);
        if (probe != nullptr) RecordSamples(eye, surface, bounce, block, probe);
        const int finished = ++done;
        if (omp_get_thread_num() == 0) progress.Update(finished);
      }
    }
  }
  stats->seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  stats->cpuSeconds = static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC;
  stats->eye = stats->shadow = stats->reflection = stats->occlusion = RayCount();
  for (const RayCounters& c : counters) {
    for (auto [total, part] : {std::pair{&stats->eye, &c.eye},
                               {&stats->shadow, &c.shadow},
                               {&stats->reflection, &c.reflection},
                               {&stats->occlusion, &c.occlusion}}) {
      total->rays += part->rays;
      total->seconds += part->seconds;
    }
  }
  return image;
}

}  // namespace render
