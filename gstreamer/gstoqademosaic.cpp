// oqademosaic: 16-bit Bayer frames (video/x-bayer) to RGBA64_LE or BGRA64_LE
// video through the demosaic library.
//
// GStreamer 1.22 has no video format for Bayer, so the element is a
// GstBaseTransform rather than a GstVideoFilter (which needs a GstVideoInfo on
// both pads): it reads width, height and format from the caps itself and takes
// rows of width samples packed one after the other, as camera sources and
// files of raw frames deliver them; a GstVideoMeta on the input buffer
// overrides that layout.
#include <gst/base/gstbasetransform.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <vector>

#include "band_workers.h"
#include "library_session.h"
#include "ostrevan_oqa_demosaic.h"
#include "rgba_output.h"

GST_DEBUG_CATEGORY_STATIC(oqa_demosaic_debug);
#define GST_CAT_DEFAULT oqa_demosaic_debug

namespace {

struct Bayer_format {
  const char* name;
  QN_COLOR_FILTER_ARRAY_PHASE phase;
};

// The name gives the colours of the first two cells of the first two rows.
constexpr std::array<Bayer_format, 8> bayer_formats{{
    {"rggb16le", QN_CFA_PHASE_RED},
    {"bggr16le", QN_CFA_PHASE_BLUE},
    {"grbg16le", QN_CFA_PHASE_GREEN_IN_RED_ROW},
    {"gbrg16le", QN_CFA_PHASE_GREEN_IN_BLUE_ROW},
    {"rggb16", QN_CFA_PHASE_RED},
    {"bggr16", QN_CFA_PHASE_BLUE},
    {"grbg16", QN_CFA_PHASE_GREEN_IN_RED_ROW},
    {"gbrg16", QN_CFA_PHASE_GREEN_IN_BLUE_ROW},
}};

constexpr char sink_caps[] =
    "video/x-bayer, format = (string) { rggb16le, bggr16le, grbg16le, gbrg16le, rggb16, bggr16, "
    "grbg16, gbrg16 }, width = (int) [ 2, MAX ], height = (int) [ 2, MAX ], "
    "framerate = (fraction) [ 0/1, MAX ]";
constexpr char src_caps[] =
    "video/x-raw, format = (string) { RGBA64_LE, BGRA64_LE }, width = (int) [ 2, MAX ], "
    "height = (int) [ 2, MAX ], framerate = (fraction) [ 0/1, MAX ]";

GstStaticPadTemplate sink_template =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(sink_caps));
GstStaticPadTemplate src_template =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(src_caps));

constexpr std::size_t bytes_per_sample = 2;
constexpr std::size_t output_bytes_per_pixel = 8;
constexpr guint max_threads = 256;

// What the negotiated caps say about every frame until the next caps.
struct Frame_geometry {
  int width = 0;
  int height = 0;
  QN_COLOR_FILTER_ARRAY_PHASE phase = QN_CFA_PHASE_RED;
  QN_COLOR_FORMAT color_format = QN_COLOR_FORMAT_RGB_INTERLEAVED;
  oqa_gst::Widening_path widening_path = oqa_gst::Widening_path::scalar;
  GstVideoInfo output_info{};
};

struct Input_layout {
  std::size_t offset;
  std::size_t stride;
};

enum Property {
  property_0,
  property_origin_x,
  property_origin_y,
  property_level,
  property_n_threads
};

}  // namespace

struct GstOqaDemosaic {
  GstBaseTransform parent;
  // Properties, read once per frame without a lock.
  gint origin_x;
  gint origin_y;
  gint level;
  guint n_threads;
  // Only touched from the streaming thread (caps and buffers) and in start
  // and stop, when no buffer flows.
  Frame_geometry geometry;
  std::vector<std::uint16_t> packed_input;
  std::vector<std::vector<std::uint16_t>> strip_triples;  // one per band
  std::unique_ptr<oqa_gst::Band_workers> workers;
  guint workers_asked;  // the n-threads the workers were made for
  GstCaps* refused_caps;
  bool library_started;
};

struct GstOqaDemosaicClass {
  GstBaseTransformClass parent_class;
};

G_DEFINE_TYPE(GstOqaDemosaic, gst_oqa_demosaic, GST_TYPE_BASE_TRANSFORM)
GST_ELEMENT_REGISTER_DEFINE(oqademosaic, "oqademosaic", GST_RANK_NONE, gst_oqa_demosaic_get_type())

