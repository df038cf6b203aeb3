// Unloading the library while its objects are still held destroys them in
// reverse order of definition: the AVX-512, AVX2 and SSE companions are
// terminated, then the log is closed.
#include <dlfcn.h>

#include <cstdio>
#include <string>
#include <vector>

#include "test_doubles_control.h"

int main() {
  void* library = dlopen(DEMOSAIC_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::printf("cannot open %s: %s\n", DEMOSAIC_LIBRARY_PATH, dlerror());
    return 1;
  }
  auto* initialize = reinterpret_cast<int (*)()>(dlsym(library, "qn_demosaic_module_initialize"));
  initialize();
  initialize();  // counts above 1 make no difference
  auto& events = test_doubles::state().events;
  events.clear();
  dlclose(library);

  bool const ok =
      events == std::vector<std::string>{"terminate avx512", "terminate avx2", "terminate sse",
                                         "free OSTREVAN_OQA_DEMOSAIC []"};
  for (auto const& event : events) std::printf("%s\n", event.c_str());
  return ok ? 0 : 1;
}
