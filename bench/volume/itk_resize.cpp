// ITK's ResampleImageFilter over caller buffers (imported, not copied), or a stub reporting
// its absence when the benchmark is built without ITK.
#include "itk_resize.h"

#if defined(VTQR_BENCH_ITK)

#include <cstdint>

#include "itkImage.h"
#include "itkLinearInterpolateImageFunction.h"
#include "itkNearestNeighborInterpolateImageFunction.h"
#include "itkResampleImageFilter.h"
#include "itk_volume.h"

namespace vtqr::bench {
namespace {

template <class Pixel>
double Resample(const Pixel* src, int side, double factor, int dstSide, bool linear, Pixel* dst) {
  using Image = itk::Image<Pixel, 3>;
  using Filter = itk::ResampleImageFilter<Image, Image, double>;
  typename Filter::Pointer filter = Filter::New();
  filter->SetInput(ImportVolume(src, side));
  if (linear) {
    filter->SetInterpolator(itk::LinearInterpolateImageFunction<Image, double>::New());
  } else {
    filter->SetInterpolator(itk::NearestNeighborInterpolateImageFunction<Image, double>::New());
  }
  typename Image::SizeType outSize;
  outSize.Fill(static_cast<itk::SizeValueType>(dstSide));
  typename Image::SpacingType spacing;
  spacing.Fill(1.0 / factor);
  typename Image::PointType origin;
  origin.Fill(0.0);
  filter->SetSize(outSize);
  filter->SetOutputSpacing(spacing);
  filter->SetOutputOrigin(origin);
  filter->SetDefaultPixelValue(0);
  filter->GetOutput()->GetPixelContainer()->SetImportPointer(
      dst, static_cast<size_t>(dstSide) * dstSide * dstSide, false);
  return TimedUpdate(filter.GetPointer());
}

}  // namespace

bool ItkBuiltIn() { return true; }

double ItkResize(ItkPixel pixel, const void* src, int side, double factor, int dstSide, bool linear,
                 void* dst) {
  itk::MultiThreaderBase::SetGlobalDefaultNumberOfThreads(1);
  switch (pixel) {
    case ItkPixel::k8u:
      return Resample(static_cast<const uint8_t*>(src), side, factor, dstSide, linear,
                      static_cast<uint8_t*>(dst));
    case ItkPixel::k16u:
      return Resample(static_cast<const uint16_t*>(src), side, factor, dstSide, linear,
                      static_cast<uint16_t*>(dst));
    default:
      return Resample(static_cast<const float*>(src), side, factor, dstSide, linear,
                      static_cast<float*>(dst));
  }
}

}  // namespace vtqr::bench

#else

namespace vtqr::bench {

bool ItkBuiltIn() { return false; }

double ItkResize(ItkPixel, const void*, int, double, int, bool, void*) { return -1.0; }

}  // namespace vtqr::bench

#endif