namespace {

GstOqaDemosaic* as_demosaic(gpointer object) { return reinterpret_cast<GstOqaDemosaic*>(object); }

GType level_enum_type() {
  static GType type = 0;
  if (g_once_init_enter(&type)) {
    using oqa_session::level_names;
    static const GEnumValue values[] = {
        {oqa_session::automatic_level, "The fastest level this processor runs", "auto"},
        {0, "Scalar code", level_names[0].data()},
        {1, "SSE companion", level_names[1].data()},
        {2, "AVX2 companion", level_names[2].data()},
        {3, "AVX-512 companion", level_names[3].data()},
        {0, nullptr, nullptr},
    };
    static_assert(level_names.size() == 4, "one enumeration value per level name");
    g_once_init_leave(&type, g_enum_register_static("GstOqaDemosaicLevel", values));
  }
  return type;
}

// Caps of the other pad with the same size and frame rate.
GstCaps* transform_caps(GstBaseTransform* base, GstPadDirection direction, GstCaps* caps,
                        GstCaps* filter) {
  const bool to_src = direction == GST_PAD_SINK;
  GstCaps* other = gst_caps_new_empty();
  for (guint index = 0; index < gst_caps_get_size(caps); ++index) {
    const GstStructure* structure = gst_caps_get_structure(caps, index);
    GstStructure* converted = gst_structure_new_empty(to_src ? "video/x-raw" : "video/x-bayer");
    for (const char* field : {"width", "height", "framerate", "pixel-aspect-ratio"}) {
      if (const GValue* value = gst_structure_get_value(structure, field)) {
        gst_structure_set_value(converted, field, value);
      }
    }
    other = gst_caps_merge_structure(other, converted);
  }
  GstCaps* allowed = gst_pad_get_pad_template_caps(to_src ? base->srcpad : base->sinkpad);
  GstCaps* result = gst_caps_intersect(other, allowed);
  gst_caps_unref(allowed);
  gst_caps_unref(other);
  if (filter != nullptr) {
    GstCaps* filtered = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
    gst_caps_unref(result);
    result = filtered;
  }
  return result;
}

std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase_of(const char* format) {
  for (const Bayer_format& known : bayer_formats) {
    if (format != nullptr && std::string_view(format) == known.name) {
      return known.phase;
    }
  }
  return std::nullopt;
}

// Posts one error per refused caps: GstBaseTransform tries the same caps
// again when the next buffer arrives.
gboolean refuse_caps(GstOqaDemosaic* self, GstCaps* incaps, GstCaps* outcaps, const char* reason) {
  if (self->refused_caps == nullptr || !gst_caps_is_equal(self->refused_caps, incaps)) {
    gst_caps_replace(&self->refused_caps, incaps);
    GST_ELEMENT_ERROR(self, CORE, NEGOTIATION,
                      ("Cannot turn %" GST_PTR_FORMAT " into %" GST_PTR_FORMAT, incaps, outcaps),
                      ("%s", reason));
  }
  return FALSE;
}

gboolean set_caps(GstBaseTransform* base, GstCaps* incaps, GstCaps* outcaps) {
  GstOqaDemosaic* self = as_demosaic(base);
  const GstStructure* structure = gst_caps_get_structure(incaps, 0);
  Frame_geometry geometry;
  const std::optional<QN_COLOR_FILTER_ARRAY_PHASE> phase =
      phase_of(gst_structure_get_string(structure, "format"));
  if (!phase || !gst_structure_get_int(structure, "width", &geometry.width) ||
      !gst_structure_get_int(structure, "height", &geometry.height) || geometry.width < 2 ||
      geometry.height < 2) {
    return refuse_caps(self, incaps, outcaps,
                       "the input needs a 16-bit Bayer format, width and height of 2 or more");
  }
  geometry.phase = *phase;
  // Pools size their buffers in guint.
  const std::uint64_t pixels =
      static_cast<std::uint64_t>(geometry.width) * static_cast<std::uint64_t>(geometry.height);
  if (pixels > G_MAXUINT / output_bytes_per_pixel ||
      !gst_video_info_from_caps(&geometry.output_info, outcaps) ||
      GST_VIDEO_INFO_WIDTH(&geometry.output_info) != geometry.width ||
      GST_VIDEO_INFO_HEIGHT(&geometry.output_info) != geometry.height ||
      GST_VIDEO_INFO_SIZE(&geometry.output_info) > G_MAXUINT) {
    return refuse_caps(self, incaps, outcaps,
                       "the output must have the input's size and a frame must fit in 4 GiB");
  }
  geometry.color_format = GST_VIDEO_INFO_FORMAT(&geometry.output_info) == GST_VIDEO_FORMAT_BGRA64_LE
                              ? QN_COLOR_FORMAT_BGR_INTERLEAVED
                              : QN_COLOR_FORMAT_RGB_INTERLEAVED;
  geometry.widening_path =
      oqa_gst::choose_widening_path(GST_VIDEO_INFO_SIZE(&geometry.output_info));
  GST_DEBUG_OBJECT(self, "%dx%d, phase %d, colour format %d", geometry.width, geometry.height,
                   geometry.phase, geometry.color_format);
  self->geometry = geometry;
  return TRUE;
}

// Where the frame lies in an input buffer of `size` bytes, or nothing if the
// buffer cannot hold all of it.
std::optional<Input_layout> input_layout(const Frame_geometry& geometry, GstBuffer* buffer,
                                         std::size_t size) {
  const std::size_t row_bytes = static_cast<std::size_t>(geometry.width) * bytes_per_sample;
  Input_layout layout{0, row_bytes};
  if (const GstVideoMeta* meta = gst_buffer_get_video_meta(buffer)) {
    if (meta->stride[0] < 0) {
      return std::nullopt;
    }
    layout = {meta->offset[0], static_cast<std::size_t>(meta->stride[0])};
  }
  // The stride is at most INT_MAX and the height below 2^31, so the product
  // cannot overflow.
  if (layout.stride < row_bytes || layout.offset > size ||
      size - layout.offset <
          layout.stride * static_cast<std::size_t>(geometry.height - 1) + row_bytes) {
    return std::nullopt;
  }
  return layout;
}

void report_short_input(GstOqaDemosaic* self, std::size_t size) {
  const Frame_geometry& geometry = self->geometry;
  GST_ELEMENT_ERROR(
      self, STREAM, FORMAT,
      ("Input buffer too small for one %dx%d frame", geometry.width, geometry.height),
      ("%" G_GSIZE_FORMAT " bytes, a frame needs %" G_GSIZE_FORMAT " (or its video meta's layout)",
       size, static_cast<std::size_t>(geometry.width) * geometry.height * bytes_per_sample));
}

// Refuses a short input before an output buffer is taken from the pool.
GstFlowReturn prepare_output_buffer(GstBaseTransform* base, GstBuffer* input, GstBuffer** output) {
  GstOqaDemosaic* self = as_demosaic(base);
  const std::size_t size = gst_buffer_get_size(input);
  if (!input_layout(self->geometry, input, size)) {
    report_short_input(self, size);
    return GST_FLOW_ERROR;
  }
  return GST_BASE_TRANSFORM_CLASS(gst_oqa_demosaic_parent_class)
      ->prepare_output_buffer(base, input, output);
}

// The library needs packed rows of 2-byte aligned samples.
const unsigned short* packed_samples(GstOqaDemosaic* self, const guint8* data,
                                     Input_layout layout) {
  const Frame_geometry& geometry = self->geometry;
  const std::size_t row_bytes = static_cast<std::size_t>(geometry.width) * bytes_per_sample;
  const guint8* first = data + layout.offset;
  if (layout.stride == row_bytes && reinterpret_cast<std::uintptr_t>(first) % alignof(short) == 0) {
    return reinterpret_cast<const unsigned short*>(first);
  }
  self->packed_input.resize(static_cast<std::size_t>(geometry.width) * geometry.height);
  auto* packed = reinterpret_cast<guint8*>(self->packed_input.data());
  for (std::size_t row = 0; row < static_cast<std::size_t>(geometry.height); ++row) {
    std::memcpy(packed + row * row_bytes, first + row * layout.stride, row_bytes);
  }
  return self->packed_input.data();
}

// The workers for the n-threads asked now, made again when that changes.
oqa_gst::Band_workers* band_workers(GstOqaDemosaic* self) {
  guint asked = g_atomic_int_get(&self->n_threads);
  if (!self->workers || self->workers_asked != asked) {
    const unsigned threads = asked == 0 ? g_get_num_processors() : asked;
    self->workers.reset();
    self->workers = std::make_unique<oqa_gst::Band_workers>(threads);
    self->workers_asked = asked;
  }
  return self->workers.get();
}

// Demosaics into the output plane once it is known to hold the whole frame.
GstFlowReturn demosaic_frame(GstOqaDemosaic* self, const unsigned short* samples,
                             GstVideoFrame* frame) {
  const Frame_geometry& geometry = self->geometry;
  auto* plane = static_cast<std::byte*>(GST_VIDEO_FRAME_PLANE_DATA(frame, 0));
  const auto stride = static_cast<std::size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(frame, 0));
  const auto width = static_cast<std::size_t>(geometry.width);
  const auto height = static_cast<std::size_t>(geometry.height);
  const auto* mapped_end = frame->map[0].data + frame->map[0].size;
  if (GST_VIDEO_FRAME_PLANE_STRIDE(frame, 0) < 0 || stride < width * output_bytes_per_pixel ||
      static_cast<std::size_t>(mapped_end - reinterpret_cast<guint8*>(plane)) <
          stride * (height - 1) + width * output_bytes_per_pixel) {
    GST_ELEMENT_ERROR(self, STREAM, FAILED, ("Output buffer does not fit the negotiated frame"),
                      ("plane stride %" G_GSIZE_FORMAT, stride));
    return GST_FLOW_ERROR;
  }
  const oqa_gst::Frame_request request{geometry.width,
                                       geometry.height,
                                       g_atomic_int_get(&self->origin_x),
                                       g_atomic_int_get(&self->origin_y),
                                       geometry.phase,
                                       geometry.color_format,
                                       g_atomic_int_get(&self->level)};
  oqa_gst::Band_workers* workers = band_workers(self);
  const std::size_t strip_rows = oqa_gst::rows_per_strip(width, workers->threads());
  try {
    self->strip_triples.resize(workers->threads());
    for (auto& strip : self->strip_triples) {
      strip.resize(oqa_gst::strip_samples(request, strip_rows));
    }
  } catch (const std::bad_alloc&) {
    GST_ELEMENT_ERROR(self, RESOURCE, FAILED, ("Out of memory for the strips of a frame"),
                      ("%dx%d frame", geometry.width, geometry.height));
    return GST_FLOW_ERROR;
  }
  std::vector<int> results(workers->threads(), QN_DEMOSAIC_NO_ERROR);
  oqa_gst::Widening_gate gate(workers->threads());
  workers->run([&](unsigned band) {
    results[band] = oqa_gst::demosaic_to_quadruples(
        request, samples, plane, stride, oqa_gst::band_of(height, results.size(), band), strip_rows,
        geometry.widening_path, self->strip_triples[band], &gate);
  });
  const auto failed = std::find_if(results.begin(), results.end(),
                                   [](int result) { return result != QN_DEMOSAIC_NO_ERROR; });
  const int result = failed == results.end() ? QN_DEMOSAIC_NO_ERROR : *failed;
  if (result != QN_DEMOSAIC_NO_ERROR) {
    GST_ELEMENT_ERROR(self, STREAM, FAILED, ("Demosaic failed with result code %d", result),
                      ("%dx%d frame", geometry.width, geometry.height));
    return GST_FLOW_ERROR;
  }
  return GST_FLOW_OK;
}

