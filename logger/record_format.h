// The body of one record in either format; the sink's pattern adds the time.
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "logger_settings.h"

namespace oqa_logger {

// Big enough that ordinary records never touch the heap.
using Record_buffer = fmt::basic_memory_buffer<char, 512>;

struct Record {
  int priority = 0;
  std::string_view file;
  int line = 0;
  std::string_view function;
  std::string_view message;
  long process_id = 0;
  std::size_t thread_id = 0;
};

class Record_formatter {
 public:
  Record_formatter(Record_format format, std::string_view module, std::string_view instance);

  Record_format format() const { return format_; }

  // Appends everything but the time. The text form never contains a line
  // break; the JSON form is the inside of one object.
  void append(Record const& record, Record_buffer& out) const;

 private:
  Record_format format_;
  // Module and instance, escaped once here instead of for every record.
  std::string source_;
};

// The sink pattern that wraps a record body with its local time (ISO 8601,
// microseconds, offset from UTC).
std::string record_pattern(Record_format format);

// Appends text as a JSON string with its quotes. Bytes that are not valid
// UTF-8 become U+FFFD, so that every line parses.
void append_json_string(std::string_view text, Record_buffer& out);

// Appends text with control characters escaped (\n, \t, \xHH), keeping a
// text record on one line.
void append_text(std::string_view text, Record_buffer& out);

}  // namespace oqa_logger
