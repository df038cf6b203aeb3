// The built program in scratch folders: results, error lines, exit status,
// and that a failure leaves no output behind.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>

#include "demosaic_call.h"
#include "dng_file.h"
#include "tool_test_support.h"

namespace {

struct Run_result {
  int status = -1;
  std::string out;
  std::string err;
};

std::string text_of(const std::string& path) {
  const auto bytes = tool_test::read_bytes(path);
  return {bytes.begin(), bytes.end()};
}

// Runs the program with `arguments` (shell words) in `folder`; its output
// goes to files outside the folder so that the folder holds only results.
Run_result run_tool(const tool_test::Scratch_folder& folder, const std::string& arguments) {
  const tool_test::Scratch_folder logs;
  const std::string command = "cd '" + folder.path().string() + "' && '" OQA_DEMOSAIC_PROGRAM "' " +
                              arguments + " >'" + logs.file("out") + "' 2>'" + logs.file("err") +
                              "'";
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text_of(logs.file("out")),
          text_of(logs.file("err"))};
}

std::vector<std::uint8_t> pgm(int width, int height, const std::vector<std::uint16_t>& samples) {
  const std::string header =
      "P5\n" + std::to_string(width) + " " + std::to_string(height) + "\n65535\n";
  std::vector<std::uint8_t> bytes(header.begin(), header.end());
  for (const std::uint16_t sample : samples) {
    bytes.push_back(static_cast<std::uint8_t>(sample >> 8));
    bytes.push_back(static_cast<std::uint8_t>(sample & 0xFF));
  }
  return bytes;
}

std::vector<std::uint16_t> little_endian_samples(const std::vector<std::uint8_t>& bytes) {
  std::vector<std::uint16_t> samples;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    samples.push_back(static_cast<std::uint16_t>(bytes[i] | bytes[i + 1] << 8));
  }
  return samples;
}

std::size_t line_count(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(Command, OutputEqualsTheLibrarysOnTheSameSamples) {
  const tool_test::Scratch_folder folder;
  const auto samples = tool_test::random_samples(31 * 19, 4);
  tool_test::write_bytes(folder.file("in.pgm"), pgm(31, 19, samples));
  const Run_result run = run_tool(
      folder, "in.pgm --pattern GBRG --origin=-1,2 --layout bgr-planar --level scalar -o out.raw");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("1 file done, 0 failed"), std::string::npos) << run.out;

  const oqa_tool::Library_session library;
  oqa_tool::Colour_image expected;
  oqa_tool::demosaic({31, 19, samples, std::nullopt},
                     {QN_CFA_PHASE_GREEN_IN_BLUE_ROW, -1, 2, QN_COLOR_FORMAT_BGR_PLANAR}, expected);
  EXPECT_EQ(little_endian_samples(tool_test::read_bytes(folder.file("out.raw"))), expected.samples);
}

TEST(Command, CameraRawTakesThePatternFromTheFile) {
  const tool_test::Scratch_folder folder;
  tool_test::Dng_description dng;
  dng.raw_width = 30;
  dng.raw_height = 24;
  dng.samples = tool_test::random_samples(30 * 24, 8);
  dng.cfa_pattern = {2, 1, 1, 0};  // BGGR
  ASSERT_TRUE(tool_test::write_dng(folder.file("frame.dng"), dng));
  const Run_result run = run_tool(folder, "frame.dng --layout rgb -o frame.raw");
  ASSERT_EQ(run.status, 0) << run.err;

  const oqa_tool::Library_session library;
  oqa_tool::Colour_image expected;
  oqa_tool::demosaic({30, 24, dng.samples, std::nullopt},
                     {QN_CFA_PHASE_BLUE, 0, 0, QN_COLOR_FORMAT_RGB_INTERLEAVED}, expected);
  EXPECT_EQ(little_endian_samples(tool_test::read_bytes(folder.file("frame.raw"))),
            expected.samples);
}

struct Failing_run {
  const char* name;
  const char* arguments;
  const char* named_file;
  const char* problem;
};

class Command_failure : public testing::TestWithParam<Failing_run> {};

