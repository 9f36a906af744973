// ITK's resampler behind a plain interface, so that only one source of the benchmark is built
// with ITK's headers and flags.
#ifndef VTQR_BENCH_VOLUME_ITK_RESIZE_H_
#define VTQR_BENCH_VOLUME_ITK_RESIZE_H_

#include <cstddef>

namespace vtqr::bench {

enum class ItkPixel { k8u, k16u, k32f };

// Resamples a side^3 source (x fastest, packed) to a dstSide^3 destination with ITK's
// ResampleImageFilter, an identity transform and output spacing 1/factor from origin 0: output
// index d samples input index d / factor, the map the library's resize uses with shift 0.
// One work unit, one thread. Returns the seconds Update() took, or a negative number when
// the benchmark was built without ITK.
double ItkResize(ItkPixel pixel, const void* src, int side, double factor, int dstSide, bool linear,
                 void* dst);

// Whether the benchmark was built with ITK.
bool ItkBuiltIn();

}  // namespace vtqr::bench

#endif  // VTQR_BENCH_VOLUME_ITK_RESIZE_H_
