#include "fill_holes.h"

#include <vector>

namespace pbtool {
namespace {

// Fills the zeros of a line of n samples `stride` apart from their nearest
// non-zero neighbour (the earlier one on a tie). False when the line has none.
bool FillLine(uint8_t *p, int n, int stride) {
  // Distance and value of the nearest non-zero sample before each position.
  std::vector<int> before(static_cast<size_t>(n), -1);
  int last = -1;
  for (int i = 0; i < n; ++i) {
    if (p[i * stride] != 0) last = i;
    before[static_cast<size_t>(i)] = last;
  }
  if (last < 0) return false;
  int next = -1;
  for (int i = n - 1; i >= 0; --i) {
    if (p[i * stride] != 0) {
      next = i;
      continue;
    }
    const int b = before[static_cast<size_t>(i)];
    const int from = b < 0 ? next : next < 0 ? b : (i - b <= next - i ? b : next);
    p[i * stride] = p[from * stride];
  }
  return true;
}

}  // namespace

int FillDisparityHoles(Image *map) {
  const int w = map->width, h = map->height;
  int holes = 0;
  for (uint8_t v : map->pixels) holes += v == 0;
  if (holes == 0) return 0;
  std::vector<bool> empty_row(static_cast<size_t>(h));
  bool any_filled_row = false;
  for (int y = 0; y < h; ++y) {
    empty_row[static_cast<size_t>(y)] = !FillLine(map->Row(y), w, 1);
    any_filled_row = any_filled_row || !empty_row[static_cast<size_t>(y)];
  }
  if (!any_filled_row) return holes;
  // Rows without a valid sample: after the row pass every other row is full,
  // so each column's nearest non-zero sample comes from the nearest full row.
  for (int x = 0; x < w; ++x) FillLine(map->pixels.data() + x, h, w);
  return holes;
}

}  // namespace pbtool
