// Internal view of the SH state record shared by the state, basis and transform sources.
#ifndef VTQR_SH_SH_STATE_H_
#define VTQR_SH_SH_STATE_H_

#include <cstddef>
#include <cstdint>

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

// The recurrence state's size in bytes, ((T*8 + 30) & ~31) + 32 with T = (order+1)(order+2)/2,
// computed exactly; valid for orders below 2^30, where nothing overflows 64 bits.
constexpr uint64_t ExactRecurrenceStateSize(uint64_t order) {
  const uint64_t t = (order + 1) * (order + 2) / 2;
  return ((t * 8 + 30) & ~uint64_t{31}) + 32;
}

// Highest order whose recurrence state size fits the size query's 32 bits. Above it the 32-bit
// arithmetic would wrap to a small size that cannot hold the tables, so such orders are refused.
// The size grows with the order, so one bound separates the two.
inline constexpr Vtq32u kMaxRecurrenceOrder = 32766;
static_assert(ExactRecurrenceStateSize(kMaxRecurrenceOrder) <= UINT32_MAX);
static_assert(ExactRecurrenceStateSize(kMaxRecurrenceOrder + 1) > UINT32_MAX);

// Number of floats in each recurrence table for bands 0..order, T = (order+1)(order+2)/2, in
// the unsigned 32-bit arithmetic of the size query (exact up to kMaxRecurrenceOrder).
Vtq32u RecurrenceTableLength(Vtq32u order);

// First 16-byte-aligned address at or after `address`.
float* AlignUp16(void* address);

// Fills the two recurrence tables for bands 0..order; see the header of the state for the
// entries. Both tables must be cleared beforehand.
void FillRecurrenceTables(float* a, float* b, Vtq32u order);

}  // namespace sh
VTQR_PATH_END

#endif  // VTQR_SH_SH_STATE_H_
