#include "modules/vector_demosaic_module.h"

#include "modules/shared_library_loader.h"

namespace {
// dlsym hands back object pointers; the entries are functions.
template <typename Function>
Function as_function(void* address) {
  return reinterpret_cast<Function>(address);
}
}  // namespace

Vector_demosaic_module::Vector_demosaic_module(char const* library_base_name,
                                               char const* initialize_name,
                                               char const* transform_name,
                                               char const* terminate_name) {
  library_handle = load_shared_library(library_base_name);
  if (library_handle == nullptr) {
    load_failed = true;
    return;
  }
  // Each entry is looked up only once the one before it was found.
  initialize_function =
      as_function<Vector_initialize_function>(get_function_handle(library_handle, initialize_name));
  if (initialize_function == nullptr) {
    load_failed = true;
    return;
  }
  transform_function =
      as_function<Vector_transform_function>(get_function_handle(library_handle, transform_name));
  if (transform_function == nullptr) {
    load_failed = true;
    return;
  }
  terminate_function =
      as_function<Vector_terminate_function>(get_function_handle(library_handle, terminate_name));
  if (terminate_function == nullptr) {
    load_failed = true;
    return;
  }
  if (initialize_function() != 0) {
    load_failed = true;
  }
}

Vector_demosaic_module::~Vector_demosaic_module() {
  // Runs also when initialise declined: the companion may have set up state.
  if (terminate_function != nullptr) {
    terminate_function();
  }
  initialize_function = nullptr;
  transform_function = nullptr;
  terminate_function = nullptr;
  if (library_handle != nullptr) {
    unload_shared_library(library_handle);
  }
}

Vector_sse_demosaic_module::Vector_sse_demosaic_module()
    : Vector_demosaic_module("ostrevan_oqa_demosaic_vector_sse",
                             "qn_demosaic_vector_sse_module_initialize",
                             "qn_demosaic_transform_interior_16_to_48_vector_sse",
                             "qn_demosaic_vector_sse_module_terminate") {}

Vector_avx2_demosaic_module::Vector_avx2_demosaic_module()
    : Vector_demosaic_module("ostrevan_oqa_demosaic_vector_avx2",
                             "qn_demosaic_vector_avx2_module_initialize",
                             "qn_demosaic_transform_interior_16_to_48_vector_avx2",
                             "qn_demosaic_vector_avx2_module_terminate") {}

Vector_avx512_demosaic_module::Vector_avx512_demosaic_module()
    : Vector_demosaic_module("ostrevan_oqa_demosaic_vector_avx512",
                             "qn_demosaic_vector_avx512_module_initialize",
                             "qn_demosaic_transform_interior_16_to_48_vector_avx512",
                             "qn_demosaic_vector_avx512_module_terminate") {}
