// Declarations of every kernel in both code-path namespaces. Kernel sources include this header
// so that a definition whose signature drifts from its export fails to compile.
#ifndef VTQR_FRAME_KERNELS_H_
#define VTQR_FRAME_KERNELS_H_

#include "exports.h"

#define VTQR_DECLARE_KERNEL(name, columns, ret, params, args) ret name params;

namespace vtqr::u8 {
VTQR_FOR_EACH_EXPORT(VTQR_DECLARE_KERNEL)
}  // namespace vtqr::u8

namespace vtqr::n8 {
VTQR_FOR_EACH_EXPORT(VTQR_DECLARE_KERNEL)
}  // namespace vtqr::n8

#undef VTQR_DECLARE_KERNEL

#endif  // VTQR_FRAME_KERNELS_H_
