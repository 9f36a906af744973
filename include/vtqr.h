/* vtqr: CPU rendering kernels with a plain C ABI.
 *
 * The library exports flat functions over caller-owned arrays in three families: ray tracing
 * of triangle meshes, spherical-harmonic lighting and volume resampling and filtering.
 * Include this header; it pulls in the family headers below.
 *
 * Conventions shared by every function:
 *  - The result is a VtqStatus. Arguments are checked in the order each function documents;
 *    the first failed check decides the status and nothing is written after it. Pointers that
 *    a function documents as unchecked are the caller's responsibility.
 *  - P3 arguments are arrays of three plane pointers in the order x, y, z (or the three colour
 *    channels). Input planes are `const Vtq32f* const[3]`: declare them as
 *    `const Vtq32f* planes[3] = {x, y, z};` to pass them from C without a cast.
 *  - Per-ray masks hold one Vtq32s per ray; zero or positive means live, negative means dead.
 *    The intersection functions write the hit triangle's number, or -1 for a miss, so their
 *    output serves as the mask of the shading functions.
 *  - Ray functions treat a count below 1 as "nothing to do" and return vtqStsOk.
 *  - Which code path runs (u8 or n8) is decided once, when the library is loaded, from
 *    vtqGetEnabledCpuFeatures(); vtqrGetLibVersion() tells which one it is. Both paths give
 *    bit-identical results.
 */
#ifndef VTQR_H
#define VTQR_H

#include "vtqr/accel.h"
#include "vtqr/frame.h"
#include "vtqr/raycast.h"
#include "vtqr/sh.h"
#include "vtqr/types.h"
#include "vtqr/version.h"
#include "vtqr/volume.h"

#endif /* VTQR_H */
