#include "command_line.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <string>
#include <thread>

#include "bayer_pattern.h"
#include "headerless_reader.h"
#include "library_session.h"

namespace oqa_tool {

namespace {

// Status for a command line that cannot be run, as most tools use.
constexpr int usage_error_status = 2;

constexpr const char* examples = R"(Examples:
  oqa-demosaic --demo demo.tiff
      build a test chart, demosaic it at every level, compare and time them
  oqa-demosaic IMG_0001.DNG -o IMG_0001.tiff
      camera raw: the library's samples, turned upright and cropped as the camera says
  oqa-demosaic --develop --depth 8 *.DNG -o pictures/ --type png
      pictures for people: levels, white balance, colour matrix, sRGB curve
  oqa-demosaic light_0001.fits -o light_0001_rgb.fits
      FITS mosaic (pattern from BAYERPAT) to a three-plane R, G, B cube
  oqa-demosaic frame.pgm --pattern GRBG --origin=1,0 -o frame.ppm
      PGM or 16-bit TIFF input needs the pattern; origin shifts it
  oqa-demosaic frame.bin --raw 4096x3072 --pattern RGGB -o frame.raw --layout bgr-planar
      headerless little-endian samples in, the library's buffer out as is

Inputs are recognised by content: binary PGM (8 or 16 bit), FITS (16-bit
2-D), single-channel 16-bit TIFF, camera raw (DNG and the formats LibRaw
reads), or headerless samples with --raw. Outputs are never overwritten
without --force, and a failed file leaves no partial output behind.)";

std::optional<std::pair<int, int>> parse_origin(const std::string& text) {
  const std::size_t comma = text.find(',');
  if (comma == std::string::npos) {
    return std::nullopt;
  }
  int x = 0;
  int y = 0;
  const char* begin = text.data();
  const char* middle = begin + comma;
  const char* end = begin + text.size();
  const auto [x_end, x_error] = std::from_chars(begin, middle, x);
  const auto [y_end, y_error] = std::from_chars(middle + 1, end, y);
  if (x_error != std::errc() || x_end != middle || y_error != std::errc() || y_end != end ||
      comma == 0 || middle + 1 == end) {
    return std::nullopt;
  }
  return std::pair{x, y};
}

// A CLI11 validator from a parser: the text is valid when the parser
// accepts it.
template <typename Parser>
CLI::Validator accepted_by(Parser parser, const std::string& expected) {
  return CLI::Validator(
      [parser, expected](std::string& text) {
        return parser(text) ? std::string() : "expected " + expected + ", got '" + text + "'";
      },
      expected);
}

struct Option_text {
  std::string pattern;
  std::string origin = "0,0";
  std::string headerless_size;
  std::string type = "tiff";
  std::string layout = "bgr";
  std::string level = "auto";
  std::string demo;
  std::string white_balance = "camera";
  std::string compression;
};

}  // namespace

