// The loops an application would write instead of calling the shading exports: the same
// formulas, one ray per iteration, left to the compiler's -O3 (and its vectoriser).
#ifndef VTQR_BENCH_RAYCAST_SHADE_PLAIN_LOOPS_H_
#define VTQR_BENCH_RAYCAST_SHADE_PLAIN_LOOPS_H_

#include <cstdint>

namespace plain {

void Dot(const float* const a[3], const float* const b[3], const int32_t* mask, float* dst,
         int len);
void DotChangeNorm(const float* const ray[3], const int32_t* mask, float* const n[3], float* dst,
                   int len);
void Mul(const float* src, const int32_t* mask, float* srcDst, int len);
void MulP3(const float* src, const int32_t* mask, float* const srcDst[3], int len);
bool Div(const float* src, const int32_t* mask, float* srcDst, int len);
void AddMulMul(const float scale[3], const float* src, const float* const src2[3],
               const int32_t* mask, float* const srcDst[3], int len);
void DistAttenuation(const float point[3], const float* const pos[3], const int32_t* mask,
                     float* dst, int len);
void CastShadow(const float light[3], const float* eyeDot, const float* const normal[3],
                const float* const hit[3], int32_t* mask, float* dstDot, float* const dstDir[3],
                int len);
void CastReflection(const float* const inc[3], const int32_t* mask, const float* const n[3],
                    float* const dst[3], int len);

}  // namespace plain

#endif  // VTQR_BENCH_RAYCAST_SHADE_PLAIN_LOOPS_H_
