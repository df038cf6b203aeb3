// oqa-demosaic: demosaics raw frames from files with the library's public
// interface.
#include <cstdio>
#include <exception>
#include <optional>

#include "batch_runner.h"
#include "command_line.h"
#include "demo_runner.h"
#include "processor_levels.h"
#include "temporary_files.h"

int main(int argc, char** argv) {
  using namespace oqa_tool;
  try {
    remove_temporary_files_on_signals();
    int exit_status = 0;
    const std::optional<Tool_options> options = parse_command_line(argc, argv, exit_status);
    if (!options) {
      return exit_status;
    }
    if (options->level != Level::automatic && !processor_offers(options->level) &&
        !options->quiet) {
      std::fprintf(stderr,
                   "oqa-demosaic: note: the %s level cannot run here (instructions or companion "
                   "library missing); the library runs its scalar code instead\n",
                   level_name(options->level).c_str());
    }
    const Library_session library;
    return options->demo_output ? run_demo(*options) : run_batch(*options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "oqa-demosaic: %s\n", error.what());
  } catch (...) {
    std::fprintf(stderr, "oqa-demosaic: unexpected error\n");
  }
  return 1;
}
