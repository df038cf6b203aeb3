// The element in real pipelines (GstHarness), against the library called
// directly on the same frames.
#include <gst/check/gstharness.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "library_session.h"
#include "ostrevan_oqa_demosaic.h"
#include "rgba_output.h"

namespace {

using Samples = std::vector<std::uint16_t>;

constexpr const char* format_names[] = {"rggb16le", "bggr16le", "grbg16le", "gbrg16le",
                                        "rggb16",   "bggr16",   "grbg16",   "gbrg16"};

Samples random_mosaic(int width, int height) {
  std::mt19937 generator(static_cast<unsigned>(width * 7919 + height));
  Samples samples(static_cast<std::size_t>(width) * height);
  for (auto& sample : samples) {
    sample = static_cast<std::uint16_t>(generator());
  }
  return samples;
}

oqa_gst::Frame_request request(int width, int height, int phase, int origin_parity = 0,
                               bool bgr = false, int level = -1) {
  return {width,
          height,
          origin_parity & 1,
          origin_parity >> 1,
          static_cast<QN_COLOR_FILTER_ARRAY_PHASE>(phase % 4),
          bgr ? QN_COLOR_FORMAT_BGR_INTERLEAVED : QN_COLOR_FORMAT_RGB_INTERLEAVED,
          level};
}

// One whole-frame call of the library, with an opaque fourth sample per pixel.
Samples expected_output(const Samples& mosaic, const oqa_gst::Frame_request& r) {
  Samples triples(mosaic.size() * 3);
  EXPECT_EQ(qn_demosaic_transform_test_16_to_48(r.width, r.height, r.origin_x, r.origin_y, r.phase,
                                                r.color_format, QN_COLOR_FILTER_TYPE_BAYER, 16,
                                                mosaic.data(), triples.data(), r.level),
            QN_DEMOSAIC_NO_ERROR);
  Samples quadruples;
  for (std::size_t pixel = 0; pixel < mosaic.size(); ++pixel) {
    quadruples.insert(quadruples.end(), &triples[pixel * 3], &triples[pixel * 3 + 3]);
    quadruples.push_back(0xFFFF);
  }
  return quadruples;
}

std::string bayer_caps(const char* format, int width, int height) {
  return "video/x-bayer,format=" + std::string(format) + ",width=" + std::to_string(width) +
         ",height=" + std::to_string(height) + ",framerate=0/1";
}

GstBuffer* buffer_of(const Samples& samples) {
  return gst_buffer_new_memdup(samples.data(), samples.size() * sizeof(samples[0]));
}

// Pushes one buffer and returns the frame that came out; empty when none did.
Samples push_and_pull(GstHarness* harness, GstBuffer* input) {
  if (gst_harness_push(harness, input) != GST_FLOW_OK) {
    return {};
  }
  GstBuffer* output = gst_harness_pull(harness);
  Samples samples(gst_buffer_get_size(output) / sizeof(std::uint16_t));
  gst_buffer_extract(output, 0, samples.data(), samples.size() * sizeof(samples[0]));
  gst_buffer_unref(output);
  return samples;
}

// Every format name and origin parity, at every level, into both outputs.
class Format_origin_test : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(Format_origin_test, GivesTheLibrarysOutput) {
  const auto [format, parity] = GetParam();
  constexpr int width = 37;
  constexpr int height = 9;
  const Samples mosaic = random_mosaic(width, height);
  for (const bool bgr : {false, true}) {
    GstHarness* harness = gst_harness_new("oqademosaic");
    g_object_set(harness->element, "origin-x", parity & 1, "origin-y", parity >> 1, nullptr);
    gst_harness_set_src_caps_str(harness, bayer_caps(format_names[format], width, height).c_str());
    gst_harness_set_sink_caps_str(
        harness, bgr ? "video/x-raw,format=BGRA64_LE" : "video/x-raw,format=RGBA64_LE");
    for (int level = oqa_session::automatic_level; level < 4; ++level) {
      gst_util_set_object_arg(G_OBJECT(harness->element), "level",
                              level < 0 ? "auto" : oqa_session::level_names[level].data());
      EXPECT_EQ(push_and_pull(harness, buffer_of(mosaic)),
                expected_output(mosaic, request(width, height, format, parity, bgr, level)))
          << "level " << level << (bgr ? ", BGRA" : ", RGBA");
    }
    gst_harness_teardown(harness);
  }
}

INSTANTIATE_TEST_SUITE_P(Element, Format_origin_test,
                         testing::Combine(testing::Range(0, 8), testing::Range(0, 4)),
                         [](const auto& info) {
                           const int parity = std::get<1>(info.param);
                           return std::string(format_names[std::get<0>(info.param)]) + "_x" +
                                  std::to_string(parity & 1) + "_y" + std::to_string(parity >> 1);
                         });

// Caps the element must refuse: nothing comes out.
class Refused_caps_test : public testing::TestWithParam<const char*> {};

TEST_P(Refused_caps_test, FailNegotiation) {
  GstHarness* harness = gst_harness_new("oqademosaic");
  gst_harness_set_src_caps_str(harness, GetParam());
  EXPECT_EQ(gst_harness_push(harness, buffer_of(Samples(64))), GST_FLOW_NOT_NEGOTIATED);
  EXPECT_EQ(gst_harness_buffers_received(harness), 0U);
  gst_harness_teardown(harness);
}

INSTANTIATE_TEST_SUITE_P(
    Element, Refused_caps_test,
    testing::Values("video/x-bayer,format=rggb,width=8,height=4,framerate=0/1",
                    "video/x-raw,format=GRAY16_LE,width=8,height=4,framerate=0/1",
                    "video/x-bayer,format=rggb16le,width=1,height=64,framerate=0/1",
                    "video/x-bayer,format=rggb16le,width=2147483647,height=2147483647,"
                    "framerate=0/1"));

// Input buffers laid out in different ways: the frame comes out right, or
// the element posts an error and sends nothing.
struct Input_case {
  const char* name;
  std::size_t leading_bytes;   // before the first row
  std::size_t row_padding;     // after each row; either makes a video meta describe the rows
  std::ptrdiff_t size_change;  // added to the buffer's size
  bool valid;
};

class Input_layout_test : public testing::TestWithParam<Input_case> {};

TEST_P(Input_layout_test, DemosaicsOrReportsAnError) {
  const Input_case input = GetParam();
  constexpr int width = 10;
  constexpr int height = 6;
  const Samples mosaic = random_mosaic(width, height);
  const std::size_t stride = width * 2 + input.row_padding;
  std::vector<std::uint8_t> bytes(input.leading_bytes + stride * height);
  for (int row = 0; row < height; ++row) {
    memcpy(&bytes[input.leading_bytes + row * stride], &mosaic[row * width], width * 2);
  }
  bytes.resize(bytes.size() + input.size_change);
  GstBuffer* buffer =
      bytes.empty() ? gst_buffer_new() : gst_buffer_new_memdup(bytes.data(), bytes.size());
  if (input.row_padding != 0 || input.leading_bytes != 0) {
    gsize offsets[GST_VIDEO_MAX_PLANES] = {input.leading_bytes};
    gint strides[GST_VIDEO_MAX_PLANES] = {static_cast<gint>(stride)};
    gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_GRAY16_LE,
                                   width, height, 1, offsets, strides);
  }
  GstHarness* harness = gst_harness_new("oqademosaic");
  GstBus* bus = gst_bus_new();
  gst_element_set_bus(harness->element, bus);
  gst_harness_set_src_caps_str(harness, bayer_caps("grbg16le", width, height).c_str());
  const Samples output = push_and_pull(harness, buffer);
  GstMessage* error = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
  EXPECT_EQ(error == nullptr, input.valid);
  EXPECT_EQ(output, input.valid ? expected_output(mosaic, request(width, height, 2)) : Samples());
  if (error != nullptr) {
    gst_message_unref(error);
  }
  gst_harness_teardown(harness);
  gst_object_unref(bus);
}

