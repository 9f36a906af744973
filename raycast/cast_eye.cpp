// Eye rays: one direction per pixel of a block, from the direction to the image's first pixel
// and the steps between pixels.
#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "simd/lanes.h"

VTQR_PATH_BEGIN
namespace {

using namespace simd;

// The block's first pixel in image coordinates: the product in 32-bit integers, wrapping like
// the hardware multiply rather than overflowing into undefined behaviour, then rounded to float.
float BlockStart(int index, int blockExtent) {
  const uint32_t product = static_cast<uint32_t>(index) * static_cast<uint32_t>(blockExtent);
  return static_cast<float>(static_cast<int32_t>(product));
}

// One pixel at a time: D.c = (dH.c * (j + y0) + org.c) + dW.c * (i + x0).
void CastEyePixels(const Vtq32f org[3], const Vtq32f dW[3], const Vtq32f dH[3], float x0, float y0,
                   Vtq32f* const plane[3], VtqSize size) {
  // Local copies: the planes' stores could alias the caller's vectors as far as the compiler
  // knows, which would reload them for every pixel.
  const float o[3] = {org[0], org[1], org[2]};
  const float w[3] = {dW[0], dW[1], dW[2]};
  const float h[3] = {dH[0], dH[1], dH[2]};
  for (int j = 0; j < size.height; ++j) {
    const float y = static_cast<float>(j) + y0;
    const ptrdiff_t row = static_cast<ptrdiff_t>(j) * size.width;
    for (int i = 0; i < size.width; ++i) {
      const float x = static_cast<float>(i) + x0;
      for (int c = 0; c < 3; ++c) plane[c][row + i] = h[c] * y + o[c] + w[c] * x;
    }
  }
}

// Four pixels at a time (width a multiple of 4): D.c = dW.c * i + B.c, the row base
// B.c = (dH.c * y0 + org.c) + dW.c * x0 advanced by dH.c per row and i counted in float.
template <class Lanes>
void CastEyeRows(const Vtq32f org[3], const Vtq32f dW[3], const Vtq32f dH[3], float x0, float y0,
                 Vtq32f* const plane[3], VtqSize size) {
  __m128 base[3], stepW[3], stepH[3];
  for (int c = 0; c < 3; ++c) {
    base[c] = _mm_set1_ps(dH[c] * y0 + org[c] + dW[c] * x0);
    stepW[c] = _mm_set1_ps(dW[c]);
    stepH[c] = _mm_set1_ps(dH[c]);
  }
  const __m128 four = _mm_set1_ps(4.0f);
  for (int j = 0; j < size.height; ++j) {
    const ptrdiff_t row = static_cast<ptrdiff_t>(j) * size.width;
    __m128 i = _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f);
    for (int x = 0; x < size.width; x += 4) {
      for (int c = 0; c < 3; ++c) {
        Lanes::Store(plane[c] + row + x, _mm_add_ps(_mm_mul_ps(stepW[c], i), base[c]));
      }
      i = _mm_add_ps(i, four);
    }
    for (int c = 0; c < 3; ++c) base[c] = _mm_add_ps(base[c], stepH[c]);
  }
}

}  // namespace

VtqStatus CastEye_32f(const Vtq32f imPlaneOrg[3], const Vtq32f dW[3], const Vtq32f dH[3], int wB,
                      int hB, VtqSize cBlock, Vtq32f* const dst[3], VtqSize blockSize) {
  if (dst == nullptr) return vtqStsErrNullPtr;
  if (blockSize.width < 1 || blockSize.height < 1) return vtqStsOk;

  const float x0 = BlockStart(wB, cBlock.width);
  const float y0 = BlockStart(hB, cBlock.height);
  // Copied out of the caller's array once: stores through the planes may alias it.
  Vtq32f* const plane[3] = {dst[0], dst[1], dst[2]};
  if (blockSize.width % 4 != 0) {
    CastEyePixels(imPlaneOrg, dW, dH, x0, y0, plane, blockSize);
  } else if (Aligned16(plane[0]) && Aligned16(plane[1]) && Aligned16(plane[2])) {
    CastEyeRows<AlignedFour>(imPlaneOrg, dW, dH, x0, y0, plane, blockSize);
  } else {
    CastEyeRows<UnalignedFour>(imPlaneOrg, dW, dH, x0, y0, plane, blockSize);
  }
  return vtqStsOk;
}

VTQR_PATH_END
