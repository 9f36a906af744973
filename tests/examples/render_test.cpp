// The renderer as a test of the whole pipeline: a small image of the built-in scene, checked
// where plain geometry (a pinhole projection written out here, the sphere, the floor, the
// light) says what each pixel must show; the same bytes on any thread count; mesh files read
// alike in every format, and bad ones refused with a message.
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

const Scene& BuiltinScene() {
  static Scene* scene = [] {
    auto* built = new Scene;
    std::string error;
    EXPECT_TRUE(BuildScene(BuiltinMesh(), built, &error)) << error;
    return built;
  }();
  return *scene;
}

// A pinhole camera of its own: where a world point lands in the image, and the ray through a
// pixel's centre.
class Projection {
 public:
  Projection(const Camera& camera, int width, int height)
      : eye_(FromArray(camera.eye)), width_(width), height_(height) {
    forward_ = (FromArray(camera.at) - eye_).Unit();
    right_ = forward_.Cross(FromArray(camera.up)).Unit();
    up_ = right_.Cross(forward_);
    halfHeight_ = std::tan(camera.fovDegrees * std::numbers::pi / 360.0);
    halfWidth_ = halfHeight_ * width / height;
  }
  // The pixel (column, row) a point falls in; false when outside the image.
  bool Pixel(Vec p, int* column, int* row) const {
    const Vec d = p - eye_;
    const double depth = d.Dot(forward_);
    *column = static_cast<int>(std::floor((d.Dot(right_) / depth / halfWidth_ + 1) / 2 * width_));
    *row = static_cast<int>(std::floor((1 - d.Dot(up_) / depth / halfHeight_) / 2 * height_));
    return depth > 0 && *column >= 0 && *column < width_ && *row >= 0 && *row < height_;
  }
  Vec Ray(int column, int row) const {
    const double x = (2 * (column + 0.5) / width_ - 1) * halfWidth_;
    const double y = (1 - 2 * (row + 0.5) / height_) * halfHeight_;
    return (forward_ + right_ * x + up_ * y).Unit();
  }
  Vec eye() const { return eye_; }

 private:
  Vec eye_, forward_, right_, up_;
  int width_, height_;
  double halfHeight_, halfWidth_;
};

struct Frame {
  Image image;
  SampleProbe probe;
  RenderStats stats;
};

Frame RenderBuiltin(int width, int height, int samples, int threads, bool reflections = true) {
  RenderSettings settings;
  settings.width = width;
  settings.height = height;
  settings.samples = samples;
  settings.threads = threads;
  settings.occlusionRays = 2;
  settings.reflections = reflections;
  Frame frame;
  frame.image = Render(BuiltinScene(), BuiltinCamera(), settings, &frame.stats, &frame.probe);
  return frame;
}

double Luminance(const Image& image, int column, int row) {
  const uint8_t* p = &image.rgb[3 * (static_cast<size_t>(row) * image.width + column)];
  return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2];
}

constexpr int kWidth = 160, kHeight = 120;

// Every pixel whose ray rises sees the sky, every one that falls steeply enough to meet the
// floor within its extent sees something, and every ray through the sphere's core hits the
// model (nothing stands between the sphere and the camera).
TEST(Render, CoverageWhereTheGeometrySays) {
  const Frame frame = RenderBuiltin(kWidth, kHeight, 1, 1);
  const Projection view(BuiltinCamera(), kWidth, kHeight);
  const Vec centre = FromArray(kBuiltinSphereCentre);
  int sky = 0, sphere = 0;
  for (int row = 0; row < kHeight; ++row) {
    for (int column = 0; column < kWidth; ++column) {
      const Vec ray = view.Ray(column, row);
      const int object = frame.probe.object[static_cast<size_t>(row) * kWidth + column];
      const Vec toCentre = centre - view.eye();
      const double miss = std::sqrt(toCentre.Dot(toCentre) - std::pow(toCentre.Dot(ray), 2));
      SCOPED_TRACE(::testing::Message() << "pixel " << column << ", " << row);
      if (ray.y > 0) {
        EXPECT_EQ(-1, object);
        ++sky;
      }
      if (ray.y < -0.05) {
        EXPECT_NE(-1, object);
      }
      if (miss < 0.95 * kBuiltinSphereRadius) {
        EXPECT_EQ(0, object);
        ++sphere;
      }
    }
  }
  EXPECT_GT(sky, 0);
  EXPECT_GT(sphere, 100);
}

