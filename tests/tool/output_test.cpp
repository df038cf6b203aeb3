// What the tool writes, and where: each writer's file read back with an
// independent reader, the all-or-nothing output file, and the built program
// in scratch folders (results, error lines, exit status, and that a failure
// leaves nothing behind).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "demosaic_call.h"
#include "image_writer.h"
#include "output_file.h"
#include "tool_test_support.h"

namespace {

using oqa_tool::Atomic_output_file;
using oqa_tool::Output_folder;
using tool_test::Scratch_folder;
using Samples = oqa_tool::Samples;

// Several TIFF strips and PNG bands, odd sides.
constexpr int width = 701;
constexpr int height = 523;
constexpr std::size_t samples_per_image = std::size_t{width} * height * 3;

struct Run_result {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs the shell `command` in `folder`; its output goes to files outside the
// folder so that the folder holds only results. The status is what a shell
// reports: 128+N for a process ended by signal N.
Run_result run_in(const Scratch_folder& folder, const std::string& command) {
  const Scratch_folder logs;
  const std::string line = "cd '" + folder.path.string() + "' && { " + command + "; } >'" +
                           logs.file("out") + "' 2>'" + logs.file("err") + "'";
  const int status = std::system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
          tool_test::text_of(logs.file("out")), tool_test::text_of(logs.file("err"))};
}

const std::string program = "'" OQA_DEMOSAIC_PROGRAM "' ";

// Each reader checks the file's size and depth (8 or 16 bits) and returns
// the samples RGB-interleaved, empty when it cannot.
Samples read_back_tiff(const std::string& path, int bits) {
  const std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(TIFFOpen(path.c_str(), "r"), TIFFClose);
  std::uint32_t size[2] = {};
  std::uint16_t sample_layout[2] = {};
  bool read = tiff && TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &size[0]) == 1 &&
              TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &size[1]) == 1 &&
              TIFFGetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, &sample_layout[0]) == 1 &&
              TIFFGetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, &sample_layout[1]) == 1 &&
              size[0] == width && size[1] == height && sample_layout[0] == 3 &&
              sample_layout[1] == bits;
  std::vector<std::uint8_t> row(width * 3 * bits / 8);
  Samples samples;
  for (int y = 0; read && y < height; ++y) {
    read = TIFFReadScanline(tiff.get(), row.data(), y, 0) == 1;
    for (std::size_t i = 0; i < width * 3; ++i) {
      samples.push_back(bits == 8 ? row[i] : row[2 * i] | row[2 * i + 1] << 8);
    }
  }
  return read ? samples : Samples{};
}

// libpng passes the samples of a file without gamma through as they are.
Samples read_back_png(const std::string& path, int bits) {
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  const auto format = bits == 8 ? PNG_FORMAT_RGB : PNG_FORMAT_LINEAR_RGB;
  std::vector<std::uint8_t> bytes(samples_per_image * bits / 8);
  const bool read = png_image_begin_read_from_file(&png, path.c_str()) != 0 && png.width == width &&
                    png.height == height && png.format == format &&
                    png_image_finish_read(&png, nullptr, bytes.data(), 0, nullptr) != 0;
  png_image_free(&png);
  Samples samples(samples_per_image);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = bits == 8 ? bytes[i] : bytes[2 * i] | bytes[2 * i + 1] << 8;  // host order
  }
  return read ? samples : Samples{};
}

Samples read_back_ppm(const std::string& path, int bits) {
  const std::string bytes = tool_test::text_of(path);
  const std::string header = "P6\n701 523\n" + std::to_string((1 << bits) - 1) + "\n";
  Samples samples;
  for (std::size_t i = header.size(); bytes.starts_with(header) && i < bytes.size();
       i += bits / 8) {
    const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(bytes[at]); };
    samples.push_back(bits == 8 ? byte(i) : byte(i) << 8 | byte(i + 1));
  }
  return samples;
}

Samples read_back_raw(const std::string& path, int /*bits*/) {
  return tool_test::raw_samples_of(path);
}