TEST_P(Command_failure, OneLineNamingTheFileNoOutputAndNonZeroStatus) {
  const tool_test::Scratch_folder folder;
  tool_test::write_bytes(folder.file("good.pgm"), pgm(8, 6, tool_test::random_samples(48, 1)));
  tool_test::write_bytes(folder.file("short.pgm"),
                         {'P', '5', ' ', '8', ' ', '6', ' ', '2', '5', '5', '\n', 1, 2, 3});
  tool_test::write_bytes(folder.file("thin.pgm"), pgm(1, 5, {1, 2, 3, 4, 5}));
  tool_test::write_bytes(folder.file("noise.bin"), {0x17, 0x42, 0x99, 0x00, 0x13, 0x37, 0x55});
  const std::vector<std::string> before = folder.entries();

  const Run_result run = run_tool(folder, GetParam().arguments);
  EXPECT_NE(run.status, 0);
  EXPECT_EQ(line_count(run.err), 1U) << run.err;
  EXPECT_NE(run.err.find(GetParam().named_file), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(GetParam().problem), std::string::npos) << run.err;
  EXPECT_EQ(folder.entries(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Errors, Command_failure,
    testing::Values(Failing_run{"Missing", "absent.pgm --pattern RGGB -o out.tiff", "absent.pgm",
                                "No such file"},
                    Failing_run{"Truncated", "short.pgm --pattern RGGB -o out.tiff", "short.pgm",
                                "truncated"},
                    Failing_run{"Unrecognised", "noise.bin --pattern RGGB -o out.tiff", "noise.bin",
                                "unrecognised"},
                    Failing_run{"WrongRawSize", "noise.bin --raw 2x2 --pattern RGGB -o out.tiff",
                                "noise.bin", "headerless"},
                    Failing_run{"BelowTwoByTwo", "thin.pgm --pattern RGGB -o out.tiff", "thin.pgm",
                                "at least 2x2"},
                    Failing_run{"NoPattern", "good.pgm -o out.tiff", "good.pgm", "--pattern"},
                    Failing_run{"UnwritableOutput", "good.pgm --pattern RGGB -o no/such/out.tiff",
                                "no/such/out.tiff", "No such file"},
                    Failing_run{"UnknownOutputType", "good.pgm --pattern RGGB -o out.jpg",
                                "out.jpg", "output type"},
                    Failing_run{"FolderInput", "--pattern RGGB . -o out.tiff", ".", "folder"}),
    [](const testing::TestParamInfo<Failing_run>& info) { return info.param.name; });

TEST(Command, BatchGoesOnPastABadFile) {
  const tool_test::Scratch_folder folder;
  for (const char* name : {"a.pgm", "c.pgm"}) {
    tool_test::write_bytes(folder.file(name), pgm(12, 10, tool_test::random_samples(120, 2)));
  }
  tool_test::write_bytes(folder.file("b.pgm"), {'P', '5', '\n', '9'});
  const Run_result run =
      run_tool(folder, "a.pgm b.pgm c.pgm --pattern BGGR --type png --jobs 2 -o out");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(line_count(run.err), 1U) << run.err;
  EXPECT_NE(run.err.find("b.pgm"), std::string::npos) << run.err;
  EXPECT_NE(run.out.find("2 files done, 1 failed"), std::string::npos) << run.out;
  EXPECT_EQ(tool_test::Scratch_folder::list(folder.path() / "out"),
            (std::vector<std::string>{"a.png", "c.png"}));
}

TEST(Command, ExistingOutputIsReplacedOnlyWithForce) {
  const tool_test::Scratch_folder folder;
  tool_test::write_bytes(folder.file("in.pgm"), pgm(6, 4, tool_test::random_samples(24, 3)));
  tool_test::write_bytes(folder.file("out.ppm"), {'o', 'l', 'd'});

  const Run_result refused = run_tool(folder, "in.pgm --pattern RGGB -o out.ppm");
  EXPECT_NE(refused.status, 0);
  EXPECT_NE(refused.err.find("--force"), std::string::npos) << refused.err;
  EXPECT_EQ(text_of(folder.file("out.ppm")), "old");

  const Run_result forced = run_tool(folder, "in.pgm --pattern RGGB -o out.ppm --force");
  EXPECT_EQ(forced.status, 0) << forced.err;
  EXPECT_EQ(text_of(folder.file("out.ppm")).substr(0, 3), "P6\n");
  EXPECT_EQ(folder.entries(), (std::vector<std::string>{"in.pgm", "out.ppm"}));
}

TEST(Command, DemoComparesTheLevelsAndWritesTheChart) {
  const tool_test::Scratch_folder folder;
  const Run_result run = run_tool(folder, "--demo demo.ppm");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("scalar"), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("DIFFERS"), std::string::npos) << run.out;
  EXPECT_EQ(text_of(folder.file("demo.ppm")).substr(0, 19), "P6\n1920 1080\n65535\n");
}

TEST(Command, UsageErrorsExitWithStatusTwo) {
  const tool_test::Scratch_folder folder;
  EXPECT_EQ(run_tool(folder, "").status, 2);
  EXPECT_EQ(run_tool(folder, "in.pgm").status, 2);
  EXPECT_EQ(run_tool(folder, "in.pgm -o x.tiff --pattern RGBG").status, 2);
  EXPECT_EQ(run_tool(folder, "in.pgm -o x.tiff --origin 1").status, 2);
  EXPECT_EQ(run_tool(folder, "--demo d.tiff in.pgm").status, 2);
  const Run_result help = run_tool(folder, "--help");
  EXPECT_EQ(help.status, 0);
  for (const char* option : {"--pattern", "--origin", "--raw", "--type", "--layout", "--normalize",
                             "--level", "--jobs", "--quiet", "--force", "--demo", "--version"}) {
    EXPECT_NE(help.out.find(option), std::string::npos) << option;
  }
}

}  // namespace
