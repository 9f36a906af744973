// Recurrence evaluation of the SH basis on the tables of a recurrence state.
//
// Two forms with identical results: one direction at a time, working in the destination set,
// and four directions side by side in SSE lanes. Every lane runs the one-direction code's
// operations in the same order, so both produce the same bits for any direction.
#ifndef VTQR_SH_SH_RECURRENCE_H_
#define VTQR_SH_SH_RECURRENCE_H_

#include <xmmintrin.h>

#include <cstddef>

#include "frame/code_path.h"
#include "simd/stores.h"

VTQR_PATH_BEGIN
namespace sh {

using simd::Stores;

// Writes the (order+1)^2 values of direction (x, y, z) to dst, order <= 15. Bands l-1 and l-2
// are read back from dst while band l is formed, so dst is output and working store at once.
void EvalRecurrence1(const float* a, const float* b, float x, float y, float z, unsigned order,
                     float* dst);

// The four-wide forms write whole vectors of a set to the destination with the store policy
// `stores` names. Aligned and streaming stores need dst 16-byte aligned and stride a multiple
// of 4 (then (order+1)^2 is one too, or the set's odd tail goes out value by value).
// Table entries of order 15, the highest the four-wide forms evaluate.
inline constexpr size_t kWideTableLength = 16 * 17 / 2;

// The tables A and B with every entry repeated in all four lanes. Broadcasting an entry takes
// a load and a shuffle, and the inner loop needs two per step; over a call of many directions
// widening the tables once removes that work from every step.
struct WideTables {
  __m128 a[kWideTableLength];
  __m128 b[kWideTableLength];
};

// Fills the first (order+1)(order+2)/2 entries of `wide` from a and b, order <= 15.
void WidenTables(const float* a, const float* b, unsigned order, WideTables* wide);

// Writes the sets of the four directions x[0..3], y[0..3], z[0..3] to dst + j*stride,
// j = 0..3, order <= 15. With Stores::kStream the sets go out with non-temporal stores and the
// caller issues the store fence after its last block.
void EvalRecurrence4(const float* a, const float* b, const float* x, const float* y, const float* z,
                     unsigned order, float* dst, size_t stride, Stores stores);

// The same from widened tables, which must cover `order`.
void EvalRecurrence4(const WideTables& wide, const float* x, const float* y, const float* z,
                     unsigned order, float* dst, size_t stride, Stores stores);

// The same for eight directions, x[0..7] and so on, sets at dst + j*stride, j = 0..7: two
// groups of four share each table entry and loop step.
void EvalRecurrence8(const WideTables& wide, const float* x, const float* y, const float* z,
                     unsigned order, float* dst, size_t stride, Stores stores);

}  // namespace sh
VTQR_PATH_END

#endif  // VTQR_SH_SH_RECURRENCE_H_