// Points the light, the floor and the mirror decide, each projected to its pixel:
//   - the sphere's point facing the light is lit;
//   - the floor where the line from the light through the sphere's centre meets it is in
//     shadow, and darker than the lit floor in front of the objects;
//   - the floor where the sphere's mirror image (its centre below the floor) appears reflects
//     the model, the open floor in front reflects the sky, and reflections change the colour
//     of both.
TEST(Render, LightShadowAndReflectionWhereTheGeometrySays) {
  const Frame frame = RenderBuiltin(kWidth, kHeight, 1, 1);
  const Frame flat = RenderBuiltin(kWidth, kHeight, 1, 1, /*reflections=*/false);
  const Projection view(BuiltinCamera(), kWidth, kHeight);
  const Vec centre = FromArray(kBuiltinSphereCentre), light = FromArray(BuiltinScene().light);
  const Vec towardsLight = (light - centre).Unit();
  const Vec shadow = light + (centre - light) * (light.y / (light.y - centre.y));
  struct Row {
    const char* what;
    Vec point;
    int object, lit, reflected;  // -2: not checked
  } rows[] = {
      {"sphere facing the light", centre + towardsLight * kBuiltinSphereRadius, 0, 1, -2},
      {"sphere's shadow", shadow, 1, 0, -2},
      {"open floor in front, mirroring the sky", {-0.5, 0, 1.3}, 1, 1, -1},
      {"sphere's mirror image", {centre.x, -centre.y, centre.z}, 1, -2, 0},
  };
  int at[4][2];
  for (int r = 0; r < 4; ++r) {
    SCOPED_TRACE(rows[r].what);
    ASSERT_TRUE(view.Pixel(rows[r].point, &at[r][0], &at[r][1]));
    const size_t k = static_cast<size_t>(at[r][1]) * kWidth + at[r][0];
    EXPECT_EQ(rows[r].object, frame.probe.object[k]);
    if (rows[r].lit != -2) {
      EXPECT_EQ(rows[r].lit, frame.probe.lit[k]);
    }
    if (rows[r].reflected != -2) {
      EXPECT_EQ(rows[r].reflected, frame.probe.reflected[k]);
      EXPECT_EQ(-1, flat.probe.reflected[k]);
      const uint8_t* with = &frame.image.rgb[3 * k];
      const uint8_t* without = &flat.image.rgb[3 * k];
      EXPECT_NE(std::vector<uint8_t>(with, with + 3), std::vector<uint8_t>(without, without + 3));
    }
  }
  EXPECT_LT(Luminance(frame.image, at[1][0], at[1][1]),
            0.7 * Luminance(frame.image, at[2][0], at[2][1]));
  EXPECT_GT(frame.stats.shadow.rays, 0);
  EXPECT_GT(frame.stats.reflection.rays, 0);
  EXPECT_GT(frame.stats.occlusion.rays, 0);
}

// Blocks go to threads in any order; every pixel, sample fact and ray count stays the same.
TEST(Render, SameFrameOnAnyThreadCount) {
  const Frame one = RenderBuiltin(100, 76, 2, 1);
  for (int threads : {2, 3}) {
    const Frame many = RenderBuiltin(100, 76, 2, threads);
    SCOPED_TRACE(::testing::Message() << threads << " threads");
    EXPECT_TRUE(one.image.rgb == many.image.rgb);
    EXPECT_TRUE(one.probe.object == many.probe.object);
    EXPECT_TRUE(one.probe.lit == many.probe.lit);
    EXPECT_TRUE(one.probe.reflected == many.probe.reflected);
    EXPECT_EQ(one.stats.shadow.rays, many.stats.shadow.rays);
  }
}

// Mesh files ------------------------------------------------------------------------------

