// KD-tree checker: structural walk over the block, then an exact coverage proof per triangle.
#include "support/kdtree_check.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <vector>

namespace vtqr {
namespace {

// Exact signs of small polynomials ------------------------------------------------------------
//
// Every geometric decision below is the sign of a polynomial of degree 2 or 3 in the float
// inputs. It is first evaluated in double with a running bound on the rounding error; only when
// the value is too close to zero for that bound does it fall back to floating-point expansions
// (Shewchuk, "Adaptive Precision Floating-Point Arithmetic and Fast Robust Geometric
// Predicates", 1997), which represent sums and products exactly.

constexpr double kUnitRoundoff = 0x1p-53;
// Absolute slack for a product that may have gone subnormal.
constexpr double kUnderflowSlack = 0x1p-1000;

// A double with a running bound on its distance from the exact value. Inputs (floats widened to
// double) start exact; each operation adds its own rounding and propagates the operands'
// bounds. The bounds are generous by a few ulps of themselves, since they are rounded too.
struct Bounded {
  double v = 0;
  double err = 0;
  Bounded() = default;
  explicit Bounded(double x) : v(x) {}
};

Bounded operator+(Bounded a, Bounded b) {
  Bounded r(a.v + b.v);
  r.err = (a.err + b.err) * (1 + 4 * kUnitRoundoff) + kUnitRoundoff * std::fabs(r.v);
  return r;
}
Bounded operator-(Bounded a, Bounded b) {
  b.v = -b.v;
  return a + b;
}
Bounded operator*(Bounded a, Bounded b) {
  Bounded r(a.v * b.v);
  r.err = (std::fabs(a.v) * b.err + std::fabs(b.v) * a.err + a.err * b.err) *
              (1 + 8 * kUnitRoundoff) +
          kUnitRoundoff * std::fabs(r.v) + kUnderflowSlack;
  return r;
}

// Error-free sum and product of two doubles (Knuth; Dekker). Needs strict IEEE evaluation,
// which the build guarantees (no contraction into fused multiply-adds).
void TwoSum(double a, double b, double* sum, double* err) {
  *sum = a + b;
  double bVirtual = *sum - a;
  double aVirtual = *sum - bVirtual;
  *err = (a - aVirtual) + (b - bVirtual);
}

void Split(double a, double* hi, double* lo) {
  constexpr double kSplitter = 134217729.0;  // 2^27 + 1
  double c = kSplitter * a;
  double big = c - a;
  *hi = c - big;
  *lo = a - *hi;
}

void TwoProduct(double a, double b, double* product, double* err) {
  *product = a * b;
  double aHi, aLo, bHi, bLo;
  Split(a, &aHi, &aLo);
  Split(b, &bHi, &bLo);
  double e1 = *product - aHi * bHi;
  double e2 = e1 - aLo * bHi;
  double e3 = e2 - aHi * bLo;
  *err = aLo * bLo - e3;
}

// A sum of non-overlapping doubles in increasing magnitude, zeros removed; its sign is the sign
// of its last term.
struct Exact {
  std::vector<double> terms;
  Exact() = default;
  explicit Exact(double x) {
    if (x != 0) terms.push_back(x);
  }
};

std::vector<double> Grow(const std::vector<double>& e, double b) {
  std::vector<double> h;
  h.reserve(e.size() + 1);
  double q = b;
  for (double term : e) {
    double sum, err;
    TwoSum(q, term, &sum, &err);
    if (err != 0) h.push_back(err);
    q = sum;
  }
  if (q != 0) h.push_back(q);
  return h;
}

std::vector<double> Scale(const std::vector<double>& e, double b) {
  std::vector<double> h;
  if (e.empty() || b == 0) return h;
  double q, err;
  TwoProduct(e[0], b, &q, &err);
  if (err != 0) h.push_back(err);
  for (size_t i = 1; i < e.size(); ++i) {
    double p1, p0, sum;
    TwoProduct(e[i], b, &p1, &p0);
    TwoSum(q, p0, &sum, &err);
    if (err != 0) h.push_back(err);
    TwoSum(p1, sum, &q, &err);
    if (err != 0) h.push_back(err);
  }
  if (q != 0) h.push_back(q);
  return h;
}

Exact operator+(const Exact& a, const Exact& b) {
  Exact r = a;
  for (double term : b.terms) r.terms = Grow(r.terms, term);
  return r;
}
Exact operator-(const Exact& a, Exact b) {
  for (double& term : b.terms) term = -term;
  return a + b;
}
Exact operator*(const Exact& a, const Exact& b) {
  Exact r;
  for (double term : b.terms) {
    Exact part;
    part.terms = Scale(a.terms, term);
    r = r + part;
  }
  return r;
}

int SignOf(double x) { return (x > 0) - (x < 0); }

// Evaluates expr (a generic lambda taking a zero of the number type) and returns the exact sign.
// Written once per predicate as a generic lambda, so the fast and the exact evaluation cannot
// drift apart. A zero error bound means every step was exact, so even a zero value is decided.
template <class Expr>
int ExactSign(const Expr& expr) {
  Bounded fast = expr(Bounded());
  if (std::fabs(fast.v) > 2 * fast.err || fast.err == 0) return SignOf(fast.v);
  Exact exact = expr(Exact());
  return exact.terms.empty() ? 0 : SignOf(exact.terms.back());
}

// Sign of (q - p) x (r - p) for 2-D points.
int Orient2D(const double p[2], const double q[2], const double r[2]) {
  return ExactSign([&](auto zero) {
    using T = decltype(zero);
    return (T(q[0]) - T(p[0])) * (T(r[1]) - T(p[1])) - (T(q[1]) - T(p[1])) * (T(r[0]) - T(p[0]));
  });
}

// Sign of ((b - a) x (c - a)) . (d - a).
int Orient3D(const double a[3], const double b[3], const double c[3], const double d[3]) {
  return ExactSign([&](auto zero) {
    using T = decltype(zero);
    T e1[3], e2[3], f[3];
    for (int i = 0; i < 3; ++i) {
      e1[i] = T(b[i]) - T(a[i]);
      e2[i] = T(c[i]) - T(a[i]);
      f[i] = T(d[i]) - T(a[i]);
    }
    return (e1[1] * e2[2] - e1[2] * e2[1]) * f[0] + (e1[2] * e2[0] - e1[0] * e2[2]) * f[1] +
           (e1[0] * e2[1] - e1[1] * e2[0]) * f[2];
  });
}

// Separating-axis tests against open boxes ----------------------------------------------------
//
// A closed triangle misses an open box exactly when one of the thirteen candidate axes (three
// box normals, the triangle normal, nine edge-by-box-axis crosses) separates them weakly: the
// facets of the Minkowski difference have only these normals. Touching a face, edge or corner
// therefore counts as a miss.

// Edge-normal axes of a 2-D triangle (possibly a segment) against the open rectangle
// [lo, hi]; the coordinate axes are the caller's business.
bool EdgeAxesSeparate2D(const double p[3][2], const double lo[2], const double hi[2]) {
  const double corners[4][2] = {{lo[0], lo[1]}, {hi[0], lo[1]}, {lo[0], hi[1]}, {hi[0], hi[1]}};
  for (int i = 0; i < 3; ++i) {
    const double* a = p[i];
    const double* b = p[(i + 1) % 3];
    const double* other = p[(i + 2) % 3];
    if (a[0] == b[0] && a[1] == b[1]) continue;  // no direction, no axis
    int side = Orient2D(a, b, other);
    bool allNonNeg = true, allNonPos = true;
    for (const auto& corner : corners) {
      int s = Orient2D(a, b, corner);
      allNonNeg &= s >= 0;
      allNonPos &= s <= 0;
    }
    // The triangle spans from the edge's line towards `other`; the rectangle must sit on the
    // opposite side, touching allowed. A collinear triangle is the line itself.
    if ((side > 0 && allNonPos) || (side < 0 && allNonNeg) ||
        (side == 0 && (allNonNeg || allNonPos))) {
      return true;
    }
  }
  return false;
}

bool TriangleMeetsOpenRect2D(const double p[3][2], const double lo[2], const double hi[2]) {
  for (int j = 0; j < 2; ++j) {
    if (lo[j] >= hi[j]) return false;
    double tMin = std::min({p[0][j], p[1][j], p[2][j]});
    double tMax = std::max({p[0][j], p[1][j], p[2][j]});
    if (tMax <= lo[j] || tMin >= hi[j]) return false;
  }
  return !EdgeAxesSeparate2D(p, lo, hi);
}

// Does the closed triangle meet the open box? The open box is what makes boundary contact a
// miss; the caller handles triangles lying flat in an axis plane separately, since they never
// meet a cell interior when their plane is a cell face.
bool TriangleMeetsOpenBox(const double v[3][3], const double lo[3], const double hi[3]) {
  for (int j = 0; j < 3; ++j) {
    if (lo[j] >= hi[j]) return false;  // a flat cell has no interior
    double tMin = std::min({v[0][j], v[1][j], v[2][j]});
    double tMax = std::max({v[0][j], v[1][j], v[2][j]});
    if (tMax <= lo[j] || tMin >= hi[j]) return false;
  }
  // Triangle normal: every corner weakly on one side of the triangle's plane.
  bool allNonNeg = true, allNonPos = true;
  for (int c = 0; c < 8; ++c) {
    const double corner[3] = {(c & 1) ? hi[0] : lo[0], (c & 2) ? hi[1] : lo[1],
                              (c & 4) ? hi[2] : lo[2]};
    int s = Orient3D(v[0], v[1], v[2], corner);
    allNonNeg &= s >= 0;
    allNonPos &= s <= 0;
  }
  if (allNonNeg || allNonPos) return false;
  // Edge x box axis j: the edge normals of the triangle projected along axis j.
  for (int j = 0; j < 3; ++j) {
    int a = (j + 1) % 3, b = (j + 2) % 3;
    const double p[3][2] = {{v[0][a], v[0][b]}, {v[1][a], v[1][b]}, {v[2][a], v[2][b]}};
    const double rectLo[2] = {lo[a], lo[b]}, rectHi[2] = {hi[a], hi[b]};
    if (EdgeAxesSeparate2D(p, rectLo, rectHi)) return false;
  }
  return true;
}

// Tree walk -----------------------------------------------------------------------------------

// Cells are kept in double: they are bounded by float split values and float box coordinates,
// so every coordinate is exact and the predicates above see the same numbers as the tree.
struct Box {
  double lo[3];
  double hi[3];
};

double HalfArea(const Box& box) {
  double d[3];
  for (int j = 0; j < 3; ++j) d[j] = std::max(0.0, box.hi[j] - box.lo[j]);
  return d[0] * d[1] + d[1] * d[2] + d[2] * d[0];
}

struct Triangle {
  double v[3][3];
};

struct Node {
  int axis = -1;  // -1: leaf
  double split = 0;
  int64_t lowerChild = -1;  // index in the node vector; the upper child follows it
  int64_t leaf = -1;        // index in the leaf vector
};

struct Leaf {
  int64_t offset;
  int depth;
  Box cell;
  std::vector<int32_t> triangles;  // sorted, duplicates removed
};

std::string Describe(const Box& box) {
  std::ostringstream out;
  out << "[" << box.lo[0] << ", " << box.lo[1] << ", " << box.lo[2] << "] - [" << box.hi[0] << ", "
      << box.hi[1] << ", " << box.hi[2] << "]";
  return out.str();
}

// Reads the block once into an index of nodes and leaves (structure), then answers per
// triangle which leaves it must appear in (coverage). The structural pass never follows an
// offset before checking it against the block, so a broken tree yields a message, not a crash.
class Checker {
 public:
  Checker(const VtqrKDTreeNode* tree, int64_t treeSize, const KDTreeMesh& mesh,
          const KDTreeCheckOptions& options)
      : base_(reinterpret_cast<const unsigned char*>(tree)),
        size_(treeSize),
        mesh_(mesh),
        options_(options) {}

