// Kept in a file of its own so the compiler sees them as an application's code would be seen:
// no knowledge of the buffers' alignment or of the benchmark around them.
#include "raycast/shade_plain_loops.h"

#include <cmath>
#include <limits>

namespace plain {

void Dot(const float* const a[3], const float* const b[3], const int32_t* mask, float* dst,
         int len) {
  for (int i = 0; i < len; ++i) {
    dst[i] = mask[i] >= 0 ? a[0][i] * b[0][i] + a[1][i] * b[1][i] + a[2][i] * b[2][i] : 0.0f;
  }
}

void DotChangeNorm(const float* const ray[3], const int32_t* mask, float* const n[3], float* dst,
                   int len) {
  for (int i = 0; i < len; ++i) {
    if (mask[i] < 0) {
      dst[i] = 0.0f;
      continue;
    }
    float d = ray[0][i] * n[0][i] + ray[1][i] * n[1][i] + ray[2][i] * n[2][i];
    float s = d > 0.0f ? -1.0f : 1.0f;
    n[0][i] *= s;
    n[1][i] *= s;
    n[2][i] *= s;
    dst[i] = d * s;
  }
}

void Mul(const float* src, const int32_t* mask, float* srcDst, int len) {
  for (int i = 0; i < len; ++i) srcDst[i] = srcDst[i] * src[i] * (mask[i] >= 0 ? 1.0f : 0.0f);
}

void MulP3(const float* src, const int32_t* mask, float* const srcDst[3], int len) {
  for (int i = 0; i < len; ++i) {
    float m = mask[i] >= 0 ? 1.0f : 0.0f;
    for (int c = 0; c < 3; ++c) srcDst[c][i] = srcDst[c][i] * src[i] * m;
  }
}

bool Div(const float* src, const int32_t* mask, float* srcDst, int len) {
  bool divByZero = false;
  for (int i = 0; i < len; ++i) {
    if (mask[i] < 0) {
      srcDst[i] = 0.0f;
    } else if (src[i] != 0.0f) {
      srcDst[i] /= src[i];
    } else {
      float x = srcDst[i];
      srcDst[i] = x > 0.0f   ? std::numeric_limits<float>::infinity()
                  : x < 0.0f ? -std::numeric_limits<float>::infinity()
                             : std::numeric_limits<float>::quiet_NaN();
      divByZero = true;
    }
  }
  return divByZero;
}

void AddMulMul(const float scale[3], const float* src, const float* const src2[3],
               const int32_t* mask, float* const srcDst[3], int len) {
  for (int i = 0; i < len; ++i) {
    if (mask[i] < 0) continue;
    for (int c = 0; c < 3; ++c) srcDst[c][i] += src2[c][i] * scale[c] * src[i];
  }
}

void DistAttenuation(const float point[3], const float* const pos[3], const int32_t* mask,
                     float* dst, int len) {
  for (int i = 0; i < len; ++i) {
    float dx = pos[0][i] - point[0], dy = pos[1][i] - point[1], dz = pos[2][i] - point[2];
    float q = dx * dx + dy * dy + dz * dz;
    dst[i] = mask[i] >= 0 && q >= 1.0f ? std::sqrt(q) : 1.0f;
  }
}

void CastShadow(const float light[3], const float* eyeDot, const float* const normal[3],
                const float* const hit[3], int32_t* mask, float* dstDot, float* const dstDir[3],
                int len) {
  for (int i = 0; i < len; ++i) {
    float d[3] = {hit[0][i] - light[0], hit[1][i] - light[1], hit[2][i] - light[2]};
    float c = normal[0][i] * d[0] + normal[1][i] * d[1] + normal[2][i] * d[2];
    if (std::fabs(c) < 0.0017453292f) c = 0.0f;
    bool pass = mask[i] >= 0 && eyeDot[i] * c > 0.0f;
    dstDot[i] = pass ? std::fabs(c) : 0.0f;
    for (int k = 0; k < 3; ++k) dstDir[k][i] = pass ? d[k] : 0.0f;
    if (!pass && mask[i] >= 0) mask[i] = -1;
  }
}

void CastReflection(const float* const inc[3], const int32_t* mask, const float* const n[3],
                    float* const dst[3], int len) {
  for (int i = 0; i < len; ++i) {
    float d = inc[0][i] * n[0][i] + inc[1][i] * n[1][i] + inc[2][i] * n[2][i];
    for (int k = 0; k < 3; ++k) dst[k][i] = mask[i] >= 0 ? inc[k][i] - n[k][i] * (d + d) : 0.0f;
  }
}

}  // namespace plain
