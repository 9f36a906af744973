/* vtqr: library version and code path. */
#ifndef VTQR_FRAME_H
#define VTQR_FRAME_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the version record of the code path chosen at load time. The record is constant and
 * owned by the library: do not write or free it. Never fails. */
VTQR_API const VtqLibVersion* vtqrGetLibVersion(void);

#ifdef __cplusplus
}
#endif

#endif /* VTQR_FRAME_H */