  std::string Run(KDTreeStats* stats) {
    if (base_ == nullptr) return "tree pointer is null";
    if (size_ < 8) {
      Fail() << "tree block of " << size_ << " bytes holds no root node";
      Failed();
      return error_;
    }
    if (mesh_.triCount < 0) return "negative triangle count";
    bool needMesh = options_.checkCoverage || options_.rootBox == nullptr;
    if (needMesh && mesh_.triCount > 0 && (mesh_.vert == nullptr || mesh_.triIndex == nullptr)) {
      return "mesh pointers are null";
    }
    if (needMesh && !ReadTriangles()) return error_;
    SetRootBox();
    if (!Walk()) {
      if (stats != nullptr) *stats = stats_;
      return error_;
    }
    FinishStats();
    if (stats != nullptr) *stats = stats_;
    if (options_.checkCoverage) {
      for (int32_t t = 0; t < mesh_.triCount; ++t) {
        if (!CheckTriangle(t)) return error_;
      }
    }
    return std::string();
  }

 private:
  // Starts an error message; the first one sticks.
  std::ostringstream& Fail() {
    message_.str("");
    return message_;
  }
  bool Failed() {
    error_ = message_.str();
    return false;
  }

  // Triangles are read once, widened to double. Triangles the ray test can never report (zero
  // area, non-finite coordinates) are marked unusable and exempt from coverage.
  bool ReadTriangles() {
    vertices_.resize(static_cast<size_t>(mesh_.triCount));
    usable_.assign(static_cast<size_t>(mesh_.triCount), false);
    for (int32_t t = 0; t < mesh_.triCount; ++t) {
      bool finite = true;
      for (int i = 0; i < 3; ++i) {
        int32_t vi = mesh_.triIndex[4 * static_cast<int64_t>(t) + i];
        if (vi < 0 || vi >= mesh_.vertCount) {
          Fail() << "triangle " << t << " names vertex " << vi << ", outside the "
                 << mesh_.vertCount << " vertices";
          return Failed();
        }
        for (int j = 0; j < 3; ++j) {
          double x = mesh_.vert[3 * static_cast<int64_t>(vi) + j];
          finite &= std::isfinite(x);
          vertices_[t].v[i][j] = x;
        }
      }
      usable_[t] = finite && !ZeroArea(vertices_[t].v);
    }
    return true;
  }

