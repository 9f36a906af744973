/* The public headers compile as strict C99 and are usable without a cast from C. */
#include <stdio.h>
#include <string.h>

#include "vtqcore.h"
#include "vtqr.h"

int main(void) {
  const VtqLibVersion* version = vtqrGetLibVersion();
  float planeX[4] = {1, 2, 3, 4}, planeY[4] = {0}, planeZ[4] = {0};
  const Vtq32f* planes[3] = {planeX, planeY, planeZ};
  Vtq32s mask[4] = {0, 0, -1, 0};
  Vtq32f dot[4];
  /* Slice arrays declared as the parameters read, so that no cast is needed. */
  Vtq8u a[4] = {10, 20, 30, 40}, b[4] = {50, 60, 70, 80}, out[2][4], buffer[512];
  const Vtq8u* src[2] = {a, b};
  Vtq8u* dst[2] = {out[0], out[1]};
  VtqVolumeSize size = {2, 2, 2};
  VtqCuboid voi = {0, 0, 0, 2, 2, 2};
  int bytes = 0;
  if (vtqrDot_32f_P3C1M(planes, planes, mask, dot, 4) != vtqStsOk || dot[0] != 1.0f ||
      dot[2] != 0.0f)
    return 1;
  if (version->major != VTQR_VERSION_MAJOR || version->build != VTQR_VERSION_BUILD) return 2;
  if (strcmp(version->targetCpu, "u8") != 0 && strcmp(version->targetCpu, "n8") != 0) return 3;
  if (sizeof(VtqrTriangleAccel) != 40 || sizeof(VtqrKDTreeNode) != 8) return 4;
  vtqSetNumThreads(1);
  if (vtqrResizeGetBufSize(&voi, &voi, 1, vtqInterNearest, &bytes) != vtqStsOk || bytes > 512)
    return 5;
  if (vtqrResize_8u_C1PV(src, size, 2, voi, dst, 2, voi, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0,
                         vtqInterNearest, buffer) != vtqStsOk ||
      memcmp(out[0], a, 4) != 0 || memcmp(out[1], b, 4) != 0) {
    return 6;
  }
  printf("%s\n", version->name);
  return 0;
}
