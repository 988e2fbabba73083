// Per-frame disparity range table: maps a raw disparity value to a value
// inversely proportional to it, from the frame header's scale fields.
#ifndef PREVIEWBOKEH_WEIGHT_RANGE_TABLE_H_
#define PREVIEWBOKEH_WEIGHT_RANGE_TABLE_H_

#include <cstdint>

#include "previewbokeh/weight.h"
#include "simd/kernel_table.h"

namespace pb {

// Float -> integer conversions truncating toward zero and saturating at the
// integer range, NaN giving 0 (the behaviour of the Arm conversion
// instructions, made explicit so that every target gives the same result).
int32_t TruncToInt32(float f);
int64_t TruncToInt64(double d);

// Fills table[0..255] from the header (which need not be aligned).
void BuildRangeTable(const DisparityFrame *header, uint8_t table[256]);

// out[i] = table[samples[i]] for i < count; a count below 1 writes nothing.
// ApplyRangeFn (simd/kernel_table.h):
//   ApplyRangeTable_C     one sample at a time
//   ApplyRangeTable_NEON  the first count & ~15 samples sixteen at a time
//     (the table as four 64-byte look-ups), the rest one at a time.

}  // namespace pb

#endif  // PREVIEWBOKEH_WEIGHT_RANGE_TABLE_H_