// The planes R, G, B of the cube, interleaved again.
Samples read_back_fits(const std::string& path, int bits) {
  fitsfile* fits = nullptr;
  int status = 0;
  int type = 0;
  int axes = 0;
  long sizes[3] = {};
  Samples planes(samples_per_image);
  fits_open_file(&fits, path.c_str(), READONLY, &status);
  fits_get_img_equivtype(fits, &type, &status);
  fits_get_img_dim(fits, &axes, &status);
  fits_get_img_size(fits, 3, sizes, &status);
  fits_read_img(fits, TUSHORT, 1, samples_per_image, nullptr, planes.data(), nullptr, &status);
  fits_close_file(fits, &status);
  if (status != 0 || type != (bits == 8 ? BYTE_IMG : USHORT_IMG) || axes != 3 ||
      sizes[0] != width || sizes[1] != height || sizes[2] != 3) {
    return {};
  }
  Samples samples(samples_per_image);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = planes[i % 3 * (samples.size() / 3) + i / 3];
  }
  return samples;
}

struct Output_format {
  const char* name;
  const char* file;  // the type follows the extension, whatever its case
  Samples (*read_back)(const std::string& path, int bits);
  std::optional<oqa_tool::Compression> compression = std::nullopt;
  int bits = 16;
};

class Writer_round_trip : public testing::TestWithParam<Output_format> {};

