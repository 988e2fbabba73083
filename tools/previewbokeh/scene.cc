#include "scene.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace pbtool {
namespace {

struct Rgb {
  int r, g, b;
};

uint32_t Hash(uint32_t x, uint32_t y) {
  uint32_t h = x * 374761393u + y * 668265263u;
  h = (h ^ (h >> 13)) * 1274126177u;
  return h ^ (h >> 16);
}

uint8_t Clamp(int v) { return static_cast<uint8_t>(std::min(255, std::max(0, v))); }

// Layer membership in normalised coordinates, shared by the picture and the
// disparity map so that both describe the same geometry.
enum class Layer { kWall, kFloor, kPillar, kSubject };

Layer LayerAt(const SceneLayout &l, double u, double v) {
  const double fx = u * l.frame.width, fy = v * l.frame.height;
  const double dx = fx - l.subject_centre.x, dy = fy - l.subject_centre.y;
  if (dx * dx + dy * dy <= static_cast<double>(l.subject_radius) * l.subject_radius) {
    return Layer::kSubject;
  }
  if (fx >= l.midground.x0 && fx < l.midground.x1 && fy >= l.midground.y0 && fy < l.midground.y1) {
    return Layer::kPillar;
  }
  return fy >= l.horizon_y ? Layer::kFloor : Layer::kWall;
}

// Far wall: bricks with mortar lines and grain, so that blurring shows.
Rgb WallColour(int x, int y, int unit) {
  const int bh = std::max(2, unit), bw = 2 * bh;
  const int row = y / bh;
  const int shifted = x + (row % 2) * (bw / 2);
  const bool mortar = (y % bh) < std::max(1, bh / 6) || (shifted % bw) < std::max(1, bh / 6);
  if (mortar) return {200, 200, 190};
  const uint32_t brick = Hash(static_cast<uint32_t>(shifted / bw), static_cast<uint32_t>(row));
  const int grain = static_cast<int>(Hash(x, y) % 41) - 20;
  return {150 + static_cast<int>(brick % 60) + grain, 70 + static_cast<int>(brick % 30) + grain,
          50 + grain};
}

// Floor: checker tiles.
Rgb FloorColour(int x, int y, int unit) {
  const int t = std::max(2, 2 * unit);
  const bool dark = ((x / t) + (y / t)) % 2 == 0;
  const int grain = static_cast<int>(Hash(x + 7, y) % 21) - 10;
  return dark ? Rgb{60 + grain, 60 + grain, 80 + grain} : Rgb{190 + grain, 190 + grain, 170 + grain};
}

// Pillar: vertical green stripes.
Rgb PillarColour(int x, int /*y*/, int unit) {
  const bool stripe = (x / std::max(1, unit / 2)) % 2 == 0;
  return stripe ? Rgb{40, 150, 70} : Rgb{120, 210, 120};
}

// Subject: concentric rings and a fine checker, high contrast and sharp.
Rgb SubjectColour(const SceneLayout &l, int x, int y) {
  const double dx = x - l.subject_centre.x, dy = y - l.subject_centre.y;
  const int ring = static_cast<int>(std::sqrt(dx * dx + dy * dy) / std::max(2.0, l.subject_radius / 8.0));
  const bool check = ((x / 2) + (y / 2)) % 2 == 0;
  const int base = ring % 2 == 0 ? 230 : 40;
  const int fine = check ? 20 : -20;
  return {Clamp(base + fine), Clamp(ring % 3 == 0 ? 60 : 180 + fine), Clamp(255 - base + fine)};
}

int DisparityOf(const SceneLayout &l, Layer layer, double v) {
  switch (layer) {
    case Layer::kSubject:
      return kSceneSubjectDisparity;
    case Layer::kPillar:
      return kSceneMidgroundDisparity;
    case Layer::kFloor: {
      // Nearer towards the bottom edge, from the wall's disparity at the horizon.
      const double horizon = static_cast<double>(l.horizon_y) / l.frame.height;
      const double t = std::min(1.0, std::max(0.0, (v - horizon) / (1.0 - horizon)));
      return static_cast<int>(std::lround(kSceneBackgroundDisparity +
                                          t * (kSceneFloorNearDisparity - kSceneBackgroundDisparity)));
    }
    case Layer::kWall:
      break;
  }
  return kSceneBackgroundDisparity;
}

}  // namespace

SceneLayout MakeSceneLayout(Size frame) {
  SceneLayout l;
  l.frame = frame;
  l.disparity = {std::max(1, frame.width / 4), std::max(1, frame.height / 4)};
  const int w = frame.width, h = frame.height;
  l.subject_centre = {w * 62 / 100, h / 2};
  l.subject_radius = std::max(2, std::min(h * 3 / 10, w / 5));
  l.focus = l.subject_centre;
  l.midground = {w * 8 / 100, h * 25 / 100, w * 28 / 100, h * 85 / 100};
  l.horizon_y = h * 70 / 100;
  l.far_background = {w * 32 / 100, 0, w * 95 / 100, h * 15 / 100};
  return l;
}

Scene MakeDemoScene(Size frame) {
  Scene scene;
  scene.layout = MakeSceneLayout(frame);
  const SceneLayout &l = scene.layout;
  // Texture scale: bricks and tiles a few blur radii across, so the fixed
  // 11-tap blur shows at any frame size.
  const int unit = std::min(10, std::max(2, frame.height / 40));

  scene.rgb = Image(frame.width, frame.height, 3);
  for (int y = 0; y < frame.height; ++y) {
    uint8_t *row = scene.rgb.Row(y);
    for (int x = 0; x < frame.width; ++x) {
      const double u = (x + 0.5) / frame.width, v = (y + 0.5) / frame.height;
      Rgb c{};
      switch (LayerAt(l, u, v)) {
        case Layer::kWall: c = WallColour(x, y, unit); break;
        case Layer::kFloor: c = FloorColour(x, y, unit); break;
        case Layer::kPillar: c = PillarColour(x, y, unit); break;
        case Layer::kSubject: c = SubjectColour(l, x, y); break;
      }
      row[3 * x] = Clamp(c.r);
      row[3 * x + 1] = Clamp(c.g);
      row[3 * x + 2] = Clamp(c.b);
    }
  }

  const Size ds = l.disparity;
  scene.disparity.samples = Image(ds.width, ds.height, 1);
  for (int y = 0; y < ds.height; ++y) {
    uint8_t *row = scene.disparity.samples.Row(y);
    for (int x = 0; x < ds.width; ++x) {
      const double u = (x + 0.5) / ds.width, v = (y + 0.5) / ds.height;
      row[x] = static_cast<uint8_t>(DisparityOf(l, LayerAt(l, u, v), v));
    }
  }
  scene.disparity.header =
      MakeHeader(ds, kDefaultScaleNumerator, kDefaultScaleDenominator, 0);
  return scene;
}

}  // namespace pbtool