GstFlowReturn transform(GstBaseTransform* base, GstBuffer* input, GstBuffer* output) {
  GstOqaDemosaic* self = as_demosaic(base);
  GstMapInfo in_map;
  if (!gst_buffer_map(input, &in_map, GST_MAP_READ)) {
    GST_ELEMENT_ERROR(self, STREAM, FAILED, ("Cannot read the input buffer"), (nullptr));
    return GST_FLOW_ERROR;
  }
  GstFlowReturn flow = GST_FLOW_ERROR;
  GstVideoFrame frame;
  const std::optional<Input_layout> layout = input_layout(self->geometry, input, in_map.size);
  if (!layout) {
    report_short_input(self, in_map.size);
  } else if (!gst_video_frame_map(&frame, &self->geometry.output_info, output, GST_MAP_WRITE)) {
    GST_ELEMENT_ERROR(self, STREAM, FAILED, ("Cannot write the output buffer"), (nullptr));
  } else {
    flow = demosaic_frame(self, packed_samples(self, in_map.data, *layout), &frame);
    gst_video_frame_unmap(&frame);
  }
  gst_buffer_unmap(input, &in_map);
  return flow;
}

// Output buffers come from a video buffer pool: downstream's if it takes our
// configuration, else our own.
gboolean decide_allocation(GstBaseTransform* base, GstQuery* query) {
  GstCaps* caps = nullptr;
  gst_query_parse_allocation(query, &caps, nullptr);
  GstVideoInfo info;
  if (caps == nullptr || !gst_video_info_from_caps(&info, caps) ||
      GST_VIDEO_INFO_SIZE(&info) > G_MAXUINT) {
    return FALSE;
  }
  GstBufferPool* pool = nullptr;
  guint size = 0;
  guint min = 0;
  guint max = 0;
  const bool offered = gst_query_get_n_allocation_pools(query) > 0;
  if (offered) {
    gst_query_parse_nth_allocation_pool(query, 0, &pool, &size, &min, &max);
  }
  size = MAX(size, static_cast<guint>(GST_VIDEO_INFO_SIZE(&info)));
  const bool video_meta = gst_query_find_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
  auto configure = [&](GstBufferPool* candidate) {
    GstStructure* config = gst_buffer_pool_get_config(candidate);
    gst_buffer_pool_config_set_params(config, caps, size, min, max);
    if (video_meta) {
      gst_buffer_pool_config_add_option(config, GST_BUFFER_POOL_OPTION_VIDEO_META);
    }
    return gst_buffer_pool_set_config(candidate, config) != FALSE;
  };
  if (pool == nullptr || !configure(pool)) {
    if (pool != nullptr) {
      gst_object_unref(pool);
    }
    pool = gst_video_buffer_pool_new();
    if (!configure(pool)) {
      gst_object_unref(pool);
      return FALSE;
    }
  }
  if (offered) {
    gst_query_set_nth_allocation_pool(query, 0, pool, size, min, max);
  } else {
    gst_query_add_allocation_pool(query, pool, size, min, max);
  }
  gst_object_unref(pool);
  return GST_BASE_TRANSFORM_CLASS(gst_oqa_demosaic_parent_class)->decide_allocation(base, query);
}

