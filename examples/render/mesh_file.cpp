// Mesh files: OBJ and PLY readers that reject what they cannot read with a message saying
// where, rather than rendering half a mesh.
#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>

#include "mesh.h"

namespace render {

int32_t Mesh::AddVertex(float x, float y, float z) {
  vert.insert(vert.end(), {x, y, z});
  return VertexCount() - 1;
}

void Mesh::AddTriangle(int32_t a, int32_t b, int32_t c, uint8_t materialNumber) {
  tri.insert(tri.end(), {a, b, c, 0});
  material.push_back(materialNumber);
}

namespace {

// Failures carry their message up to ReadMeshFile, which adds the file name.
struct MeshError {
  std::string message;
};

[[noreturn]] void Fail(const std::string& message) { throw MeshError{message}; }

// A value read from a file, as short as it prints: "12", "1.5", "nan".
std::string Number(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

std::string_view Trim(std::string_view s) {
  const size_t first = s.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return s.substr(first, s.find_last_not_of(" \t\r") - first + 1);
}

// Splits off the next word (up to a space or tab) of `rest`.
std::string_view NextWord(std::string_view& rest) {
  rest = Trim(rest);
  const size_t end = std::min(rest.find(' '), rest.find('\t'));
  std::string_view word = rest.substr(0, end);
  rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end);
  return word;
}

template <class T>
bool ParseNumber(std::string_view word, T* value) {
  const char* end = word.data() + word.size();
  auto [stop, code] = std::from_chars(word.data(), end, *value);
  return code == std::errc() && stop == end;
}

// Polygons become fans around their first corner.
void AddPolygon(const std::vector<int32_t>& corners, Mesh* mesh) {
  for (size_t k = 2; k < corners.size(); ++k) {
    mesh->AddTriangle(corners[0], corners[k - 1], corners[k]);
  }
}

// OBJ ---------------------------------------------------------------------------------------

// A face corner "v", "v/t", "v//n" or "v/t/n": the vertex number, 1-based or, when negative,
// counted back from the last vertex read so far.
int32_t ObjCorner(std::string_view word, int vertexCount, int line) {
  const std::string_view number = word.substr(0, word.find('/'));
  int64_t index = 0;
  if (!ParseNumber(number, &index) || index == 0) {
    Fail("line " + std::to_string(line) + ": '" + std::string(word) + "' is not a vertex number");
  }
  const int64_t zeroBased = index > 0 ? index - 1 : vertexCount + index;
  if (zeroBased < 0 || zeroBased >= vertexCount) {
    Fail("line " + std::to_string(line) + ": vertex " + std::to_string(index) +
         " does not exist (" + std::to_string(vertexCount) + " read so far)");
  }
  return static_cast<int32_t>(zeroBased);
}

void ReadObj(std::string_view text, Mesh* mesh) {
  std::vector<int32_t> corners;
  int line = 0;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    std::string_view rest = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
    ++line;
    const std::string_view kind = NextWord(rest);
    if (kind == "v") {
      float c[3];
      for (float& value : c) {
        if (!ParseNumber(NextWord(rest), &value)) {
          Fail("line " + std::to_string(line) + ": a vertex needs three numbers");
        }
      }
      mesh->AddVertex(c[0], c[1], c[2]);
    } else if (kind == "f") {
      corners.clear();
      for (std::string_view word = NextWord(rest); !word.empty(); word = NextWord(rest)) {
        corners.push_back(ObjCorner(word, mesh->VertexCount(), line));
      }
      if (corners.size() < 3) {
        Fail("line " + std::to_string(line) + ": a face needs at least three corners");
      }
      AddPolygon(corners, mesh);
    }
    // Normals, texture coordinates, groups, materials and comments play no part here.
  }
}

// PLY ---------------------------------------------------------------------------------------

enum class PlyFormat { kAscii, kBinaryLittle, kBinaryBig };

// The scalar types a property may have, under both of their names.
enum class PlyType { kNone, kInt8, kUint8, kInt16, kUint16, kInt32, kUint32, kFloat32, kFloat64 };

PlyType ParsePlyType(std::string_view name) {
  static const struct {
    const char* names[2];
    PlyType type;
  } kTypes[] = {
      {{"char", "int8"}, PlyType::kInt8},        {{"uchar", "uint8"}, PlyType::kUint8},
      {{"short", "int16"}, PlyType::kInt16},     {{"ushort", "uint16"}, PlyType::kUint16},
      {{"int", "int32"}, PlyType::kInt32},       {{"uint", "uint32"}, PlyType::kUint32},
      {{"float", "float32"}, PlyType::kFloat32}, {{"double", "float64"}, PlyType::kFloat64},
  };
  for (const auto& entry : kTypes) {
    if (name == entry.names[0] || name == entry.names[1]) return entry.type;
  }
  return PlyType::kNone;
}

size_t PlyTypeSize(PlyType type) {
  switch (type) {
    case PlyType::kInt8:
    case PlyType::kUint8:
      return 1;
    case PlyType::kInt16:
    case PlyType::kUint16:
      return 2;
    case PlyType::kFloat64:
      return 8;
    default:
      return 4;
  }
}

struct PlyProperty {
  std::string name;
  PlyType type = PlyType::kNone;       // the value's type; for a list, its entries' type
  PlyType countType = PlyType::kNone;  // the type of a list's length; kNone: not a list
};

struct PlyElement {
  std::string name;
  int64_t count = 0;
  std::vector<PlyProperty> properties;
};

// Reads the values of the body one at a time, as text words or as binary numbers.
class PlyCursor {
 public:
  PlyCursor(std::string_view body, PlyFormat format) : rest_(body), format_(format) {}

