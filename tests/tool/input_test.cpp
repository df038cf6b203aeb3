// Inputs as the tool reads them, recognised by their content: TIFF in every
// layout, camera raw (DNG through LibRaw), small and crafted files of every
// kind, and the child process the camera raw decoder runs in.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <numeric>
#include <thread>
#include <tuple>

#include "decoder_process.h"
#include "file_bytes.h"
#include "input_reader.h"
#include "tool_test_support.h"

namespace {

using namespace std::string_literals;
using namespace tool_test;

class Tiff_layouts : public testing::TestWithParam<std::tuple<const char*, std::uint16_t, bool>> {};

TEST_P(Tiff_layouts, ReadWhatLibtiffWrote) {
  const auto [mode, compression, tiled] = GetParam();
  const Scratch_folder folder;
  const auto samples = random_samples(45 * 27, 5);
  ASSERT_TRUE(write_tiff(folder / "mono.tif", {mode, compression, tiled}, 45, 27, samples));
  const Mosaic_image image = oqa_tool::read_mosaic_file(folder / "mono.tif", {});
  EXPECT_EQ(image.width, 45);
  EXPECT_EQ(image.samples, samples);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, Tiff_layouts,
    testing::Combine(testing::Values("wl", "wb"),
                     testing::Values(COMPRESSION_NONE, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_LZW),
                     testing::Bool()));

TEST(Camera_raw_levels, NormalizeMapsBlackToZeroAndWhiteToFullScale) {
  Dng_description dng(32, 24, 3);
  dng.black_level = 1000;
  dng.white_level = 5000;
  // Black, white, midway, below black, above white.
  std::copy_n(Samples{1000, 5000, 3000, 10, 60000}.begin(), 5, dng.samples.begin());
  const Scratch_folder folder;
  const std::string path = folder / "levels.dng";
  ASSERT_TRUE(write_dng(path, dng));

  EXPECT_EQ(oqa_tool::read_mosaic_file(path, {}).samples, dng.samples);
  const auto normalized = oqa_tool::read_mosaic_file(path, {std::nullopt, {true}}).samples;
  EXPECT_EQ(std::vector<std::uint16_t>(normalized.begin(), normalized.begin() + 5),
            (std::vector<std::uint16_t>{0, 65535, 32768, 0, 65535}));
}

struct Fits_mosaic {
  const char* name;
  std::vector<std::string> cards;
  std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase;
  int type = USHORT_IMG;
};

class Fits_input : public testing::TestWithParam<Fits_mosaic> {};

// The samples exactly, rows top-down, and the pattern at pixel (0, 0).
TEST_P(Fits_input, ReadsTheMosaicExactly) {
  const Scratch_folder folder;
  auto samples = random_samples(45 * 27, 8);
  for (auto& sample : samples) sample >>= GetParam().type == SHORT_IMG ? 1 : 0;
  ASSERT_TRUE(write_fits(folder / "in.fits", GetParam().type, {45, 27}, samples, GetParam().cards));
  const Mosaic_image image = oqa_tool::read_mosaic_file(folder / "in.fits", {});
  const bool bottom_up = GetParam().cards.back() == "ROWORDER= 'BOTTOM-UP'";
  ASSERT_EQ(image.samples.size(), samples.size());
  for (int row = 0; row < 27; ++row) {
    const int stored = bottom_up ? 26 - row : row;
    ASSERT_TRUE(std::equal(samples.begin() + stored * 45, samples.begin() + stored * 45 + 45,
                           image.samples.begin() + row * 45));
  }
  EXPECT_EQ(image.phase, GetParam().phase);
}

const Fits_mosaic fits_mosaics[] = {
    {"Unsigned", {"BAYERPAT= 'RGGB'"}, QN_CFA_PHASE_RED},
    {"Signed", {"COLORTYP= 'GBRG    '"}, QN_CFA_PHASE_GREEN_IN_BLUE_ROW, SHORT_IMG},
    {"NoPattern", {"ROWORDER= 'TOP-DOWN'"}, std::nullopt},
    {"ColumnOffset", {"BAYERPAT= 'RGGB'", "XBAYROFF= 1"}, QN_CFA_PHASE_GREEN_IN_RED_ROW},
    {"RowOffset", {"BAYERPAT= 'RGGB'", "YBAYROFF= 3"}, QN_CFA_PHASE_GREEN_IN_BLUE_ROW},
    {"BottomUp", {"BAYERPAT= 'BGGR'", "ROWORDER= 'BOTTOM-UP'"}, QN_CFA_PHASE_BLUE}};

INSTANTIATE_TEST_SUITE_P(Keywords, Fits_input, testing::ValuesIn(fits_mosaics), row_name);

// Writes the file to `path`.
using Writer = std::function<void(const std::string& path)>;

Writer text(const std::string& bytes, std::size_t zero_bytes = 0) {
  return [=](const std::string& path) { write_file(path, bytes + std::string(zero_bytes, '\0')); };
}

std::string noise(std::size_t size) {
  const auto samples = random_samples(size / 2, 5);
  return {reinterpret_cast<const char*>(samples.data()), size};
}

Writer dng(std::array<std::uint8_t, 4> cfa = {0, 1, 1, 2}) {
  return [=](const std::string& path) {
    Dng_description dng(64, 48, 3);
    dng.cfa_pattern = cfa;
    EXPECT_TRUE(write_dng(path, dng));
  };
}

Writer tiff(const Tiff_layout& layout) {
  return [=](const std::string& path) {
    EXPECT_TRUE(write_tiff(path, layout, 45, 27, random_samples(45 * 27 * 3, 9)));
  };
}

// The file with entries of its first directory rewritten.
Writer retagged(const Writer& write, const std::vector<Tiff_entry>& entries) {
  return [=](const std::string& path) {
    write(path);
    EXPECT_TRUE(rewrite_tiff_entries(path, entries));
  };
}

Writer sides(const Writer& write, std::uint16_t width_tag, std::uint32_t size) {
  const std::uint16_t height_tag =
      width_tag == TIFFTAG_TILEWIDTH ? TIFFTAG_TILELENGTH : TIFFTAG_IMAGELENGTH;
  return retagged(write, {{width_tag, false, size}, {height_tag, false, size}});
}

// The file cut, or grown sparse (no disk used), to `size` bytes.
Writer sized(const Writer& write, std::uint64_t size) {
  return [=](const std::string& path) {
    write(path);
    std::filesystem::resize_file(path, size);
  };
}

Writer fits(const std::vector<std::string>& cards = {}, int type = USHORT_IMG,
            const std::vector<long>& axes = {8, 8}) {
  return [=](const std::string& path) {
    const auto count = std::accumulate(axes.begin(), axes.end(), 1L, std::multiplies<>());
    Samples samples = random_samples(count, 4);
    for (auto& sample : samples) sample &= 0xFF;  // any BITPIX
    EXPECT_TRUE(write_fits(path, type, axes, samples, cards));
  };
}

// The file with one header text replaced by another of the same length.
Writer replaced(const Writer& write, const std::string& from, const std::string& to) {
  return [=](const std::string& path) {
    write(path);
    std::string bytes = read_file(path);
    const std::size_t at = bytes.find(from);
    ASSERT_NE(at, std::string::npos);
    write_file(path, bytes.replace(at, from.size(), to));
  };
}

struct Crafted_input {
  const char* name;
  Writer write;
  std::string message_part;
  std::optional<oqa_tool::Frame_size> headerless = std::nullopt;
};

class Crafted_file : public testing::TestWithParam<Crafted_input> {};

// Read in a child process whose address space may grow by 256 MiB only, so
// that a reader which allocates what a file merely claims fails its case,
// and so does one that crashes. A file that reads gives its size and samples.
TEST_P(Crafted_file, GivesItsLineWithinBoundedMemory) {
  const Scratch_folder folder;
  const std::string path = folder / "input";
  GetParam().write(path);
  const oqa_tool::Read_options options{GetParam().headerless, {}};
  EXPECT_EXIT(
      {
        oqa_tool::limit_address_space(std::uint64_t{256} << 20);
        const std::string error = error_of([&] {
          const Mosaic_image image = oqa_tool::read_mosaic_file(path, options);
          std::fprintf(stderr, "read %dx%d:", image.width, image.height);
          for (const std::uint16_t sample : image.samples) std::fprintf(stderr, " %x", sample);
        });
        std::fputs(error.c_str(), stderr);
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), GetParam().message_part);
}

const Tiff_layout one_strip{"wl", COMPRESSION_NONE, false, 1, 16, 27};
const Tiff_layout tiles{"wl", COMPRESSION_NONE, true};
const Tiff_layout deflate{"wb", COMPRESSION_ADOBE_DEFLATE};
const std::string not_bayer = "not a 2x2 Bayer pattern";
const std::string one_channel = "single-channel 16-bit";
const std::string only_16_bit = "only 16-bit integer samples";
const std::string huge_strips = "16384x16384 samples need 536870912 bytes";
const std::string four_samples = "\x12\x34\xAB\xCD\x00\x01\xFF\x00"s;
const std::uint64_t two_gib = std::uint64_t{1} << 31;

// The directory of a TIFF (or DNG) written by libtiff comes last: a file cut
// short loses it whole, whatever the layout, while a strip that starts too
// late runs past the end of a file with its directory intact.
const Crafted_input crafted_inputs[] = {
    {"PgmSixteenBitIsBigEndian", text("P5\n2 2\n65535\n" + four_samples),
     "read 2x2: 1234 abcd 1 ff00"},
    {"PgmEightBit", text("P5 3 2 255\n\x00\x01\x02\x80\xFE\xFF"s), "read 3x2: 0 1 2 80 fe ff"},
    {"PgmComments", text("P5\n# made by hand\n2 # width\n2\n4095\n\0\1\0\2\0\3\x0F\xFF"s),
     "read 2x2: 1 2 3 fff"},
    {"HeaderlessIsLittleEndian", text(four_samples), "read 2x2: 3412 cdab 100 ff", {{2, 2}}},
    {"DngPatternLongerThanItsCell", retagged(dng(), {long_pattern}),
     "the camera raw decoder crashed on this file"},
    {"DngLosslessJpegOfGarbage", retagged(dng(), {garbage_data}),
     "truncated or corrupt camera raw data"},
    {"RandomBytesBehindXpds", text("XPDS" + noise(4092)), "cannot come from a file of 4096 bytes"},
    {"DngTwoRedsInACell", dng({0, 0, 1, 2}), not_bayer},
    {"DngGreensInARow", dng({1, 1, 0, 2}), not_bayer},
    {"TiffCutBeforeItsDirectory", sized(tiff(deflate), 900), "corrupt TIFF file"},
    {"TiffStripPastTheEnd", retagged(tiff(one_strip), {{TIFFTAG_STRIPOFFSETS, false, 2000}}),
     "truncated or corrupt TIFF data"},
    {"TiffEightBit", tiff({"wl", COMPRESSION_NONE, false, 1, 8}), one_channel},
    {"TiffRgb", tiff({"wl", COMPRESSION_NONE, false, 3, 16}), one_channel},
    {"TiffHugeTiles", sides(tiff(tiles), TIFFTAG_TILEWIDTH, 32768),
     "32768x32768 tiles for a 45x27 image"},
    {"TiffHugeStrips", sides(tiff({}), TIFFTAG_IMAGEWIDTH, 16384), huge_strips},
    {"TiffHugeDeflateStrips",
     sides(tiff({"wl", COMPRESSION_ADOBE_DEFLATE}), TIFFTAG_IMAGEWIDTH, 16384), huge_strips},
    {"RawShort", text("", 7), "truncated headerless frame", {{2, 2}}},
    {"RawLong", text("", 10), "too long headerless frame", {{2, 2}}},
    {"RawOneColumn", text("", 4), "at least 2x2", {{1, 2}}},
    {"RawHuge", sized(text(""), two_gib), "needs 8 bytes, the file has 2147483648", {{2, 2}}},
    {"OverInputCap", sized(text(""), oqa_tool::max_input_bytes + 1),
     "larger than 1073741824 bytes"},
    {"PgmTruncated", text("P5\n4 4\n65535\n", 31), "truncated"},
    {"PgmTruncatedEightBit", text("P5\n4 4\n255\n", 15), "truncated"},
    {"PgmOneColumn", text("P5\n1 8\n255\n", 8), "at least 2x2"},
    {"PgmZeroRows", text("P5\n8 0\n255\n"), "at least 2x2"},
    {"PgmMaxvalZero", text("P5\n2 2\n0\n", 4), "maxval"},
    {"PgmMaxvalTooLarge", text("P5\n2 2\n65536\n", 8), "maxval"},
    {"PgmHeightMissing", text("P5\n2\n"), "height missing"},
    {"PgmHugeWidth", text("P5\n99999999999 2\n255\n"), "too large"},
    {"PgmTooManyPixels", text("P5\n100000 100000\n255\n"), "larger than"},
    {"PgmNoSeparator", text("P5\n2 2\n255"), "not terminated"},
    {"AsciiPgm", text("P2\n2 2\n255\n", 4), "unrecognised"},
    {"FitsEightBit", fits({}, BYTE_IMG), only_16_bit},
    {"FitsFloat", fits({}, FLOAT_IMG), only_16_bit},
    {"FitsCube", fits({}, USHORT_IMG, {8, 8, 3}), "3 axes, only 2-D images"},
    {"FitsPatternOfFive", fits({"BAYERPAT= 'RGGBX'"}), "'RGGBX' is not RGGB"},
    {"FitsRowOrder", fits({"ROWORDER= 'LEFT'"}), "'LEFT' is neither"},
    {"FitsOffsetText", fits({"XBAYROFF= 'one'"}), "XBAYROFF has no usable"},
    {"FitsLongMalformedOffset",  // aborts cfitsio's own integer reader
     fits({"XBAYROFF= 123456789012345678901234567890123456789012345678901234567890x"}),
     "XBAYROFF has no usable"},
    {"FitsTruncated", sized(fits({}, USHORT_IMG, {64, 64}), 5760), "truncated FITS file"},
    {"FitsHugeAxis", replaced(fits(), "1  =                    8", "1  =           1073741824"),
     "larger than"},
    {"FitsLongAxis", replaced(fits(), "1  =                    8", "1  =                16384"),
     "16384x8 samples need 262144 bytes"},
    {"FitsNegative", replaced(fits(), "=                32768", "=                    0"),
     "signed samples below zero"}};

INSTANTIATE_TEST_SUITE_P(Files, Crafted_file, testing::ValuesIn(crafted_inputs), row_name);

struct Decoder_end {
  const char* name;
  Mosaic_image (*decode)();
  const char* message;
  bool plain_build_only = false;  // sanitizers bring their own allocator and no memory limit
};

class Decoder_process_end : public testing::TestWithParam<Decoder_end> {};

constexpr std::size_t stale_count = 16 * 1024;  // from the heap, not a fresh mapping

// What this process freed before (another file's samples) the decoder's
// allocations do not show: they start zeroed.
TEST_P(Decoder_process_end, IsOneLine) {
  if (GetParam().plain_build_only && oqa_tool::sanitized_build) GTEST_SKIP() << "sanitized";
  {
    std::vector<std::uint16_t> stale(stale_count, 0xABCD);
    asm volatile("" : : "r"(stale.data()) : "memory");  // keep the fill
  }
  const oqa_tool::Decoder_limits limits{std::chrono::milliseconds(300), 64 << 20};
  EXPECT_EQ(
      error_of([&] { oqa_tool::run_decoder_process("test decoder", limits, GetParam().decode); }),
      GetParam().message);
}

Mosaic_image crash() { std::abort(); }
Mosaic_image hang() {
  std::this_thread::sleep_for(std::chrono::hours(1));
  return {};
}
Mosaic_image runaway() { return mosaic(2, 2, Samples(std::size_t{1} << 29)); }
Mosaic_image two_lines() { throw oqa_tool::Image_io_error("two\nlines\x1b[2J"); }
Mosaic_image unwritten() {
  const std::unique_ptr<std::uint16_t[]> block(new std::uint16_t[stale_count]);
  const auto zeros = std::count(block.get(), block.get() + stale_count, 0);
  throw oqa_tool::Image_io_error(std::to_string(zeros) + " zeros");
}

const Decoder_end decoder_ends[] = {
    {"Crash", crash, "the test decoder crashed on this file"},
    {"Hang", hang, "the test decoder took too long on this file"},
    {"Runaway", runaway, "the test decoder ran out of memory on this file", true},
    {"MessageOfTwoLines", two_lines, "two?lines?[2J"},
    {"UnwrittenAllocation", unwritten, "16384 zeros", true}};

INSTANTIATE_TEST_SUITE_P(Ends, Decoder_process_end, testing::ValuesIn(decoder_ends), row_name);

}  // namespace
