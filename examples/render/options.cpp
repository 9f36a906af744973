// Command-line parsing.
#include "options.h"

#include <charconv>
#include <cstring>
#include <string_view>

namespace render {
namespace {

constexpr const char* kUsage = R"(usage: render [options] [MESH]

Renders MESH (.obj or .ply) standing on a polished floor, or a built-in scene when no mesh is
given, and writes a PNG.

  -o, --output FILE      the PNG to write (default: render.png)
  -s, --size WxH         image size in pixels (default: 1024x768)
  -a, --samples N        N x N rays a pixel, 1 to 4 (default: 2)
  -t, --threads N        threads (default: every processor the process may use)
      --occlusion N      ambient-occlusion rays a sample, 0 to 64 (default: 8)
      --orbit AZ,EL      view from azimuth AZ (degrees around the vertical, 0 = from the
                         front) and elevation EL (degrees up), framing the mesh (default: 25,15)
      --eye X,Y,Z        camera position (default: framing the mesh)
      --at X,Y,Z         point looked at (default: the middle of the mesh)
      --fov DEGREES      vertical field of view (default: 35)
      --up AXIS          the mesh's up axis: x, y, z, -x, -y or -z (default: y)
      --flat             shade each triangle with its own normal instead of smoothly
      --no-reflections   cast no reflection rays
  -q, --quiet            print nothing but errors
  -h, --help             this text

Positions are in scene units: the mesh is scaled to fit a sphere of radius 1 and stands on the
floor y = 0, centred above the origin; the front looks towards +z. On a terminal, a frame that
takes over a second shows its progress; at the end the program reports where the time went.
)";

template <class T>
bool ParseList(std::string_view text, T* values, int count, char separator) {
  for (int k = 0; k < count; ++k) {
    const size_t end = k + 1 < count ? text.find(separator) : text.size();
    if (end == std::string_view::npos) return false;
    const std::string_view part = text.substr(0, end);
    auto [stop, code] = std::from_chars(part.data(), part.data() + part.size(), values[k]);
    if (code != std::errc() || stop != part.data() + part.size()) return false;
    text.remove_prefix(k + 1 < count ? end + 1 : end);
  }
  return true;
}

}  // namespace

Parsed ParseOptions(int argc, char** argv, Options* o, std::string* message) {
  for (int k = 1; k < argc; ++k) {
    const std::string_view arg = argv[k];
    // Options that take a value: the next argument.
    auto value = [&](std::string_view* out) {
      if (k + 1 >= argc) return false;
      *out = argv[++k];
      return true;
    };
    std::string_view v;
    bool ok = true;
    if (arg == "-h" || arg == "--help") {
      *message = kUsage;
      return Parsed::kHelp;
    } else if (arg == "-o" || arg == "--output") {
      ok = value(&v) && !v.empty();
      o->output = v;
    } else if (arg == "-s" || arg == "--size") {
      int size[2] = {0, 0};
      ok = value(&v) && ParseList(v, size, 2, 'x') && size[0] >= 1 && size[1] >= 1 &&
           size[0] <= 16384 && size[1] <= 16384;
      o->width = size[0], o->height = size[1];
    } else if (arg == "-a" || arg == "--samples") {
      ok = value(&v) && ParseList(v, &o->samples, 1, ',') && o->samples >= 1 && o->samples <= 4;
    } else if (arg == "-t" || arg == "--threads") {
      ok = value(&v) && ParseList(v, &o->threads, 1, ',') && o->threads >= 1 && o->threads <= 1024;
    } else if (arg == "--occlusion") {
      ok = value(&v) && ParseList(v, &o->occlusionRays, 1, ',') && o->occlusionRays >= 0 &&
           o->occlusionRays <= 64;
    } else if (arg == "--orbit") {
      ok = o->orbitGiven = value(&v) && ParseList(v, o->orbit, 2, ',');
    } else if (arg == "--eye") {
      ok = o->eyeGiven = value(&v) && ParseList(v, o->eye, 3, ',');
    } else if (arg == "--at") {
      ok = o->atGiven = value(&v) && ParseList(v, o->at, 3, ',');
    } else if (arg == "--fov") {
      ok = value(&v) && ParseList(v, &o->fov, 1, ',') && o->fov > 0.0f && o->fov < 170.0f;
    } else if (arg == "--up") {
      ok = value(&v);
      o->flipUp = ok && v.size() == 2 && v[0] == '-';
      const std::string_view axis = o->flipUp ? v.substr(1) : v;
      o->up = axis == "x" ? 0 : axis == "y" ? 1 : axis == "z" ? 2 : -1;
      ok = ok && o->up >= 0;
    } else if (arg == "--flat") {
      o->smooth = false;
    } else if (arg == "--no-reflections") {
      o->reflections = false;
    } else if (arg == "-q" || arg == "--quiet") {
      o->quiet = true;
    } else if (!arg.empty() && arg[0] == '-') {
      *message = "unknown option '" + std::string(arg) + "' (try --help)";
      return Parsed::kError;
    } else if (o->mesh.empty()) {
      o->mesh = arg;
    } else {
      *message = "more than one mesh given: '" + o->mesh + "' and '" + std::string(arg) + "'";
      return Parsed::kError;
    }
    if (!ok) {
      *message = "option " + std::string(arg) + ": missing or bad value (try --help)";
      return Parsed::kError;
    }
  }
  return Parsed::kRender;
}

}  // namespace render