  // Zero area exactly: all three projections of the normal vanish.
  static bool ZeroArea(const double v[3][3]) {
    for (int j = 0; j < 3; ++j) {
      int a = (j + 1) % 3, b = (j + 2) % 3;
      const double p[3][2] = {{v[0][a], v[0][b]}, {v[1][a], v[1][b]}, {v[2][a], v[2][b]}};
      if (Orient2D(p[0], p[1], p[2]) != 0) return false;
    }
    return true;
  }

  // Triangles lie inside the bounds of their own vertices, so any larger root box cuts the same
  // triangle pieces into the same leaves; only the cost figures change with it.
  void SetRootBox() {
    if (options_.rootBox != nullptr) {
      for (int j = 0; j < 3; ++j) {
        root_.lo[j] = options_.rootBox[j];
        root_.hi[j] = options_.rootBox[j + 3];
      }
      return;
    }
    bool any = false;
    for (int j = 0; j < 3; ++j) root_.lo[j] = root_.hi[j] = 0;
    for (int32_t t = 0; t < mesh_.triCount; ++t) {
      if (!usable_[t]) continue;
      for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
          double x = vertices_[t].v[i][j];
          root_.lo[j] = any ? std::min(root_.lo[j], x) : x;
          root_.hi[j] = any ? std::max(root_.hi[j], x) : x;
        }
        any = true;
      }
    }
  }

