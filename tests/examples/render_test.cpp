// The renderer as a test of the whole pipeline: a small image of the built-in scene, checked
// where plain geometry (a pinhole projection written out here, the sphere, the floor, the
// light) says what each pixel must show; the same bytes on any thread count; mesh files read
// alike by both readers, and a bad one refused with a message.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

#include "mesh.h"
#include "renderer.h"
#include "scene.h"

namespace render {
namespace {

struct Vec {
  double x, y, z;
  Vec operator+(Vec o) const { return {x + o.x, y + o.y, z + o.z}; }
  Vec operator-(Vec o) const { return {x - o.x, y - o.y, z - o.z}; }
  Vec operator*(double s) const { return {x * s, y * s, z * s}; }
  double Dot(Vec o) const { return x * o.x + y * o.y + z * o.z; }
  Vec Cross(Vec o) const { return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x}; }
  Vec Unit() const { return *this * (1.0 / std::sqrt(Dot(*this))); }
};
Vec FromArray(const float* v) { return {v[0], v[1], v[2]}; }

constexpr int kWidth = 160, kHeight = 120;

// A pinhole camera of its own: where a world point lands in the image, and the ray through a
// pixel's centre.
struct Projection {
  Vec eye = FromArray(BuiltinCamera().eye), forward = (FromArray(BuiltinCamera().at) - eye).Unit();
  Vec right = forward.Cross(FromArray(BuiltinCamera().up)).Unit(), up = right.Cross(forward);
  double halfHeight = std::tan(BuiltinCamera().fovDegrees * std::numbers::pi / 360.0);
  double halfWidth = halfHeight * kWidth / kHeight;

