// vtqrSH_32f and the basis blocks the transforms evaluate through the same kernels.
#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "sh/sh_basis.h"
#include "sh/sh_direct.h"
#include "sh/sh_recurrence.h"
#include "sh/sh_state.h"

VTQR_PATH_BEGIN
namespace sh {
namespace {

// Outputs at least this large go out with non-temporal stores: they cannot stay in the
// last-level cache anyway, and streaming avoids reading every destination line before it is
// overwritten. Smaller outputs keep normal stores, so a caller that reads them soon after
// finds them in cache.
constexpr uint64_t kStreamBytes = uint64_t{16} << 20;

void EvalRecurrenceMany(const VtqrSHState* state, const float* x, const float* y, const float* z,
                        int n, Vtq32u order, float* dst) {
  const float* a = state->tableA;
  const float* b = state->tableB;
  const size_t setSize = static_cast<size_t>(order + 1) * (order + 1);
  const size_t count = static_cast<size_t>(n);
  // Whole-vector stores need every set to start on a 16-byte boundary.
  const bool aligned = setSize % 4 == 0 && reinterpret_cast<uintptr_t>(dst) % 16 == 0;
  const bool stream = aligned && uint64_t{count} * setSize * sizeof(float) >= kStreamBytes;
  const Stores stores = stream ? Stores::kStream : aligned ? Stores::kAligned : Stores::kUnaligned;
  size_t i = 0;
  if (count >= kBlock) {
    WideTables wide;
    WidenTables(a, b, order, &wide);
    for (; i + 2 * kBlock <= count; i += 2 * kBlock) {
      EvalRecurrence8(wide, x + i, y + i, z + i, order, dst + i * setSize, setSize, stores);
    }
    for (; i + kBlock <= count; i += kBlock) {
      EvalRecurrence4(wide, x + i, y + i, z + i, order, dst + i * setSize, setSize, stores);
    }
  }
  if (stream) simd::StreamFence();
  for (; i < count; ++i) EvalRecurrence1(a, b, x[i], y[i], z[i], order, dst + i * setSize);
}

}  // namespace

bool CanEvaluate(const VtqrSHState* state, Vtq32u order) {
  const Vtq32u method = state->method;
  return (method == vtqrSHDirect || method == vtqrSHRecurrence) && order <= kMaxEvalOrder;
}

void EvalBasisBlock(const VtqrSHState* state, const float* x, const float* y, const float* z,
                    int count, Vtq32u order, float* dst, size_t stride) {
  if (state->method == vtqrSHDirect) {
    for (int j = 0; j < count; ++j) EvalDirect(x + j, y + j, z + j, 1, dst + j * stride, order);
    return;
  }
  if (count == kBlock) {
    const bool aligned = stride % 4 == 0 && reinterpret_cast<uintptr_t>(dst) % 16 == 0;
    EvalRecurrence4(state->tableA, state->tableB, x, y, z, order, dst, stride,
                    aligned ? Stores::kAligned : Stores::kUnaligned);
    return;
  }
  for (int j = 0; j < count; ++j) {
    EvalRecurrence1(state->tableA, state->tableB, x[j], y[j], z[j], order, dst + j * stride);
  }
}

VtqStatus CheckTransform(int n, Vtq32u order, const VtqrSHState* state) {
  if (n == 0) return vtqStsErrSize;
  if (order > state->maxOrder) return vtqStsErrBadValue;
  if (n < 0) return vtqStsOk;
  // The basis scratch holds one set of order 15. A recurrence state may be built for higher
  // orders; rather than transforming with stale basis values, such calls fail up front,
  // before anything is written. An uninitialised state (unknown method) fails the same way.
  if (!CanEvaluate(state, order)) return vtqStsErrBadValue;
  return kProceed;
}

}  // namespace sh

VtqStatus SH_32f(const Vtq32f* pX, const Vtq32f* pY, const Vtq32f* pZ, int n, Vtq32f* pDst,
                 Vtq32u order, const VtqrSHState* pState) {
  if (pX == nullptr || pY == nullptr || pZ == nullptr || pDst == nullptr || pState == nullptr) {
    return vtqStsErrNullPtr;
  }
  if (n == 0) return vtqStsErrSize;
  if (order > pState->maxOrder) return vtqStsErrBadValue;

  // Each method's kernel applies its own order limit before the count; a negative count
  // then succeeds without touching the destination.
  switch (pState->method) {
    case vtqrSHDirect:
      if (order > sh::kMaxEvalOrder) return vtqStsErrBadValue;
      if (n < 1) return vtqStsOk;
      sh::EvalDirect(pX, pY, pZ, n, pDst, order);
      return vtqStsOk;
    case vtqrSHRecurrence:
      if (static_cast<int>(order) < 0 || static_cast<int>(order) > 15) return vtqStsErrBadValue;
      if (n < 1) return vtqStsOk;
      sh::EvalRecurrenceMany(pState, pX, pY, pZ, n, order, pDst);
      return vtqStsOk;
    default:
      return vtqStsErrBadValue;  // never initialised
  }
}

VTQR_PATH_END