  double Read(PlyType type) {
    if (format_ == PlyFormat::kAscii) {
      double value = 0;
      const std::string_view word = NextAsciiWord();
      if (!ParseNumber(word, &value)) Fail("'" + std::string(word) + "' is not a number");
      return value;
    }
    const size_t size = PlyTypeSize(type);
    if (rest_.size() < size) Fail("the file ends before its last element");
    unsigned char bytes[8];
    std::memcpy(bytes, rest_.data(), size);
    rest_.remove_prefix(size);
    const bool swap = (format_ == PlyFormat::kBinaryBig) ==
                      (std::endian::native == std::endian::little);
    if (swap) std::reverse(bytes, bytes + size);
    return Decode(bytes, type);
  }

 private:
  std::string_view NextAsciiWord() {
    const size_t first = rest_.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) Fail("the file ends before its last element");
    rest_.remove_prefix(first);
    const size_t end = std::min(rest_.find_first_of(" \t\r\n"), rest_.size());
    std::string_view word = rest_.substr(0, end);
    rest_.remove_prefix(end);
    return word;
  }

  template <class T>
  static double As(const unsigned char* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return static_cast<double>(value);
  }

  static double Decode(const unsigned char* bytes, PlyType type) {
    switch (type) {
      case PlyType::kInt8:
        return As<int8_t>(bytes);
      case PlyType::kUint8:
        return As<uint8_t>(bytes);
      case PlyType::kInt16:
        return As<int16_t>(bytes);
      case PlyType::kUint16:
        return As<uint16_t>(bytes);
      case PlyType::kInt32:
        return As<int32_t>(bytes);
      case PlyType::kUint32:
        return As<uint32_t>(bytes);
      case PlyType::kFloat32:
        return As<float>(bytes);
      default:
        return As<double>(bytes);
    }
  }

  std::string_view rest_;
  PlyFormat format_;
};

// Parses the header up to "end_header"; returns the elements and sets *body to what follows.
std::vector<PlyElement> ReadPlyHeader(std::string_view text, PlyFormat* format,
                                      std::string_view* body) {
  std::vector<PlyElement> elements;
  bool formatSeen = false;
  for (int line = 1; !text.empty(); ++line) {
    const size_t end = text.find('\n');
    if (end == std::string_view::npos) break;
    std::string_view rest = text.substr(0, end);
    text.remove_prefix(end + 1);
    const std::string where = "header line " + std::to_string(line) + ": ";
    const std::string_view keyword = NextWord(rest);
    if (keyword == "end_header") {
      if (!formatSeen) Fail("the header has no format line");
      *body = text;
      return elements;
    }
    if (keyword == "format") {
      const std::string_view name = NextWord(rest);
      if (name == "ascii") {
        *format = PlyFormat::kAscii;
      } else if (name == "binary_little_endian") {
        *format = PlyFormat::kBinaryLittle;
      } else if (name == "binary_big_endian") {
        *format = PlyFormat::kBinaryBig;
      } else {
        Fail(where + "unknown format '" + std::string(name) + "'");
      }
      formatSeen = true;
    } else if (keyword == "element") {
      PlyElement element;
      element.name = NextWord(rest);
      if (!ParseNumber(NextWord(rest), &element.count) || element.count < 0) {
        Fail(where + "an element needs a name and a count");
      }
      elements.push_back(element);
    } else if (keyword == "property") {
      if (elements.empty()) Fail(where + "a property before any element");
      // "property TYPE NAME" or "property list COUNTTYPE TYPE NAME".
      auto typeOf = [&](std::string_view name) {
        const PlyType type = ParsePlyType(name);
        if (type == PlyType::kNone) Fail(where + "unknown type '" + std::string(name) + "'");
        return type;
      };
      PlyProperty property;
      std::string_view word = NextWord(rest);
      if (word == "list") {
        property.countType = typeOf(NextWord(rest));
        word = NextWord(rest);
      }
      property.type = typeOf(word);
      property.name = NextWord(rest);
      elements.back().properties.push_back(property);
    } else if (keyword != "comment" && keyword != "obj_info" && keyword != "ply") {
      Fail(where + "unknown keyword '" + std::string(keyword) + "'");
    }
  }
  Fail("the header has no end_header line");
}

