// oqa_demosaic._native: numpy arrays through the demosaic library's public
// entry points. Every argument is checked before the library is called, so a
// bad call raises one exception and writes nothing.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <array>
#include <climits>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "library_session.h"
#include "ostrevan_oqa_demosaic.h"

namespace py = pybind11;

namespace {

// Transforms run without the interpreter lock, so daemon threads may be
// inside one, or waiting to take that lock back, when the interpreter exits.
// The terminate at exit waits for them and turns later calls away: the
// library must not unload under a transform. A thread that finishes its
// transform after that never takes the lock back: the finalising interpreter
// would end it by unwinding through pybind11 and the C++ runtime, which
// aborts the process; it waits for the process to end instead.
class Library_lifetime {
 public:
  // With the interpreter lock held, before releasing it: false once
  // terminated.
  bool begin() {
    std::lock_guard lock(mutex_);
    if (terminated_) {
      return false;
    }
    ++active_;
    return true;
  }

  // Without the interpreter lock, after the transform. Returns when the
  // caller may take it back, and never once the library is terminated.
  void finish() {
    std::unique_lock lock(mutex_);
    if (terminated_) {
      --active_;
      idle_.notify_all();
      for (;;) {
        idle_.wait(lock);
      }
    }
  }

  // With the interpreter lock taken back.
  void end() {
    std::lock_guard lock(mutex_);
    --active_;
    idle_.notify_all();
  }

  // At interpreter exit, with the interpreter lock held.
  void terminate() {
    {
      std::lock_guard lock(mutex_);
      if (terminated_) {
        return;
      }
      terminated_ = true;
    }
    // Released, so that threads between finish() and end() can take it.
    py::gil_scoped_release unlocked;
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [this] { return active_ == 0; });
    qn_demosaic_module_terminate();
  }

 private:
  std::mutex mutex_;
  std::condition_variable idle_;
  int active_ = 0;  // between begin() and end()
  bool terminated_ = false;
};

// Never destroyed: a daemon thread may still touch it while the process's
// static objects are torn down.
Library_lifetime& library_lifetime() {
  static auto* const lifetime = new Library_lifetime;
  return *lifetime;
}

const char* describe_result(int code) {
  switch (code) {
    case QN_DEMOSAIC_MODULE_NOT_INITIALIZED:
      return "the demosaic library is not initialised";
    case QN_DEMOSAIC_NULL_INPUT_BUFFER:
      return "no input buffer";
    case QN_DEMOSAIC_NULL_OUTPUT_BUFFER:
      return "no output buffer";
    case QN_DEMOSAIC_SAME_INPUT_AND_OUTPUT_BUFFER:
      return "the input and the output are the same buffer";
    case QN_DEMOSAIC_INVALID_COLOR_FILTER_ARRAY_PHASE:
      return "invalid colour filter phase";
    case QN_DEMOSAIC_UNKNOWN_COLOR_FILTER_TYPE:
      return "unknown colour filter type";
    case QN_DEMOSAIC_UNSUPPORTED_BIT_DEPTH:
      return "unsupported bit depth";
    case QN_DEMOSAIC_INVALID_OUTPUT_COLOR_FORMAT:
      return "invalid output colour format";
    case QN_DEMOSAIC_INVALID_IMAGE_WIDTH:
      return "invalid image width";
    case QN_DEMOSAIC_INVALID_IMAGE_HEIGHT:
      return "invalid image height";
    default:
      return "unknown result";
  }
}

// Raises oqa_demosaic.Error, which the package defines in Python so that it
// pickles with its code.
[[noreturn]] void raise_library_error(int code, const std::string& message) {
  const py::object error_type = py::module_::import("oqa_demosaic").attr("Error");
  const py::object error =
      error_type(message + " (result code " + std::to_string(code) + ")", code);
  PyErr_SetObject(error_type.ptr(), error.ptr());
  throw py::error_already_set();
}

std::string type_name(const py::handle& object) {
  return py::str(py::type::handle_of(object).attr("__name__"));
}

std::string text_argument(const py::handle& value, const char* name) {
  if (!py::isinstance<py::str>(value)) {
    throw py::type_error(std::string(name) + " must be a str, not " + type_name(value));
  }
  return value.cast<std::string>();
}