TEST_P(Writer_round_trip, ReadsBackTheSameSamplesAndReportsAFullDisk) {
  const Scratch_folder folder;
  const std::string path = folder.file(GetParam().file);
  const auto type = oqa_tool::output_type_of_path(path);
  ASSERT_TRUE(type.has_value());
  oqa_tool::Colour_image image;
  image.width = width;
  image.height = height;
  image.samples = tool_test::random_samples(samples_per_image, 21);
  image.bits = GetParam().bits;
  image.notes.shot.emplace();  // a camera's name alone: nothing for an EXIF directory
  std::strcpy(image.notes.shot->make, "Maker");
  // Extremes, where byte-order mistakes show.
  std::copy_n(Samples{0x0000, 0xFFFF, 0x00FF, 0xFF00}.begin(), 4, image.samples.begin());
  if (image.bits == 8) {
    std::for_each(image.samples.begin(), image.samples.end(), [](auto& sample) { sample &= 0xFF; });
  }
  // The writers take an open descriptor and leave it open.
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  ASSERT_GE(descriptor, 0);
  const oqa_tool::Write_settings settings{GetParam().compression, 3};
  oqa_tool::write_image(*type, descriptor, image, settings);
  EXPECT_EQ(::close(descriptor), 0);
  EXPECT_EQ(GetParam().read_back(path, image.bits), image.samples);

  const int full = ::open("/dev/full", O_RDWR | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_THROW(oqa_tool::write_image(*type, full, image, settings), oqa_tool::Image_io_error);
  ::close(full);
}

using enum oqa_tool::Compression;
const Output_format output_formats[] = {
    {"tiff", "image.TIF", read_back_tiff},
    {"TiffFast", "image.tif", read_back_tiff, fast},
    {"TiffBest", "image.tiff", read_back_tiff, best},
    {"TiffFastEightBit", "image.tif", read_back_tiff, fast, 8},
    {"png", "image.Png", read_back_png},
    {"PngStored", "image.png", read_back_png, none},
    {"PngBest", "image.png", read_back_png, best},
    {"PngEightBit", "image.png", read_back_png, fast, 8},
    {"ppm", "image.ppm", read_back_ppm},
    {"PpmEightBit", "image.ppm", read_back_ppm, std::nullopt, 8},
    {"fits", "image.fits", read_back_fits},
    {"FitsEightBit", "image.fit", read_back_fits, std::nullopt, 8},
    {"raw", "image.raw", read_back_raw}};

INSTANTIATE_TEST_SUITE_P(Types, Writer_round_trip, testing::ValuesIn(output_formats),
                         tool_test::row_name);

// Nothing appears before the commit, which checks the folder again through
// descriptors: whoever can write the folder may take the target's name
// meanwhile, or swap the temporary name for a link to another file. The
// commit then fails, redirects nothing, and the other file keeps its bytes
// and mode.
struct Late_arrival {
  const char* name;
  bool overwrite;
  const char* arrival;  // shell commands; $temporary is the temporary name
  std::string problem;
  const char* holder = nullptr;  // the file that ends up with the bytes written
};

class Atomic_output_file_commit : public testing::TestWithParam<Late_arrival> {};

TEST_P(Atomic_output_file_commit, RedirectsNothing) {
  const Scratch_folder folder;
  const std::string other = folder.file("other");
  tool_test::write_file(other, "old");
  ::chmod(other.c_str(), 0600);
  {
    const Output_folder out(folder.path);
    Atomic_output_file output(out, "out.raw", GetParam().overwrite);
    EXPECT_FALSE(std::filesystem::exists(folder.file("out.raw")));
    const std::string temporary = "temporary='" + output.temporary_name() + "'; ";
    ASSERT_EQ(run_in(folder, temporary + GetParam().arrival).status, 0);
    ASSERT_EQ(::write(output.descriptor(), "new", 3), 3);
    const std::string error = tool_test::error_of([&] { output.commit(); });
    EXPECT_NE(error.find(GetParam().problem), std::string::npos) << error;
  }
  const std::string beside = GetParam().holder != nullptr ? GetParam().holder : "out.raw";
  std::vector<std::string> entries{beside, "other"};
  std::sort(entries.begin(), entries.end());
  EXPECT_EQ(tool_test::entries(folder.path), entries);
  EXPECT_EQ(tool_test::text_of(other), "old");
  struct stat status {};
  ASSERT_EQ(::stat(other.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  if (GetParam().holder != nullptr) {
    EXPECT_EQ(tool_test::text_of(folder.file(beside)), "new");
  }
}

const Late_arrival late_arrivals[] = {
    {"NothingInTheWay", false, "true", tool_test::accepted, "out.raw"},
    {"FileWithoutOverwrite", false, "cp other out.raw", "exists"},
    {"FifoWithOverwrite", true, "mkfifo out.raw", "not a regular file"},
    {"LinkWithOverwrite", true, "ln -s other out.raw", "not a regular file"},
    {"TemporaryFileSwappedForALink", true, "mv $temporary moved && ln -s other $temporary",
     "replaced by someone else", "moved"}};

INSTANTIATE_TEST_SUITE_P(Targets, Atomic_output_file_commit, testing::ValuesIn(late_arrivals),
                         tool_test::row_name);

struct Good_run {
  const char* name;
  const char* arguments;
  oqa_tool::Demosaic_request request;
};

class Command_output : public testing::TestWithParam<Good_run> {};

// The same samples in a PGM file and in a BGGR camera raw file, converted
// over an older output with --force. The library looks for its companions
// in the working folder first, and the tool initialises it from its own
// folder, so one planted where the user stands never runs (it would leave a
// ".loaded" mark beside itself).
TEST_P(Command_output, ReplacesTheOutputWithTheLibrarysAndRunsNoPlantedLibrary) {
  const Scratch_folder folder;
  tool_test::Dng_description dng(31, 24, 4);
  dng.cfa_pattern = {2, 1, 1, 0};
  ASSERT_TRUE(tool_test::write_dng(folder.file("in.dng"), dng));
  tool_test::write_file(folder.file("in.pgm"), tool_test::pgm(31, 24, dng.samples));
  tool_test::write_file(folder.file("out.raw"), "old");
  const std::string planted = "libostrevan_oqa_demosaic_vector_avx2.so";
  std::filesystem::copy_file(OQA_PLANTED_COMPANION, folder.file(planted));
  const Run_result run = run_in(folder, program + GetParam().arguments + " -o out.raw --force");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "");  // one file: no batch summary
  EXPECT_EQ(tool_test::entries(folder.path),
            (std::vector<std::string>{"in.dng", "in.pgm", planted, "out.raw"}));

  const oqa_tool::Library_session library;
  oqa_tool::Colour_image expected;
  oqa_tool::demosaic(tool_test::mosaic(31, 24, dng.samples), GetParam().request, expected);
  EXPECT_EQ(tool_test::raw_samples_of(folder.file("out.raw")), expected.samples);
}

const Good_run good_runs[] = {
    {"PgmWithOptions",
     "in.pgm --pattern GBRG --origin=-1,2 --layout bgr-planar --level scalar",
     {QN_CFA_PHASE_GREEN_IN_BLUE_ROW, -1, 2, QN_COLOR_FORMAT_BGR_PLANAR}},
    {"CameraRawTakesThePatternFromTheFile",
     "in.dng --layout rgb",
     {QN_CFA_PHASE_BLUE, 0, 0, QN_COLOR_FORMAT_RGB_INTERLEAVED}}};

INSTANTIATE_TEST_SUITE_P(Inputs, Command_output, testing::ValuesIn(good_runs), tool_test::row_name);

struct Failing_run {
  std::string name;
  std::string arguments;
  std::string named_file;
  std::string problem;
  std::string setup = "true";  // shell commands that build the trap
  // Root enters any folder, so the case means nothing there.
  bool needs_non_root = false;
};

class Command_failure : public testing::TestWithParam<Failing_run> {};

const std::string inputs =
    "printf 'P5 4 4 255\\n0123456789abcdef' >good.pgm && printf 'P5 4 4 255\\n123' >short.pgm && "
    "printf 'P5 1 5 255\\n12345' >thin.pgm && printf noise >noise.bin && "
    "printf %032d 0 >frame.raw && ";

TEST_P(Command_failure, OneLineNamingTheFileAndNothingElseChanges) {
  if (GetParam().needs_non_root && ::geteuid() == 0) {
    GTEST_SKIP() << "runs as root";
  }
  const Scratch_folder folder;
  ASSERT_EQ(run_in(folder, inputs + GetParam().setup).status, 0);
  // Every entry, links not followed: a replaced or rewritten file shows as
  // a new inode, size or time.
  const std::string snapshot = "find . -mindepth 1 -printf '%p %y %l %i %s %T@\\n' | sort";
  const std::string before = run_in(folder, snapshot).out;

  const Run_result run = run_in(folder, program + GetParam().arguments);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  EXPECT_NE(run.err.find(GetParam().named_file), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(GetParam().problem), std::string::npos) << run.err;
  EXPECT_EQ(run_in(folder, snapshot).out, before);
}

const std::string in = " --pattern RGGB -o out.tiff";

const Failing_run input_errors[] = {
    {"Missing", "absent.pgm" + in, "absent.pgm", "No such file"},
    {"Truncated", "short.pgm" + in, "short.pgm", "truncated"},
    {"Unrecognised", "noise.bin" + in, "noise.bin", "unrecognised"},
    {"WrongRawSize", "noise.bin --raw 2x2" + in, "noise.bin", "headerless"},
    {"BelowTwoByTwo", "thin.pgm" + in, "thin.pgm", "at least 2x2"},
    {"NoPattern", "good.pgm -o out.tiff", "good.pgm", "--pattern"},
    {"UnknownOutputType", "good.pgm --pattern RGGB -o out.jpg", "out.jpg", "output type"},
    {"FolderInput", "." + in, ".", "folder"}};

INSTANTIATE_TEST_SUITE_P(InputErrors, Command_failure, testing::ValuesIn(input_errors),
                         tool_test::row_name);

// Outputs that must not be written: anything but a regular file is never
// replaced, not even with --force, nor is an input under any of its names;
// paths the system cannot resolve are reported, not thrown.
const std::string pgm_in = "good.pgm --pattern RGGB ";
const std::string raw_in = "frame.raw --raw 4x4 --pattern RGGB --force ";
const std::string not_regular = "not a regular file";
const std::string same = "same file as input frame.raw";
const std::string overlong = std::string(5000, 'x') + "/out.tiff";  // over PATH_MAX

const Failing_run output_traps[] = {
    {"Existing", pgm_in + "-o out.ppm", "out.ppm", "--force", "echo old >out.ppm"},
    {"Fifo", pgm_in + "--force -o o.tiff", "o.tiff", not_regular, "mkfifo o.tiff"},
    {"LinkToFifo", pgm_in + "--force -o o.tiff", "o.tiff", not_regular,
     "mkfifo pipe && ln -s pipe o.tiff"},
    {"LinkToFile", pgm_in + "--force -o o.tiff", "o.tiff", not_regular,
     "echo old >x && ln -s x o.tiff"},
    {"InputInTheOutputFolder", raw_in + "--type raw -o .", "frame.raw", same},
    {"InputByAnotherName", raw_in + "-o ./frame.raw", "./frame.raw", same},
    {"InputThroughAHardLink", raw_in + "-o c.raw", "c.raw", same, "ln frame.raw c.raw"},
    {"MissingFolder", pgm_in + "-o no/such/o.tiff", "no/such/o.tiff", "No such file"},
    {"LinkLoop", pgm_in + "-o loop/o.tiff", "loop/o.tiff", "symbolic links", "ln -s loop loop"},
    {"FolderItCannotEnter", pgm_in + "-o locked/o.tiff", "locked/o.tiff", "Permission denied",
     "mkdir -m 600 locked", true},
    {"Overlong", pgm_in + "-o " + overlong, overlong, "File name too long"}};

INSTANTIATE_TEST_SUITE_P(OutputTraps, Command_failure, testing::ValuesIn(output_traps),
                         tool_test::row_name);

// A bad file, or a crash of the camera raw decoder on one, costs that file
// only: the others are converted, and no temporary output is left behind.
TEST(Command, BatchGoesOnPastBadFilesAndADecoderCrash) {
  const Scratch_folder folder;
  tool_test::write_file(folder.file("a.pgm"),
                        tool_test::pgm(12, 10, tool_test::random_samples(120, 2)));
  tool_test::write_file(folder.file("b.pgm"), "P5\n9");
  for (const char* name : {"crash.dng", "garbage.dng", "good.dng"}) {
    ASSERT_TRUE(tool_test::write_dng(folder.file(name), {64, 48, 3}));
  }
  ASSERT_TRUE(tool_test::rewrite_tiff_entries(folder.file("crash.dng"), {tool_test::long_pattern}));
  ASSERT_TRUE(
      tool_test::rewrite_tiff_entries(folder.file("garbage.dng"), {tool_test::garbage_data}));
  // Sanitizer runtimes would add their own report of the decoder's crash.
  const Run_result run = run_in(
      folder,
      "ASAN_OPTIONS=$ASAN_OPTIONS:handle_segv=0 TSAN_OPTIONS=$TSAN_OPTIONS:handle_segv=0 " +
          program +
          "a.pgm b.pgm crash.dng garbage.dng good.dng --pattern BGGR --type png --jobs 2 -o out");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 3) << run.err;
  for (const char* line : {"b.pgm: ", "crash.dng: the camera raw decoder crashed on this file",
                           "garbage.dng: truncated or corrupt camera raw data"}) {
    EXPECT_NE(run.err.find(line), std::string::npos) << run.err;
  }
  EXPECT_NE(run.out.find("2 files done, 3 failed"), std::string::npos) << run.out;
  EXPECT_EQ(tool_test::entries(folder.path / "out"),
            (std::vector<std::string>{"a.png", "good.png"}));
}

// Steps that need camera data say so once a run for inputs without it.
TEST(Command, DevelopWithoutCameraDataSaysSoOnce) {
  const Scratch_folder folder;
  for (const char* name : {"a.pgm", "b.pgm"}) {
    tool_test::write_file(folder.file(name),
                          tool_test::pgm(6, 4, tool_test::random_samples(24, 1)));
  }
  const Run_result run =
      run_in(folder, program + "a.pgm b.pgm --pattern RGGB --develop --jobs 1 -o out");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err,
            "oqa-demosaic: note: --develop needs camera raw input; a.pgm (and any other "
            "input without camera data) keeps the library's samples\n");
  EXPECT_NE(run.out.find("2 files done, 0 failed"), std::string::npos) << run.out;
}

