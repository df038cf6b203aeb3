// All-or-nothing output: the writer fills a temporary file beside the
// target, which is renamed into place only when complete, so a failure
// never leaves a partial file under the output's name. Every step goes
// through descriptors (the folder's, opened once, and the temporary file's),
// so nobody who can write the folder can redirect it to another file by
// swapping names for links meanwhile.
#ifndef OQA_TOOLS_OUTPUT_FILE_H
#define OQA_TOOLS_OUTPUT_FILE_H

#include <sys/types.h>

#include <span>
#include <string>

#include "file_bytes.h"

namespace oqa_tool {

// An output path split into its folder ("." when it has none) and its name.
struct Output_place {
  std::string folder;
  std::string name;
};
Output_place place_of(const std::string& target);

// A folder the outputs are made in, opened once.
class Output_folder {
 public:
  // Throws Image_io_error ("cannot open the output folder: ...").
  explicit Output_folder(const std::string& path);

  int descriptor() const { return descriptor_.get(); }

 private:
  File_descriptor descriptor_;
};

// A file no output may replace: an input of the run.
struct Protected_file {
  dev_t device;
  ino_t inode;
  std::string name;
};

class Atomic_output_file {
 public:
  // Claims `name` in `folder`. Throws Image_io_error when the name is taken
  // by anything but a regular file (folder, link, pipe, device), by one of
  // `inputs`, or by any file when `overwrite` is false; or when no file can
  // be created in the folder. `folder` and `inputs` must outlive the object.
  Atomic_output_file(const Output_folder& folder, std::string name, bool overwrite,
                     std::span<const Protected_file> inputs = {});
  Atomic_output_file(const Atomic_output_file&) = delete;
  Atomic_output_file& operator=(const Atomic_output_file&) = delete;
  // Removes the temporary file unless committed.
  ~Atomic_output_file();

  // Where the writer puts the bytes.
  int descriptor() const { return descriptor_; }
  // The temporary file's name in the folder.
  const std::string& temporary_name() const { return temporary_; }

  // Makes the file durable and moves it to the target, after checking the
  // target again as the constructor did, and that the temporary name still
  // holds this file. Throws Image_io_error.
  void commit();

 private:
  void check_target() const;

  int folder_;
  std::string name_;
  bool overwrite_;
  std::span<const Protected_file> inputs_;
  std::string temporary_;
  int descriptor_ = -1;
  bool committed_ = false;
};

}  // namespace oqa_tool

#endif  // OQA_TOOLS_OUTPUT_FILE_H
