// The filter's two entry points: the work-buffer query, and the convolution with its checks,
// its preparation once per call (the divisor's rule, whether sums fit in 32 bits, the repacked
// kernel) and the destination rows split over threads.
#include <algorithm>
#include <cstdint>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "frame/parallel.h"
#include "simd/int16.h"
#include "volume/buffer_align.h"
#include "volume/filter_divisor.h"
#include "volume/filter_kernel.h"
#include "volume/filter_scratch.h"
#include "volume/filter_sums.h"
#include "volume/volume_checks.h"
#include "volume/volume_view.h"
#include "vtqcore.h"

VTQR_PATH_BEGIN
namespace volume {
namespace {

struct FilterJob {
  FilterSource src;
  SliceVolume<Vtq16s> dst;
  int64_t width, height;
  Divisor divisor;
};

// Calls block(x) for blocks of `size` outputs that cover [0, width), width >= size. The last
// block is moved back to end at the row's end rather than run past it: it recomputes a few
// outputs, to the same values, and reads and writes nothing outside the row.
template <class Block>
void ForEachBlock(int64_t width, int64_t size, Block&& block) {
  for (int64_t x = 0;; x += size) {
    const int64_t start = std::min(x, width - size);
    block(start);
    if (start == width - size) return;
  }
}

// The 32-bit sums of row (y, z) into `sums`, 32 outputs at a time, or 8 in rows narrower than
// 32; rows narrower than 8 are summed voxel by voxel.
template <int kVectors>
void SumBlocks32(const FilterSource& src, int64_t width, int64_t y, int64_t z, int32_t* sums) {
  ForEachBlock(width, Sums32<kVectors>::kOutputs, [&](int64_t x) {
    Sums32<kVectors> acc;
    SumBlock(src, x, y, z, acc);
    acc.Store(sums + x);
  });
}

void SumRow32(const FilterSource& src, int64_t width, int64_t y, int64_t z, int32_t* sums) {
  if (width >= Sums32<4>::kOutputs) {
    SumBlocks32<4>(src, width, y, z, sums);
  } else if (width >= Sums32<1>::kOutputs) {
    SumBlocks32<1>(src, width, y, z, sums);
  } else {
    for (int64_t x = 0; x < width; ++x) sums[x] = static_cast<int32_t>(SumOne(src, x, y, z));
  }
}

// Rounded, saturated quotients of a row of 32-bit sums, eight voxels per store. Rows narrower
// than eight run the same instructions one voxel at a time, in lane 0.
template <class Rounding>
void RoundRow(const int32_t* sums, int64_t width, const Rounding& rounding, Vtq16s* out) {
  if (width < 8) {
    for (int64_t x = 0; x < width; ++x) {
      const __m128i q = rounding.Round(_mm_cvtsi32_si128(sums[x]));
      out[x] = static_cast<Vtq16s>(_mm_cvtsi128_si32(simd::PackSat16s(q, q)));
    }
    return;
  }
  ForEachBlock(width, 8, [&](int64_t x) {
    const __m128i lo = rounding.Round(_mm_loadu_si128(reinterpret_cast<const __m128i*>(sums + x)));
    const __m128i hi =
        rounding.Round(_mm_loadu_si128(reinterpret_cast<const __m128i*>(sums + x + 4)));
    simd::Store8x16(out + x, simd::PackSat16s(lo, hi));
  });
}

template <class Rounding>
void Rows32(const FilterJob& job, const Rounding& rounding, int64_t begin, int64_t end,
            int32_t* sums) {
  for (int64_t row = begin; row < end; ++row) {
    const int64_t y = row % job.height, z = row / job.height;
    SumRow32(job.src, job.width, y, z, sums);
    RoundRow(sums, job.width, rounding, job.dst.Row(y, z));
  }
}

// Kernels whose sums may leave 32 bits: 64-bit sums, rounded one by one. They do not pass
// through the row of 32-bit sums, so each block is rounded and stored as soon as it is summed.
void Rows64(const FilterJob& job, int64_t begin, int64_t end) {
  for (int64_t row = begin; row < end; ++row) {
    const int64_t y = row % job.height, z = row / job.height;
    Vtq16s* out = job.dst.Row(y, z);
    if (job.width < Sums64::kOutputs) {
      for (int64_t x = 0; x < job.width; ++x) {
        out[x] = RoundQuotient(SumOne(job.src, x, y, z), job.divisor);
      }
      continue;
    }
    ForEachBlock(job.width, Sums64::kOutputs, [&](int64_t x) {
      Sums64 acc;
      SumBlock(job.src, x, y, z, acc);
      int64_t sums[Sums64::kOutputs];
      acc.Store(sums);
      for (int i = 0; i < Sums64::kOutputs; ++i) out[x + i] = RoundQuotient(sums[i], job.divisor);
    });
  }
}

}  // namespace
}  // namespace volume

