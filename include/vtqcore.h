/* vtqcore: the core library shared by the vtq family of performance libraries.
 *
 * It answers three questions for every library of the family: which processor features may be
 * used, how memory that kernels hand back to the caller is allocated, and how many threads a
 * kernel may use. Everything here is thread-safe.
 */
#ifndef VTQCORE_H
#define VTQCORE_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define VTQ_API __attribute__((visibility("default")))
#else
#define VTQ_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Processor features ---------------------------------------------------------------------- */

/* Bits of the feature mask. 0x10 (SSSE3) and 0x20 (MOVBE) choose the code path of the
 * libraries; the other bits are informational. */
#define VTQ_CPU_MMX 0x1ull
#define VTQ_CPU_SSE 0x2ull
#define VTQ_CPU_SSE2 0x4ull
#define VTQ_CPU_SSE3 0x8ull
#define VTQ_CPU_SSSE3 0x10ull
#define VTQ_CPU_MOVBE 0x20ull
#define VTQ_CPU_SSE41 0x40ull
#define VTQ_CPU_SSE42 0x80ull
#define VTQ_CPU_AVX 0x100ull /* set only when the OS saves the YMM state */
#define VTQ_CPU_AES 0x200ull
#define VTQ_CPU_CLMUL 0x400ull
#define VTQ_CPU_F16C 0x800ull
#define VTQ_CPU_FMA 0x1000ull  /* set only together with VTQ_CPU_AVX */
#define VTQ_CPU_AVX2 0x2000ull /* set only together with VTQ_CPU_AVX */
#define VTQ_CPU_POPCNT 0x4000ull

/* The features the libraries may use: the processor's own (read with CPUID once), narrowed by
 * the last vtqSetEnabledCpuFeatures. */
VTQ_API uint64_t vtqGetEnabledCpuFeatures(void);

/* Narrows the enabled features to `mask` AND the processor's own features and returns the
 * result. Passing ~0ull restores the processor's full set. A feature the processor lacks can
 * never be enabled, so no library is ever sent down a path the machine cannot run.
 *
 * The libraries read the mask once, when they are loaded. To force a code path, call this
 * before loading the library, for example before dlopen("libvtqr.so.7"): clearing VTQ_CPU_MOVBE
 * forces the u8 path on any processor. Calls after loading do not affect a loaded library. */
VTQ_API uint64_t vtqSetEnabledCpuFeatures(uint64_t mask);

/* Memory ---------------------------------------------------------------------------------- */

/* Allocates `size` bytes aligned to 64 bytes (a cache line). Returns NULL when `size` is 0 or
 * the allocation fails. Release the block with vtqFree. */
VTQ_API void* vtqMalloc(size_t size);

/* Releases a block from vtqMalloc. NULL does nothing. */
VTQ_API void vtqFree(void* ptr);

/* Threads --------------------------------------------------------------------------------- */

/* The number of threads a parallel kernel opens its OpenMP region with. Defaults to the number
 * of processors available to the process (its affinity mask), at least 1. */
VTQ_API int ownGetNumThreads(void);

/* Sets the library-wide thread count. A value below 1 restores the default. Kernels that are
 * already running keep the count they started with. */
VTQ_API void vtqSetNumThreads(int numThreads);

#ifdef __cplusplus
}
#endif

#endif /* VTQCORE_H */
