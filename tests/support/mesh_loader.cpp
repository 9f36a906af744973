// Mesh readers and generators.
#include "support/mesh_loader.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <numbers>
#include <random>
#include <sstream>

namespace vtqr::test {

int32_t Mesh::AddVertex(float x, float y, float z) {
  vert.push_back(x);
  vert.push_back(y);
  vert.push_back(z);
  return VertCount() - 1;
}

void Mesh::AddTriangle(int32_t a, int32_t b, int32_t c) {
  tri.push_back(a);
  tri.push_back(b);
  tri.push_back(c);
  tri.push_back(0);
}

void Mesh::Append(const Mesh& other) {
  int32_t base = VertCount();
  vert.insert(vert.end(), other.vert.begin(), other.vert.end());
  for (size_t i = 0; i < other.tri.size(); i += 4) {
    AddTriangle(other.tri[i] + base, other.tri[i + 1] + base, other.tri[i + 2] + base);
  }
}

namespace {

// Polygons become fans around their first vertex.
void AddPolygon(Mesh* mesh, const std::vector<int32_t>& corners) {
  for (size_t i = 2; i < corners.size(); ++i) {
    mesh->AddTriangle(corners[0], corners[i - 1], corners[i]);
  }
}

size_t PlyTypeSize(const std::string& type) {
  if (type == "char" || type == "uchar" || type == "int8" || type == "uint8") return 1;
  if (type == "short" || type == "ushort" || type == "int16" || type == "uint16") return 2;
  if (type == "int" || type == "uint" || type == "float" || type == "int32" || type == "uint32" ||
      type == "float32") {
    return 4;
  }
  if (type == "double" || type == "float64") return 8;
  return 0;
}

int64_t PlyReadInt(const char* p, const std::string& type) {
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

}  // namespace

bool LoadObj(const std::string& path, Mesh* mesh, std::string* error) {
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
      AddPolygon(mesh, corners);
    }
  }
  return true;
}

bool LoadPly(const std::string& path, Mesh* mesh, std::string* error) {
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
          in.read(countBytes, static_cast<std::streamsize>(PlyTypeSize(property.countType)));
          int64_t count = PlyReadInt(countBytes, property.countType);
          size_t size = PlyTypeSize(property.type);
          record.resize(static_cast<size_t>(count) * size);
          in.read(record.data(), static_cast<std::streamsize>(record.size()));
          if (element.name == "face") {
            corners.clear();
            for (int64_t i = 0; i < count; ++i) {
              corners.push_back(static_cast<int32_t>(
                  PlyReadInt(record.data() + i * static_cast<int64_t>(size), property.type)));
            }
            AddPolygon(mesh, corners);
          }
          continue;
        }
        char value[8];
        size_t size = PlyTypeSize(property.type);
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

bool LoadMesh(const std::string& path, Mesh* mesh, std::string* error) {
  if (path.size() >= 4 && path.compare(path.size() - 4, 4, ".ply") == 0) {
    return LoadPly(path, mesh, error);
  }
  return LoadObj(path, mesh, error);
}

// Generators ----------------------------------------------------------------------------------

Mesh UvSphere(int rings, int segments, float radius, float cx, float cy, float cz) {
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

Mesh BumpySphere(int rings, int segments, float bumpiness, uint32_t seed) {
  Mesh mesh = UvSphere(rings, segments);
  // A few waves of random direction, frequency and phase: smooth, but with no symmetry left.
  std::mt19937 rng(seed);
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> phase(0, 2 * std::numbers::pi), frequency(2, 9);
  struct Wave {
    double direction[3], frequency, phase;
  };
  constexpr int kWaves = 6;
  Wave waves[kWaves];
  for (Wave& wave : waves) {
    for (double& d : wave.direction) d = normal(rng);
    wave.frequency = frequency(rng);
    wave.phase = phase(rng);
  }
  for (size_t v = 0; v < mesh.vert.size(); v += 3) {
    double bump = 0;
    for (const Wave& wave : waves) {
      double along = wave.direction[0] * mesh.vert[v] + wave.direction[1] * mesh.vert[v + 1] +
                     wave.direction[2] * mesh.vert[v + 2];
      bump += std::sin(wave.frequency * along + wave.phase) / kWaves;
    }
    for (int k = 0; k < 3; ++k) {
      mesh.vert[v + k] = static_cast<float>(mesh.vert[v + k] * (1 + bumpiness * bump));
    }
  }
  return mesh;
}

Mesh RandomSoup(int count, uint32_t seed, float extent, float size) {
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

Mesh AxisAlignedGrid(int n) {
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

Mesh Duplicated(const Mesh& mesh, int copies) {
  Mesh out;
  out.vert = mesh.vert;
  for (int t = 0; t < mesh.TriCount(); ++t) {
    for (int k = 0; k < copies; ++k)
      out.AddTriangle(mesh.tri[4 * t], mesh.tri[4 * t + 1], mesh.tri[4 * t + 2]);
  }
  return out;
}

}  // namespace vtqr::test