std::optional<Tool_options> parse_command_line(int argc, char** argv, int& exit_status) {
  Tool_options options;
  options.jobs = std::max(1U, std::thread::hardware_concurrency());
  Option_text text;

  CLI::App app{
      "Demosaics Bayer raw frames into 48-bit colour images with the ostrevan_oqa_demosaic "
      "library.",
      "oqa-demosaic"};
  app.set_version_flag("--version", std::string("oqa-demosaic ") + OQA_VERSION);
  app.footer(examples);

  CLI::Option* inputs = app.add_option(
      "INPUT", options.inputs, "Input files, recognised by content (e.g. IMG_0001.DNG frame.pgm)");
  CLI::Option* output =
      app.add_option("-o,--output", options.output,
                     "Output file for one input, output folder (created if missing) for several "
                     "(e.g. -o out.tiff, -o converted/)");
  app.add_option("--pattern", text.pattern,
                 "Bayer 2x2 cell at the origin, row by row: RGGB, BGGR, GRBG or GBRG; required "
                 "for PGM, TIFF, --raw and FITS input without BAYERPAT, overrides the file's own "
                 "(e.g. --pattern RGGB)")
      ->check(accepted_by(oqa_session::parse_pattern, "RGGB|BGGR|GRBG|GBRG"));
  app.add_option("--origin", text.origin,
                 "Origin offsets X,Y of the pattern, negative allowed; only parities matter "
                 "(e.g. --origin=1,0 or --origin=-1,-1)")
      ->check(accepted_by(parse_origin, "X,Y"))
      ->capture_default_str();
  app.add_option("--raw", text.headerless_size,
                 "Inputs are headerless little-endian 16-bit samples of this size "
                 "(e.g. --raw 4096x3072)")
      ->check(accepted_by(parse_frame_size, "WIDTHxHEIGHT"));
  app.add_option("--type", text.type,
                 "Output type for a folder of outputs: tiff, png, ppm, fits or raw; a single "
                 "output file's own extension wins (e.g. --type png)")
      ->check(accepted_by(parse_output_type, "tiff|png|ppm|fits|raw"))
      ->capture_default_str();
  app.add_option("--compression", text.compression,
                 "TIFF and PNG compression: none, fast or best (deflate level 9, slow); by "
                 "default TIFF none, PNG fast (e.g. --compression fast)")
      ->check(accepted_by(parse_compression, "none|fast|best"));
  app.add_option("--layout", text.layout,
                 "Sample layout of .raw outputs: bgr-planar, bgr or rgb (e.g. --layout rgb)")
      ->check(accepted_by(oqa_session::parse_layout, "bgr-planar|bgr|rgb"))
      ->capture_default_str();
  CLI::Option* normalize =
      app.add_flag("--normalize", options.read.camera_raw.normalize,
                   "Camera raw: before demosaicing, subtract the black level(s) and scale the "
                   "white level to 65535; still linear camera colour (e.g. --normalize)");
  CLI::Option* develop =
      app.add_flag("--develop", options.picture.develop,
                   "Camera raw: after demosaicing, make a picture for people: levels, white "
                   "balance, camera-to-sRGB matrix, sRGB curve (e.g. --develop)");
  develop->excludes(normalize);
  app.add_option("--wb", text.white_balance,
                 "White balance of --develop: camera (as shot), daylight or none (e.g. --wb "
                 "daylight)")
      ->check(accepted_by(parse_white_balance, "camera|daylight|none"))
      ->capture_default_str()
      ->needs(develop);
  app.add_option("--depth", options.picture.depth,
                 "Bits per sample of --develop's picture: 8 or 16 (e.g. --depth 8)")
      ->check(CLI::IsMember({8, 16}))
      ->capture_default_str()
      ->needs(develop);
  app.add_flag_function(
      "--sensor-orientation", [&](std::int64_t) { options.picture.orient = false; },
      "Camera raw: keep the sensor's layout instead of turning the picture as the camera "
      "recorded (e.g. --sensor-orientation)");
  app.add_flag_function(
      "--no-crop", [&](std::int64_t) { options.picture.crop = false; },
      "Camera raw: keep the whole visible area instead of the camera's default crop "
      "(e.g. --no-crop)");
  app.add_option("--level", text.level,
                 "Instruction-set level: auto (the library's choice), scalar, sse, avx2 or avx512 "
                 "(e.g. --level scalar)")
      ->check(accepted_by(parse_level, "auto|scalar|sse|avx2|avx512"))
      ->capture_default_str();
  app.add_option("-j,--jobs", options.jobs,
                 "Files transformed at once; default: the number of cores (e.g. --jobs 4)")
      ->check(CLI::Range(1U, 1024U));
  app.add_flag("-f,--force", options.force, "Overwrite existing outputs (e.g. --force)");
  app.add_flag("-q,--quiet", options.quiet,
               "No progress bar and no summary line; errors are still printed (e.g. --quiet)");
  CLI::Option* demo = app.add_option(
      "--demo", text.demo,
      "Demosaic a built-in test chart at every level this processor offers, check that they "
      "agree and write the result; needs no input (e.g. --demo demo.tiff)");
  demo->excludes(inputs)->excludes(output);

  try {
    app.parse(argc, argv);
    if (demo->count() == 0) {
      if (inputs->count() == 0) {
        throw CLI::RequiredError("INPUT (or --demo OUTPUT)");
      }
      if (output->count() == 0) {
        throw CLI::RequiredError("-o,--output");
      }
    }
  } catch (const CLI::ParseError& error) {
    exit_status = app.exit(error);
    if (exit_status != 0) {
      exit_status = usage_error_status;
    }
    return std::nullopt;
  }

  if (demo->count() > 0) {
    options.demo_output = text.demo;
  }
  if (!text.pattern.empty()) {
    options.pattern = oqa_session::parse_pattern(text.pattern);
  }
  const std::pair<int, int> origin = *parse_origin(text.origin);
  options.origin_x = origin.first;
  options.origin_y = origin.second;
  if (!text.headerless_size.empty()) {
    options.read.headerless = parse_frame_size(text.headerless_size);
  }
  options.type = *parse_output_type(text.type);
  options.type_given = app.get_option("--type")->count() > 0;
  options.buffer_layout = *oqa_session::parse_layout(text.layout);
  options.level = *parse_level(text.level);
  options.picture.white_balance = *parse_white_balance(text.white_balance);
  if (!text.compression.empty()) {
    options.write.compression = parse_compression(text.compression);
  }
  return options;
}

}  // namespace oqa_tool