// Upstream may send padded rows described by a GstVideoMeta.
gboolean propose_allocation(GstBaseTransform* /*base*/, GstQuery* /*decide_query*/,
                            GstQuery* query) {
  gst_query_add_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
  return TRUE;
}

gboolean start(GstBaseTransform* base) {
  GstOqaDemosaic* self = as_demosaic(base);
  int result = QN_DEMOSAIC_NO_ERROR;
  try {
    result = oqa_session::initialise_library();
  } catch (const std::exception& failure) {
    GST_ELEMENT_ERROR(self, LIBRARY, INIT, ("Cannot start the demosaic library"),
                      ("%s", failure.what()));
    return FALSE;
  }
  if (result != QN_DEMOSAIC_NO_ERROR) {
    GST_ELEMENT_ERROR(self, LIBRARY, INIT,
                      ("Cannot start the demosaic library: result code %d", result), (nullptr));
    return FALSE;
  }
  self->library_started = true;
  return TRUE;
}

gboolean stop(GstBaseTransform* base) {
  GstOqaDemosaic* self = as_demosaic(base);
  if (self->library_started) {
    qn_demosaic_module_terminate();
    self->library_started = false;
  }
  self->packed_input = {};
  self->strip_triples = {};
  self->workers.reset();
  gst_caps_replace(&self->refused_caps, nullptr);
  return TRUE;
}