INSTANTIATE_TEST_SUITE_P(Element, Input_layout_test,
                         testing::Values(Input_case{"packed", 0, 0, 0, true},
                                         Input_case{"longer", 0, 0, 7, true},
                                         Input_case{"odd_address", 1, 0, 0, true},
                                         Input_case{"padded_rows", 4, 6, 0, true},
                                         Input_case{"short", 0, 0, -1, false},
                                         Input_case{"short_padded", 4, 6, -7, false},
                                         Input_case{"empty", 0, 0, -120, false}),
                         [](const auto& info) { return std::string(info.param.name); });

// Two elements in one pipeline, and a third whose stop must not stop the
// library under them.
TEST(Element, RunsSeveralInstances) {
  const Samples mosaic = random_mosaic(12, 8);
  GstHarness* apart = gst_harness_new("oqademosaic");
  GstHarness* harness = gst_harness_new_parse(
      "tee name=split ! queue ! oqademosaic origin-x=1 ! fakesink split. ! oqademosaic");
  gst_harness_set_src_caps_str(apart, bayer_caps("rggb16le", 12, 8).c_str());
  gst_harness_set_src_caps_str(harness, bayer_caps("rggb16le", 12, 8).c_str());
  EXPECT_FALSE(push_and_pull(apart, buffer_of(mosaic)).empty());
  gst_harness_teardown(apart);
  for (int frame = 0; frame < 3; ++frame) {
    EXPECT_EQ(push_and_pull(harness, buffer_of(mosaic)),
              expected_output(mosaic, request(12, 8, 0)));
  }
  gst_harness_teardown(harness);
}

