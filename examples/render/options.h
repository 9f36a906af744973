// The renderer's command line.
#ifndef VTQR_EXAMPLES_RENDER_OPTIONS_H_
#define VTQR_EXAMPLES_RENDER_OPTIONS_H_

#include <string>

namespace render {

struct Options {
  std::string mesh;  // empty: the built-in scene
  std::string output = "render.png";
  int width = 1024, height = 768;
  int samples = 2;
  int threads = 0;  // 0: as many as the process may use
  int occlusionRays = 8;
  bool eyeGiven = false, atGiven = false, orbitGiven = false;
  float eye[3] = {0, 0, 0}, at[3] = {0, 0, 0};
  float orbit[2] = {25.0f, 15.0f};  // azimuth and elevation, degrees
  float fov = 35.0f;
  int up = 1;  // the mesh's up axis: 0 x, 1 y, 2 z
  bool flipUp = false;
  bool smooth = true, reflections = true, quiet = false;
};

enum class Parsed { kRender, kHelp, kError };

// Reads argv into *options. kHelp: *message holds the usage text; kError: a one-line reason.
Parsed ParseOptions(int argc, char** argv, Options* options, std::string* message);

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_OPTIONS_H_