// Only the destination width and the kernel's extents enter the size; the destination's height
// and depth are checked but play no part, since a thread keeps one row of sums at a time.
VtqStatus FilterGetBufSize(const VtqVolumeSize* dstVolume, const VtqVolumeSize* kernelVolume,
                           int nChannel, int* pSize) {
  if (pSize == nullptr || dstVolume == nullptr || kernelVolume == nullptr) return vtqStsErrNullPtr;
  if (!volume::IsValidVolumeSize(*dstVolume)) return vtqStsErrSize;
  if (!volume::IsValidVolumeSize(*kernelVolume)) return vtqStsErrSize;
  if (nChannel != 1) return vtqStsErrChannels;
  const volume::Wrapping32 perThread = volume::FilterBufferPerThread(
      dstVolume->width, kernelVolume->width, kernelVolume->height, kernelVolume->depth);
  *pSize = (perThread * ownGetNumThreads()).value();
  return vtqStsOk;
}

VtqStatus Filter_16s_C1PV(const Vtq16s* const* pSrc, int srcStep, Vtq16s* const* pDst, int dstStep,
                          VtqVolumeSize dstVolume, const Vtq16s* pKernel,
                          VtqVolumeSize kernelVolume, VtqPoint3D anchor, int divisor,
                          Vtq8u* pBuffer) {
  using namespace volume;
  // Checks in their documented order; nothing, not even the buffer, is touched before all pass.
  if (pSrc == nullptr || pDst == nullptr || pKernel == nullptr) return vtqStsErrNullPtr;
  if (pBuffer == nullptr) return vtqStsErrNullPtr;
  if (!IsValidVolumeSize(dstVolume)) return vtqStsErrSize;
  if (!IsValidVolumeSize(kernelVolume) || divisor == 0) return vtqStsErrSize;

  // Everything that depends only on the kernel and the divisor is settled once, here, on the
  // calling thread: the threads then share the packed kernel read-only.
  const KernelGeometry geometry(kernelVolume, anchor);
  const int threads = ownGetNumThreads();
  const FilterScratch plan = PlanFilterScratch(dstVolume.width, geometry, threads);
  char* base = AlignUp64(pBuffer);
  auto* packed = reinterpret_cast<__m128i*>(base + plan.kernelStart);
  PackKernel(pKernel, geometry, packed);
  const FilterJob job = {{SliceVolume<const Vtq16s>(pSrc, srcStep), pKernel, packed, geometry},
                         SliceVolume<Vtq16s>(pDst, dstStep),
                         dstVolume.width,
                         dstVolume.height,
                         Divisor(divisor)};
  const bool fits32 = SumsFit32(pKernel, geometry);

  // The threads split the rows of all slices rather than whole slices, so that a destination
  // only a few slices deep still spreads evenly; neighbouring rows of one run share most of
  // their source rows in the caches.
  const int64_t rows = int64_t{dstVolume.height} * dstVolume.depth;
  const Fork fork = WhenThreadedAndLarge(dstVolume.width, dstVolume.height, dstVolume.depth);
  ParallelChunks(rows, fork, [&](int64_t begin, int64_t end, int rank) {
    auto* sums = reinterpret_cast<int32_t*>(base + static_cast<size_t>(rank) * plan.rowBytes);
    // The rule is chosen once per thread, so each loop below is compiled for one of them.
    if (!fits32) {
      Rows64(job, begin, end);
    } else if (job.divisor.powerOfTwo) {
      Rows32(job, ShiftRounding(job.divisor), begin, end, sums);
    } else {
      Rows32(job, DoubleRounding(job.divisor), begin, end, sums);
    }
  });
  return vtqStsOk;
}

VTQR_PATH_END
