// The affine map of a warp and its inverse, in double precision.
//
// The caller's coefficients map source to destination coordinates, dst = A src + b, with A the
// leading block of the 3 x 4 matrix and b its last column. The warp needs the other direction
// for every destination voxel, so the map is inverted once per call; a matrix that cannot be
// inverted is rejected by the coefficient test, before anything is written.
#ifndef VTQR_VOLUME_AFFINE_INVERSE_H_
#define VTQR_VOLUME_AFFINE_INVERSE_H_

#include <cmath>

#include "frame/code_path.h"

VTQR_PATH_BEGIN
namespace volume {

// x' = linear x + offset, over the first kAxes axes.
template <int kAxes>
struct AffineMap {
  double linear[kAxes][kAxes];
  double offset[kAxes];
};

// The leading kAxes x kAxes block of coefficient rows and their translations.
template <int kAxes>
AffineMap<kAxes> ReadAffine(const double (*coeffs)[4]) {
  AffineMap<kAxes> m;
  for (int i = 0; i < kAxes; ++i) {
    for (int j = 0; j < kAxes; ++j) m.linear[i][j] = coeffs[i][j];
    m.offset[i] = coeffs[i][3];
  }
  return m;
}

// Below this magnitude a diagonal coefficient counts as zero. A matrix with no diagonal left
// is rejected even when it could be inverted (a cyclic exchange of the axes): warps are
// rotations, scales and shears that keep some axis on itself, and such a matrix is taken for
// a wrongly filled one. A 90-degree rotation about one axis keeps one diagonal coefficient at
// 1 and passes.
inline constexpr double kDiagonalFloor = 1e-100;

inline bool DiagonalVanishes(const AffineMap<3>& m) {
  for (int i = 0; i < 3; ++i) {
    if (!(std::fabs(m.linear[i][i]) <= kDiagonalFloor)) return false;
  }
  return true;
}

// The inverse's translation: -(inverse * offset), summed in axis order.
template <int kAxes>
bool FinishInverse(const AffineMap<kAxes>& m, AffineMap<kAxes>* inverse) {
  for (int i = 0; i < kAxes; ++i) {
    double sum = inverse->linear[i][0] * m.offset[0];
    for (int j = 1; j < kAxes; ++j) sum += inverse->linear[i][j] * m.offset[j];
    inverse->offset[i] = -sum;
  }
  for (int i = 0; i < kAxes; ++i) {
    for (int j = 0; j < kAxes; ++j) {
      if (!std::isfinite(inverse->linear[i][j])) return false;
    }
    if (!std::isfinite(inverse->offset[i])) return false;
  }
  return true;
}

// The coefficient test and the inverse: false when the diagonal vanishes, the determinant is 0
// or not finite, or an entry of the inverse is not finite (an infinite or NaN coefficient
// always ends up there). The inverse is the adjugate divided by the determinant, entry by
// entry; the determinant is expanded along the first row.
inline bool InvertAffine(const AffineMap<3>& m, AffineMap<3>* inverse) {
  if (DiagonalVanishes(m)) return false;
  const double(&a)[3][3] = m.linear;
  // Cofactor c[i][j] of entry (i, j).
  const double c[3][3] = {
      {a[1][1] * a[2][2] - a[1][2] * a[2][1], a[1][2] * a[2][0] - a[1][0] * a[2][2],
       a[1][0] * a[2][1] - a[1][1] * a[2][0]},
      {a[0][2] * a[2][1] - a[0][1] * a[2][2], a[0][0] * a[2][2] - a[0][2] * a[2][0],
       a[0][1] * a[2][0] - a[0][0] * a[2][1]},
      {a[0][1] * a[1][2] - a[0][2] * a[1][1], a[0][2] * a[1][0] - a[0][0] * a[1][2],
       a[0][0] * a[1][1] - a[0][1] * a[1][0]}};
  const double det = a[0][0] * c[0][0] + a[0][1] * c[0][1] + a[0][2] * c[0][2];
  if (!(det != 0.0) || !std::isfinite(det)) return false;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) inverse->linear[i][j] = c[j][i] / det;
  }
  return FinishInverse(m, inverse);
}

// The x/y part of a planar warp: only whether it can be inverted. The diagonal test has been
// made on the whole matrix already, and a quarter turn of a plane has no diagonal of its own.
inline bool InvertAffine(const AffineMap<2>& m, AffineMap<2>* inverse) {
  const double(&a)[2][2] = m.linear;
  const double det = a[0][0] * a[1][1] - a[0][1] * a[1][0];
  if (!(det != 0.0) || !std::isfinite(det)) return false;
  inverse->linear[0][0] = a[1][1] / det;
  inverse->linear[0][1] = -a[0][1] / det;
  inverse->linear[1][0] = -a[1][0] / det;
  inverse->linear[1][1] = a[0][0] / det;
  return FinishInverse(m, inverse);
}

}  // namespace volume
VTQR_PATH_END

#endif  // VTQR_VOLUME_AFFINE_INVERSE_H_
