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
  VtqStatus status = vtqrDot_32f_P3C1M(planes, planes, mask, dot, 4);
  if (status != vtqStsOk || dot[0] != 1.0f || dot[2] != 0.0f) return 1;
  if (version->major != VTQR_VERSION_MAJOR || version->build != VTQR_VERSION_BUILD) return 2;
  if (strcmp(version->targetCpu, "u8") != 0 && strcmp(version->targetCpu, "n8") != 0) return 3;
  if (sizeof(VtqrTriangleAccel) != 40 || sizeof(VtqrKDTreeNode) != 8) return 4;
  printf("%s\n", version->name);
  return 0;
}