// Pattern names as the command-line tool takes them: the 2x2 cell at the
// origin, in any case.
QN_COLOR_FILTER_ARRAY_PHASE parse_pattern(const py::handle& value) {
  if (const auto phase = oqa_session::parse_pattern(text_argument(value, "pattern"))) {
    return *phase;
  }
  throw py::value_error("unknown pattern " + py::repr(value).cast<std::string>() +
                        ": expected \"RGGB\", \"BGGR\", \"GRBG\" or \"GBRG\"");
}

QN_COLOR_FORMAT parse_layout(const py::handle& value) {
  if (const auto layout = oqa_session::parse_layout(text_argument(value, "layout"))) {
    return *layout;
  }
  throw py::value_error("unknown layout " + py::repr(value).cast<std::string>() +
                        ": expected \"rgb\", \"bgr\" or \"bgr-planar\"");
}

int parse_level(const py::handle& value) {
  const std::optional<int> level = oqa_session::parse_level(text_argument(value, "level"));
  if (!level) {
    throw py::value_error("unknown level " + py::repr(value).cast<std::string>() +
                          ": expected \"auto\", \"scalar\", \"sse\", \"avx2\" or \"avx512\"");
  }
  return *level;
}

// Only parities matter, so any int (or anything with __index__) is reduced to
// 0 or 1 by Python's own arithmetic, which has no overflow.
std::pair<int, int> parse_origin(const py::handle& value) {
  if (!py::isinstance<py::sequence>(value) || py::isinstance<py::str>(value)) {
    throw py::type_error("origin must be an (x, y) pair of ints, not " + type_name(value));
  }
  const auto pair = py::reinterpret_borrow<py::sequence>(value);
  if (pair.size() != 2) {
    throw py::value_error("origin must be an (x, y) pair, not " + std::to_string(pair.size()) +
                          " values");
  }
  int parities[2] = {0, 0};
  for (std::size_t i = 0; i < 2; ++i) {
    const py::object coordinate = pair[i];
    if (!PyIndex_Check(coordinate.ptr())) {
      throw py::type_error("origin must hold ints, not " + type_name(coordinate));
    }
    const auto as_int = py::reinterpret_steal<py::object>(PyNumber_Index(coordinate.ptr()));
    if (!as_int) {
      throw py::error_already_set();
    }
    parities[i] = (as_int & py::int_(1)).cast<int>();
  }
  return {parities[0], parities[1]};
}

bool is_native_uint16(const py::array& array) {
  return array.dtype().equal(py::dtype::of<std::uint16_t>());
}

bool is_aligned(const void* data) {
  return reinterpret_cast<std::uintptr_t>(data) % alignof(std::uint16_t) == 0;
}

// The bytes an array's elements can reach, as [first, last). Strides may be
// anything (negative, zero, absurd through as_strided), hence 128 bits.
std::pair<__int128, __int128> byte_extent(const py::array& array) {
  __int128 first = static_cast<__int128>(reinterpret_cast<std::uintptr_t>(array.data()));
  __int128 last = first + array.itemsize();
  for (py::ssize_t axis = 0; axis < array.ndim(); ++axis) {
    const __int128 reach = static_cast<__int128>(array.shape(axis) - 1) * array.strides(axis);
    (reach < 0 ? first : last) += reach;
  }
  return {first, last};
}

bool overlap(const py::array& a, const py::array& b) {
  const auto [a_first, a_last] = byte_extent(a);
  const auto [b_first, b_last] = byte_extent(b);
  return a_first < b_last && b_first < a_last;
}

std::string shape_text(const py::ssize_t* extents, py::ssize_t count) {
  std::string text = "(";
  for (py::ssize_t axis = 0; axis < count; ++axis) {
    text += (axis == 0 ? "" : ", ") + std::to_string(extents[axis]);
  }
  return text + (count == 1 ? ",)" : ")");
}

struct Frame_size {
  py::ssize_t height;
  py::ssize_t width;
};

