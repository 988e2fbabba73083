// Frame data and a plain single-threaded model of the bokeh frame, written
// from the documented formulas independently of the library's kernels.
#ifndef PREVIEWBOKEH_TESTS_SUPPORT_FRAMES_H_
#define PREVIEWBOKEH_TESTS_SUPPORT_FRAMES_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pbtest {

std::vector<uint8_t> RandomBytes(size_t n, uint32_t seed);
std::vector<uint16_t> RandomWeights(size_t n, uint32_t seed, uint16_t max_weight);

// Fills the header fields of a disparity frame (header followed by its samples)
// that the weight engine reads: the Q19 scale and the reference and sample width.
void SetDisparityHeader(uint8_t *frame, int32_t numerator_q19, int32_t denominator_q19,
                        uint16_t width);

// The 11-tap Gaussian of the blur, in 1/1024.
extern const uint16_t kGaussian11[11];

// Whole-frame model at full resolution: each plane smoothed with edge
// replication (luma: one channel; chroma: interleaved pairs), mixed with
// the source under the weights (chroma weight from the top-left luma pixel of
// each 2x2 block), strips of height/2 (luma) and (height/2)/2 (chroma) rows,
// remainder rows left as `dst` had them. Weights must satisfy m * alpha <= 131135.
void ModelFrame(const uint8_t *src, const uint16_t *weights, int width, int height,
                uint8_t alpha, uint8_t *dst);

}  // namespace pbtest

#endif  // PREVIEWBOKEH_TESTS_SUPPORT_FRAMES_H_
