// The built-in demo scene: a textured far background with a floor, a
// mid-ground pillar and a sharp foreground subject, with a matching disparity
// map at a quarter of the frame size.
#ifndef PREVIEWBOKEH_TOOL_SCENE_H_
#define PREVIEWBOKEH_TOOL_SCENE_H_

#include "cli.h"
#include "disparity.h"
#include "image_io.h"

namespace pbtool {

// Disparity of each layer (0 = infinitely far, 255 = nearest).
constexpr int kSceneBackgroundDisparity = 20;
constexpr int kSceneMidgroundDisparity = 55;
constexpr int kSceneSubjectDisparity = 170;
constexpr int kSceneFloorNearDisparity = 110;  // floor at the bottom edge

// Pixel rectangle, inclusive-exclusive.
struct Rect {
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  bool Contains(int x, int y) const { return x >= x0 && x < x1 && y >= y0 && y < y1; }
};

// Where things are, in frame pixels.
struct SceneLayout {
  Size frame;
  Size disparity;       // disparity map size (frame / 4, at least 1x1)
  Point focus;          // on the subject's centre
  Point subject_centre;
  int subject_radius = 0;
  Rect midground;       // the pillar
  Rect far_background;  // a patch of plain far wall, away from every other layer
  int horizon_y = 0;    // the floor starts here
};

SceneLayout MakeSceneLayout(Size frame);

struct Scene {
  SceneLayout layout;
  Image rgb;              // frame-sized RGB picture
  DisparityMap disparity; // header values as for render's defaults
};

// Deterministic: the same size gives the same scene.
Scene MakeDemoScene(Size frame);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_SCENE_H_