void set_property(GObject* object, guint id, const GValue* value, GParamSpec* param) {
  GstOqaDemosaic* self = as_demosaic(object);
  switch (id) {
    case property_origin_x:
      g_atomic_int_set(&self->origin_x, g_value_get_int(value));
      break;
    case property_origin_y:
      g_atomic_int_set(&self->origin_y, g_value_get_int(value));
      break;
    case property_level:
      g_atomic_int_set(&self->level, g_value_get_enum(value));
      break;
    case property_n_threads:
      g_atomic_int_set(&self->n_threads, g_value_get_uint(value));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, param);
  }
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec* param) {
  GstOqaDemosaic* self = as_demosaic(object);
  switch (id) {
    case property_origin_x:
      g_value_set_int(value, g_atomic_int_get(&self->origin_x));
      break;
    case property_origin_y:
      g_value_set_int(value, g_atomic_int_get(&self->origin_y));
      break;
    case property_level:
      g_value_set_enum(value, g_atomic_int_get(&self->level));
      break;
    case property_n_threads:
      g_value_set_uint(value, g_atomic_int_get(&self->n_threads));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, param);
  }
}

void finalize(GObject* object) {
  GstOqaDemosaic* self = as_demosaic(object);
  self->packed_input.~vector();
  self->strip_triples.~vector();
  self->workers.~unique_ptr();
  gst_caps_replace(&self->refused_caps, nullptr);
  G_OBJECT_CLASS(gst_oqa_demosaic_parent_class)->finalize(object);
}

}  // namespace

