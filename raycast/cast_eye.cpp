// Eye rays: one direction per pixel of a block, from the direction to the image's first pixel
// and the steps between pixels.
#include <cstddef>
#include <cstdint>

#include "frame/code_path.h"
#include "frame/kernels.h"
#include "simd/lanes.h"
#include "simd/vec3.h"

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
                   const Planes<Vtq32f>& dst, VtqSize size) {
  const Vec3 o = Broadcast(org);
  const Vec3 stepW = Broadcast(dW);
  const Vec3 stepH = Broadcast(dH);
  for (int j = 0; j < size.height; ++j) {
    const Vec3 rowStart = Add(Scale(stepH, _mm_set1_ps(static_cast<float>(j) + y0)), o);
    const ptrdiff_t row = static_cast<ptrdiff_t>(j) * size.width;
    for (int i = 0; i < size.width; ++i) {
      const __m128 x = _mm_set1_ps(static_cast<float>(i) + x0);
      Store3<OneRay>(dst, row + i, Add(rowStart, Scale(stepW, x)));
    }
  }
}

// Four pixels at a time (width a multiple of 4): D.c = dW.c * i + B.c, the row base
// B.c = (dH.c * y0 + org.c) + dW.c * x0 advanced by dH.c per row and i counted in float.
template <class Lanes>
void CastEyeRows(const Vtq32f org[3], const Vtq32f dW[3], const Vtq32f dH[3], float x0, float y0,
                 const Planes<Vtq32f>& dst, VtqSize size) {
  Vtq32f first[3];
  for (int c = 0; c < 3; ++c) first[c] = dH[c] * y0 + org[c] + dW[c] * x0;
  Vec3 base = Broadcast(first);
  const Vec3 stepW = Broadcast(dW);
  const Vec3 stepH = Broadcast(dH);
  const __m128 four = _mm_set1_ps(4.0f);
  for (int j = 0; j < size.height; ++j) {
    const ptrdiff_t row = static_cast<ptrdiff_t>(j) * size.width;
    __m128 i = _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f);
    for (int x = 0; x < size.width; x += 4) {
      Store3<Lanes>(dst, row + x, Add(Scale(stepW, i), base));
      i = _mm_add_ps(i, four);
    }
    base = Add(base, stepH);
  }
}

}  // namespace

VtqStatus CastEye_32f(const Vtq32f imPlaneOrg[3], const Vtq32f dW[3], const Vtq32f dH[3], int wB,
                      int hB, VtqSize cBlock, Vtq32f* const dst[3], VtqSize blockSize) {
  if (dst == nullptr) return vtqStsErrNullPtr;
  if (blockSize.width < 1 || blockSize.height < 1) return vtqStsOk;

  const float x0 = BlockStart(wB, cBlock.width);
  const float y0 = BlockStart(hB, cBlock.height);
  const Planes<Vtq32f> plane(dst);
  if (blockSize.width % 4 != 0) {
    CastEyePixels(imPlaneOrg, dW, dH, x0, y0, plane, blockSize);
  } else if (Aligned16(plane)) {
    CastEyeRows<AlignedFour>(imPlaneOrg, dW, dH, x0, y0, plane, blockSize);
  } else {
    CastEyeRows<UnalignedFour>(imPlaneOrg, dW, dH, x0, y0, plane, blockSize);
  }
  return vtqStsOk;
}

VTQR_PATH_END
