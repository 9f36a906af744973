// Internal view of the SH state record shared by the state, basis and transform sources.
#ifndef VTQR_SH_SH_STATE_H_
#define VTQR_SH_SH_STATE_H_

#include <cstddef>

#include "frame/code_path.h"
#include "vtqr/sh.h"

VTQR_PATH_BEGIN
namespace sh {

// Highest band either method evaluates; a full set then holds 256 values.
inline constexpr Vtq32u kMaxEvalOrder = 15;
inline constexpr size_t kMaxSetSize = 256;

// A direct-method state needs only its two fields, so its buffer is 16 bytes and the record's
// tableB lies outside it: never touch pState->tableB of a direct state.
inline constexpr Vtq32u kDirectStateSize = 16;

// Number of floats in each recurrence table for bands 0..order, T = (order+1)(order+2)/2,
// in the wrapping unsigned 32-bit arithmetic of the size query.
Vtq32u RecurrenceTableLength(Vtq32u order);

// First 16-byte-aligned address at or after `address`.
float* AlignUp16(void* address);

// Fills the two recurrence tables for bands 0..order; see the header of the state for the
// entries. Both tables must be cleared beforehand.
void FillRecurrenceTables(float* a, float* b, Vtq32u order);

}  // namespace sh
VTQR_PATH_END

#endif  // VTQR_SH_SH_STATE_H_