  bool ReadNode(int64_t offset, VtqrKDTreeNode* node) const {
    if (offset < 0 || offset > size_ - int64_t{sizeof(VtqrKDTreeNode)}) return false;
    std::memcpy(node, base_ + offset, sizeof(VtqrKDTreeNode));
    return true;
  }

  // Reads every node reachable from the root, depth first, recording cells and leaf lists. A
  // node seen twice means two parents share children or an offset loops back; both would make
  // the traversal revisit cells, and a loop would never end, so either is a fault.
  bool Walk() {
    struct Pending {
      int64_t offset;
      int depth;
      Box cell;
      int64_t index;
    };
    std::vector<uint8_t> seen(static_cast<size_t>(size_ / 8) + 1, 0);
    std::vector<Pending> stack{{0, 0, root_, 0}};
    nodes_.assign(1, Node());
    std::vector<int64_t> nodeOffsets;
    std::vector<std::pair<int64_t, int64_t>> lists;  // byte ranges of out-of-line lists
    while (!stack.empty()) {
      Pending item = stack.back();
      stack.pop_back();
      VtqrKDTreeNode node;
      if (!ReadNode(item.offset, &node)) {
        Fail() << "node at byte offset " << item.offset << " (depth " << item.depth
               << ") lies outside the " << size_ << "-byte block";
        return Failed();
      }
      if (seen[static_cast<size_t>(item.offset / 8)]) {
        Fail() << "node at byte offset " << item.offset << " is reached twice (shared or cyclic)";
        return Failed();
      }
      seen[static_cast<size_t>(item.offset / 8)] = 1;
      nodeOffsets.push_back(item.offset);
      ++stats_.nodes;
      if (item.depth > static_cast<int64_t>(options_.maxDepth)) {
        Fail() << "node at byte offset " << item.offset << " has depth " << item.depth
               << ", deeper than the limit " << options_.maxDepth;
        return Failed();
      }
      double area = HalfArea(item.cell);
      if (!kdnode::IsLeaf(node)) {
        int axis = kdnode::SplitAxis(node);
        float split = kdnode::SplitPosition(node);
        int64_t childOffset = item.offset + kdnode::ChildOffset(node);
        if (axis == 3) {
          Fail() << "interior node at byte offset " << item.offset << " names axis 3";
          return Failed();
        }
        if (std::isnan(split)) {
          Fail() << "interior node at byte offset " << item.offset << " splits at NaN";
          return Failed();
        }
        if (childOffset > size_ - 16) {
          Fail() << "interior node at byte offset " << item.offset << " has its children at "
                 << childOffset << ", past the end of the " << size_ << "-byte block";
          return Failed();
        }
        ++stats_.interiorNodes;
        interiorArea_ += area;
        // Child cells are clipped to the parent: a split outside the cell leaves one child
        // with an empty (inverted) cell and the other with the whole parent cell.
        Box lower = item.cell, upper = item.cell;
        lower.hi[axis] = std::min(item.cell.hi[axis], static_cast<double>(split));
        upper.lo[axis] = std::max(item.cell.lo[axis], static_cast<double>(split));
        int64_t lowerIndex = static_cast<int64_t>(nodes_.size());
        nodes_.resize(nodes_.size() + 2);
        Node& read = nodes_[static_cast<size_t>(item.index)];
        read.axis = axis;
        read.split = split;
        read.lowerChild = lowerIndex;
        // Push the upper child first so the lower one is read first, as the builder lays out.
        stack.push_back({childOffset + 8, item.depth + 1, upper, lowerIndex + 1});
        stack.push_back({childOffset, item.depth + 1, lower, lowerIndex});
        continue;
      }
      Leaf leaf{item.offset, item.depth, item.cell, {}};
      if (!ReadLeafList(item.offset, node, &leaf.triangles, &lists)) return false;
      ++stats_.leaves;
      stats_.maxDepth = std::max(stats_.maxDepth, item.depth);
      stats_.triangleRefs += static_cast<int64_t>(leaf.triangles.size());
      leafArea_ += area * static_cast<double>(leaf.triangles.size());
      if (leaf.triangles.empty()) ++stats_.emptyLeaves;
      if (kdnode::KindOfLeaf(node) == kdnode::LeafKind::kCompact) ++stats_.compactLeaves;
      std::sort(leaf.triangles.begin(), leaf.triangles.end());
      leaf.triangles.erase(std::unique(leaf.triangles.begin(), leaf.triangles.end()),
                           leaf.triangles.end());
      nodes_[static_cast<size_t>(item.index)].leaf = static_cast<int64_t>(leaves_.size());
      leaves_.push_back(std::move(leaf));
    }
    return ListsClearOfNodes(std::move(nodeOffsets), lists) && IndicesInRange();
  }