Frame_size check_mosaic(const py::handle& value) {
  if (!py::isinstance<py::array>(value)) {
    throw py::type_error("mosaic must be a numpy.ndarray of uint16, not " + type_name(value));
  }
  const auto mosaic = py::reinterpret_borrow<py::array>(value);
  if (!is_native_uint16(mosaic)) {
    throw py::type_error("mosaic must have dtype uint16 in native byte order, not " +
                         py::str(mosaic.dtype()).cast<std::string>());
  }
  if (mosaic.ndim() != 2) {
    throw py::value_error("mosaic must be 2-D, not " + std::to_string(mosaic.ndim()) + "-D");
  }
  const Frame_size size{mosaic.shape(0), mosaic.shape(1)};
  if (size.height < 2 || size.width < 2) {
    throw py::value_error("mosaic must be at least 2x2, not " + std::to_string(size.height) + "x" +
                          std::to_string(size.width));
  }
  // The library takes int sizes; numpy cannot allocate more than PTRDIFF_MAX
  // bytes for the result.
  constexpr py::ssize_t most_result_samples = PTRDIFF_MAX / 3 / sizeof(std::uint16_t);
  if (size.height > INT_MAX || size.width > INT_MAX ||
      size.width > most_result_samples / size.height) {
    throw py::value_error("mosaic of " + std::to_string(size.height) + "x" +
                          std::to_string(size.width) + " is too large");
  }
  return size;
}

void check_out(const py::handle& value, const py::array& mosaic,
               const std::array<py::ssize_t, 3>& shape) {
  if (!py::isinstance<py::array>(value)) {
    throw py::type_error("out must be a numpy.ndarray of uint16, not " + type_name(value));
  }
  const auto out = py::reinterpret_borrow<py::array>(value);
  if (!is_native_uint16(out)) {
    throw py::value_error("out must have dtype uint16 in native byte order, not " +
                          py::str(out.dtype()).cast<std::string>());
  }
  const bool same_shape = out.ndim() == 3 && out.shape(0) == shape[0] && out.shape(1) == shape[1] &&
                          out.shape(2) == shape[2];
  if (!same_shape) {
    throw py::value_error("out must have shape " + shape_text(shape.data(), 3) + ", not " +
                          shape_text(out.shape(), out.ndim()));
  }
  if ((out.flags() & py::array::c_style) == 0 || !is_aligned(out.data())) {
    throw py::value_error("out must be C-contiguous and aligned");
  }
  if (!out.writeable()) {
    throw py::value_error("out must be writeable");
  }
  if (overlap(out, mosaic)) {
    throw py::value_error("out overlaps the mosaic");
  }
}

// The mosaic as the library reads it: C-contiguous and aligned, copied if it
// is not.
py::array contiguous_mosaic(const py::array& mosaic, Frame_size size) {
  const bool usable = mosaic.strides(1) == sizeof(std::uint16_t) &&
                      mosaic.strides(0) == size.width * mosaic.strides(1) &&
                      is_aligned(mosaic.data());
  if (usable) {
    return mosaic;
  }
  py::array_t<std::uint16_t, py::array::c_style> copy({size.height, size.width});
  py::module_::import("numpy").attr("copyto")(copy, mosaic);
  return copy;
}

constexpr const char* demosaic_doc = R"doc(Demosaics a Bayer frame into a 48-bit colour image.

mosaic: a 2-D numpy array of uint16 in native byte order, at least 2x2;
    a non-contiguous or unaligned array is copied first.
pattern: "RGGB", "BGGR", "GRBG" or "GBRG" (any case), the 2x2 cell of
    filters at the origin.
origin: (x, y), any ints; pixel (row r, column c) has the pattern's
    top-left colour where c - x and r - y are both even.
