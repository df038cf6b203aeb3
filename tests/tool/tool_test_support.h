// Helpers shared by the tool's tests: a scratch folder and sample data.
#ifndef OQA_TESTS_TOOL_TOOL_TEST_SUPPORT_H
#define OQA_TESTS_TOOL_TOOL_TEST_SUPPORT_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace tool_test {

// A fresh folder, removed with everything in it.
class Scratch_folder {
 public:
  Scratch_folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "oqa-tool-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  Scratch_folder(const Scratch_folder&) = delete;
  Scratch_folder& operator=(const Scratch_folder&) = delete;
  ~Scratch_folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string file(const std::string& name) const { return (path_ / name).string(); }
  const std::filesystem::path& path() const { return path_; }
  // Names of everything in the folder, sorted.
  std::vector<std::string> entries() const { return list(path_); }
  static std::vector<std::string> list(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  std::filesystem::path path_;
};

inline std::vector<std::uint16_t> random_samples(std::size_t count, std::uint32_t seed,
                                                 std::uint16_t max = 65535) {
  std::mt19937 generator(seed);
  std::uniform_int_distribution<int> value(0, max);
  std::vector<std::uint16_t> samples(count);
  for (std::uint16_t& sample : samples) {
    sample = static_cast<std::uint16_t>(value(generator));
  }
  return samples;
}

inline void write_bytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<std::uint8_t> read_bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline std::string text_of(const std::string& path) {
  const std::vector<std::uint8_t> bytes = read_bytes(path);
  return {bytes.begin(), bytes.end()};
}

// The samples of a .raw output file: 16-bit little-endian.
inline std::vector<std::uint16_t> raw_samples_of(const std::string& path) {
  const std::vector<std::uint8_t> bytes = read_bytes(path);
  std::vector<std::uint16_t> samples;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    samples.push_back(static_cast<std::uint16_t>(bytes[i] | bytes[i + 1] << 8));
  }
  return samples;
}

}  // namespace tool_test

#endif  // OQA_TESTS_TOOL_TOOL_TEST_SUPPORT_H