// Position of the property called one of `names` in `element`, or -1.
int FindProperty(const PlyElement& element, std::initializer_list<const char*> names) {
  for (size_t k = 0; k < element.properties.size(); ++k) {
    for (const char* name : names) {
      if (element.properties[k].name == name) return static_cast<int>(k);
    }
  }
  return -1;
}

void ReadPly(std::string_view text, Mesh* mesh) {
  PlyFormat format = PlyFormat::kAscii;
  std::string_view body;
  const std::vector<PlyElement> elements = ReadPlyHeader(text, &format, &body);
  PlyCursor cursor(body, format);
  bool verticesSeen = false;
  std::vector<int32_t> corners;
  for (const PlyElement& element : elements) {
    const bool isVertex = element.name == "vertex", isFace = element.name == "face";
    int xyz[3] = {-1, -1, -1}, list = -1;
    if (isVertex) {
      xyz[0] = FindProperty(element, {"x"});
      xyz[1] = FindProperty(element, {"y"});
      xyz[2] = FindProperty(element, {"z"});
      if (xyz[0] < 0 || xyz[1] < 0 || xyz[2] < 0) Fail("the vertex element lacks x, y or z");
      if (element.count > INT32_MAX) Fail("too many vertices");
      verticesSeen = true;
    }
    if (isFace) {
      list = FindProperty(element, {"vertex_indices", "vertex_index"});
      if (list < 0 || element.properties[list].countType == PlyType::kNone) {
        Fail("the face element has no vertex_indices list");
      }
      if (!verticesSeen) Fail("the faces come before the vertices");
    }
    for (int64_t item = 0; item < element.count; ++item) {
      float position[3] = {0, 0, 0};
      for (size_t k = 0; k < element.properties.size(); ++k) {
        const PlyProperty& property = element.properties[k];
        const int at = static_cast<int>(k);
        if (property.countType == PlyType::kNone) {
          const double value = cursor.Read(property.type);
          for (int c = 0; c < 3; ++c) {
            if (at == xyz[c]) position[c] = static_cast<float>(value);
          }
          continue;
        }
        const double count = cursor.Read(property.countType);
        if (!(count >= 0 && count < 1e6)) Fail("a list of " + Number(count) + " entries");
        corners.clear();
        for (int n = 0; n < static_cast<int>(count); ++n) {
          const double index = cursor.Read(property.type);
          if (at != list) continue;
          if (!(index >= 0 && index < mesh->VertexCount())) {
            Fail("face " + std::to_string(item) + " names vertex " + Number(index) + " of " +
                 std::to_string(mesh->VertexCount()));
          }
          corners.push_back(static_cast<int32_t>(index));
        }
        if (at == list && corners.size() < 3) {
          Fail("face " + std::to_string(item) + " has fewer than three corners");
        }
      }
      if (isVertex) mesh->AddVertex(position[0], position[1], position[2]);
      if (isFace) AddPolygon(corners, mesh);
    }
  }
}

}  // namespace

bool ReadMeshFile(const std::string& path, Mesh* mesh, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = "cannot open '" + path + "': " + std::strerror(errno);
    return false;
  }
  std::ostringstream content;
  content << in.rdbuf();
  const std::string text = content.str();
  *mesh = Mesh();
  try {
    if (text.compare(0, 4, "ply\n") == 0 || text.compare(0, 5, "ply\r\n") == 0) {
      ReadPly(text, mesh);
    } else {
      ReadObj(text, mesh);
    }
    if (mesh->TriangleCount() == 0) Fail("no triangles found (is it an OBJ or PLY file?)");
  } catch (const MeshError& failure) {
    *error = "cannot read '" + path + "': " + failure.message;
    return false;
  }
  return true;
}

}  // namespace render