layout: "rgb" gives shape (H, W, 3) red, green, blue; "bgr" gives (H, W, 3)
    blue, green, red (OpenCV's order); "bgr-planar" gives (3, H, W), the blue,
    green and red planes.
level: "auto" (the library's choice), or "scalar", "sse", "avx2", "avx512"
    to force an instruction-set level; a level this process cannot use runs
    the scalar code, which gives the same bytes.
out: optional C-contiguous, writeable uint16 array of exactly the result's
    shape, not overlapping the mosaic; written in place and returned.

Returns the colour image. The interpreter lock is released during the
transform. Raises TypeError for a mosaic that is not a uint16 array or for
arguments of the wrong type; ValueError for a wrong number of dimensions, a
frame below 2x2, an unknown pattern, layout or level, or an unusable out;
oqa_demosaic.Error (with .code) for a result code of the library. On any
error, out is left untouched.)doc";

py::object demosaic(const py::object& mosaic_argument, const py::object& pattern_argument,
                    const py::object& origin_argument, const py::object& layout_argument,
                    const py::object& level_argument, const py::object& out_argument) {
  const Frame_size size = check_mosaic(mosaic_argument);
  const auto mosaic = py::reinterpret_borrow<py::array>(mosaic_argument);
  const QN_COLOR_FILTER_ARRAY_PHASE phase = parse_pattern(pattern_argument);
  const auto [origin_x, origin_y] = parse_origin(origin_argument);
  const QN_COLOR_FORMAT format = parse_layout(layout_argument);
  const int level = parse_level(level_argument);
  const std::array<py::ssize_t, 3> shape =
      format == QN_COLOR_FORMAT_BGR_PLANAR ? std::array<py::ssize_t, 3>{3, size.height, size.width}
                                           : std::array<py::ssize_t, 3>{size.height, size.width, 3};
  if (!out_argument.is_none()) {
    check_out(out_argument, mosaic, shape);
  }

  const py::array input = contiguous_mosaic(mosaic, size);
  py::object result = out_argument.is_none()
                          ? py::object(py::array_t<std::uint16_t, py::array::c_style>(shape))
                          : out_argument;
  const auto* const input_samples = static_cast<const unsigned short*>(input.data());
  auto* const output_samples =
      static_cast<unsigned short*>(py::reinterpret_borrow<py::array>(result).mutable_data());
  const int width = static_cast<int>(size.width);
  const int height = static_cast<int>(size.height);

  Library_lifetime& lifetime = library_lifetime();
  if (!lifetime.begin()) {
    raise_library_error(QN_DEMOSAIC_MODULE_NOT_INITIALIZED,
                        "the demosaic library was terminated at interpreter exit");
  }
  // The interpreter lock is released and taken back by hand, not by
  // pybind11's guard, whose destructor would take it back even at exit;
  // nothing in between throws.
  PyThreadState* const thread_state = PyEval_SaveThread();
  const int code = level == oqa_session::automatic_level
                       ? qn_demosaic_transform_16_to_48(width, height, origin_x, origin_y, phase,
                                                        format, QN_COLOR_FILTER_TYPE_BAYER, 16,
                                                        input_samples, output_samples)
                       : qn_demosaic_transform_test_16_to_48(
                             width, height, origin_x, origin_y, phase, format,
                             QN_COLOR_FILTER_TYPE_BAYER, 16, input_samples, output_samples, level);
  lifetime.finish();
  PyEval_RestoreThread(thread_state);
  lifetime.end();
  if (code != QN_DEMOSAIC_NO_ERROR) {
    raise_library_error(code, describe_result(code));
  }
  return result;
}

py::list levels() {
  py::list names;
  for (const int level : oqa_session::usable_levels()) {
    names.append(py::str(std::string(oqa_session::level_names[static_cast<std::size_t>(level)])));
  }
  return names;
}

}  // namespace

PYBIND11_MODULE(_native, module) {
  module.doc() = "The demosaic library's entry points; import them from oqa_demosaic.";
  module.def("demosaic", &demosaic, demosaic_doc, py::arg("mosaic"), py::arg("pattern") = "RGGB",
             py::kw_only(), py::arg("origin") = py::make_tuple(0, 0), py::arg("layout") = "rgb",
             py::arg("level") = "auto", py::arg("out") = py::none());
  module.def("levels", &levels,
             "The levels this process can really use: \"scalar\" and each of \"sse\", \"avx2\" "
             "and \"avx512\" whose companion library was installed with the library and whose "
             "instructions the processor offers.");

  // Last, so that nothing after it can fail and leave the initialise
  // unbalanced.
  const int code = oqa_session::initialise_library();
  if (code != QN_DEMOSAIC_NO_ERROR) {
    raise_library_error(code, describe_result(code));
  }
  try {
    py::module_::import("atexit").attr("register")(
        py::cpp_function([] { library_lifetime().terminate(); }));
  } catch (...) {
    library_lifetime().terminate();
    throw;
  }
}