static void gst_oqa_demosaic_init(GstOqaDemosaic* self) {
  new (&self->packed_input) std::vector<std::uint16_t>();
  new (&self->strip_triples) std::vector<std::vector<std::uint16_t>>();
  new (&self->workers) std::unique_ptr<oqa_gst::Band_workers>();
  self->n_threads = 1;
  self->workers_asked = 1;
  new (&self->geometry) Frame_geometry();
  self->level = oqa_session::automatic_level;
}

static void gst_oqa_demosaic_class_init(GstOqaDemosaicClass* klass) {
  GObjectClass* object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;
  object_class->finalize = finalize;
  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  GST_PARAM_MUTABLE_PLAYING);
  g_object_class_install_property(
      object_class, property_origin_x,
      g_param_spec_int("origin-x", "Origin X",
                       "Column where the pattern named by the format starts; only its parity "
                       "matters",
                       0, G_MAXINT, 0, flags));
  g_object_class_install_property(
      object_class, property_origin_y,
      g_param_spec_int("origin-y", "Origin Y",
                       "Row where the pattern named by the format starts; only its parity matters",
                       0, G_MAXINT, 0, flags));
  g_object_class_install_property(
      object_class, property_level,
      g_param_spec_enum("level", "Instruction-set level",
                        "Code the demosaic runs; a level this process cannot run falls back to "
                        "scalar code with the same output",
                        level_enum_type(), oqa_session::automatic_level, flags));
  g_object_class_install_property(
      object_class, property_n_threads,
      g_param_spec_uint("n-threads", "Threads",
                        "Threads that share each frame's rows; 0 takes one per processor", 0,
                        max_threads, 1, flags));

  GstElementClass* element_class = GST_ELEMENT_CLASS(klass);
  gst_element_class_add_static_pad_template(element_class, &sink_template);
  gst_element_class_add_static_pad_template(element_class, &src_template);
  gst_element_class_set_static_metadata(
      element_class, "16-bit Bayer demosaic", "Filter/Converter/Video",
      "Converts 16-bit video/x-bayer to 16-bit RGBA or BGRA by exact bilinear interpolation",
      "Ostrevan OQA <oqa@ostrevan.invalid>");

  GstBaseTransformClass* transform_class = GST_BASE_TRANSFORM_CLASS(klass);
  transform_class->transform_caps = transform_caps;
  transform_class->set_caps = set_caps;
  transform_class->prepare_output_buffer = prepare_output_buffer;
  transform_class->transform = transform;
  transform_class->decide_allocation = decide_allocation;
  transform_class->propose_allocation = propose_allocation;
  transform_class->start = start;
  transform_class->stop = stop;
  transform_class->passthrough_on_same_caps = FALSE;

  gst_type_mark_as_plugin_api(level_enum_type(), static_cast<GstPluginAPIFlags>(0));
}

static gboolean plugin_init(GstPlugin* plugin) {
  GST_DEBUG_CATEGORY_INIT(oqa_demosaic_debug, "oqademosaic", 0, "16-bit Bayer demosaic");
  return GST_ELEMENT_REGISTER(oqademosaic, plugin);
}

#define PACKAGE "ostrevan_oqa_demosaic"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, oqademosaic,
                  "Demosaic of 16-bit Bayer video", plugin_init, OQA_VERSION, "Proprietary",
                  PACKAGE, "https://ostrevan.invalid")