class Command_signal : public testing::TestWithParam<int> {};

// Many names for one frame make a batch long enough to be caught in the
// middle: the signal comes once a temporary output exists.
TEST_P(Command_signal, RemovesTheTemporaryFilesAndEndsByTheSignal) {
  const Scratch_folder folder;
  tool_test::write_file(folder.file("frame.pgm"),
                        tool_test::pgm(512, 512, tool_test::random_samples(512 * 512, 5)));
  for (int i = 0; i < 100; ++i) {
    std::filesystem::create_symlink("frame.pgm", folder.file(std::to_string(i) + ".pgm"));
  }
  // Signals the shell, by then the tool, once a temporary output exists.
  const std::string watcher =
      "(until ls -A out 2>&- | grep -q '^[.]' || ! kill -0 $$; do sleep 0.01; done; kill -" +
      std::to_string(GetParam()) + " $$) & exec ";
  const Run_result run = run_in(
      folder, watcher + program + "[0-9]*.pgm --pattern RGGB --level scalar --jobs 2 -o out");
  EXPECT_EQ(run.status, 128 + GetParam()) << run.err;
  EXPECT_EQ(run_in(folder, "ls -A out | grep '^[.]'").out, "");
}

INSTANTIATE_TEST_SUITE_P(Signals, Command_signal, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const testing::TestParamInfo<int>& info) {
                           return std::string(sigabbrev_np(info.param));
                         });

}  // namespace
