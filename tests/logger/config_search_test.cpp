// The order in which the configuration file is looked for.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "config_search.h"
#include "support/scratch.h"

namespace oqa_logger {
namespace {

using oqa_logger_test::Scratch_directory;
using oqa_logger_test::write_file;

constexpr char const* xdg = "xdg/ostrevan/ostrevan_oqa_logger.cfg";
constexpr char const* home = "home/.config/ostrevan/ostrevan_oqa_logger.cfg";
constexpr char const* system_wide = "etc/ostrevan_oqa_logger.cfg";

struct Lookup_case {
  std::vector<std::string> files;  // under the scratch folder; a final '/' makes a folder
  char const* xdg_config_home;     // a leading '/' means under the scratch folder
  bool explicit_path;              // names explicit.cfg, which does not exist
  char const* found;               // under the scratch folder; empty for none
};
class Lookup : public testing::TestWithParam<Lookup_case> {};

TEST_P(Lookup, FindsTheFirstPlaceThatHoldsTheFile) {
  Scratch_directory const scratch;
  for (std::string const& file : GetParam().files) {
    if (file.ends_with('/')) {
      std::filesystem::create_directories(scratch / file);
    } else {
      write_file(scratch / file, "level = 1\n");
    }
  }
  std::string const explicit_path = scratch / "explicit.cfg";
  std::string xdg_config_home =
      GetParam().xdg_config_home != nullptr ? GetParam().xdg_config_home : "";
  if (xdg_config_home.starts_with('/')) xdg_config_home = scratch.path().string() + xdg_config_home;
  std::string const home_directory = scratch / "home";
  Config_search search;
  search.explicit_path = GetParam().explicit_path ? explicit_path.c_str() : nullptr;
  search.file_name = "ostrevan_oqa_logger.cfg";
  search.xdg_config_home =
      GetParam().xdg_config_home != nullptr ? xdg_config_home.c_str() : nullptr;
  search.home = home_directory.c_str();
  search.system_directory = scratch / "etc";

  std::optional<std::string> const found = find_config_file(search);
  if (GetParam().found[0] == '\0') {
    EXPECT_FALSE(found.has_value()) << found.value_or("");
  } else {
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(std::filesystem::path(*found), std::filesystem::path(scratch / GetParam().found));
  }
}

INSTANTIATE_TEST_SUITE_P(Places, Lookup,
                         testing::Values(
                             // The explicit path wins, even when it names no file.
                             Lookup_case{{xdg, system_wide}, "/xdg", true, "explicit.cfg"},
                             Lookup_case{{xdg, home, system_wide}, "/xdg", false, xdg},
                             // XDG_CONFIG_HOME replaces the home folder's default...
                             Lookup_case{{home, system_wide}, "/xdg", false, system_wide},
                             // ... unless it is unset, empty or relative.
                             Lookup_case{{home, system_wide}, nullptr, false, home},
                             Lookup_case{{home, system_wide}, "", false, home},
                             Lookup_case{{home, system_wide}, "relative/dir", false, home},
                             Lookup_case{
                                 {std::string(xdg) + "/", system_wide}, "/xdg", false, system_wide},
                             Lookup_case{{}, "/xdg", false, ""}));

}  // namespace
}  // namespace oqa_logger
