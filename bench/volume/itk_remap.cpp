// ITK's WarpImageFilter and ResampleImageFilter over caller buffers (imported, not copied), or
// stubs reporting their absence when the benchmark is built without ITK.
#include "itk_remap.h"

#if defined(VTQR_BENCH_ITK)

#include <cstdint>

#include "itkAffineTransform.h"
#include "itkLinearInterpolateImageFunction.h"
#include "itkResampleImageFilter.h"
#include "itkWarpImageFilter.h"
#include "itk_volume.h"

namespace vtqr::bench {
namespace {

template <class Pixel>
double WarpField(const Pixel* src, int side, const float* field, Pixel* dst) {
  using Image = itk::Image<Pixel, 3>;
  using Vector = itk::Vector<float, 3>;
  using Field = itk::Image<Vector, 3>;
  typename Image::Pointer input = ImportVolume(src, side);
  typename Field::Pointer displacement = ImportVolume(reinterpret_cast<const Vector*>(field), side);
  using Filter = itk::WarpImageFilter<Image, Image, Field>;
  typename Filter::Pointer filter = Filter::New();
  filter->SetInput(input);
  filter->SetDisplacementField(displacement);
  filter->SetInterpolator(itk::LinearInterpolateImageFunction<Image, double>::New());
  filter->SetOutputParametersFromImage(input);
  filter->SetEdgePaddingValue(0);
  filter->GetOutput()->GetPixelContainer()->SetImportPointer(
      dst, static_cast<size_t>(side) * side * side, false);
  return TimedUpdate(filter.GetPointer());
}

template <class Pixel>
double ResampleAffine(const Pixel* src, int side, const double (&matrix)[3][3],
                      const double (&offset)[3], Pixel* dst) {
  using Image = itk::Image<Pixel, 3>;
  typename Image::Pointer input = ImportVolume(src, side);
  using Transform = itk::AffineTransform<double, 3>;
  typename Transform::Pointer transform = Transform::New();
  typename Transform::MatrixType m;
  typename Transform::OutputVectorType t;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) m(i, j) = matrix[i][j];
    t[i] = offset[i];
  }
  transform->SetMatrix(m);
  transform->SetTranslation(t);
  using Filter = itk::ResampleImageFilter<Image, Image, double>;
  typename Filter::Pointer filter = Filter::New();
  filter->SetInput(input);
  filter->SetTransform(transform);
  filter->SetInterpolator(itk::LinearInterpolateImageFunction<Image, double>::New());
  filter->SetOutputParametersFromImage(input);
  filter->SetDefaultPixelValue(0);
  filter->GetOutput()->GetPixelContainer()->SetImportPointer(
      dst, static_cast<size_t>(side) * side * side, false);
  return TimedUpdate(filter.GetPointer());
}

}  // namespace

double ItkWarpField(ItkPixel pixel, const void* src, int side, const float* field, void* dst) {
  itk::MultiThreaderBase::SetGlobalDefaultNumberOfThreads(1);
  switch (pixel) {
    case ItkPixel::k8u:
      return WarpField(static_cast<const uint8_t*>(src), side, field, static_cast<uint8_t*>(dst));
    case ItkPixel::k16u:
      return WarpField(static_cast<const uint16_t*>(src), side, field, static_cast<uint16_t*>(dst));
    default:
      return WarpField(static_cast<const float*>(src), side, field, static_cast<float*>(dst));
  }
}

double ItkResampleAffine(ItkPixel pixel, const void* src, int side, const double (&matrix)[3][3],
                         const double (&offset)[3], void* dst) {
  itk::MultiThreaderBase::SetGlobalDefaultNumberOfThreads(1);
  switch (pixel) {
    case ItkPixel::k8u:
      return ResampleAffine(static_cast<const uint8_t*>(src), side, matrix, offset,
                            static_cast<uint8_t*>(dst));
    case ItkPixel::k16u:
      return ResampleAffine(static_cast<const uint16_t*>(src), side, matrix, offset,
                            static_cast<uint16_t*>(dst));
    default:
      return ResampleAffine(static_cast<const float*>(src), side, matrix, offset,
                            static_cast<float*>(dst));
  }
}

}  // namespace vtqr::bench

#else

namespace vtqr::bench {

double ItkWarpField(ItkPixel, const void*, int, const float*, void*) { return -1.0; }
double ItkResampleAffine(ItkPixel, const void*, int, const double (&)[3][3], const double (&)[3],
                         void*) {
  return -1.0;
}

}  // namespace vtqr::bench

#endif
