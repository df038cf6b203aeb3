// A one-line progress bar on stderr for batches; messages printed through it
// do not get mixed into the bar.
#ifndef OQA_TOOLS_PROGRESS_BAR_H
#define OQA_TOOLS_PROGRESS_BAR_H

#include <cstddef>
#include <mutex>
#include <string>

namespace oqa_tool {

class Progress_bar {
 public:
  // Draws only when `enabled` and stderr is a terminal: a bar of carriage
  // returns is noise in a log file.
  Progress_bar(std::size_t total, bool enabled);

  // Counts one finished file.
  void advance();
  // Prints one line on stderr above the bar.
  void message(const std::string& line);
  // Removes the bar.
  void finish();

 private:
  void draw_locked();
  void clear_locked();

  std::mutex mutex_;
  std::size_t total_;
  std::size_t done_ = 0;
  bool drawing_;
};

}  // namespace oqa_tool

#endif  // OQA_TOOLS_PROGRESS_BAR_H