  // Reads the three leaf kinds. Offsets are widened to 64 bits before any arithmetic, so a list
  // length or distance near the int32 limits cannot wrap into the block.
  bool ReadLeafList(int64_t offset, VtqrKDTreeNode leaf, std::vector<int32_t>* out,
                    std::vector<std::pair<int64_t, int64_t>>* lists) {
    switch (kdnode::KindOfLeaf(leaf)) {
      case kdnode::LeafKind::kEmpty:
        return true;
      case kdnode::LeafKind::kList: {
        int64_t listOffset = kdnode::ListOffset(leaf);
        int64_t count = kdnode::ListCount(leaf);
        int64_t start = offset + listOffset;
        int64_t end = start + 4 * count;
        if (listOffset % 4 != 0) {
          Fail() << "leaf at byte offset " << offset << " points to a list at distance "
                 << listOffset << ", which is not a multiple of 4";
          return Failed();
        }
        if (end > size_) {
          Fail() << "leaf at byte offset " << offset << " lists " << count << " triangles at "
                 << start << ", running past the end of the " << size_ << "-byte block";
          return Failed();
        }
        lists->push_back({start, end});
        out->resize(static_cast<size_t>(count));
        std::memcpy(out->data(), base_ + start, 4 * static_cast<size_t>(count));
        return true;
      }
      case kdnode::LeafKind::kCompact:
        break;
    }
    int count = kdnode::CompactCount(leaf);
    if (count == 0) {
      Fail() << "compact leaf at byte offset " << offset << " has a count of 0";
      return Failed();
    }
    // Decoding cannot overflow: the numbers are at most 2^29 + 2^16 in magnitude.
    int32_t ids[3];
    kdnode::DecodeCompact(leaf, ids);
    for (int i = 0; i < count; ++i) {
      if (ids[i] < 0) {
        Fail() << "compact leaf at byte offset " << offset << " decodes to index " << ids[i];
        return Failed();
      }
      out->push_back(ids[i]);
    }
    return true;
  }

