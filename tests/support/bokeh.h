// A bokeh handle made through the public interface, with the log of its
// creation, for tests that drive whole frames.
#ifndef PREVIEWBOKEH_TESTS_SUPPORT_BOKEH_H_
#define PREVIEWBOKEH_TESTS_SUPPORT_BOKEH_H_

#include <cstdint>
#include <string>
#include <vector>

#include "platform/test_hooks.h"
#include "previewbokeh/bokeh.h"
#include "support/assist.h"

namespace pbtest {

// `ratio`, when not empty, is set as the ratio property for the creation, and
// `fail_nth` makes that allocation of the creation fail.
struct Bokeh {
  Bokeh(int width, int height, const std::string &ratio = "", long fail_nth = 0);
  ~Bokeh();
  Bokeh(const Bokeh &) = delete;
  Bokeh &operator=(const Bokeh &) = delete;

  // Sets the weight map (focus point 7, 9) and blurs src into dst.
  int Blur(int f_number, const uint16_t *weights, const GraphicFrame &src,
           const GraphicFrame &dst);
  // Blurs `src` in place, or into a graphic buffer of 0x5A bytes, and returns
  // the destination bytes.
  std::vector<uint8_t> Blur(const std::vector<uint8_t> &src, const std::vector<uint16_t> &weights,
                            int f_number, bool in_place);

  int width, height;
  BokehInitParams params{};
  void *handle = nullptr;
  int status = -1;
  std::vector<pb::hooks::LogLine> lines;
  std::vector<std::string> log;  // the texts of `lines`
};

}  // namespace pbtest

#endif  // PREVIEWBOKEH_TESTS_SUPPORT_BOKEH_H_
