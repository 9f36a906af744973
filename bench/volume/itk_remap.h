// ITK's displacement-field warp and affine resampler behind a plain interface, so that only one
// source of the remap benchmark is built with ITK's headers and flags.
#ifndef VTQR_BENCH_VOLUME_ITK_REMAP_H_
#define VTQR_BENCH_VOLUME_ITK_REMAP_H_

#include "itk_resize.h"

namespace vtqr::bench {

// WarpImageFilter with linear interpolation on a side^3 volume (x fastest, spacing 1, origin
// 0): output voxel p samples the input at p + field[p], the field holding x, y, z displacements
// interleaved per voxel. Positions outside the input give 0. One work unit, one thread.
// Returns the seconds Update() took, or a negative number without ITK.
double ItkWarpField(ItkPixel pixel, const void* src, int side, const float* field, void* dst);

// ResampleImageFilter with an AffineTransform and linear interpolation: output voxel p samples
// the input at matrix * p + offset (row-major 3 x 3, then the offset). Outside gives 0. One
// work unit, one thread. Returns seconds, or a negative number without ITK.
double ItkResampleAffine(ItkPixel pixel, const void* src, int side, const double (&matrix)[3][3],
                         const double (&offset)[3], void* dst);

}  // namespace vtqr::bench

#endif  // VTQR_BENCH_VOLUME_ITK_REMAP_H_