  // Run after ListsClearOfNodes(): a list lying over nodes is the fault to report, not the
  // node words it then reads as indices.
  bool IndicesInRange() {
    for (const Leaf& leaf : leaves_) {
      for (int32_t index : leaf.triangles) {
        if (index < 0 || index >= mesh_.triCount) {
          Fail() << "leaf at byte offset " << leaf.offset << " lists triangle " << index
                 << ", outside the " << mesh_.triCount << " triangles";
          return Failed();
        }
      }
    }
    return true;
  }

  // An index list written over a node would be read as both.
  bool ListsClearOfNodes(std::vector<int64_t> nodeOffsets,
                         const std::vector<std::pair<int64_t, int64_t>>& lists) {
    std::sort(nodeOffsets.begin(), nodeOffsets.end());
    for (const auto& [start, end] : lists) {
      auto hit = std::lower_bound(nodeOffsets.begin(), nodeOffsets.end(), start - 7);
      if (hit != nodeOffsets.end() && *hit < end) {
        Fail() << "triangle list at bytes " << start << ".." << end << " overlaps the node at "
               << *hit;
        return Failed();
      }
    }
    return true;
  }

  void FinishStats() {
    int64_t filled = stats_.leaves - stats_.emptyLeaves;
    stats_.averageLeafSize = filled > 0 ? static_cast<double>(stats_.triangleRefs) / filled : 0;
    double rootArea = HalfArea(root_);
    if (rootArea > 0) {
      stats_.expectedTraversals = interiorArea_ / rootArea;
      stats_.expectedTriangleTests = leafArea_ / rootArea;
    }
    stats_.sahCost = stats_.expectedTraversals + stats_.expectedTriangleTests;
  }

