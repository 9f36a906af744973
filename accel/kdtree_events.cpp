// Presorted event lists of large nodes (after Wald and Havran, "On building fast kd-trees for
// ray tracing, and on doing that in O(N log N)", 2006). Each axis keeps the node's triangle
// starts and ends in two lists sorted once at the root; a split hands every list on to the
// children in order, so no node sorts again and a level of the tree costs O(N).
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "accel/kdtree_events.h"

VTQR_PATH_BEGIN
namespace kdtree {
namespace {

// Float bits mapped so that unsigned order is float order.
inline uint32_t OrderedBits(float x) {
  uint32_t bits = std::bit_cast<uint32_t>(x);
  return bits ^ ((bits >> 31) != 0 ? 0xFFFFFFFFu : 0x80000000u);
}

// Stable least-significant-digit radix sort on the key, three passes of 11 bits.
void RadixSort(Event* events, Event* scratch, size_t count) {
  constexpr int kDigitBits = 11;
  constexpr uint32_t kDigits = 1u << kDigitBits;
  Event* from = events;
  Event* to = scratch;
  for (int shift = 0; shift < 32; shift += kDigitBits) {
    size_t histogram[kDigits] = {};
    for (size_t i = 0; i < count; ++i)
      ++histogram[(OrderedBits(from[i].key) >> shift) & (kDigits - 1)];
    size_t sum = 0;
    for (uint32_t d = 0; d < kDigits; ++d) {
      size_t n = histogram[d];
      histogram[d] = sum;
      sum += n;
    }
    for (size_t i = 0; i < count; ++i) {
      to[histogram[(OrderedBits(from[i].key) >> shift) & (kDigits - 1)]++] = from[i];
    }
    std::swap(from, to);
  }
  // Three passes leave the result in the scratch buffer.
  std::memcpy(events, from, count * sizeof(Event));
}

// A polygon while it is clipped: a triangle gains at most one corner per plane, so nine suffice;
// the spare room covers corners that rounding might add.
struct Polygon {
  static constexpr int kCapacity = 16;
  double p[kCapacity][3];
  int count = 0;
};

// Keeps the part of `in` on the inner side of the plane x[axis] = plane: below it when `keepBelow`
// (Sutherland and Hodgman's polygon clipping, one plane at a time). Returns false when the
// polygon would outgrow its capacity.
bool ClipToPlane(const Polygon& in, int axis, double plane, bool keepBelow, Polygon* out) {
  out->count = 0;
  for (int i = 0; i < in.count; ++i) {
    const double* p = in.p[i];
    const double* q = in.p[i + 1 == in.count ? 0 : i + 1];
    // Signed distances, positive inside.
    double dp = keepBelow ? plane - p[axis] : p[axis] - plane;
    double dq = keepBelow ? plane - q[axis] : q[axis] - plane;
    if (out->count + 2 > Polygon::kCapacity) return false;
    if (dp >= 0) std::memcpy(out->p[out->count++], p, sizeof(out->p[0]));
    if ((dp > 0 && dq < 0) || (dp < 0 && dq > 0)) {
      double t = dp / (dp - dq);
      double* r = out->p[out->count++];
      for (int k = 0; k < 3; ++k) r[k] = p[k] + t * (q[k] - p[k]);
      // The crossing lies in the plane; saying so exactly keeps later planes from seeing it
      // a rounding error outside.
      r[axis] = plane;
    }
  }
  return true;
}

// The largest float not above x, and the smallest not below it.
float FloatDown(double x) {
  float f = static_cast<float>(x);
  return static_cast<double>(f) > x ? std::nextafter(f, -INFINITY) : f;
}
float FloatUp(double x) {
  float f = static_cast<float>(x);
  return static_cast<double>(f) < x ? std::nextafter(f, INFINITY) : f;
}

}  // namespace

bool ClipTriangle(const float* a, const float* b, const float* c, const Box& box, const Box& cell,
                  Box* clipped) {
  // Every clipped corner is off by a few double roundings of the largest magnitude in play.
  // Clipping against the cell grown by a margin far above that error, and growing the result
  // by it again, keeps the bounds conservative: a triangle is dropped only when it misses the
  // cell by more than any rounding, and the points lost by a misplaced crossing lie outside the
  // cell. The margin (2^-36 of the magnitude) is still far below a float's resolution, so the
  // outward rounding to float swallows it.
  double magnitude = 0;
  for (int k = 0; k < 3; ++k) {
    for (double x :
         {double(a[k]), double(b[k]), double(c[k]), double(cell.lo[k]), double(cell.hi[k])}) {
      magnitude = std::max(magnitude, std::fabs(x));
    }
  }
  double margin = std::ldexp(magnitude, -36);
  Polygon polygons[2];
  Polygon* in = &polygons[0];
  Polygon* out = &polygons[1];
  in->count = 3;
  for (int k = 0; k < 3; ++k) {
    in->p[0][k] = a[k];
    in->p[1][k] = b[k];
    in->p[2][k] = c[k];
  }
  for (int axis = 0; axis < 3; ++axis) {
    for (bool keepBelow : {false, true}) {
      double plane = keepBelow ? cell.hi[axis] + margin : cell.lo[axis] - margin;
      // A polygon that rounding made too ragged to follow keeps its plain bounds.
      if (!ClipToPlane(*in, axis, plane, keepBelow, out)) {
        *clipped = box;
        return true;
      }
      if (out->count == 0) return false;
      std::swap(in, out);
    }
  }
  for (int axis = 0; axis < 3; ++axis) {
    double lo = in->p[0][axis];
    double hi = lo;
    for (int i = 1; i < in->count; ++i) {
      lo = std::min(lo, in->p[i][axis]);
      hi = std::max(hi, in->p[i][axis]);
    }
    // Never looser than the triangle's own bounds, which also keeps a flat triangle flat. Adding
    // +0 keeps -0 out of the keys, as at the root.
    clipped->lo[axis] = std::max(box.lo[axis], FloatDown(lo - margin)) + 0.0f;
    clipped->hi[axis] = std::min(box.hi[axis], FloatUp(hi + margin)) + 0.0f;
  }
  return true;
}

void ClippedEvents(const ClippedTriangle* clipped, int count, Event* lists) {
  auto byKey = [](const Event& x, const Event& y) { return x.key < y.key; };
  for (int axis = 0; axis < 3; ++axis) {
    Event* starts = AxisStarts(lists, count, axis);
    Event* ends = starts + count;
    for (int i = 0; i < count; ++i) {
      const ClippedTriangle& t = clipped[i];
      uint32_t tri = t.tri | ((t.flatAxes >> axis) & 1 ? kFlatBit : 0u);
      starts[i] = {t.box.lo[axis], tri};
      ends[i] = {t.box.hi[axis], tri};
    }
    // Only the clipped triangles' own events: O(k log k) for k of them.
    std::sort(starts, starts + count, byKey);
    std::sort(ends, ends + count, byKey);
  }
}

void MergeEventLists(const Event* a, int countA, const Event* b, int countB, Event* out) {
  auto byKey = [](const Event& x, const Event& y) { return x.key < y.key; };
  for (int list = 0; list < kListsPerNode; ++list) {
    const Event* fromA = a + list * size_t(countA);
    const Event* fromB = b + list * size_t(countB);
    std::merge(fromA, fromA + countA, fromB, fromB + countB, out + list * size_t(countA + countB),
               byKey);
  }
}

void BuildRootEvents(const Box* boxes, const int32_t* ids, int count, Event* lists,
                     Event* scratch) {
  for (int axis = 0; axis < 3; ++axis) {
    Event* starts = AxisStarts(lists, count, axis);
    Event* ends = starts + count;
    for (int i = 0; i < count; ++i) {
      const Box& box = boxes[ids[i]];
      uint32_t flat = box.lo[axis] == box.hi[axis] ? kFlatBit : 0u;
      starts[i] = {box.lo[axis], static_cast<uint32_t>(ids[i]) | flat};
      ends[i] = {box.hi[axis], static_cast<uint32_t>(ids[i]) | flat};
    }
    RadixSort(starts, scratch, count);
    RadixSort(ends, scratch, count);
  }
}

AxisSplit SearchAxisEvents(const Event* starts, const Event* ends, int count, const Box& cell,
                           int axis, double leafCost) {
  AxisSearch search(MakeAxisFrame(cell, axis, count));
  float lo = cell.lo[axis];
  float hi = cell.hi[axis];
  auto start = [&](int i) { return std::max(lo, starts[i].key); };
  auto end = [&](int i) { return std::min(hi, ends[i].key); };
  if (count > 0 && search.TryEmptySpace(start(0), end(count - 1))) {
    return search.Result(leafCost);
  }
  // Flat triangles in the cell's faces sit at the front of the starts and the back of the ends.
  int flatAtLo = 0;
  for (int i = 0; i < count && start(i) == lo; ++i) flatAtLo += (starts[i].tri & kFlatBit) != 0;
  int flatAtHi = 0;
  for (int i = count - 1; i >= 0 && end(i) == hi; --i) flatAtHi += (ends[i].tri & kFlatBit) != 0;
  search.FlatCandidates(flatAtLo, flatAtHi);

  // Merge the two lists position by position. A flat triangle appears in both; it is counted
  // once, as lying in the plane, from the starts.
  int i = 0;
  int j = 0;
  while (i < count || j < count) {
    float x = i < count ? start(i) : hi;
    if (j < count) x = std::min(x, end(j));
    int endsAt = 0;
    int planarAt = 0;
    int startsAt = 0;
    for (; j < count && end(j) == x; ++j) endsAt += (ends[j].tri & kFlatBit) == 0;
    for (; i < count && start(i) == x; ++i) {
      bool flat = (starts[i].tri & kFlatBit) != 0;
      planarAt += flat;
      startsAt += !flat;
    }
    search.Position(x, endsAt, planarAt, startsAt);
  }
  return search.Result(leafCost);
}

void SplitEventLists(const Event* lists, int count, const uint8_t* side, Event* upper,
                     int upperCount, Event* lower, int lowerCount) {
  // Every event is stored and the cursor advances only when it belongs: no branch to
  // mispredict. The stray store past a list's end lands on the next list's first slot, which is
  // written afterwards, or on the one spare event behind the last list (the upper child's lists
  // lie in front of the lower child's, so the upper pass runs first).
  for (int pass = 0; pass < 2; ++pass) {
    Event* out = pass == 0 ? upper : lower;
    size_t outCount = size_t(pass == 0 ? upperCount : lowerCount);
    // The cursor steps by this child's side bit shifted down to bit 0 (shifting measured a few
    // percent faster than testing the bit).
    int shift = std::countr_zero(pass == 0 ? kSideAbove : kSideBelow);
    if (out == nullptr) continue;
    for (int list = 0; list < kListsPerNode; ++list) {
      const Event* from = lists + list * size_t(count);
      Event* to = out + list * outCount;
      for (int i = 0; i < count; ++i) {
        *to = from[i];
        to += (side[from[i].tri & ~kFlatBit] >> shift) & 1;
      }
    }
  }
}

}  // namespace kdtree
VTQR_PATH_END
