// SH state: the size query and the initialisation of the record and the recurrence tables.
//
// The record sits at the start of the caller's buffer. For the recurrence method the two
// coefficient tables follow it in the same buffer, each on a 16-byte boundary, so that the
// evaluation kernels can find them through the record alone and the caller frees one block.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "sh/sh_state.h"

VTQR_PATH_BEGIN
namespace sh {

Vtq32u RecurrenceTableLength(Vtq32u order) {
  // Unsigned 32-bit like the size query; nothing wraps for the orders the state accepts.
  return (order + 1u) * (order + 2u) / 2u;
}

float* AlignUp16(void* address) {
  auto raw = reinterpret_cast<uintptr_t>(address);
  return reinterpret_cast<float*>((raw + 15u) & ~uintptr_t{15});
}

void FillRecurrenceTables(float* a, float* b, Vtq32u order) {
  // Bands 0 and 1 are closed forms; their three constants head table A. Table B has no use
  // for its first three entries (band 1 has no l-2 term), which stay at the cleared zero.
  a[0] = 0x1.20dd76p-2f;   // Y(0,0) = 1 / (2 sqrt(pi))
  a[1] = 0x1.f4543ap-2f;   // z factor of Y(1,0) = sqrt(3 / (4 pi))
  a[2] = -0x1.f4543ap-2f;  // x and y factor of Y(1,+-1), Condon-Shortley sign included

  // Each band l >= 2 owns the segment [s, s+l] of both tables, s = l(l+1)/2. The precisions
  // below are part of the results: a state built elsewhere from the same recipe must give
  // the same bits, so each entry is formed exactly as written, single or double precision.
  for (uint64_t l = 2; l <= order; ++l) {
    const size_t s = static_cast<size_t>(l * (l + 1) / 2);
    const int64_t li = static_cast<int64_t>(l);
    const int64_t fourL2Minus1 = 4 * li * li - 1;

    // Y(l,0) step: z coefficient in double, l-2 coefficient from a float quotient.
    a[s] =
        static_cast<float>(std::sqrt(static_cast<double>(fourL2Minus1)) / static_cast<double>(li));
    const float ratio0 = static_cast<float>(2 * li + 1) / static_cast<float>(2 * li - 3);
    b[s] = static_cast<float>((1.0 / static_cast<double>(li) - 1.0) *
                              std::sqrt(static_cast<double>(ratio0)));

    // Y(l,+-(l-1)) reuses the closed form sqrt(2l+1); the general loop below then rewrites
    // that entry with its own single-precision value, which is the one that stays.
    a[s + l - 1] = static_cast<float>(std::sqrt(static_cast<double>(2 * li + 1)));
    for (int64_t m = 1; m <= li - 1; ++m) {
      const int64_t l2MinusM2 = li * li - m * m;
      a[s + m] = std::sqrt(static_cast<float>(fourL2Minus1) / static_cast<float>(l2MinusM2));
      // For m = l-1 the numerator vanishes and the entry becomes -0.0; it is never read.
      const int64_t num = (2 * li + 1) * ((li - 1) * (li - 1) - m * m);
      const int64_t den = (2 * li - 3) * l2MinusM2;
      const float quotient = static_cast<float>(num) / static_cast<float>(den);
      b[s + m] = static_cast<float>(-std::sqrt(static_cast<double>(quotient)));
    }

    // Sectoral step Y(l,+-l) from Y(l-1,+-(l-1)); b[s+l] has no role and stays zero.
    a[s + l] = static_cast<float>(
        -std::sqrt(static_cast<double>(2 * li + 1) / static_cast<double>(2 * li)));
  }
}

}  // namespace sh

VtqStatus SHGetSize_32f(Vtq32u order, int method, Vtq32u* pSize) {
  if (pSize == nullptr) return vtqStsErrNullPtr;
  if (method == vtqrSHDirect) {
    if (order > sh::kMaxEvalOrder) return vtqStsErrSize;
    *pSize = sh::kDirectStateSize;
    return vtqStsOk;
  }
  if (method != vtqrSHRecurrence) return vtqStsErrBadValue;
  // Two tables of T floats, plus the record and the worst-case alignment gaps of an
  // 8-byte-aligned buffer, rounded to 32 bytes. The tables are well defined for any band (only
  // evaluation stops at 15), so the one limit on the order is that this size fits 32 bits.
  if (order > sh::kMaxRecurrenceOrder) return vtqStsErrSize;
  const Vtq32u t = sh::RecurrenceTableLength(order);
  *pSize = ((t * 8u + 30u) & ~31u) + 32u;
  return vtqStsOk;
}

VtqStatus SHInit_32f(VtqrSHState* pState, Vtq32u order, int method) {
  if (pState == nullptr) return vtqStsErrNullPtr;
  if (method == vtqrSHDirect && order > sh::kMaxEvalOrder) return vtqStsErrSize;
  if (method != vtqrSHDirect && method != vtqrSHRecurrence) return vtqStsErrBadValue;
  if (method == vtqrSHRecurrence && order > sh::kMaxRecurrenceOrder) return vtqStsErrSize;

  Vtq32u size = 0;
  SHGetSize_32f(order, method, &size);
  // Clear what the size query promised the caller's buffer holds. For the direct method that
  // is 16 bytes: the two fields and tableA. tableB lies past the end of such a buffer, so it
  // is neither written nor ever read.
  std::memset(pState, 0, size & ~1u);
  pState->maxOrder = order;
  pState->method = static_cast<Vtq32u>(method);
  if (method == vtqrSHDirect) return vtqStsOk;

  float* a = sh::AlignUp16(pState + 1);
  float* b = sh::AlignUp16(a + sh::RecurrenceTableLength(order));
  pState->tableA = a;
  pState->tableB = b;
  sh::FillRecurrenceTables(a, b, order);
  return vtqStsOk;
}

VTQR_PATH_END
