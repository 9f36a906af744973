// The renderer's triangle meshes, in the library's layout, and the files they come from.
#ifndef VTQR_EXAMPLES_RENDER_MESH_H_
#define VTQR_EXAMPLES_RENDER_MESH_H_

#include <cstdint>
#include <string>
#include <vector>

namespace render {

// Packed x, y, z floats per vertex; four int32 per triangle (three vertex numbers and an
// unused fourth), as the library's mesh functions take them; one material number per
// triangle.
struct Mesh {
  std::vector<float> vert;
  std::vector<int32_t> tri;
  std::vector<uint8_t> material;

  int VertexCount() const { return static_cast<int>(vert.size() / 3); }
  int TriangleCount() const { return static_cast<int>(tri.size() / 4); }
  int32_t AddVertex(float x, float y, float z);
  void AddTriangle(int32_t a, int32_t b, int32_t c, uint8_t materialNumber = 0);
};

// Reads a Wavefront OBJ ("v" and "f" lines; polygons become fans) or a PLY file (ASCII or
// binary of either byte order; the vertex element's x, y, z and the face element's index
// list), chosen by the file's first bytes. Every triangle gets material 0. On failure returns
// false with a one-line message in *error that names the file and, where it helps, the line
// or element at fault; *mesh is then unspecified.
bool ReadMeshFile(const std::string& path, Mesh* mesh, std::string* error);

}  // namespace render

#endif  // VTQR_EXAMPLES_RENDER_MESH_H_
