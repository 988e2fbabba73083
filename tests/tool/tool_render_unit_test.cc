// Unit tests of render's own modules: the output plan and the clean-up after
// a failed run, disparity hole filling, focus tracks, the aspect warning, the
// ratio a handle will use, dump recording and the weight output.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "dump_recording.h"
#include "errors.h"
#include "fill_holes.h"
#include "focus_track.h"
#include "option_checks.h"
#include "output_plan.h"
#include "pipeline.h"
#include "ratio_choice.h"
#include "tool_unit_support.h"
#include "weights_sink.h"

namespace fs = std::filesystem;
using namespace pbtool;
using namespace pbtool_unit;

namespace {

// Sets an environment variable for the scope and restores it after.
class ScopedEnv {
 public:
  ScopedEnv(const char *name, const char *value) : name_(name) {
    if (const char *old = std::getenv(name)) old_ = std::make_unique<std::string>(old);
    if (value) {
      setenv(name, value, 1);
    } else {
      unsetenv(name);
    }
  }
  ~ScopedEnv() {
    if (old_) {
      setenv(name_, old_->c_str(), 1);
    } else {
      unsetenv(name_);
    }
  }

 private:
  const char *name_;
  std::unique_ptr<std::string> old_;
};

using OutputPlanTest = InTempDir;

// Each case names the plan's inputs and outputs; the expected message parts
// are empty when the plan must pass. Paths are spelt differently from the
// inputs they alias (./, .., symbolic and hard links, a trailing '/').
TEST_F(OutputPlanTest, RefusesOutputsThatAreInputsOrEachOther) {
  fs::create_directories("in/sub");
  Touch("in/a.png");
  Touch("photo.png");
  Touch("old.png");
  fs::create_symlink("photo.png", "link.png");
  fs::create_hard_link("photo.png", "hard.png");
  fs::create_directory("outdir");
  struct Io {
    std::vector<std::string> in_files, in_dirs, out_files, out_dirs;
  };
  const struct {
    const char *name;
    Io io;
    bool force;
    std::vector<std::string> message;  // parts of the expected message; empty = accepted
  } cases[] = {
      {"fresh output", {{"photo.png"}, {}, {"new.png"}, {}}, false, {}},
      {"output is the input", {{"photo.png"}, {}, {"photo.png"}, {}}, true, {"'photo.png'", "is the input", "--image"}},
      {"dotted alias", {{"photo.png"}, {}, {"in/../photo.png"}, {}}, true, {"in/../photo.png", "'photo.png'"}},
      {"symbolic link", {{"photo.png"}, {}, {"link.png"}, {}}, true, {"link.png", "'photo.png'"}},
      {"hard link", {{"photo.png"}, {}, {"hard.png"}, {}}, true, {"hard.png", "'photo.png'"}},
      {"input through a symlink", {{"link.png"}, {}, {"./photo.png"}, {}}, true, {"./photo.png", "link.png"}},
      {"two outputs one file", {{}, {}, {"o.png", "./o.png"}, {}}, false, {"'./o.png'", "'o.png'", "also written"}},
      {"output dir is the input dir", {{"in/a.png"}, {"in"}, {"in/a2.png"}, {"in/"}}, false,
       {"'in/'", "is the input directory", "'in'"}},
      {"output dir inside the input dir", {{}, {"in"}, {}, {"in/sub/x"}}, false, {"in/sub/x", "lies inside"}},
      {"input dir inside the output dir", {{}, {"in/sub"}, {"in/b.png"}, {"in"}}, false, {}},
      {"sibling with a common prefix", {{}, {"in"}, {}, {"in2"}}, false, {}},
      {"existing output", {{}, {}, {"old.png"}, {}}, false, {"'old.png'", "exists", "--force"}},
      {"existing output forced", {{}, {}, {"old.png"}, {}}, true, {}},
      {"output is a directory", {{}, {}, {"outdir"}, {}}, true, {"'outdir'", "directory"}},
      {"output dir is a file", {{}, {}, {}, {"old.png"}}, true, {"'old.png'", "not a directory"}},
      {"file in a missing directory", {{}, {}, {"nodir/x.png"}, {}}, false, {"'nodir/x.png'", "does not exist"}},
      {"file in a planned directory", {{}, {}, {"new/sub/x.png"}, {"new"}}, false, {}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    OutputPlan plan;
    for (const auto &p : c.io.in_files) plan.AddInputFile(p, "--image");
    for (const auto &p : c.io.in_dirs) plan.AddInputDirectory(p, "--image");
    for (const auto &p : c.io.out_files) plan.AddOutputFile(p, "--out");
    for (const auto &p : c.io.out_dirs) plan.AddOutputDirectory(p, "--out");
    const std::string message = InputErrorOf([&] { plan.Check(c.force); });
    if (c.message.empty()) {
      EXPECT_EQ(message, "");
    } else {
      EXPECT_NE(message, "");
      for (const std::string &part : c.message) EXPECT_NE(message.find(part), std::string::npos) << message;
    }
  }
}

TEST_F(OutputPlanTest, ReplaceableOutputsStillCollide) {
  Touch("lib.log");
  OutputPlan plan;
  plan.AddOutputFile("lib.log", "--library-log", true);
  EXPECT_EQ(InputErrorOf([&] { plan.Check(false); }), "");
  plan.AddOutputFile("./lib.log", "--json");
  EXPECT_NE(InputErrorOf([&] { plan.Check(true); }).find("also written by"), std::string::npos);
}

TEST_F(OutputPlanTest, CleanupRemovesOnlyWhatTheRunCreated) {
  fs::create_directory("kept");
  Touch("kept/old.png");
  for (bool commit : {false, true}) {
    SCOPED_TRACE(commit);
    OutputPlan plan;
    plan.AddOutputFile("kept/old.png", "--out");
    plan.AddOutputFile("kept/new.png", "--out");
    plan.AddOutputDirectory("made/deeper", "--weights-out");
    plan.AddOutputFile("made/deeper/w.png", "--weights-out");
    {
      OutputCleanup cleanup(plan);
      fs::create_directories("made/deeper");
      Touch("made/deeper/w.png");
      Touch("kept/new.png");
      Touch("kept/old.png");
      if (commit) cleanup.Commit();
    }
    EXPECT_TRUE(fs::exists("kept/old.png"));
    EXPECT_EQ(fs::exists("kept/new.png"), commit);
    EXPECT_EQ(fs::exists("made/deeper/w.png"), commit);
    EXPECT_EQ(fs::exists("made"), commit);
    fs::remove_all("made");
    fs::remove("kept/new.png");
  }
  // A created directory holding something the plan does not know stays.
  OutputPlan plan;
  plan.AddOutputDirectory("made", "--out");
  {
    OutputCleanup cleanup(plan);
    fs::create_directory("made");
    Touch("made/other");
  }
  EXPECT_TRUE(fs::exists("made/other"));
}

// Zeros take the nearest non-zero sample of their row (the left one on a
// tie); rows without any take the nearest filled row's value per column
// (the upper one on a tie). Expected maps worked out by hand.
TEST(FillHoles, NearestValidSampleByRowThenColumn) {
  const struct {
    const char *name;
    int w, h;
    std::vector<uint8_t> in, expected;
    int holes;
  } cases[] = {
      {"no holes", 3, 1, {1, 2, 3}, {1, 2, 3}, 0},
      {"edges and ties", 7, 1, {0, 5, 0, 0, 9, 0, 0}, {5, 5, 5, 9, 9, 9, 9}, 5},
      {"tie goes left", 3, 1, {4, 0, 8}, {4, 4, 8}, 1},
      {"empty rows from columns", 3, 4,
       {0, 0, 0,
        7, 0, 3,
        0, 0, 0,
        0, 0, 0},
       {7, 7, 3,
        7, 7, 3,
        7, 7, 3,
        7, 7, 3}, 10},
      {"empty row between two, tie goes up", 2, 3,
       {1, 2,
        0, 0,
        5, 6},
       {1, 2,
        1, 2,
        5, 6}, 2},
      {"nearer row wins", 1, 5, {0, 0, 0, 0, 9}, {9, 9, 9, 9, 9}, 4},
      {"all zero", 2, 2, {0, 0, 0, 0}, {0, 0, 0, 0}, 4},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    Image map(c.w, c.h, 1);
    map.pixels = c.in;
    EXPECT_EQ(FillDisparityHoles(&map), c.holes);
    EXPECT_EQ(map.pixels, c.expected);
  }
}

TEST(FocusTrack, ParsesHeadersCommentsAndOptionalFNumber) {
  const std::string text =
      "# recorded focus\n"
      "frame, x, y, fnumber\n"
      "\n"
      "4, 10, 20\n"
      "1,30,40,8   # after a tap\n"
      "6, 0, 0, 2\r\n";
  const std::vector<FocusKey> keys = ParseFocusTrack(text, "t.csv", 8, {64, 48});
  ASSERT_EQ(keys.size(), 3u);
  EXPECT_EQ(keys[0].frame, 1);
  EXPECT_EQ(keys[0].f_number, 8);
  EXPECT_EQ(keys[1].frame, 4);
  EXPECT_EQ(keys[1].f_number, 0);
  EXPECT_EQ(keys[2].line, 6);

  // Frames 0 keeps the initial values; 2..3 keep frame 1's; frame 4 changes
  // the point only; 6..7 keep frame 6's.
  const std::vector<FrameFocus> f = ExpandFocusTrack(keys, 8, {{5, 5}, 4});
  const int expected[8][3] = {{5, 5, 4},   {30, 40, 8}, {30, 40, 8}, {30, 40, 8},
                              {10, 20, 8}, {10, 20, 8}, {0, 0, 2},   {0, 0, 2}};
  for (int i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(f[static_cast<size_t>(i)].focus.x, expected[i][0]);
    EXPECT_EQ(f[static_cast<size_t>(i)].focus.y, expected[i][1]);
    EXPECT_EQ(f[static_cast<size_t>(i)].f_number, expected[i][2]);
  }
}

TEST(FocusTrack, EveryBadValueNamesTheFileAndLine) {
  const struct {
    std::string text;
    std::string message;
  } cases[] = {
      {"0,1,1\n9,1,1\n", "t.csv line 2: frame 9 is outside 0..7"},
      {"0,64,1\n", "line 1: focus 64,1 is outside the 64x48 frame"},
      {"0,1,-2\n", "focus 1,-2 is outside"},
      {"0,1,1,21\n", "line 1: F_number 21 is outside 1..20"},
      {"x,y\n0,1\n", "line 2: '0,1' has 2 fields"},
      {"0,1.5,1\n", "line 1: x '1.5' is not a whole number"},
      {"0,1,1\n0,2,2\n", "line 2: frame 0 already has line 1"},
      {"frame,x,y\nframe,x,y\n", "line 2: frame 'frame'"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.text);
    const std::string message = InputErrorOf([&] { ParseFocusTrack(c.text, "t.csv", 8, {64, 48}); });
    EXPECT_NE(message.find("--focus-track: t.csv"), std::string::npos) << message;
    EXPECT_NE(message.find(c.message), std::string::npos) << message;
  }
}

TEST(OptionChecks, AspectWarningBeyondOnePercent) {
  const struct {
    Size frame, map;
    bool warns;
  } cases[] = {{{320, 240}, {80, 60}, false},   {{1920, 1080}, {480, 270}, false},
               {{1920, 1080}, {320, 320}, true}, {{1920, 1080}, {482, 270}, false},  // 0.4 %
               {{1920, 1080}, {486, 270}, true},                                     // 1.25 %
               {{640, 480}, {160, 121}, false}};                                     // 0.8 %
  for (const auto &c : cases) {
    SCOPED_TRACE(ToString(c.frame) + " " + ToString(c.map));
    const std::string w = AspectWarning(c.frame, c.map, "d.png");
    EXPECT_EQ(!w.empty(), c.warns) << w;
    if (c.warns) {
      for (const std::string &part : {std::string("d.png"), ToString(c.frame), ToString(c.map)}) {
        EXPECT_NE(w.find(part), std::string::npos) << w;
      }
    }
  }
}

TEST(RatioChoice, OptionThenEnvironmentUnderTheSizeRule) {
  const struct {
    Size frame;
    int option;
    const char *env;  // nullptr: unset
    int used;
    std::string reason;
  } cases[] = {
      {{320, 240}, 4, nullptr, 4, ""},
      {{320, 240}, 0, nullptr, 1, ""},
      {{320, 240}, 0, "8", 8, ""},
      {{320, 240}, 2, "8", 2, ""},                   // the option wins
      {{64, 48}, 4, nullptr, 1, "at least 64"},      // 48 rows < 16 x 4
      {{324, 240}, 4, nullptr, 1, "multiple of 8"},  // 324 is not a multiple of 2 x 4
      {{320, 240}, 0, "3", 1, "not one of"},
      {{320, 240}, 0, "4x", 1, "not one of"},
      {{320, 240}, 0, "1", 1, ""},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(ToString(c.frame) + " " + std::to_string(c.option) + " " + (c.env ? c.env : "-"));
    ScopedEnv env(kRatioEnvironment, c.env);
    const RatioChoice r = ChooseRatio(c.frame, c.option);
    EXPECT_EQ(r.used, c.used);
    if (c.reason.empty()) {
      EXPECT_EQ(r.reason, "");
    } else {
      EXPECT_NE(r.reason.find(c.reason), std::string::npos) << r.reason;
      EXPECT_NE(DescribeRatio(r).find("ratio 1, full resolution"), std::string::npos);
    }
  }
}

using DumpRecordingTest = InTempDir;

TEST_F(DumpRecordingTest, PreparesThePathAndCountsNewDumps) {
  const struct {
    const char *save, *path;
    bool active;
    std::string warning;  // "" when none
    const char *dir;      // the directory used
  } cases[] = {
      {nullptr, "d1/", false, "", ""},
      {"no", "d1/", false, "", ""},
      {"YES", "d1/", false, "only when it is exactly 'yes'", ""},
      {"yes", "d1/", true, "", "d1/"},
      {"yes", "d2/new/", true, "", "d2/new/"},
      {"yes", "d3", true, "does not end in '/'", "d3/"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.save ? c.save : "-") + " " + c.path);
    ScopedEnv save(kSaveEnvironment, c.save);
    ScopedEnv path(kPathEnvironment, c.path);
    std::vector<std::string> warnings, created;
    const DumpRecording d(&warnings, &created);
    EXPECT_EQ(d.active(), c.active);
    if (c.warning.empty()) {
      EXPECT_TRUE(warnings.empty()) << warnings[0];
    } else {
      ASSERT_EQ(warnings.size(), 1u);
      EXPECT_NE(warnings[0].find(c.warning), std::string::npos) << warnings[0];
    }
    if (!c.active) continue;
    EXPECT_EQ(d.directory(), c.dir);
    EXPECT_EQ(std::getenv(kPathEnvironment), std::string(c.dir));  // what the library will read
    EXPECT_TRUE(fs::is_directory(c.dir));
    Touch(std::string(c.dir) + "imagein_8x8_1.img");
    Touch(std::string(c.dir) + "weightin_8x8_1.img");
    Touch(std::string(c.dir) + "notes.txt");
    Touch(std::string(c.dir) + "imagein_8x8_1.png");
    EXPECT_EQ(d.CountWritten(), 2);
  }
  // Only the new and the rewritten count.
  ScopedEnv save(kSaveEnvironment, "yes");
  ScopedEnv path(kPathEnvironment, "d1/");
  std::vector<std::string> warnings, created;
  const DumpRecording again(&warnings, &created);
  EXPECT_TRUE(created.empty());
  EXPECT_EQ(again.CountWritten(), 0);
  fs::last_write_time("d1/imagein_8x8_1.img", fs::last_write_time("d1/imagein_8x8_1.img") + std::chrono::seconds(2));
  Touch("d1/imageout_8x8_1.img");
  EXPECT_EQ(again.CountWritten(), 2);
  // A path that cannot be a directory is refused.
  ScopedEnv bad(kPathEnvironment, "d1/imageout_8x8_1.img/");
  EXPECT_NE(InputErrorOf([&] { DumpRecording(&warnings, &created); }).find(kPathEnvironment), std::string::npos);
}

TEST(WeightsOut, KindsAndLittleEndianSamples) {
  EXPECT_EQ(ClassifyWeightsOut("w.png", false), WeightsKind::kImage);
  EXPECT_EQ(ClassifyWeightsOut("w.W16", true), WeightsKind::kRaw);
  EXPECT_EQ(ClassifyWeightsOut("w.raw", false), WeightsKind::kRaw);
  EXPECT_EQ(ClassifyWeightsOut("wdir", true), WeightsKind::kDirectory);
  EXPECT_NE(InputErrorOf([] { ClassifyWeightsOut("w.jpg", true); }).find("sequence"), std::string::npos);
  EXPECT_NE(InputErrorOf([] { ClassifyWeightsOut("wdir", false); }).find("extension"), std::string::npos);
  EXPECT_EQ(WeightsFileFor("wdir", WeightsKind::kDirectory, "f1"), "wdir/f1.png");
  EXPECT_EQ(WeightsToLittleEndian({0x0102, 1024, 0}), (std::vector<uint8_t>{0x02, 0x01, 0x00, 0x04, 0, 0}));
}

}  // namespace
