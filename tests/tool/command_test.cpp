// The built program in scratch folders: results, error lines, exit status,
// and that a failure leaves no output behind.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
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

// Runs the shell `command` in `folder`; its output goes to files outside the
// folder so that the folder holds only results. The status is what a shell
// reports: 128+N for a process ended by signal N.
Run_result run_in(const tool_test::Scratch_folder& folder, const std::string& command) {
  const tool_test::Scratch_folder logs;
  const std::string line = "cd '" + folder.path().string() + "' && { " + command + "; } >'" +
                           logs.file("out") + "' 2>'" + logs.file("err") + "'";
  const int status = std::system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
          tool_test::text_of(logs.file("out")), tool_test::text_of(logs.file("err"))};
}

Run_result run_tool(const tool_test::Scratch_folder& folder, const std::string& arguments) {
  return run_in(folder, "'" OQA_DEMOSAIC_PROGRAM "' " + arguments);
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

std::size_t line_count(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

// Every entry under the folder, links not followed: a replaced or rewritten
// file shows as a new inode, size or time.
std::string snapshot(const tool_test::Scratch_folder& folder) {
  return run_in(folder, "find . -mindepth 1 -printf '%p %y %l %i %s %T@\\n' | sort").out;
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
  EXPECT_EQ(tool_test::raw_samples_of(folder.file("out.raw")), expected.samples);
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
  EXPECT_EQ(tool_test::raw_samples_of(folder.file("frame.raw")), expected.samples);
}

struct Failing_run {
  std::string name;
  std::string arguments;
  std::string named_file;
  std::string problem;
  std::string setup = "true";  // shell commands that build the trap
  // Root enters any folder, so the case means nothing there.
  bool needs_non_root = false;
};

void PrintTo(const Failing_run& run, std::ostream* out) { *out << run.name; }

class Command_failure : public testing::TestWithParam<Failing_run> {};

TEST_P(Command_failure, OneLineNamingTheFileAndNothingElseChanges) {
  if (GetParam().needs_non_root && ::geteuid() == 0) {
    GTEST_SKIP() << "runs as root";
  }
  const tool_test::Scratch_folder folder;
  tool_test::write_bytes(folder.file("good.pgm"), pgm(8, 6, tool_test::random_samples(48, 1)));
  tool_test::write_bytes(folder.file("short.pgm"),
                         {'P', '5', ' ', '8', ' ', '6', ' ', '2', '5', '5', '\n', 1, 2, 3});
  tool_test::write_bytes(folder.file("thin.pgm"), pgm(1, 5, {1, 2, 3, 4, 5}));
  tool_test::write_bytes(folder.file("noise.bin"), {0x17, 0x42, 0x99, 0x00, 0x13, 0x37, 0x55});
  tool_test::write_bytes(folder.file("frame.raw"), std::vector<std::uint8_t>(32, 7));
  ASSERT_EQ(run_in(folder, GetParam().setup).status, 0);
  const std::string before = snapshot(folder);

  const Run_result run = run_tool(folder, GetParam().arguments);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(line_count(run.err), 1U) << run.err;
  EXPECT_NE(run.err.find(GetParam().named_file), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(GetParam().problem), std::string::npos) << run.err;
  EXPECT_EQ(snapshot(folder), before);
}

std::string name_of(const testing::TestParamInfo<Failing_run>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(
    InputErrors, Command_failure,
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
                    Failing_run{"UnknownOutputType", "good.pgm --pattern RGGB -o out.jpg",
                                "out.jpg", "output type"},
                    Failing_run{"FolderInput", "--pattern RGGB . -o out.tiff", ".", "folder"}),
    name_of);

// Outputs that must not be written: anything but a regular file is never
// replaced, not even with --force, nor is an input under any of its names;
// paths the system cannot resolve are reported, not thrown.
const std::string pgm_in = "good.pgm --pattern RGGB ";
const std::string raw_in = "frame.raw --raw 4x4 --pattern RGGB --force ";
const std::string not_regular = "not a regular file";
const std::string same = "same file as input frame.raw";
const std::string overlong = std::string(5000, 'x') + "/out.tiff";  // over PATH_MAX

INSTANTIATE_TEST_SUITE_P(
    OutputTraps, Command_failure,
    testing::Values(
        Failing_run{"Existing", pgm_in + "-o out.ppm", "out.ppm", "--force", "echo old >out.ppm"},
        Failing_run{"Fifo", pgm_in + "--force -o o.tiff", "o.tiff", not_regular, "mkfifo o.tiff"},
        Failing_run{"LinkToFifo", pgm_in + "--force -o o.tiff", "o.tiff", not_regular,
                    "mkfifo pipe && ln -s pipe o.tiff"},
        Failing_run{"LinkToFile", pgm_in + "--force -o o.tiff", "o.tiff", not_regular,
                    "echo old >x && ln -s x o.tiff"},
        Failing_run{"InputInTheOutputFolder", raw_in + "--type raw -o .", "frame.raw", same},
        Failing_run{"InputByAnotherName", raw_in + "-o ./frame.raw", "./frame.raw", same},
        Failing_run{"InputThroughAHardLink", raw_in + "-o c.raw", "c.raw", same,
                    "ln frame.raw c.raw"},
        Failing_run{"MissingFolder", pgm_in + "-o no/such/o.tiff", "no/such/o.tiff",
                    "No such file"},
        Failing_run{"LinkLoop", pgm_in + "-o loop/o.tiff", "loop/o.tiff", "symbolic links",
                    "ln -s loop loop"},
        Failing_run{"FolderItCannotEnter", pgm_in + "-o locked/o.tiff", "locked/o.tiff",
                    "Permission denied", "mkdir -m 600 locked", true},
        Failing_run{"Overlong", pgm_in + "-o " + overlong, overlong, "File name too long"}),
    name_of);

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

// Also: the library looks for its companions in the working folder first,
// and the tool initialises it from its own folder, so one planted where the
// user stands never runs (it would leave a ".loaded" mark beside itself).
TEST(Command, ForceReplacesAnOutputAndNoPlantedLibraryRuns) {
  const tool_test::Scratch_folder folder;
  tool_test::write_bytes(folder.file("in.pgm"), pgm(6, 4, tool_test::random_samples(24, 3)));
  tool_test::write_bytes(folder.file("out.ppm"), {'o', 'l', 'd'});
  const std::string planted = "libostrevan_oqa_demosaic_vector_avx2.so";
  std::filesystem::copy_file(OQA_PLANTED_COMPANION, folder.file(planted));

  const Run_result forced = run_tool(folder, "in.pgm --pattern RGGB -o out.ppm --force");
  EXPECT_EQ(forced.status, 0) << forced.err;
  EXPECT_EQ(tool_test::text_of(folder.file("out.ppm")).substr(0, 3), "P6\n");
  EXPECT_EQ(folder.entries(), (std::vector<std::string>{"in.pgm", planted, "out.ppm"}));
}

class Command_signal : public testing::TestWithParam<int> {};

// Many names for one frame make a batch long enough to be caught in the
// middle: the signal comes once a temporary output exists.
TEST_P(Command_signal, RemovesTheTemporaryFilesAndEndsByTheSignal) {
  const tool_test::Scratch_folder folder;
  tool_test::write_bytes(folder.file("frame.pgm"),
                         pgm(512, 512, tool_test::random_samples(512 * 512, 5)));
  for (int i = 0; i < 100; ++i) {
    std::filesystem::create_symlink("frame.pgm", folder.file(std::to_string(i) + ".pgm"));
  }
  // Signals the shell, by then the tool, once a temporary output exists.
  const std::string watcher =
      "(until ls -A out 2>&- | grep -q '^[.]' || ! kill -0 $$; do sleep 0.01; done; kill -" +
      std::to_string(GetParam()) + " $$) & ";
  const Run_result run =
      run_in(folder, watcher + "exec '" OQA_DEMOSAIC_PROGRAM
                               "' [0-9]*.pgm --pattern RGGB --level scalar --jobs 2 -o out");
  EXPECT_EQ(run.status, 128 + GetParam()) << run.err;
  EXPECT_EQ(run_in(folder, "ls -A out | grep '^[.]'").out, "");
}

INSTANTIATE_TEST_SUITE_P(Signals, Command_signal, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const testing::TestParamInfo<int>& info) {
                           return std::string(sigabbrev_np(info.param));
                         });

}  // namespace
