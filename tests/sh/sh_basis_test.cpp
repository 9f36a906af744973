// The SH state (size query and init checks, where init puts the tables, the orders whose size
// would wrap 32 bits) and basis evaluation with both methods: accuracy against the long-double
// reference, the batched paths, the one-band export and streamed output against one direction.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "sh/sh_test_util.h"

namespace vtqr::test {
namespace {

// Bounds in terms of N(l) = sqrt((2l+1)/(4 pi)), which bounds every |Y(l, m)|; a wrong constant,
// sign or term misses by about N(l). Direct: one float ulp for the final rounding, plus the
// rounding of x^2, y^2, z^2 to float, which moves a band-l polynomial by its slope (~l^2, Markov's
// inequality) times 2^-25: measured 0.12 l^2 units of 2^-24 N(l), allowed twice that plus 2.
// Recurrence: a few float roundings per band, each relative to values of scale N(l), and the
// recurrence in l is stable, so the error grows linearly: measured 0.7 (l+1) units of 2^-23 N(l),
// allowed 2 (l+1).
TEST(SHEval, MatchesLongDoubleReference) {
  const Directions d(3000, 11, true);
  for (int method : kMethods) {
    State state(15, method);
    for (Vtq32u order : {0u, 1u, 2u, 15u}) {
      std::vector<float> out(SetSize(order) * d.count());
      ASSERT_EQ(vtqStsOk, Eval(d.x.data(), d.y.data(), d.z.data(), d.count(), out.data(), order,
                               state.get()));
      for (int i = 0; i < d.count(); ++i) {
        const auto ref = ShReferenceSet(static_cast<int>(order), d.x[i], d.y[i], d.z[i]);
        for (int k = 0; k < static_cast<int>(ref.size()); ++k) {
          const int l = static_cast<int>(std::sqrt(k));
          const float r = std::fabs(static_cast<float>(ref[k]));
          const long double bound =
              method == vtqrSHDirect ? (std::nextafter(r, INFINITY) - r) +
                                           (l * l / 4.0L + 2.0L) * 0x1p-24L * ShNormalisation(l, 0)
                                     : 2.0L * (l + 1) * 0x1p-23L * ShNormalisation(l, 0);
          ASSERT_LE(std::fabs(out[i * ref.size() + k] - ref[k]), bound)
              << "method " << method << " Y(" << l << ", " << k - l * l - l << ") at (" << d.x[i]
              << ", " << d.y[i] << ", " << d.z[i] << ")";
        }
      }
    }
  }
}

// The recurrence runs eight or four directions side by side and the rest alone, the direct method
// pairs; each direction must get the bits it gets alone (a lower order's set being the head of the
// order-15 set) for every count, order and alignment, with nothing written outside the sets. The
// one-band export gives the direct set's slice of that band. Outputs of 16 MiB or more go out
// with non-temporal stores when the destination is 16-byte aligned: the same bits again.
TEST(SHEval, BatchesMatchOneDirection) {
  constexpr int kLarge = 16384 + 5;
  const Directions d(kLarge, 5);
  for (int method : kMethods) {
    State state(15, method);
    std::vector<float> alone(256 * 17);
    for (int i = 0; i < 17; ++i) {
      ASSERT_EQ(vtqStsOk, Eval(&d.x[i], &d.y[i], &d.z[i], 1, &alone[i * 256], 15, state.get()));
    }
    for (Vtq32u order = 0; order <= 15; ++order) {
      const size_t set = SetSize(order), width = 2 * order + 1;
      for (int n : {1, 2, 3, 4, 5, 7, 8, 9, 13, 17}) {
        for (size_t offset : {0u, 1u, 3u}) {
          AlignedFloats x(n, offset), y(n, offset + 1), z(n, 2 * offset);
          std::copy_n(d.x.begin(), n, x.begin());
          std::copy_n(d.y.begin(), n, y.begin());
          std::copy_n(d.z.begin(), n, z.begin());
          std::vector<float> out(set * n + offset + 4, Sentinel()), band(width * n + 1, Sentinel());
          ASSERT_EQ(vtqStsOk,
                    Eval(x.data(), y.data(), z.data(), n, &out[offset], order, state.get()));
          ASSERT_EQ(vtqStsOk, kDispatchTable.SHBand_32f[kPathU8](x.data(), y.data(), z.data(), n,
                                                                 band.data(), order));
          for (int i = 0; i < n; ++i) {
            ASSERT_TRUE(SameBits(&alone[i * 256], &out[offset + i * set], set) &&
                        (method != vtqrSHDirect ||
                         SameBits(&alone[i * 256 + order * order], &band[i * width], width)))
                << "method " << method << " order " << order << " n " << n << " offset " << offset
                << " at " << i;
          }
          out.erase(out.begin() + offset, out.begin() + offset + set * n);
          out.push_back(band.back());
          ASSERT_TRUE(std::all_of(out.begin(), out.end(),
                                  [](float v) { return Bits(v) == kSentinelBits; }));
        }
      }
    }
  }
  AlignedFloats streamed(kLarge * 256), cached(kLarge * 256, 1);
  State state(15, vtqrSHRecurrence);
  for (AlignedFloats *out : {&streamed, &cached}) {
    ASSERT_EQ(vtqStsOk,
              Eval(d.x.data(), d.y.data(), d.z.data(), kLarge, out->data(), 15, state.get()));
  }
  EXPECT_TRUE(SameBits(cached.data(), streamed.data(), kLarge * 256));
}

const uint8_t *Align16(const void *p) {
  return reinterpret_cast<const uint8_t *>((reinterpret_cast<uintptr_t>(p) + 15) & ~uintptr_t{15});
}

// The size query and init share their checks; a successful init stays inside the reported size
// and puts the tables at the first 16-byte boundaries after the record and after table A (their
// entries are checked by evaluation); a failed one writes nothing.
// Regression: from order 32767 up the recurrence state's size wraps 32 bits. Those orders are
// refused with vtqStsErrSize by both calls, and init writes nothing, not even into a block of
// the wrapped size; every order up to a few hundred fits a block of exactly the reported size.
TEST(SHState, InitStaysInsideTheReportedSize) {
  struct Row {
    Vtq32u order;
    int method;
    VtqStatus status;
    Vtq32u size;  // 0: not checked
  };
  constexpr int kRec = vtqrSHRecurrence;
  std::vector<Row> rows = {
      {15, vtqrSHDirect, vtqStsOk, 16},
      {16, vtqrSHDirect, vtqStsErrSize, 0},
      {0, kRec, vtqStsOk, 64},
      {2, kRec, vtqStsOk, 96},
      {15, kRec, vtqStsOk, 1120},
      {20, kRec, vtqStsOk, 1888},            // no evaluation limit for the recurrence
      {32766, kRec, vtqStsOk, 4294836256u},  // the largest size that fits
      {0xFFFFFFFFu, 2, vtqStsErrBadValue, 0},
      {16, 2, vtqStsErrBadValue, 0},  // the order limit belongs to the direct method only
      {2, -1, vtqStsErrBadValue, 0},
  };
  for (Vtq32u order : {32767u, 65535u, 65536u, 92681u, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    rows.push_back({order, kRec, vtqStsErrSize, 0});
  }
  for (Vtq32u order = 21; order <= 300; ++order) rows.push_back({order, kRec, vtqStsOk, 0});
  EXPECT_EQ(vtqStsErrNullPtr, kDispatchTable.SHGetSize_32f[kPathU8](16, 2, nullptr));
  EXPECT_EQ(vtqStsErrNullPtr, kDispatchTable.SHInit_32f[kPathU8](nullptr, 16, 2));
  for (const Row &row : rows) {
    SCOPED_TRACE(::testing::Message() << "order " << row.order << " method " << row.method);
    Vtq32u size = 0;
    EXPECT_EQ(row.status, kDispatchTable.SHGetSize_32f[kPathU8](row.order, row.method, &size));
    EXPECT_EQ(row.size != 0 || row.status != vtqStsOk ? row.size : size, size);
    const Vtq32u t = (row.order + 1u) * (row.order + 2u) / 2u;
    const size_t bytes = row.status == vtqStsOk ? size
                         : row.method == kRec   ? ((t * 8u + 30u) & ~31u) + 32u  // wrapped
                                                : 64;
    for (size_t misalign = 0; misalign <= 8 && bytes < (1u << 24); misalign += 8) {
      // 64 bytes past the reported size show a write beyond it.
      std::vector<uint8_t> block(misalign + bytes + 64, 0xAB);
      auto *state = reinterpret_cast<VtqrSHState *>(block.data() + misalign);
      ASSERT_EQ(row.status, kDispatchTable.SHInit_32f[kPathU8](state, row.order, row.method));
      const auto isFill = [](uint8_t byte) { return byte == 0xAB; };
      EXPECT_TRUE(std::all_of(row.status == vtqStsOk ? block.end() - 64 : block.begin(),
                              block.end(), isFill));
      if (row.status != vtqStsOk) continue;
      EXPECT_TRUE(state->maxOrder == row.order && state->method == Vtq32u(row.method));
      if (row.method == vtqrSHDirect) {
        EXPECT_EQ(nullptr, state->tableA);
        continue;
      }
      const uint8_t *tableA = Align16(state + 1), *tableB = Align16(tableA + 4 * t);
      EXPECT_EQ(tableA, reinterpret_cast<uint8_t *>(state->tableA));
      EXPECT_EQ(tableB, reinterpret_cast<uint8_t *>(state->tableB));
      EXPECT_LE(tableB + 4 * t, block.data() + misalign + size);
    }
  }
}

// The recurrence tables hold the documented entries, each in its stated precision: nothing else
// notices an entry computed one precision off, which moves results by an ulp, not by a bound.
TEST(SHState, TablesHoldTheDocumentedEntries) {
  State state(15, vtqrSHRecurrence);
  const float *a = state.get()->tableA, *b = state.get()->tableB;
  EXPECT_TRUE(Bits(a[0]) == 0x3E906EBB && Bits(a[1]) == 0x3EFA2A1D && Bits(a[2]) == 0xBEFA2A1D);
  EXPECT_TRUE(b[0] == 0 && b[1] == 0 && b[2] == 0);
  for (int l = 2; l <= 15; ++l) {
    const int s = l * (l + 1) / 2;
    const auto f = [](int i) { return static_cast<float>(i); };
    std::vector<float> wantA(l + 1), wantB(l + 1, 0.0f);
    wantA[0] = static_cast<float>(std::sqrt(4.0 * l * l - 1.0) / l);
    wantA[l] = static_cast<float>(-std::sqrt((2.0 * l + 1.0) / (2.0 * l)));
    wantB[0] = static_cast<float>((1.0 / l - 1.0) * std::sqrt(double{f(2 * l + 1) / f(2 * l - 3)}));
    for (int m = 1; m < l; ++m) {
      wantA[m] = std::sqrt(f(4 * l * l - 1) / f(l * l - m * m));
      wantB[m] = static_cast<float>(-std::sqrt(
          double{f((2 * l + 1) * ((l - 1) * (l - 1) - m * m)) / f((2 * l - 3) * (l * l - m * m))}));
    }
    EXPECT_TRUE(SameBits(wantA.data(), a + s, l + 1) && SameBits(wantB.data(), b + s, l + 1)) << l;
  }
}

}  // namespace
}  // namespace vtqr::test
