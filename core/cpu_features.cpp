// Processor feature mask: CPUID read once, narrowed by the application if it asks.

#include <cpuid.h>

#include <atomic>

#include "vtqcore.h"

namespace {

bool Bit(unsigned reg, int bit) { return ((reg >> bit) & 1u) != 0; }

// XGETBV(0): which register states the operating system saves on a context switch. AVX is
// usable only when both the XMM and the YMM states are saved.
bool OsSavesYmmState() {
  unsigned eax = 0, edx = 0;
  __asm__ volatile("xgetbv" : "=a"(eax), "=d"(edx) : "c"(0));
  return (eax & 0x6u) == 0x6u;
}

uint64_t DetectFeatures() {
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return 0;

  uint64_t mask = 0;
  if (Bit(edx, 23)) mask |= VTQ_CPU_MMX;
  if (Bit(edx, 25)) mask |= VTQ_CPU_SSE;
  if (Bit(edx, 26)) mask |= VTQ_CPU_SSE2;
  if (Bit(ecx, 0)) mask |= VTQ_CPU_SSE3;
  if (Bit(ecx, 9)) mask |= VTQ_CPU_SSSE3;
  if (Bit(ecx, 22)) mask |= VTQ_CPU_MOVBE;
  if (Bit(ecx, 19)) mask |= VTQ_CPU_SSE41;
  if (Bit(ecx, 20)) mask |= VTQ_CPU_SSE42;
  if (Bit(ecx, 25)) mask |= VTQ_CPU_AES;
  if (Bit(ecx, 1)) mask |= VTQ_CPU_CLMUL;
  if (Bit(ecx, 29)) mask |= VTQ_CPU_F16C;
  if (Bit(ecx, 23)) mask |= VTQ_CPU_POPCNT;

  const bool avx = Bit(ecx, 28) && Bit(ecx, 27) && OsSavesYmmState();
  if (avx) {
    mask |= VTQ_CPU_AVX;
    if (Bit(ecx, 12)) mask |= VTQ_CPU_FMA;
    unsigned eax7 = 0, ebx7 = 0, ecx7 = 0, edx7 = 0;
    if (__get_cpuid_count(7, 0, &eax7, &ebx7, &ecx7, &edx7) && Bit(ebx7, 5)) {
      mask |= VTQ_CPU_AVX2;
    }
  }
  return mask;
}

// The processor's own features never change, so one read serves the whole process; the
// enabled set starts there and only ever narrows to a subset of it.
const uint64_t kProcessorFeatures = DetectFeatures();
std::atomic<uint64_t> gEnabledFeatures{kProcessorFeatures};

}  // namespace

extern "C" VTQ_API uint64_t vtqGetEnabledCpuFeatures(void) {
  return gEnabledFeatures.load(std::memory_order_acquire);
}

extern "C" VTQ_API uint64_t vtqSetEnabledCpuFeatures(uint64_t mask) {
  const uint64_t enabled = mask & kProcessorFeatures;
  gEnabledFeatures.store(enabled, std::memory_order_release);
  return enabled;
}
