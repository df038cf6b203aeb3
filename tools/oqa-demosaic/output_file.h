// All-or-nothing output: the writer fills a temporary file beside the
// target, which is renamed into place only when complete, so a failure
// never leaves a partial file under the output's name.
#ifndef OQA_TOOLS_OUTPUT_FILE_H
#define OQA_TOOLS_OUTPUT_FILE_H

#include <string>

namespace oqa_tool {

class Atomic_output_file {
 public:
  // Throws Image_io_error when the target exists and `overwrite` is false,
  // or when no file can be created in the target's folder.
  Atomic_output_file(std::string target, bool overwrite);
  Atomic_output_file(const Atomic_output_file&) = delete;
  Atomic_output_file& operator=(const Atomic_output_file&) = delete;
  // Removes the temporary file unless committed.
  ~Atomic_output_file();

  const std::string& temporary_path() const { return temporary_; }

  // Moves the finished file to the target. Without `overwrite`, a target
  // that appeared meanwhile is not replaced (Image_io_error).
  void commit();

 private:
  std::string target_;
  std::string temporary_;
  bool overwrite_;
  bool committed_ = false;
};

}  // namespace oqa_tool

#endif  // OQA_TOOLS_OUTPUT_FILE_H
