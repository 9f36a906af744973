// Triangle meshes for tests and benchmarks: readers for the shared OBJ and PLY files and a few
// generators that stress the tree builder (curved surfaces, random soups, coplanar grids,
// duplicates).
#ifndef VTQR_TESTS_SUPPORT_MESH_LOADER_H_
#define VTQR_TESTS_SUPPORT_MESH_LOADER_H_

#include <cstdint>
#include <string>
#include <vector>

namespace vtqr::test {

// The library's mesh layout: packed xyz floats, four int32 per triangle (the fourth is 0).
struct Mesh {
  std::vector<float> vert;
  std::vector<int32_t> tri;

  int VertCount() const { return static_cast<int>(vert.size() / 3); }
  int TriCount() const { return static_cast<int>(tri.size() / 4); }
  int32_t AddVertex(float x, float y, float z);
  void AddTriangle(int32_t a, int32_t b, int32_t c);
  // Appends another mesh, renumbering its vertices.
  void Append(const Mesh& other);
};

// Readers ------------------------------------------------------------------------------------

// Reads "v x y z" and "f a b c ..." lines (indices may carry /vt/vn parts or be negative).
bool LoadObj(const std::string& path, Mesh* mesh, std::string* error);

// Reads binary little-endian PLY: vertex x, y, z as float (other vertex properties skipped),
// faces as a list property (count then indices).
bool LoadPly(const std::string& path, Mesh* mesh, std::string* error);

// Loads by extension (.obj or .ply).
bool LoadMesh(const std::string& path, Mesh* mesh, std::string* error);

// Generators ---------------------------------------------------------------------------------

// A closed UV sphere: `rings` bands from pole to pole, `segments` around; the poles are fans.
Mesh UvSphere(int rings, int segments, float radius = 1.0f, float cx = 0, float cy = 0,
              float cz = 0);

// A UV sphere whose radius wanders by up to `bumpiness` of itself, smoothly but without
// symmetry: stands in for a scanned surface (uneven triangles, no axis-aligned structure).
Mesh BumpySphere(int rings, int segments, float bumpiness, uint32_t seed);

// `count` independent triangles: centres uniform in [-extent, extent]^3, corners within
// `size` of the centre. Each triangle has its own three vertices.
Mesh RandomSoup(int count, uint32_t seed, float extent = 1.0f, float size = 0.1f);

// A floor of n x n unit squares in z = 0, plus n walls in planes x = const and one in
// y = const, all on integer coordinates: many coplanar triangles, many lying exactly in the
// planes a builder likes to split at, and shared edges on those planes.
Mesh AxisAlignedGrid(int n);

// Every triangle of `mesh` repeated `copies` times in a row, sharing its vertices.
Mesh Duplicated(const Mesh& mesh, int copies);

}  // namespace vtqr::test

#endif  // VTQR_TESTS_SUPPORT_MESH_LOADER_H_
