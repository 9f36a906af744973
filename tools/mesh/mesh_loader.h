// Triangle meshes for tests and benchmarks: readers for the shared OBJ and PLY files and a few
// generators that stress the tree builder (curved surfaces, random soups, coplanar grids,
// duplicates). Header-only, so tests, benchmarks and examples include it without linking anything.
#ifndef VTQR_TOOLS_MESH_MESH_LOADER_H_
#define VTQR_TOOLS_MESH_MESH_LOADER_H_

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <numbers>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace vtqr::test {

// The library's mesh layout: packed xyz floats, four int32 per triangle (the fourth is 0).
struct Mesh {
  std::vector<float> vert;
  std::vector<int32_t> tri;

  int VertCount() const { return static_cast<int>(vert.size() / 3); }
  int TriCount() const { return static_cast<int>(tri.size() / 4); }
  int32_t AddVertex(float x, float y, float z) {
    vert.push_back(x);
    vert.push_back(y);
    vert.push_back(z);
    return VertCount() - 1;
  }
  void AddTriangle(int32_t a, int32_t b, int32_t c) {
    tri.push_back(a);
    tri.push_back(b);
    tri.push_back(c);
    tri.push_back(0);
  }
  // Appends another mesh, renumbering its vertices.
  void Append(const Mesh& other) {
    int32_t base = VertCount();
    vert.insert(vert.end(), other.vert.begin(), other.vert.end());
    for (size_t i = 0; i < other.tri.size(); i += 4) {
      AddTriangle(other.tri[i] + base, other.tri[i + 1] + base, other.tri[i + 2] + base);
    }
  }
};

namespace mesh_detail {

// Polygons become fans around their first vertex.
inline void AddPolygon(Mesh* mesh, const std::vector<int32_t>& corners) {
  for (size_t i = 2; i < corners.size(); ++i) {
    mesh->AddTriangle(corners[0], corners[i - 1], corners[i]);
  }
}

inline size_t PlyTypeSize(const std::string& type) {
  if (type == "char" || type == "uchar" || type == "int8" || type == "uint8") return 1;
  if (type == "short" || type == "ushort" || type == "int16" || type == "uint16") return 2;
  if (type == "int" || type == "uint" || type == "float" || type == "int32" || type == "uint32" ||
      type == "float32") {
    return 4;
  }
  if (type == "double" || type == "float64") return 8;
  return 0;
}

inline int64_t PlyReadInt(const char* p, const std::string& type) {
  switch (PlyTypeSize(type)) {
    case 1: {
      uint8_t v;
      std::memcpy(&v, p, 1);
      return (type == "char" || type == "int8") ? static_cast<int8_t>(v) : v;
    }
    case 2: {
      uint16_t v;
      std::memcpy(&v, p, 2);
      return (type == "short" || type == "int16") ? static_cast<int16_t>(v) : v;
    }
    default: {
      uint32_t v;
      std::memcpy(&v, p, 4);
      return (type == "uint" || type == "uint32") ? static_cast<int64_t>(v)
                                                  : static_cast<int32_t>(v);
    }
  }
}

}  // namespace mesh_detail

// Reads "v x y z" and "f a b c ..." lines (indices may carry /vt/vn parts or be negative).
inline bool LoadObj(const std::string& path, Mesh* mesh, std::string* error) {
  std::ifstream in(path);
  if (!in) {
    *error = "cannot open " + path;
    return false;
  }
  *mesh = Mesh();
  std::string line;
  std::vector<int32_t> corners;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string tag;
    words >> tag;
    if (tag == "v") {
      float x, y, z;
      words >> x >> y >> z;
      mesh->AddVertex(x, y, z);
    } else if (tag == "f") {
      corners.clear();
      std::string word;
      while (words >> word) {
        long index = std::stol(word.substr(0, word.find('/')));
        corners.push_back(static_cast<int32_t>(index < 0 ? mesh->VertCount() + index : index - 1));
      }
      mesh_detail::AddPolygon(mesh, corners);
    }
  }
  return true;
}

