// render: the library's ray tracing from end to end. Reads a mesh (or builds a scene), builds
// its acceleration structures, renders it with shadows, a reflection bounce and sky light, and
// writes a PNG, reporting where the time went.
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>

#include "options.h"
#include "png_file.h"
#include "renderer.h"
#include "scene.h"
#include "vtqcore.h"
#include "vtqr.h"

namespace {

using namespace render;

double Since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int Fail(const std::string& message) {
  std::fprintf(stderr, "render: %s\n", message.c_str());
  return 1;
}

// The built-in scene keeps its own view unless the command line asks for another; a mesh is
// framed from the orbit direction.
Camera ChooseCamera(const Options& o, const Scene& scene) {
  float centre[3], radius;
  ModelSphere(scene, centre, &radius);
  const float aspect = static_cast<float>(o.width) / static_cast<float>(o.height);
  Camera camera = o.mesh.empty() && !o.orbitGiven
                      ? BuiltinCamera()
                      : OrbitCamera(centre, radius, o.orbit[0], o.orbit[1], o.fov, aspect);
  camera.fovDegrees = o.fov;
  for (int c = 0; c < 3; ++c) {
    if (o.eyeGiven) camera.eye[c] = o.eye[c];
    if (o.atGiven) camera.at[c] = o.at[c];
    if (o.eyeGiven && !o.atGiven) camera.at[c] = centre[c];
  }
  return camera;
}

void PrintRays(const char* kind, const RayCount& count) {
  std::printf("           %-11s %7.2f M rays  %7.2f Mrays/s a thread\n", kind,
              static_cast<double>(count.rays) * 1e-6,
              count.seconds > 0 ? static_cast<double>(count.rays) * 1e-6 / count.seconds : 0.0);
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  std::string message;
  switch (ParseOptions(argc, argv, &o, &message)) {
    case Parsed::kHelp:
      std::fputs(message.c_str(), stdout);
      return 0;
    case Parsed::kError:
      return Fail(message);
    case Parsed::kRender:
      break;
  }
  // The library's own kernels (triangle normals) use the same threads as the frame.
  if (o.threads == 0) o.threads = ownGetNumThreads();
  vtqSetNumThreads(o.threads);

  auto start = std::chrono::steady_clock::now();
  Mesh mesh;
  if (o.mesh.empty()) {
    mesh = BuiltinMesh();
  } else {
    if (!ReadMeshFile(o.mesh, &mesh, &message)) return Fail(message);
    PlaceOnGround(o.up, o.flipUp, &mesh);
  }
  const double readSeconds = Since(start);
  const int vertices = mesh.VertexCount(), triangles = mesh.TriangleCount();

  Scene scene;
  if (!BuildScene(std::move(mesh), &scene, &message)) return Fail(message);
  const Camera camera = ChooseCamera(o, scene);

  RenderSettings settings;
  settings.width = o.width;
  settings.height = o.height;
  settings.samples = o.samples;
  settings.threads = o.threads;
  settings.smooth = o.smooth;
  settings.reflections = o.reflections;
  settings.occlusionRays = o.occlusionRays;
  settings.progress = !o.quiet && isatty(STDERR_FILENO);
  RenderStats stats;
  const Image image = Render(scene, camera, settings, &stats);
  if (!WritePng(image, o.output, &message)) return Fail(message);
  if (o.quiet) return 0;

  const VtqLibVersion* version = vtqrGetLibVersion();
  const SceneObject& model = scene.model;
  std::printf("library    %s %s, %d thread%s\n", version->name, version->version, o.threads,
              o.threads == 1 ? "" : "s");
  std::printf("mesh       %s: %d vertices, %d triangles (%.3f s)\n",
              o.mesh.empty() ? "built-in scene" : o.mesh.c_str(), vertices, triangles, readSeconds);
  std::printf("build      records and box %.3f s, KD-tree %.3f s (%.1f MB), normals %.3f s\n",
              model.recordSeconds, model.treeSeconds, model.treeBytes() / 1048576.0,
              model.normalSeconds);
  std::printf("render     %d x %d pixels, %d x %d rays a pixel: %.3f s (processor time %.3f s)\n",
              o.width, o.height, o.samples, o.samples, stats.seconds, stats.cpuSeconds);
  std::printf("rays       (rates over the processor time spent in the intersection functions)\n");
  PrintRays("eye", stats.eye);
  PrintRays("shadow", stats.shadow);
  PrintRays("reflection", stats.reflection);
  PrintRays("occlusion", stats.occlusion);
  const double all = static_cast<double>(stats.eye.rays + stats.shadow.rays +
                                         stats.reflection.rays + stats.occlusion.rays);
  std::printf("           %-11s %7.2f M rays  %7.2f Mrays/s over the frame's wall time\n", "all",
              all * 1e-6, all * 1e-6 / stats.seconds);
  std::printf("image      %s\n", o.output.c_str());
  return 0;
}
