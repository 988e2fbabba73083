#include "support/logs.h"

#include <algorithm>
#include <cstdio>

namespace pbtest {

std::vector<std::string> LogCapture::Texts() {
  std::vector<std::string> texts;
  for (auto &line : Take()) texts.push_back(line.text);
  return texts;
}

bool HasLine(const std::vector<std::string> &lines, const std::string &text) {
  return std::find(lines.begin(), lines.end(), text) != lines.end();
}

bool HasPrefix(const std::vector<std::string> &lines, const std::string &prefix) {
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string &l) { return l.rfind(prefix, 0) == 0; });
}

int RatioFromInitLog(const std::vector<std::string> &lines) {
  for (const auto &l : lines) {
    int ratio = 0;
    if (std::sscanf(l.c_str(), "sigma:%*f,SmoothWinSize:%*d,Scalingratio:%d", &ratio) == 1) return ratio;
  }
  return -1;
}

}  // namespace pbtest
