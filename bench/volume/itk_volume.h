// What the ITK yardsticks share: a caller's packed side^3 buffer seen as an ITK image without a
// copy, and a filter's Update() timed on one work unit and one thread. Included only by the
// sources built with ITK's headers.
#ifndef VTQR_BENCH_VOLUME_ITK_VOLUME_H_
#define VTQR_BENCH_VOLUME_ITK_VOLUME_H_

#include <chrono>
#include <cstddef>

#include "itkImage.h"
#include "itkImportImageFilter.h"

namespace vtqr::bench {

template <class Pixel>
typename itk::Image<Pixel, 3>::Pointer ImportVolume(const Pixel* data, int side) {
  using Importer = itk::ImportImageFilter<Pixel, 3>;
  typename Importer::Pointer import = Importer::New();
  typename Importer::SizeType size;
  size.Fill(static_cast<itk::SizeValueType>(side));
  typename Importer::IndexType start;
  start.Fill(0);
  import->SetRegion(typename Importer::RegionType(start, size));
  import->SetImportPointer(const_cast<Pixel*>(data), static_cast<size_t>(side) * side * side,
                           false);
  import->Update();
  return import->GetOutput();
}

// Seconds of filter->Update() on one work unit and one thread.
template <class Filter>
double TimedUpdate(Filter* filter) {
  filter->SetNumberOfWorkUnits(1);
  filter->GetMultiThreader()->SetMaximumNumberOfThreads(1);
  const auto begin = std::chrono::steady_clock::now();
  filter->Update();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace vtqr::bench

#endif  // VTQR_BENCH_VOLUME_ITK_VOLUME_H_
