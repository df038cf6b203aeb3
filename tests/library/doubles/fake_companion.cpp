// A companion that counts its calls, initialises with the result the test
// chose and fills the interior by the scalar rules; built once per level,
// optionally without its initialise or terminate entry.
#include <string>

#include "engine/interior_demosaic.h"
#include "test_doubles_control.h"

#define OQA_JOIN_NAME(prefix, level, suffix) prefix##level##suffix
#define OQA_ENTRY(prefix, level, suffix) OQA_JOIN_NAME(prefix, level, suffix)

namespace {
test_doubles::Companion& companion() {
  return test_doubles::state().companions[FAKE_COMPANION_LEVEL];
}
}  // namespace

extern "C" {

#ifndef FAKE_COMPANION_WITHOUT_INITIALIZE
OQA_TEST_DOUBLES_API int OQA_ENTRY(qn_demosaic_vector_, FAKE_COMPANION_SUFFIX,
                                   _module_initialize)() {
  ++companion().initialized;
  return companion().initialize_result;
}
#endif

OQA_TEST_DOUBLES_API int OQA_ENTRY(qn_demosaic_transform_interior_16_to_48_vector_,
                                   FAKE_COMPANION_SUFFIX, )(int width, int height, int x, int y,
                                                            QN_COLOR_FILTER_ARRAY_PHASE phase,
                                                            QN_COLOR_FORMAT color_format,
                                                            const unsigned short* input,
                                                            unsigned short* output) {
  ++companion().transforms;
  bool const known_format = with_color_format(color_format, [&](auto format) {
    demosaic_interior_using_color_phase<format()>(width, height, x, y, input, output, phase);
  });
  return known_format ? 0 : 1;
}

#ifndef FAKE_COMPANION_WITHOUT_TERMINATE
OQA_TEST_DOUBLES_API void OQA_ENTRY(qn_demosaic_vector_, FAKE_COMPANION_SUFFIX,
                                    _module_terminate)() {
  ++companion().terminated;
  test_doubles::state().events.push_back(std::string("terminate ") + FAKE_COMPANION_LEVEL_NAME);
}
#endif

}  // extern "C"
