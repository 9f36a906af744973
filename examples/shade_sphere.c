/* Shades a packet of rays with the library's per-ray arithmetic and prints the result as text.
 *
 * The rays leave an eye at the origin through a small image plane and hit (or miss) one sphere;
 * this program finds the hits itself, then hands the shading to the library: turning the
 * normals towards the eye, building the shadow rays to a point light, measuring the distance to
 * it and accumulating ambient and diffuse light. Run it to see which code path the library chose.
 */
#include <math.h>
#include <stdio.h>

#include "vtqr.h"

enum { kWidth = 64, kHeight = 32, kRays = kWidth * kHeight };

/* The packet's planes, 16-byte aligned so the library takes its four-wide paths. */
static _Alignas(16) Vtq32f dirX[kRays], dirY[kRays], dirZ[kRays];
static _Alignas(16) Vtq32f hitX[kRays], hitY[kRays], hitZ[kRays];
static _Alignas(16) Vtq32f normX[kRays], normY[kRays], normZ[kRays];
static _Alignas(16) Vtq32f shadowX[kRays], shadowY[kRays], shadowZ[kRays];
static _Alignas(16) Vtq32f eyeDot[kRays], lightDot[kRays], lightDist[kRays];
static _Alignas(16) Vtq32f red[kRays], green[kRays], blue[kRays];
static _Alignas(16) Vtq32f albedoR[kRays], albedoG[kRays], albedoB[kRays];
static _Alignas(16) Vtq32f ones[kRays];
static _Alignas(16) Vtq32s mask[kRays];
static int onSphere[kRays];

/* Ray/sphere test done by the caller: unit sphere at (0, 0, 2). Writes the hit point and the
 * outward normal, and -1 in the mask for a miss. */
static void IntersectSphere(void) {
  for (int i = 0; i < kRays; ++i) {
    const float cz = 2.0f;
    const float a = dirX[i] * dirX[i] + dirY[i] * dirY[i] + dirZ[i] * dirZ[i];
    const float b = -2.0f * dirZ[i] * cz;
    const float c = cz * cz - 1.0f;
    const float disc = b * b - 4.0f * a * c;
    mask[i] = disc >= 0.0f ? 0 : -1;
    const float t = disc >= 0.0f ? (-b - sqrtf(disc)) / (2.0f * a) : 0.0f;
    hitX[i] = dirX[i] * t;
    hitY[i] = dirY[i] * t;
    hitZ[i] = dirZ[i] * t;
    normX[i] = hitX[i];
    normY[i] = hitY[i];
    normZ[i] = hitZ[i] - cz;
  }
}

int main(void) {
  const VtqLibVersion* version = vtqrGetLibVersion();
  printf("%s %s, code path %s\n", version->name, version->version, version->targetCpu);

  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const int i = y * kWidth + x;
      dirX[i] = (x - kWidth / 2 + 0.5f) / kHeight; /* a character is twice as tall as wide */
      dirY[i] = (kHeight / 2 - y - 0.5f) / kHeight * 2.0f;
      dirZ[i] = 1.0f;
      albedoR[i] = 1.0f, albedoG[i] = 0.8f, albedoB[i] = 0.6f;
      red[i] = green[i] = blue[i] = 0.0f;
      ones[i] = 1.0f;
    }
  }
  IntersectSphere();

  const Vtq32f* dir[3] = {dirX, dirY, dirZ};
  const Vtq32f* hit[3] = {hitX, hitY, hitZ};
  Vtq32f* normal[3] = {normX, normY, normZ};
  const Vtq32f* normalIn[3] = {normX, normY, normZ};
  Vtq32f* shadow[3] = {shadowX, shadowY, shadowZ};
  const Vtq32f* albedo[3] = {albedoR, albedoG, albedoB};
  Vtq32f* colour[3] = {red, green, blue};
  const Vtq32f light[3] = {-4.0f, 4.0f, -1.0f};
  const Vtq32f lightColour[3] = {0.9f, 0.9f, 0.9f};
  const Vtq32f ambient[3] = {0.1f, 0.1f, 0.1f};

  /* Normals face the eye; eyeDot is minus the cosine term, as the shadow test expects. */
  VtqStatus status = vtqrDotChangeNorm_32f_IM(dir, mask, normal, eyeDot, kRays);
  /* Ambient light reaches every hit. */
  if (status == vtqStsOk) {
    status = vtqrAddMulMul_32f_AC1P3IM(ambient, ones, albedo, mask, colour, kRays);
  }
  for (int i = 0; i < kRays; ++i) onSphere[i] = mask[i] >= 0;
  /* Shadow rays from the light; points lit from behind drop out of the mask. */
  if (status == vtqStsOk) {
    status = vtqrCastShadowSO_32f(light, eyeDot, normalIn, hit, mask, lightDot, shadow, kRays);
  }
  /* |n . (p - light)| / |p - light| is the cosine at the hit (the sphere's normals are unit). */
  if (status == vtqStsOk) status = vtqrDistAttenuationSO_32f_M(light, hit, mask, lightDist, kRays);
  if (status == vtqStsOk) status = vtqrDiv_32f_C1IM(lightDist, mask, lightDot, kRays);
  if (status == vtqStsOk) {
    status = vtqrAddMulMul_32f_AC1P3IM(lightColour, lightDot, albedo, mask, colour, kRays);
  }
  if (status != vtqStsOk) {
    fprintf(stderr, "shading failed with status %d\n", (int)status);
    return 1;
  }

  static const char kRamp[] = ".:-=+*#%@";
  for (int y = 0; y < kHeight; ++y) {
    char line[kWidth + 1];
    for (int x = 0; x < kWidth; ++x) {
      const int i = y * kWidth + x;
      const float luminance = 0.3f * red[i] + 0.59f * green[i] + 0.11f * blue[i];
      int level = (int)(luminance * 8.0f + 0.5f);
      level = level > 8 ? 8 : level;
      line[x] = onSphere[i] ? kRamp[level] : ' ';
    }
    line[kWidth] = '\0';
    puts(line);
  }
  return 0;
}