// Reads binary little-endian PLY: vertex x, y, z as float (other vertex properties skipped),
// faces as a list property (count then indices).
inline bool LoadPly(const std::string& path, Mesh* mesh, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = "cannot open " + path;
    return false;
  }
  struct Property {
    std::string name, type, countType;  // countType set for list properties
  };
  struct Element {
    std::string name;
    int64_t count = 0;
    std::vector<Property> properties;
  };
  std::vector<Element> elements;
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::istringstream words(line);
    std::string tag;
    words >> tag;
    if (tag == "format") {
      std::string format;
      words >> format;
      if (format != "binary_little_endian") {
        *error = "unsupported PLY format " + format;
        return false;
      }
    } else if (tag == "element") {
      Element element;
      words >> element.name >> element.count;
      elements.push_back(element);
    } else if (tag == "property" && !elements.empty()) {
      Property property;
      words >> property.type;
      if (property.type == "list") words >> property.countType >> property.type;
      words >> property.name;
      elements.back().properties.push_back(property);
    } else if (tag == "end_header") {
      break;
    }
  }
  *mesh = Mesh();
  std::vector<char> record(64);
  std::vector<int32_t> corners;
  for (const Element& element : elements) {
    for (int64_t e = 0; e < element.count; ++e) {
      float xyz[3] = {0, 0, 0};
      for (const Property& property : element.properties) {
        if (!property.countType.empty()) {
          char countBytes[8];
          in.read(countBytes,
                  static_cast<std::streamsize>(mesh_detail::PlyTypeSize(property.countType)));
          int64_t count = mesh_detail::PlyReadInt(countBytes, property.countType);
          size_t size = mesh_detail::PlyTypeSize(property.type);
          record.resize(static_cast<size_t>(count) * size);
          in.read(record.data(), static_cast<std::streamsize>(record.size()));
          if (element.name == "face") {
            corners.clear();
            for (int64_t i = 0; i < count; ++i) {
              corners.push_back(static_cast<int32_t>(mesh_detail::PlyReadInt(
                  record.data() + i * static_cast<int64_t>(size), property.type)));
            }
            mesh_detail::AddPolygon(mesh, corners);
          }
          continue;
        }
        char value[8];
        size_t size = mesh_detail::PlyTypeSize(property.type);
        in.read(value, static_cast<std::streamsize>(size));
        if (element.name == "vertex" && size == 4 && property.type.rfind("float", 0) == 0) {
          int axis = property.name == "x"   ? 0
                     : property.name == "y" ? 1
                     : property.name == "z" ? 2
                                            : -1;
          if (axis >= 0) std::memcpy(&xyz[axis], value, 4);
        }
      }
      if (element.name == "vertex") mesh->AddVertex(xyz[0], xyz[1], xyz[2]);
      if (!in) {
        *error = "PLY file ends early: " + path;
        return false;
      }
    }
  }
  return true;
}

// Loads by extension (.obj or .ply).
inline bool LoadMesh(const std::string& path, Mesh* mesh, std::string* error) {
  if (path.size() >= 4 && path.compare(path.size() - 4, 4, ".ply") == 0) {
    return LoadPly(path, mesh, error);
  }
  return LoadObj(path, mesh, error);
}

// Generators ----------------------------------------------------------------------------------

// A closed UV sphere: `rings` bands from pole to pole, `segments` around; the poles are fans.
inline Mesh UvSphere(int rings, int segments, float radius = 1.0f, float cx = 0, float cy = 0,
                     float cz = 0) {
  Mesh mesh;
  int32_t north = mesh.AddVertex(cx, cy, cz + radius);
  for (int r = 1; r < rings; ++r) {
    double theta = std::numbers::pi * r / rings;
    for (int s = 0; s < segments; ++s) {
      double phi = 2 * std::numbers::pi * s / segments;
      mesh.AddVertex(cx + static_cast<float>(radius * std::sin(theta) * std::cos(phi)),
                     cy + static_cast<float>(radius * std::sin(theta) * std::sin(phi)),
                     cz + static_cast<float>(radius * std::cos(theta)));
    }
  }
  int32_t south = mesh.AddVertex(cx, cy, cz - radius);
  auto ring = [&](int r, int s) { return 1 + (r - 1) * segments + (s % segments); };
  for (int s = 0; s < segments; ++s) {
    mesh.AddTriangle(north, ring(1, s), ring(1, s + 1));
    for (int r = 1; r + 1 < rings; ++r) {
      mesh.AddTriangle(ring(r, s), ring(r + 1, s), ring(r + 1, s + 1));
      mesh.AddTriangle(ring(r, s), ring(r + 1, s + 1), ring(r, s + 1));
    }
    mesh.AddTriangle(south, ring(rings - 1, s + 1), ring(rings - 1, s));
  }
  return mesh;
}