std::string WriteFile(const std::string& name, const std::string& content) {
  const std::string path = (std::filesystem::temp_directory_path() / name).string();
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

template <class T>
std::string Bytes(T value, bool bigEndian) {
  std::string bytes(reinterpret_cast<const char*>(&value), sizeof(T));
  if (bigEndian) std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

// A square and a triangle (a fan of three) over five vertices, in every form the readers take.
std::string BinaryPly(bool bigEndian) {
  std::string ply = std::string("ply\nformat ") +
                    (bigEndian ? "binary_big_endian" : "binary_little_endian") +
                    " 1.0\ncomment extra properties to skip\nelement vertex 5\n"
                    "property double nx\nproperty float x\nproperty float y\nproperty float z\n"
                    "element face 2\nproperty uchar flags\nproperty list uchar int vertex_indices\n"
                    "element edge 1\nproperty list ushort short ends\nend_header\n";
  const float xyz[5][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5f, 2, -1}};
  for (const auto& v : xyz) {
    ply += Bytes(1.5, bigEndian);
    for (float c : v) ply += Bytes(c, bigEndian);
  }
  ply += Bytes<uint8_t>(7, bigEndian) + Bytes<uint8_t>(4, bigEndian);
  for (int32_t i : {0, 1, 2, 3}) ply += Bytes(i, bigEndian);
  ply += Bytes<uint8_t>(7, bigEndian) + Bytes<uint8_t>(3, bigEndian);
  for (int32_t i : {2, 4, 3}) ply += Bytes(i, bigEndian);
  return ply + Bytes<uint16_t>(2, bigEndian) + Bytes<int16_t>(0, bigEndian) +
         Bytes<int16_t>(1, bigEndian);
}

TEST(MeshFile, EveryFormatReadsTheSameMesh) {
  const std::string files[][2] = {
      {"quad.obj",
       "# comment\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nvn 0 0 1\nvt 0 0\n"
       "f 1/1/1 2//1 3/1 4\nv 0.5 2 -1\ng group\nf -3 -1 -2\n"},
      {"quad_ascii.ply",
       "ply\r\nformat ascii 1.0\r\nelement vertex 5\r\nproperty float x\r\nproperty float y\r\n"
       "property float z\r\nelement face 2\r\nproperty list uchar int vertex_index\r\n"
       "end_header\r\n0 0 0\r\n1 0 0\r\n1 1 0\r\n0 1 0\r\n0.5 2 -1\r\n4 0 1 2 3\r\n3 2 4 3\r\n"},
      {"quad_le.ply", BinaryPly(false)},
      {"quad_be.ply", BinaryPly(true)},
  };
  const std::vector<float> vert = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0.5f, 2, -1};
  const std::vector<int32_t> tri = {0, 1, 2, 0, 0, 2, 3, 0, 2, 4, 3, 0};
  for (const auto& [name, content] : files) {
    SCOPED_TRACE(name);
    Mesh mesh;
    std::string error;
    ASSERT_TRUE(ReadMeshFile(WriteFile(name, content), &mesh, &error)) << error;
    EXPECT_EQ(vert, mesh.vert);
    EXPECT_EQ(tri, mesh.tri);
  }
}

// Bad files are refused with a message naming the file and the fault, by the reader and by
// the program, which then writes no image and exits with status 1.
TEST(MeshFile, BadFilesAreRefusedWithAMessage) {
  const std::string whole = BinaryPly(false);
  const std::string truncated = whole.substr(0, whole.find("end_header\n") + 30);
  const struct {
    const char* name;
    std::string content;  // empty: the file is not created
    const char* message;
  } rows[] = {
      {"missing.obj", "", "cannot open"},
      {"short_vertex.obj", "v 0 0 0\nv 1 0\nf 1 2 1\n", "line 2: a vertex needs three numbers"},
      {"bad_corner.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 x\n", "'x' is not a vertex number"},
      {"far_corner.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 4\n", "vertex 4 does not exist"},
      {"no_faces.obj", "v 0 0 0\n", "no triangles"},
      {"binary.obj", std::string("\x7f\x45\x4c\x46\x02\x01\x01\0\0", 9), "no triangles"},
      {"truncated.ply", truncated, "ends before its last element"},
      {"format.ply", "ply\nformat utf8 1.0\nend_header\n", "unknown format 'utf8'"},
      {"far_face.ply",
       "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
       "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n"
       "0 0 0 1 0 0 0 1 0\n3 0 1 3\n",
       "face 0 names vertex 3 of 3"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string path = (std::filesystem::temp_directory_path() / row.name).string();
    std::filesystem::remove(path);
    if (!row.content.empty()) WriteFile(row.name, row.content);
    Mesh mesh;
    std::string error;
    EXPECT_FALSE(ReadMeshFile(path, &mesh, &error));
    EXPECT_NE(std::string::npos, error.find(path)) << error;
    EXPECT_NE(std::string::npos, error.find(row.message)) << error;

    const std::string image = path + ".png", log = path + ".log";
    std::filesystem::remove(image);
    const std::string command = std::string("'") + VTQR_RENDER_PROGRAM + "' -q -s 16x16 -o '" +
                                image + "' '" + path + "' 2> '" + log + "'";
    const int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(1, WEXITSTATUS(status));
    std::ifstream stream(log);
    const std::string printed((std::istreambuf_iterator<char>(stream)), {});
    EXPECT_EQ("render: " + error + "\n", printed);
    EXPECT_FALSE(std::filesystem::exists(image));
  }
}

}  // namespace
}  // namespace render
