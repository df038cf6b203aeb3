// Scratch folders, files and process state for the logger tests. Every
// change to the environment or the working directory is undone on scope
// exit, and ctest runs each test in its own process besides.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace oqa_logger_test {

class Scratch_directory {
 public:
  Scratch_directory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "oqa_logger_XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~Scratch_directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Scratch_directory(Scratch_directory const&) = delete;
  Scratch_directory& operator=(Scratch_directory const&) = delete;

  std::filesystem::path const& path() const { return path_; }
  std::string operator/(std::string const& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline void write_file(std::string const& path, std::string const& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string read_file(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

inline std::vector<std::string> read_lines(std::string const& path) {
  std::vector<std::string> lines;
  std::istringstream text(read_file(path));
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

class Scoped_environment {
 public:
  Scoped_environment(std::string name, char const* value) : name_(std::move(name)) {
    if (char const* old = std::getenv(name_.c_str())) old_ = old;
    if (value != nullptr) {
      setenv(name_.c_str(), value, 1);
    } else {
      unsetenv(name_.c_str());
    }
  }
  ~Scoped_environment() {
    if (old_) {
      setenv(name_.c_str(), old_->c_str(), 1);
    } else {
      unsetenv(name_.c_str());
    }
  }
  Scoped_environment(Scoped_environment const&) = delete;
  Scoped_environment& operator=(Scoped_environment const&) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

class Scoped_working_directory {
 public:
  explicit Scoped_working_directory(std::filesystem::path const& path)
      : old_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~Scoped_working_directory() {
    std::error_code ignored;
    std::filesystem::current_path(old_, ignored);
  }
  Scoped_working_directory(Scoped_working_directory const&) = delete;
  Scoped_working_directory& operator=(Scoped_working_directory const&) = delete;

 private:
  std::filesystem::path old_;
};

// Sends this process's stderr to a file while in scope.
class Captured_stderr {
 public:
  explicit Captured_stderr(std::string path) : path_(std::move(path)) {
    std::fflush(stderr);
    saved_ = dup(2);
    std::FILE* file = std::fopen(path_.c_str(), "w");
    dup2(fileno(file), 2);
    std::fclose(file);
  }
  ~Captured_stderr() { restore(); }
  Captured_stderr(Captured_stderr const&) = delete;
  Captured_stderr& operator=(Captured_stderr const&) = delete;

  // Restores stderr and returns the lines written to it.
  std::vector<std::string> finish() {
    restore();
    return read_lines(path_);
  }

 private:
  void restore() {
    if (saved_ < 0) return;
    std::fflush(stderr);
    dup2(saved_, 2);
    close(saved_);
    saved_ = -1;
  }
  std::string path_;
  int saved_ = -1;
};

}  // namespace oqa_logger_test
