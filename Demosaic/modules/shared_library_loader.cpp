#include "modules/shared_library_loader.h"

#include <dlfcn.h>

#include <string>

void* load_shared_library(char const* base_name) {
  std::string const file_name = std::string("lib") + base_name + ".so";
  // A path with a slash makes the loader open it relative to the working
  // directory, which is searched first.
  std::string const local_path = "./" + file_name;
  void* handle = dlopen(local_path.c_str(), RTLD_LAZY);
  if (handle == nullptr) {
    handle = dlopen(file_name.c_str(), RTLD_LAZY);
  }
  return handle;
}

void unload_shared_library(void*& library_handle) {
  dlclose(library_handle);
  library_handle = nullptr;
}

void* get_function_handle(void* library_handle, char const* function_name) {
  return dlsym(library_handle, function_name);
}
