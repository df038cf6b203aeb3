// One optional companion library that demosaics the interior with one
// instruction set. Loaded, checked and initialised at construction; its
// terminate entry runs and the library is closed at destruction.
#ifndef OQA_DEMOSAIC_MODULES_VECTOR_DEMOSAIC_MODULE_H
#define OQA_DEMOSAIC_MODULES_VECTOR_DEMOSAIC_MODULE_H

#include "ostrevan_oqa_demosaic.h"

using Vector_initialize_function = int (*)();
using Vector_transform_function = int (*)(int width, int height, int origin_x, int origin_y,
                                          QN_COLOR_FILTER_ARRAY_PHASE phase,
                                          QN_COLOR_FORMAT color_format,
                                          const unsigned short* input_buffer,
                                          unsigned short* output_buffer);
using Vector_terminate_function = void (*)();

class Vector_demosaic_module {
 public:
  Vector_demosaic_module(char const* library_base_name, char const* initialize_name,
                         char const* transform_name, char const* terminate_name);
  ~Vector_demosaic_module();
  Vector_demosaic_module(Vector_demosaic_module const&) = delete;
  Vector_demosaic_module& operator=(Vector_demosaic_module const&) = delete;

  void* library_handle = nullptr;
  // False only when the library opened, all three entries were found and
  // the initialise entry accepted this processor.
  bool load_failed = false;
  Vector_initialize_function initialize_function = nullptr;
  Vector_transform_function transform_function = nullptr;
  Vector_terminate_function terminate_function = nullptr;
};

class Vector_sse_demosaic_module : public Vector_demosaic_module {
 public:
  Vector_sse_demosaic_module();
};

class Vector_avx2_demosaic_module : public Vector_demosaic_module {
 public:
  Vector_avx2_demosaic_module();
};

class Vector_avx512_demosaic_module : public Vector_demosaic_module {
 public:
  Vector_avx512_demosaic_module();
};

#endif  // OQA_DEMOSAIC_MODULES_VECTOR_DEMOSAIC_MODULE_H