  bool Lists(const Leaf& leaf, int32_t t) const {
    return std::binary_search(leaf.triangles.begin(), leaf.triangles.end(), t);
  }

  // Collects the leaves whose closed cell meets the triangle's bounding box. This only prunes:
  // it may return leaves the triangle misses, and the exact tests decide about each one.
  void LeavesNear(const double tMin[3], const double tMax[3], std::vector<const Leaf*>* out) {
    struct Pending {
      int64_t index;
      Box cell;
    };
    std::vector<Pending> stack{{0, root_}};
    while (!stack.empty()) {
      Pending item = stack.back();
      stack.pop_back();
      bool touches = true;
      for (int j = 0; j < 3; ++j) {
        touches &= item.cell.lo[j] <= tMax[j] && tMin[j] <= item.cell.hi[j];
      }
      if (!touches) continue;
      const Node& node = nodes_[static_cast<size_t>(item.index)];
      if (node.axis < 0) {
        out->push_back(&leaves_[static_cast<size_t>(node.leaf)]);
        continue;
      }
      Box lower = item.cell, upper = item.cell;
      lower.hi[node.axis] = std::min(item.cell.hi[node.axis], node.split);
      upper.lo[node.axis] = std::max(item.cell.lo[node.axis], node.split);
      stack.push_back({node.lowerChild + 1, upper});
      stack.push_back({node.lowerChild, lower});
    }
  }

  // A triangle that is not flat in any axis plane meets each cell boundary plane in a segment at
  // most, so the points it shares with no cell interior have zero area: listing it in every
  // leaf whose open cell it meets is exactly what covering it takes.
  bool CheckTriangle(int32_t t) {
    if (!usable_[t]) return true;
    const double(&v)[3][3] = vertices_[t].v;
    double tMin[3], tMax[3];
    int flatAxis = -1;
    for (int j = 0; j < 3; ++j) {
      tMin[j] = std::min({v[0][j], v[1][j], v[2][j]});
      tMax[j] = std::max({v[0][j], v[1][j], v[2][j]});
      if (tMin[j] == tMax[j]) flatAxis = j;
    }
    std::vector<const Leaf*> near;
    LeavesNear(tMin, tMax, &near);
    if (flatAxis >= 0) return CheckFlatTriangle(t, flatAxis, near);
    for (const Leaf* leaf : near) {
      if (!Lists(*leaf, t) && TriangleMeetsOpenBox(v, leaf->cell.lo, leaf->cell.hi)) {
        Fail() << "triangle " << t << " crosses the cell " << Describe(leaf->cell)
               << " of the leaf at byte offset " << leaf->offset << " (depth " << leaf->depth
               << ") but is not listed there";
        return Failed();
      }
    }
    return true;
  }