  // The index of the pixel a point falls in; -1 when outside the image.
  int Pixel(Vec p) const {
    const Vec d = p - eye;
    const double depth = d.Dot(forward);
    const auto column =
        static_cast<int>(std::floor((d.Dot(right) / depth / halfWidth + 1) / 2 * kWidth));
    const auto row =
        static_cast<int>(std::floor((1 - d.Dot(up) / depth / halfHeight) / 2 * kHeight));
    const bool inside = depth > 0 && column >= 0 && column < kWidth && row >= 0 && row < kHeight;
    return inside ? row * kWidth + column : -1;
  }
  Vec Ray(int column, int row) const {
    const double x = (2 * (column + 0.5) / kWidth - 1) * halfWidth;
    const double y = (1 - 2 * (row + 0.5) / kHeight) * halfHeight;
    return (forward + right * x + up * y).Unit();
  }
};

const Scene& BuiltinScene() {
  static Scene* scene = [] {
    auto* built = new Scene;
    std::string error;
    EXPECT_TRUE(BuildScene(BuiltinMesh(), built, &error)) << error;
    return built;
  }();
  return *scene;
}

struct Frame {
  Image image;
  SampleProbe probe;
  RenderStats stats;
  Frame(int width, int height, int samples, int threads, bool reflections = true) {
    RenderSettings settings;
    settings.width = width, settings.height = height, settings.samples = samples;
    settings.threads = threads, settings.occlusionRays = 2, settings.reflections = reflections;
    image = Render(BuiltinScene(), BuiltinCamera(), settings, &stats, &probe);
  }
  double Luminance(int k) const {
    return 0.2126 * image.rgb[3 * size_t(k)] + 0.7152 * image.rgb[3 * size_t(k) + 1] +
           0.0722 * image.rgb[3 * size_t(k) + 2];
  }
};

// What plain geometry decides, pixel by pixel:
//   - every pixel whose ray rises sees the sky, every one that falls steeply enough to meet the
//     floor within its extent sees something, every ray through the sphere's core hits the
//     model (nothing stands between the sphere and the camera);
//   - the sphere's point facing the light is lit;
//   - the floor where the line from the light through the sphere's centre meets it is in
//     shadow, and darker than the lit floor in front of the objects;
//   - the floor where the sphere's mirror image (its centre below the floor) appears reflects
//     the model, the open floor in front reflects the sky, and reflections change the colour
//     of both.
TEST(Render, WhatTheGeometrySays) {
  const Frame frame(kWidth, kHeight, 1, 1), flat(kWidth, kHeight, 1, 1, /*reflections=*/false);
  const Projection view;
  const Vec centre = FromArray(kBuiltinSphereCentre), toCentre = centre - view.eye;
  int sky = 0, sphere = 0;
  for (int k = 0; k < kWidth * kHeight; ++k) {
    const Vec ray = view.Ray(k % kWidth, k / kWidth);
    const int object = frame.probe.object[size_t(k)];
    const double miss = std::sqrt(toCentre.Dot(toCentre) - std::pow(toCentre.Dot(ray), 2));
    sky += ray.y > 0;
    sphere += miss < 0.95 * kBuiltinSphereRadius;
    EXPECT_TRUE(ray.y <= 0 || object == -1) << "pixel " << k;
    EXPECT_TRUE(ray.y >= -0.05 || object != -1) << "pixel " << k;
    EXPECT_TRUE(miss >= 0.95 * kBuiltinSphereRadius || object == 0) << "pixel " << k;
  }
  EXPECT_GT(sky, 0);
  EXPECT_GT(sphere, 100);

  const Vec light = FromArray(BuiltinScene().light);
  const Vec shadow = light + (centre - light) * (light.y / (light.y - centre.y));
  const struct {
    const char* what;
    Vec point;
    int object, lit, reflected;  // -2: not checked
  } rows[] = {
      {"sphere facing the light", centre + (light - centre).Unit() * kBuiltinSphereRadius, 0, 1,
       -2},
      {"sphere's shadow", shadow, 1, 0, -2},
      {"open floor in front, mirroring the sky", {-0.5, 0, 1.3}, 1, 1, -1},
      {"sphere's mirror image", {centre.x, -centre.y, centre.z}, 1, -2, 0},
  };
  int at[4];
  for (int r = 0; r < 4; ++r) {
    SCOPED_TRACE(rows[r].what);
    const int k = at[r] = view.Pixel(rows[r].point);
    ASSERT_GE(k, 0);
    EXPECT_EQ(rows[r].object, frame.probe.object[size_t(k)]);
    EXPECT_TRUE(rows[r].lit == -2 || rows[r].lit == frame.probe.lit[size_t(k)]);
    if (rows[r].reflected == -2) continue;
    EXPECT_EQ(rows[r].reflected, frame.probe.reflected[size_t(k)]);
    EXPECT_EQ(-1, flat.probe.reflected[size_t(k)]);
    EXPECT_FALSE(std::equal(&frame.image.rgb[3 * size_t(k)], &frame.image.rgb[3 * size_t(k) + 3],
                            &flat.image.rgb[3 * size_t(k)]));
  }
  EXPECT_LT(frame.Luminance(at[1]), 0.7 * frame.Luminance(at[2]));
  EXPECT_GT(frame.stats.shadow.rays, 0);
  EXPECT_GT(frame.stats.reflection.rays, 0);
  EXPECT_GT(frame.stats.occlusion.rays, 0);
}

// Blocks go to threads in any order; every pixel, sample fact and ray count stays the same.
TEST(Render, SameFrameOnAnyThreadCount) {
  const Frame one(100, 76, 2, 1);
  for (int threads : {2, 3}) {
    const Frame many(100, 76, 2, threads);
    EXPECT_TRUE(one.image.rgb == many.image.rgb && one.probe.object == many.probe.object &&
                one.probe.lit == many.probe.lit && one.probe.reflected == many.probe.reflected &&
                one.stats.shadow.rays == many.stats.shadow.rays)
        << threads << " threads";
  }
}

// Mesh files ------------------------------------------------------------------------------

template <class T>
std::string BigEndian(T value) {
  std::string bytes(reinterpret_cast<const char*>(&value), sizeof(T));
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

// A square and a triangle (a fan of three) over five vertices, with properties and an element
// to skip.
std::string BinaryPly() {
  std::string ply =
      "ply\nformat binary_big_endian 1.0\ncomment extra properties to skip\nelement vertex 5\n"
      "property double nx\nproperty float x\nproperty float y\nproperty float z\n"
      "element face 2\nproperty uchar flags\nproperty list uchar int vertex_indices\n"
      "element edge 1\nproperty list ushort short ends\nend_header\n";
  const float xyz[5][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5f, 2, -1}};
  for (const auto& v : xyz) {
    ply += BigEndian(1.5);
    for (float c : v) ply += BigEndian(c);
  }
  ply += BigEndian<uint8_t>(7) + BigEndian<uint8_t>(4);
  for (int32_t i : {0, 1, 2, 3}) ply += BigEndian(i);
  ply += BigEndian<uint8_t>(7) + BigEndian<uint8_t>(3);
  for (int32_t i : {2, 4, 3}) ply += BigEndian(i);
  return ply + BigEndian<uint16_t>(2) + BigEndian<int16_t>(0) + BigEndian<int16_t>(1);
}

// Both readers read the same mesh. A bad file is refused with a message naming the file and the
// fault, by the reader and by the program, which then writes no image and exits with 1.
TEST(MeshFile, BothReadersReadTheSameMeshAndABadFileIsRefused) {
  const auto write = [](const char* name, const std::string& content) {
    const std::string path = (std::filesystem::temp_directory_path() / name).string();
    std::ofstream(path, std::ios::binary) << content;
    return path;
  };
  const std::string ply = BinaryPly(),
                    obj =
                        "# comment\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nvn 0 0 1\nvt 0 0\n"
                        "f 1/1/1 2//1 3/1 4\nv 0.5 2 -1\ng group\nf -3 -1 -2\n";
  Mesh mesh;
  std::string error;
  for (const std::string& path : {write("quad.obj", obj), write("quad_be.ply", ply)}) {
    ASSERT_TRUE(ReadMeshFile(path, &mesh, &error)) << error;
    EXPECT_EQ(std::vector<float>({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0.5f, 2, -1}), mesh.vert);
    EXPECT_EQ(std::vector<int32_t>({0, 1, 2, 0, 0, 2, 3, 0, 2, 4, 3, 0}), mesh.tri);
  }

  const std::string path = write("truncated.ply", ply.substr(0, ply.find("end_header\n") + 30));
  ASSERT_FALSE(ReadMeshFile(path, &mesh, &error));
  EXPECT_NE(std::string::npos, error.find(path)) << error;
  EXPECT_NE(std::string::npos, error.find("ends before its last element")) << error;
  const std::string image = path + ".png", log = path + ".log";
  std::filesystem::remove(image);
  const std::string command = std::string("'") + VTQR_RENDER_PROGRAM + "' -q -s 16x16 -o '" +
                              image + "' '" + path + "' 2> '" + log + "'";
  const int status = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(1, WEXITSTATUS(status));
  std::ifstream stream(log);
  EXPECT_EQ("render: " + error + "\n", std::string(std::istreambuf_iterator<char>(stream), {}));
  EXPECT_FALSE(std::filesystem::exists(image));
}

}  // namespace
}  // namespace render