// `count` independent triangles: centres uniform in [-extent, extent]^3, corners within
// `size` of the centre. Each triangle has its own three vertices.
inline Mesh RandomSoup(int count, uint32_t seed, float extent = 1.0f, float size = 0.1f) {
  Mesh mesh;
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> centre(-extent, extent), offset(-size, size);
  for (int t = 0; t < count; ++t) {
    float c[3] = {centre(rng), centre(rng), centre(rng)};
    int32_t v[3];
    for (int i = 0; i < 3; ++i)
      v[i] = mesh.AddVertex(c[0] + offset(rng), c[1] + offset(rng), c[2] + offset(rng));
    mesh.AddTriangle(v[0], v[1], v[2]);
  }
  return mesh;
}

// A floor of n x n unit squares in z = 0, plus n walls in planes x = const and one in
// y = const, all on integer coordinates: many coplanar triangles, many lying exactly in the
// planes a builder likes to split at, and shared edges on those planes.
inline Mesh AxisAlignedGrid(int n) {
  Mesh mesh;
  auto quad = [&](const float a[3], const float b[3], const float c[3], const float d[3]) {
    int32_t ia = mesh.AddVertex(a[0], a[1], a[2]), ib = mesh.AddVertex(b[0], b[1], b[2]);
    int32_t ic = mesh.AddVertex(c[0], c[1], c[2]), id = mesh.AddVertex(d[0], d[1], d[2]);
    mesh.AddTriangle(ia, ib, ic);
    mesh.AddTriangle(ia, ic, id);
  };
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) {
      float x0 = static_cast<float>(i), y0 = static_cast<float>(j);
      const float a[3] = {x0, y0, 0}, b[3] = {x0 + 1, y0, 0}, c[3] = {x0 + 1, y0 + 1, 0},
                  d[3] = {x0, y0 + 1, 0};
      quad(a, b, c, d);
    }
  }
  for (int i = 0; i < n; ++i) {  // walls x = i + 0.5, height 1..2, and shifted in y
    float x = static_cast<float>(i) + 0.5f, h = static_cast<float>(1 + i % 2);
    const float a[3] = {x, 0, 0}, b[3] = {x, static_cast<float>(n) / 2, 0},
                c[3] = {x, static_cast<float>(n) / 2, h}, d[3] = {x, 0, h};
    quad(a, b, c, d);
  }
  const float a[3] = {0, static_cast<float>(n) / 2, 0},
              b[3] = {static_cast<float>(n), static_cast<float>(n) / 2, 0},
              c[3] = {static_cast<float>(n), static_cast<float>(n) / 2, 1},
              d[3] = {0, static_cast<float>(n) / 2, 1};
  quad(a, b, c, d);
  return mesh;
}

// Every triangle of `mesh` repeated `copies` times in a row, sharing its vertices.
inline Mesh Duplicated(const Mesh& mesh, int copies) {
  Mesh out;
  out.vert = mesh.vert;
  for (int t = 0; t < mesh.TriCount(); ++t) {
    for (int k = 0; k < copies; ++k)
      out.AddTriangle(mesh.tri[4 * t], mesh.tri[4 * t + 1], mesh.tri[4 * t + 2]);
  }
  return out;
}

}  // namespace vtqr::test

#endif  // VTQR_TOOLS_MESH_MESH_LOADER_H_