// Strips of every height in one or several bands, every phase and origin
// parity, every widening path, into packed and padded rows: the output of
// one whole-frame call.
class Strip_test : public testing::TestWithParam<std::tuple<int, oqa_gst::Widening_path>> {};

TEST_P(Strip_test, GiveTheWholeFramesOutput) {
  const auto [strip_rows, path] = GetParam();
  constexpr int width = 13;
  constexpr int height = 11;
  const Samples mosaic = random_mosaic(width, height);
  for (const std::size_t padding : {0, 24}) {
    const std::size_t stride = width * 8 + padding;
    for (int phase_and_parity = 0; phase_and_parity < 16; ++phase_and_parity) {
      const std::size_t bands = 1 + phase_and_parity % 3;
      const auto frame = request(width, height, phase_and_parity / 4, phase_and_parity % 4);
      std::vector<std::byte> output(stride * height);
      oqa_gst::Widening_gate gate(static_cast<unsigned>(bands));
      for (std::size_t band = 0; band < bands; ++band) {
        std::vector<std::uint16_t> strip;
        ASSERT_EQ(oqa_gst::demosaic_to_quadruples(frame, mosaic.data(), output.data(), stride,
                                                  oqa_gst::band_of(height, bands, band),
                                                  static_cast<std::size_t>(strip_rows), path, strip,
                                                  &gate),
                  QN_DEMOSAIC_NO_ERROR);
      }
      Samples rows(mosaic.size() * 4);
      for (int row = 0; row < height; ++row) {
        memcpy(&rows[row * width * 4], &output[row * stride], width * 8);
      }
      EXPECT_EQ(rows, expected_output(mosaic, frame))
          << "phase " << phase_and_parity / 4 << ", origin parity " << phase_and_parity % 4
          << ", stride " << stride << ", " << bands << " bands";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Element, Strip_test,
                         testing::Combine(testing::Values(1, 2, 3, 5, 11),
                                          testing::ValuesIn(oqa_gst::usable_widening_paths())),
                         [](const auto& info) {
                           return "rows" + std::to_string(std::get<0>(info.param)) + "_path" +
                                  std::to_string(static_cast<int>(std::get<1>(info.param)));
                         });

// Frames shared by threads, with the frame size (a caps change in mid-stream)
// and the thread count changed between frames.
TEST(Element, SharesFramesBetweenThreads) {
  GstHarness* harness = gst_harness_new("oqademosaic");
  for (const auto& [width, height, threads] :
       {std::tuple{40, 30, 2U}, {9, 5, 3U}, {40, 12, 0U}, {16, 6, 1U}, {40, 30, 7U}}) {
    const Samples mosaic = random_mosaic(width, height);
    gst_harness_set_src_caps_str(harness, bayer_caps("bggr16", width, height).c_str());
    g_object_set(harness->element, "n-threads", threads, nullptr);
    EXPECT_EQ(push_and_pull(harness, buffer_of(mosaic)),
              expected_output(mosaic, request(width, height, 1)))
        << width << "x" << height << ", " << threads << " threads";
  }
  gst_harness_teardown(harness);
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // Only the plugins loaded below, and a registry of this build's own, so the
  // user's plugins and registry cache play no part.
  setenv("GST_REGISTRY_1_0", OQA_GST_TEST_REGISTRY, 1);
  setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", 1);
  setenv("GST_REGISTRY_FORK", "no", 1);
  unsetenv("GST_PLUGIN_PATH_1_0");
  unsetenv("GST_PLUGIN_PATH");
  gst_init(nullptr, nullptr);
  // A warning or critical from GStreamer or GLib fails the run.
  g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL));
  for (const char* file : {OQA_GST_PLUGIN_FILE, OQA_GST_CORE_PLUGIN_FILE}) {
    GstPlugin* plugin = gst_plugin_load_file(file, nullptr);
    if (plugin == nullptr) {
      fprintf(stderr, "cannot load %s\n", file);
      return 1;
    }
    gst_object_unref(plugin);
  }
  if (oqa_session::initialise_library() != QN_DEMOSAIC_NO_ERROR) {
    return 1;
  }
  const int result = RUN_ALL_TESTS();
  qn_demosaic_module_terminate();
  return result;
}
