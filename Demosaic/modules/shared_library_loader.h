// Thin layer over the dynamic loader for the optional companion libraries.
#ifndef OQA_DEMOSAIC_MODULES_SHARED_LIBRARY_LOADER_H
#define OQA_DEMOSAIC_MODULES_SHARED_LIBRARY_LOADER_H

#include "ostrevan_oqa_demosaic.h"

// Opens "lib<base_name>.so", first from the current working directory, then
// through the loader's ordinary search. Returns null if neither works.
QN_DEMOSAIC_EXPORT void* load_shared_library(char const* base_name);

// Closes the library and nulls the caller's handle.
QN_DEMOSAIC_EXPORT void unload_shared_library(void*& library_handle);

// Address of an exported symbol, or null.
QN_DEMOSAIC_EXPORT void* get_function_handle(void* library_handle, char const* function_name);

#endif  // OQA_DEMOSAIC_MODULES_SHARED_LIBRARY_LOADER_H
