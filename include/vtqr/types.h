/* vtqr: element types, status codes and the version record shared by every function. */
#ifndef VTQR_TYPES_H
#define VTQR_TYPES_H

#include <stdint.h>

#if defined(__GNUC__)
#define VTQR_API __attribute__((visibility("default")))
#else
#define VTQR_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Element types, named by the suffixes of the function names ------------------------------ */

typedef uint8_t Vtq8u;
typedef uint16_t Vtq16u;
typedef int16_t Vtq16s;
typedef int32_t Vtq32s;
typedef uint32_t Vtq32u;
typedef uint64_t Vtq64u;
typedef float Vtq32f;

/* Size of a block of pixels or rays, passed by value: width first, then height. */
typedef struct VtqSize {
  int width;
  int height;
} VtqSize;

/* Status codes ------------------------------------------------------------------------------ */

/* Every function except vtqrGetLibVersion returns a VtqStatus: 0 is success, negative values
 * are errors, positive values are warnings. A function checks its arguments in a documented
 * order and returns at the first failed check without writing any output. */
typedef int32_t VtqStatus;

enum VtqStatusCode {
  vtqStsOk = 0,                 /* success */
  vtqStsWarnNoOperation = 1,    /* the destination region is empty; nothing done */
  vtqStsWarnDivByZero = 6,      /* a division by zero occurred */
  vtqStsWarnVoiOutside = 40,    /* the source region origin lies outside the volume */
  vtqStsErrNoMem = -4,          /* memory budget below the minimum, or an allocation failed */
  vtqStsErrBadArg = -5,         /* unknown KD-tree build algorithm selector */
  vtqStsErrSize = -6,           /* a size or count is not acceptable */
  vtqStsErrBadValue = -7,       /* unknown SH method, or SH order or band out of range */
  vtqStsErrNullPtr = -8,        /* a required pointer is null */
  vtqStsErrMemBudget = -9,      /* the KD-tree build ran out of its memory budget */
  vtqStsErrOutOfRange = -11,    /* a build parameter lies outside its range */
  vtqStsErrInterpolation = -22, /* interpolation code not accepted */
  vtqStsErrResizeFactor = -23,  /* a resize factor is not positive */
  vtqStsErrChannels = -53,      /* the channel count is not 1 */
  vtqStsErrCoeff = -56          /* the affine coefficient matrix is rejected */
};

/* Version record ---------------------------------------------------------------------------- */

/* Describes the library and the code path chosen when it was loaded. */
typedef struct VtqLibVersion {
  int32_t major;         /* 7 */
  int32_t minor;         /* 1 */
  int32_t majorBuild;    /* 0 */
  int32_t build;         /* 36264 */
  char targetCpu[4];     /* "u8" or "n8", zero-filled: the active code path */
  const char* name;      /* "vtqRR SSSE3 (u8)" or "vtqRR Vell (n8)" */
  const char* version;   /* "7.1.0 (r36264)" */
  const char* buildDate; /* "Jul 23 2012" */
} VtqLibVersion;

#ifdef __cplusplus
}
#endif

#endif /* VTQR_TYPES_H */
