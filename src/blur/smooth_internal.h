// Pieces shared by the scalar and vector smoothing: argument screening and the
// per-sample arithmetic of both passes.
#ifndef PREVIEWBOKEH_BLUR_SMOOTH_INTERNAL_H_
#define PREVIEWBOKEH_BLUR_SMOOTH_INTERNAL_H_

#include <cstdint>

namespace pb {
namespace smooth {

// Largest radius accepted (65535 taps); larger ones are refused with a log line.
constexpr int32_t kMaxRadius = 32767;

enum class Plan {
  kSkip,  // nothing to write (empty row range, or refused arguments: logged)
  kZero,  // negative radius: rows first..last are written as zeros
  kRun,   // arguments are valid: smooth
};

// Screens the arguments of a smoothing call. `name` prefixes the log line of
// refused arguments. Chroma requires an even width.
Plan Screen(const char *name, bool chroma, const uint8_t *input, const uint8_t *output,
            int32_t width, int32_t height, const uint16_t *kernel, int32_t hradius,
            int32_t vradius, const uint8_t *intermediate, int32_t firstRow, int32_t lastRow);

// Writes zeros into rows first..last.
void ZeroRows(uint8_t *output, int32_t width, int32_t firstRow, int32_t lastRow);

// Screens a smoothing call and writes the zero rows of a negative radius; true
// when the plane is to be smoothed.
inline bool ScreenOrZero(const char *name, bool chroma, const uint8_t *input, uint8_t *output,
                         int32_t width, int32_t height, const uint16_t *kernel, int32_t hradius,
                         int32_t vradius, const uint8_t *intermediate, int32_t firstRow,
                         int32_t lastRow) {
  switch (Screen(name, chroma, input, output, width, height, kernel, hradius, vradius, intermediate,
                 firstRow, lastRow)) {
    case Plan::kSkip:
      return false;
    case Plan::kZero:
      ZeroRows(output, width, firstRow, lastRow);
      return false;
    case Plan::kRun:
      break;
  }
  return true;
}

// (acc + 512) >> 10 with the rounding addition done without wrap-around.
inline uint32_t RoundShift10(uint32_t acc) {
  return static_cast<uint32_t>((static_cast<uint64_t>(acc) + 512u) >> 10);
}

inline uint8_t Saturate8(uint32_t v) { return static_cast<uint8_t>(v > 255u ? 255u : v); }

}  // namespace smooth

}  // namespace pb

#endif  // PREVIEWBOKEH_BLUR_SMOOTH_INTERNAL_H_
