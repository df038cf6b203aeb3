// The order in which the configuration file is looked for.
#include <gtest/gtest.h>

#include <string>

#include "config_search.h"
#include "support/scratch.h"

namespace oqa_logger {
namespace {

using oqa_logger_test::Scratch_directory;
using oqa_logger_test::write_file;

constexpr char const* name = "ostrevan_oqa_logger.cfg";

enum Place { explicit_path, working, xdg, home, system_wide, nowhere };

class Lookup_order : public testing::TestWithParam<Place> {
 protected:
  Lookup_order() {
    search_.file_name = name;
    search_.working_directory = scratch_ / "work";
    search_.xdg_config_home = xdg_home_.c_str();
    search_.home = home_.c_str();
    search_.system_directory = scratch_ / "etc";
  }

  std::string path_of(Place place) const {
    switch (place) {
      case explicit_path:
        return scratch_ / "explicit.cfg";
      case working:
        return scratch_ / "work/ostrevan_oqa_logger.cfg";
      case xdg:
        return scratch_ / "xdg/ostrevan/ostrevan_oqa_logger.cfg";
      case home:
        return scratch_ / "home/.config/ostrevan/ostrevan_oqa_logger.cfg";
      case system_wide:
        return scratch_ / "etc/ostrevan_oqa_logger.cfg";
      case nowhere:
        break;
    }
    return {};
  }

  Scratch_directory scratch_;
  std::string const xdg_home_ = scratch_ / "xdg";
  std::string const home_ = scratch_ / "home";
  std::string const explicit_ = scratch_ / "explicit.cfg";
  Config_search search_;
};

// Files exist in every place from the parameter on; the parameter's place wins.
TEST_P(Lookup_order, FirstPlaceThatHoldsTheFileWins) {
  Place const first = GetParam();
  for (Place place : {working, xdg, system_wide}) {
    if (place >= first) write_file(path_of(place), "level = 1\n");
  }
  if (first == explicit_path) search_.explicit_path = explicit_.c_str();
  std::optional<std::string> const found = find_config_file(search_);
  if (first == nowhere) {
    EXPECT_FALSE(found.has_value());
  } else {
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(std::filesystem::path(*found), std::filesystem::path(path_of(first)));
  }
}
INSTANTIATE_TEST_SUITE_P(Places, Lookup_order,
                         testing::Values(explicit_path, working, xdg, system_wide, nowhere));

TEST_F(Lookup_order, HomeConfigIsUsedWhenXdgConfigHomeIsUnsetOrRelative) {
  write_file(path_of(home), "");
  write_file(path_of(system_wide), "");
  for (char const* xdg_value : {static_cast<char const*>(nullptr), "", "relative/dir"}) {
    search_.xdg_config_home = xdg_value;
    std::optional<std::string> const found = find_config_file(search_);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(std::filesystem::path(*found), std::filesystem::path(path_of(home)));
  }
}

TEST_F(Lookup_order, XdgConfigHomeReplacesTheHomeDefault) {
  write_file(path_of(home), "");
  write_file(path_of(system_wide), "");
  std::optional<std::string> const found = find_config_file(search_);
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(std::filesystem::path(*found), std::filesystem::path(path_of(system_wide)));
}

TEST_F(Lookup_order, ADirectoryWithTheNameIsPassedOver) {
  std::filesystem::create_directories(path_of(working));
  write_file(path_of(system_wide), "");
  EXPECT_EQ(std::filesystem::path(find_config_file(search_).value()),
            std::filesystem::path(path_of(system_wide)));
}

TEST_F(Lookup_order, WithoutAFileNameOnlyTheExplicitPathCounts) {
  search_.file_name.clear();
  write_file(path_of(system_wide), "");
  EXPECT_FALSE(find_config_file(search_).has_value());
}

TEST_F(Lookup_order, AMissingExplicitFileIsReportedAndGivesTheDefaults) {
  search_.explicit_path = explicit_.c_str();
  write_file(path_of(working), "level = 1\n");
  Logger_settings const settings = load_settings(search_);
  EXPECT_EQ(settings.level, 4);
  ASSERT_EQ(settings.problems.size(), 1U);
  EXPECT_EQ(settings.problems[0].file, explicit_);
  EXPECT_EQ(settings.problems[0].line, 0);
  EXPECT_NE(settings.problems[0].text.find("cannot read"), std::string::npos);
}

TEST_F(Lookup_order, RelativeOutputIsResolvedAgainstTheConfigFolder) {
  write_file(path_of(xdg), "output = logs/x.log\n");
  Logger_settings const settings = load_settings(search_);
  EXPECT_EQ(settings.output_path, scratch_ / "xdg/ostrevan/logs/x.log");
}

}  // namespace
}  // namespace oqa_logger
