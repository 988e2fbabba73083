// The depth-weight engine record behind WeightContext.engine.
#ifndef PREVIEWBOKEH_WEIGHT_WEIGHT_ENGINE_H_
#define PREVIEWBOKEH_WEIGHT_WEIGHT_ENGINE_H_

#include <cstdint>

namespace pb {

struct WeightEngine {
  int32_t DisparityWinSize;
  uint16_t *SmoothKernel;  // 2h + 1 taps (h = DisparityWinSize / 2), zero past the window
  int32_t sel_x;           // focus point of the current call, clamped into the map
  int32_t sel_y;
  int32_t F_Index;         // 20 - F_number
  int32_t Gain;            // WeightGainTable[F_Index]
  int32_t WeightWidth;
  int32_t WeightHeight;
  int32_t DisparityWidth;
  int32_t DisparityHeight;
  const uint8_t *Disparity;  // samples of the current frame (frame start + 68)
  uint8_t *RangedDisparity;  // DisparityWidth x DisparityHeight
  uint8_t *ExpandDisparity;  // padded scratch of the smoothing, W2 x H2
  uint32_t *TempimDisparity; // intermediate scratch of the smoothing, W2 x (H2 + 1) words
  uint8_t *SmoothDisparity;  // DisparityWidth x DisparityHeight
  uint8_t BandScale;         // 50
  uint16_t *WeightMap;       // allocated and counted, never written (the map goes to the caller)
  int32_t HistMinNumberRatio;
  int32_t HistMinRange;
  uint16_t Histogram[256];
};

// Gain per F_Index (20 - F_number); all unity (128), kept as a table.
constexpr int32_t kWeightGainTableSize = 20;
extern const uint8_t WeightGainTable[kWeightGainTableSize];

}  // namespace pb

#endif  // PREVIEWBOKEH_WEIGHT_WEIGHT_ENGINE_H_