  // A triangle in the plane x[axis] = c: the closed 2-D rectangles of the listing leaves whose
  // cells reach that plane must cover it, up to zero area. Their edges cut the triangle's box
  // into a grid; every grid cell that the triangle meets must lie in one listing rectangle.
  bool CheckFlatTriangle(int32_t t, int axis, const std::vector<const Leaf*>& near) {
    const double(&v)[3][3] = vertices_[t].v;
    double c = v[0][axis];
    if (c < root_.lo[axis] || c > root_.hi[axis]) return true;  // no ray reaches it
    int a = (axis + 1) % 3, b = (axis + 2) % 3;
    const double p[3][2] = {{v[0][a], v[0][b]}, {v[1][a], v[1][b]}, {v[2][a], v[2][b]}};
    std::vector<const Leaf*> listing;
    for (const Leaf* leaf : near) {
      if (Lists(*leaf, t) && leaf->cell.lo[axis] <= c && c <= leaf->cell.hi[axis]) {
        listing.push_back(leaf);
      }
    }
    // Grid lines: the triangle's 2-D box clipped to the root box, and every listing edge in it.
    std::vector<double> cuts[2];
    const int dims[2] = {a, b};
    for (int k = 0; k < 2; ++k) {
      int d = dims[k];
      double lo = std::max(std::min({p[0][k], p[1][k], p[2][k]}), root_.lo[d]);
      double hi = std::min(std::max({p[0][k], p[1][k], p[2][k]}), root_.hi[d]);
      if (!(lo < hi)) return true;
      cuts[k] = {lo, hi};
      for (const Leaf* leaf : listing) {
        for (double x : {leaf->cell.lo[d], leaf->cell.hi[d]}) {
          if (lo < x && x < hi) cuts[k].push_back(x);
        }
      }
      std::sort(cuts[k].begin(), cuts[k].end());
      cuts[k].erase(std::unique(cuts[k].begin(), cuts[k].end()), cuts[k].end());
    }
    for (size_t i = 0; i + 1 < cuts[0].size(); ++i) {
      for (size_t j = 0; j + 1 < cuts[1].size(); ++j) {
        const double lo[2] = {cuts[0][i], cuts[1][j]};
        const double hi[2] = {cuts[0][i + 1], cuts[1][j + 1]};
        if (!TriangleMeetsOpenRect2D(p, lo, hi)) continue;
        bool covered = std::any_of(listing.begin(), listing.end(), [&](const Leaf* leaf) {
          return leaf->cell.lo[a] <= lo[0] && hi[0] <= leaf->cell.hi[a] &&
                 leaf->cell.lo[b] <= lo[1] && hi[1] <= leaf->cell.hi[b];
        });
        if (!covered) {
          const char* axisName = "xyz";
          Fail() << "triangle " << t << ", flat in " << axisName[axis] << " = " << c
                 << ", is listed by no leaf on either side of the plane around (" << axisName[a]
                 << ", " << axisName[b] << ") in [" << lo[0] << ", " << hi[0] << "] x [" << lo[1]
                 << ", " << hi[1] << "]";
          return Failed();
        }
      }
    }
    return true;
  }

  const unsigned char* base_;
  int64_t size_;
  KDTreeMesh mesh_;
  KDTreeCheckOptions options_;
  KDTreeStats stats_;
  Box root_{};
  double interiorArea_ = 0;
  double leafArea_ = 0;
  std::vector<Node> nodes_;
  std::vector<Leaf> leaves_;
  std::vector<Triangle> vertices_;
  std::vector<bool> usable_;
  std::ostringstream message_;
  std::string error_;
};

}  // namespace

std::string CheckKDTree(const VtqrKDTreeNode* tree, int64_t treeSize, const KDTreeMesh& mesh,
                        const KDTreeCheckOptions& options, KDTreeStats* stats) {
  Checker checker(tree, treeSize, mesh, options);
  return checker.Run(stats);
}

}  // namespace vtqr
