// A fresh folder, removed with everything in it, and whole files in and out.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace test_files {

struct Scratch_folder {
  Scratch_folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "oqa-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path = pattern;
  }
  Scratch_folder(Scratch_folder const&) = delete;
  ~Scratch_folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::string operator/(std::string const& name) const { return (path / name).string(); }
  std::filesystem::path path;
};

// Creates the file's folders as needed.
inline void write_file(std::string const& path, std::string const& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string read_file(std::string const& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

}  // namespace test_files
