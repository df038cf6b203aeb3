// Crafted and damaged inputs, written here, and the line each must give.
// Every file is read in a child process whose address space may grow by
// 256 MiB only, so a reader that allocates what a file merely claims fails
// its case, and so does one that crashes.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <tuple>

#include "decoder_process.h"
#include "dng_file.h"
#include "file_bytes.h"
#include "image_io_error.h"
#include "input_reader.h"
#include "tool_test_support.h"

namespace {

using tool_test::Tiff_field;

// A writer of the file before its damage.
using Writer = std::function<void(const std::string& path)>;

Writer text(const std::string& header, std::size_t zero_bytes = 0) {
  return [=](const std::string& path) {
    std::vector<std::uint8_t> bytes(header.size() + zero_bytes);
    std::copy(header.begin(), header.end(), bytes.begin());
    tool_test::write_bytes(path, bytes);
  };
}

std::string noise(std::size_t size) {
  const std::vector<std::uint16_t> samples = tool_test::random_samples(size / 2, 5);
  return {reinterpret_cast<const char*>(samples.data()), size};
}

Writer dng(std::array<std::uint8_t, 4> cfa = {0, 1, 1, 2}) {
  return [=](const std::string& path) {
    tool_test::Dng_description dng;
    dng.raw_width = 64;
    dng.raw_height = 48;
    dng.samples = tool_test::random_samples(64 * 48, 3);
    dng.cfa_pattern = cfa;
    EXPECT_TRUE(tool_test::write_dng(path, dng));
  };
}

Writer tiff(tool_test::Tiff_layout layout) {
  return [=](const std::string& path) {
    EXPECT_TRUE(tool_test::write_tiff(path, layout, tool_test::random_samples(45 * 27 * 3, 9)));
  };
}

// Entries of the first TIFF directory rewritten, then the file cut or grown
// (sparse: no disk used) to `size` bytes, 0 leaving it whole.
struct Damage {
  std::vector<std::tuple<std::uint16_t, Tiff_field, std::uint32_t>> entries;
  std::uint64_t size = 0;
};

Damage sides(std::uint16_t width_tag, std::uint16_t height_tag, std::uint32_t size) {
  return {{{width_tag, Tiff_field::value, size}, {height_tag, Tiff_field::value, size}}};
}

// LibRaw crashes on a 2x2 pattern described by 36 colours...
const Damage long_pattern{{{TIFFTAG_CFAPATTERN, Tiff_field::count, 36}}};
// ...and stops decoding lossless JPEG garbage without an error.
const Damage garbage_data{{{TIFFTAG_COMPRESSION, Tiff_field::value, COMPRESSION_JPEG}}};

void write_damaged(const std::string& path, const Writer& write, const Damage& damage) {
  write(path);
  std::vector<std::uint8_t> bytes = tool_test::read_bytes(path);
  for (const auto& [tag, field, number] : damage.entries) {
    EXPECT_TRUE(tool_test::rewrite_tiff_entry(bytes, tag, field, number)) << tag;
  }
  tool_test::write_bytes(path, bytes);
  if (damage.size != 0) {
    std::filesystem::resize_file(path, damage.size);
  }
}

struct Crafted_input {
  std::string name;
  Writer write;
  Damage damage;
  std::string message_part;
  std::optional<oqa_tool::Frame_size> raw = std::nullopt;
};

void PrintTo(const Crafted_input& input, std::ostream* out) { *out << input.name; }

class Crafted_file : public testing::TestWithParam<Crafted_input> {};

TEST_P(Crafted_file, GivesItsLineWithinBoundedMemory) {
  const tool_test::Scratch_folder folder;
  const std::string path = folder.file("input");
  write_damaged(path, GetParam().write, GetParam().damage);
  EXPECT_EXIT(
      {
        oqa_tool::limit_address_space(std::uint64_t{256} << 20);
        try {
          oqa_tool::read_mosaic_file(path, {GetParam().raw, {}});
        } catch (const oqa_tool::Image_io_error& error) {
          std::fputs(error.what(), stderr);
          std::_Exit(0);
        }
        std::_Exit(1);
      },
      testing::ExitedWithCode(0), GetParam().message_part);
}

const tool_test::Tiff_layout strips{"wl", COMPRESSION_NONE, false};
const tool_test::Tiff_layout tiles{"wl", COMPRESSION_NONE, true};
const tool_test::Tiff_layout deflate{"wl", COMPRESSION_ADOBE_DEFLATE, false};
const std::uint64_t huge_raw = std::uint64_t{1} << 31;

INSTANTIATE_TEST_SUITE_P(
    Files, Crafted_file,
    testing::Values(
        Crafted_input{"DngPatternLongerThanItsCell", dng(), long_pattern,
                      "the camera raw decoder crashed on this file"},
        Crafted_input{"DngLosslessJpegOfGarbage", dng(), garbage_data,
                      "truncated or corrupt camera raw data"},
        Crafted_input{"RandomBytesBehindXpds",
                      text("XPDS" + noise(4092)),
                      {},
                      "cannot come from a file of 4096 bytes"},
        Crafted_input{"DngTwoRedsInACell", dng({0, 0, 1, 2}), {}, "not a 2x2 Bayer pattern"},
        Crafted_input{"DngGreensInARow", dng({1, 1, 0, 2}), {}, "not a 2x2 Bayer pattern"},
        Crafted_input{"DngTruncated", dng(), {{}, 600}, "corrupt"},
        Crafted_input{"DngHeaderOnly", dng(), {{}, 8}, "corrupt"},
        Crafted_input{"TiffEightBit",
                      tiff({"wl", COMPRESSION_NONE, false, 1, 8}),
                      {},
                      "single-channel 16-bit"},
        Crafted_input{
            "TiffRgb", tiff({"wl", COMPRESSION_NONE, false, 3, 16}), {}, "single-channel 16-bit"},
        Crafted_input{"TiffTruncatedStrips", tiff(strips), {{}, 1200}, "TIFF"},
        Crafted_input{"TiffTruncatedDeflate",
                      tiff({"wb", COMPRESSION_ADOBE_DEFLATE, false}),
                      {{}, 900},
                      "TIFF"},
        Crafted_input{"TiffTruncatedTiles", tiff(tiles), {{}, 1500}, "TIFF"},
        Crafted_input{"TiffHeaderOnly", tiff(strips), {{}, 8}, "TIFF"},
        Crafted_input{"TiffHugeTiles", tiff(tiles),
                      sides(TIFFTAG_TILEWIDTH, TIFFTAG_TILELENGTH, 32768),
                      "32768x32768 tiles for a 45x27 image"},
        Crafted_input{"TiffHugeStrips", tiff(strips),
                      sides(TIFFTAG_IMAGEWIDTH, TIFFTAG_IMAGELENGTH, 16384),
                      "16384x16384 samples need 536870912 bytes"},
        Crafted_input{"TiffHugeDeflateStrips", tiff(deflate),
                      sides(TIFFTAG_IMAGEWIDTH, TIFFTAG_IMAGELENGTH, 16384),
                      "16384x16384 samples need 536870912 bytes"},
        Crafted_input{"RawShort", text("", 7), {}, "truncated headerless frame", {{2, 2}}},
        Crafted_input{"RawLong", text("", 10), {}, "too long headerless frame", {{2, 2}}},
        Crafted_input{"RawOneColumn", text("", 4), {}, "at least 2x2", {{1, 2}}},
        Crafted_input{"RawHuge",
                      text(""),
                      {{}, huge_raw},
                      "2x2 needs 8 bytes, the file has 2147483648",
                      {{2, 2}}},
        Crafted_input{"OverInputCap",
                      text(""),
                      {{}, oqa_tool::max_input_bytes + 1},
                      "larger than 1073741824 bytes"},
        Crafted_input{"PgmTruncated", text("P5\n4 4\n65535\n", 31), {}, "truncated"},
        Crafted_input{"PgmTruncatedEightBit", text("P5\n4 4\n255\n", 15), {}, "truncated"},
        Crafted_input{"PgmOneColumn", text("P5\n1 8\n255\n", 8), {}, "at least 2x2"},
        Crafted_input{"PgmZeroRows", text("P5\n8 0\n255\n"), {}, "at least 2x2"},
        Crafted_input{"PgmMaxvalZero", text("P5\n2 2\n0\n", 4), {}, "maxval"},
        Crafted_input{"PgmMaxvalTooLarge", text("P5\n2 2\n65536\n", 8), {}, "maxval"},
        Crafted_input{"PgmHeightMissing", text("P5\n2\n"), {}, "height missing"},
        Crafted_input{"PgmHugeWidth", text("P5\n99999999999 2\n255\n"), {}, "too large"},
        Crafted_input{"PgmTooManyPixels", text("P5\n100000 100000\n255\n"), {}, "larger than"},
        Crafted_input{"PgmNoSeparator", text("P5\n2 2\n255"), {}, "not terminated"},
        Crafted_input{"AsciiPgm", text("P2\n2 2\n255\n", 4), {}, "unrecognised"}),
    [](const testing::TestParamInfo<Crafted_input>& info) { return info.param.name; });

// A decoder crash inside a batch costs its file only: the others are
// converted, and no temporary output is left behind.
TEST(Crafted_batch, ADecoderCrashCostsOneFile) {
  const tool_test::Scratch_folder folder;
  write_damaged(folder.file("crash.dng"), dng(), long_pattern);
  write_damaged(folder.file("garbage.dng"), dng(), garbage_data);
  dng()(folder.file("good.dng"));
  const tool_test::Scratch_folder logs;
  // Sanitizer runtimes would add their own report of the decoder's crash.
  const std::string command = "cd '" + folder.path().string() +
                              "' && ASAN_OPTIONS=$ASAN_OPTIONS:handle_segv=0 "
                              "TSAN_OPTIONS=$TSAN_OPTIONS:handle_segv=0 '" OQA_DEMOSAIC_PROGRAM
                              "' -q --jobs 2 crash.dng garbage.dng good.dng -o out 2>'" +
                              logs.file("err") + "'";
  const int status = std::system(command.c_str());
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
  const std::vector<std::uint8_t> bytes = tool_test::read_bytes(logs.file("err"));
  const std::string errors(bytes.begin(), bytes.end());
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 2) << errors;
  EXPECT_NE(errors.find("crash.dng: the camera raw decoder crashed on this file"),
            std::string::npos)
      << errors;
  EXPECT_NE(errors.find("garbage.dng: truncated or corrupt camera raw data"), std::string::npos)
      << errors;
  EXPECT_EQ(tool_test::Scratch_folder::list(folder.path() / "out"),
            std::vector<std::string>{"good.tiff"});
}

}  // namespace
