#include "support/bokeh.h"

#include <gtest/gtest.h>

#include <cstring>

#include "platform/property.h"
#include "support/logs.h"

namespace pbtest {

Bokeh::Bokeh(int width, int height, const std::string &ratio, long fail_nth)
    : width(width), height(height) {
  Assist();
  params.width = width;
  params.height = height;
  if (!ratio.empty()) pb::SetProperty("persist.vendor.cam.prebokeh_ratio", ratio.c_str());
  LogCapture capture;
  pb::hooks::FailAllocation(fail_nth);
  status = iBokehInit(&handle, &params);
  pb::hooks::FailAllocation(0);
  lines = capture.Take();
  for (const auto &line : lines) log.push_back(line.text);
  if (!ratio.empty()) pb::hooks::ResetProperties();
}

Bokeh::~Bokeh() {
  if (status == 0) iBokehDeinit(handle);
}

int Bokeh::Blur(int f_number, const uint16_t *weights, const GraphicFrame &src,
                const GraphicFrame &dst) {
  BokehFrameParams fp{};
  fp.F_number = f_number;
  fp.sel_x = 7;
  fp.sel_y = 9;
  fp.WeightMap = weights;
  EXPECT_EQ(iBokehCreateWeightMap(handle, &fp), 0);
  return iBokehBlurImage(handle, src.buffer(), dst.buffer());
}

std::vector<uint8_t> Bokeh::Blur(const std::vector<uint8_t> &src,
                                 const std::vector<uint16_t> &weights, int f_number,
                                 bool in_place) {
  GraphicFrame a(width, height), b(width, height);
  std::memcpy(a.data(), src.data(), a.size());
  std::memset(b.data(), 0x5A, b.size());
  const GraphicFrame &dst = in_place ? a : b;
  EXPECT_EQ(Blur(f_number, weights.data(), a, dst), 0);
  return std::vector<uint8_t>(dst.data(), dst.data() + dst.size());
}

}  // namespace pbtest
