#include "record_format.h"

#include <array>
#include <cstdint>

#include "priority.h"

namespace oqa_logger {
namespace {

constexpr std::string_view hex_digits = "0123456789abcdef";
constexpr std::string_view replacement_character = "\\ufffd";

void append_raw(std::string_view text, Record_buffer& out) {
  out.append(text.data(), text.data() + text.size());
}

template <typename Number>
void append_number(Number number, Record_buffer& out) {
  fmt::format_int const digits(number);
  out.append(digits.data(), digits.data() + digits.size());
}

// The length of the well-formed UTF-8 sequence at text[0], or 0 when the
// bytes there are not one (stray continuation, overlong form, surrogate,
// beyond U+10FFFF, or cut short).
std::size_t utf8_sequence_length(std::string_view text) {
  auto const byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  unsigned char const lead = byte(0);
  std::size_t length = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xbf;
  if (lead >= 0xc2 && lead <= 0xdf) {
    length = 2;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    length = 3;
    low = lead == 0xe0 ? 0xa0 : 0x80;
    high = lead == 0xed ? 0x9f : 0xbf;
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    length = 4;
    low = lead == 0xf0 ? 0x90 : 0x80;
    high = lead == 0xf4 ? 0x8f : 0xbf;
  } else {
    return 0;
  }
  if (text.size() < length || byte(1) < low || byte(1) > high) {
    return 0;
  }
  for (std::size_t index = 2; index < length; ++index) {
    if (byte(index) < 0x80 || byte(index) > 0xbf) {
      return 0;
    }
  }
  return length;
}

}  // namespace

void append_json_string(std::string_view text, Record_buffer& out) {
  out.push_back('"');
  std::size_t plain_start = 0;
  std::size_t index = 0;
  while (index < text.size()) {
    auto const byte = static_cast<unsigned char>(text[index]);
    if (byte >= 0x20 && byte < 0x7f && byte != '"' && byte != '\\') {
      ++index;
      continue;
    }
    if (byte >= 0x80) {
      std::size_t const length = utf8_sequence_length(text.substr(index));
      if (length != 0) {
        index += length;
        continue;
      }
    }
    // Plain runs, well-formed multi-byte characters included, are copied whole.
    append_raw(text.substr(plain_start, index - plain_start), out);
    switch (byte) {
      case '"':
        append_raw("\\\"", out);
        break;
      case '\\':
        append_raw("\\\\", out);
        break;
      case '\n':
        append_raw("\\n", out);
        break;
      case '\r':
        append_raw("\\r", out);
        break;
      case '\t':
        append_raw("\\t", out);
        break;
      default:
        if (byte >= 0x80) {
          append_raw(replacement_character, out);
        } else {
          append_raw("\\u00", out);
          out.push_back(hex_digits[byte >> 4]);
          out.push_back(hex_digits[byte & 0xf]);
        }
    }
    ++index;
    plain_start = index;
  }
  append_raw(text.substr(plain_start), out);
  out.push_back('"');
}

void append_text(std::string_view text, Record_buffer& out) {
  std::size_t plain_start = 0;
  for (std::size_t index = 0; index < text.size(); ++index) {
    auto const byte = static_cast<unsigned char>(text[index]);
    if (byte >= 0x20 && byte != 0x7f) {
      continue;
    }
    // Plain runs are copied whole; this is the hot path of every text record.
    append_raw(text.substr(plain_start, index - plain_start), out);
    plain_start = index + 1;
    if (byte == '\n') {
      append_raw("\\n", out);
    } else if (byte == '\r') {
      append_raw("\\r", out);
    } else if (byte == '\t') {
      append_raw("\\t", out);
    } else {
      append_raw("\\x", out);
      out.push_back(hex_digits[byte >> 4]);
      out.push_back(hex_digits[byte & 0xf]);
    }
  }
  append_raw(text.substr(plain_start), out);
}

Record_formatter::Record_formatter(Record_format format, std::string_view module,
                                   std::string_view instance)
    : format_(format) {
  Record_buffer source;
  if (format_ == Record_format::json) {
    append_raw(",\"module\":", source);
    append_json_string(module, source);
    append_raw(",\"instance\":", source);
    append_json_string(instance, source);
  } else {
    append_raw(" ", source);
    append_text(module, source);
    if (!instance.empty()) {
      append_raw("/", source);
      append_text(instance, source);
    }
  }
  source_ = fmt::to_string(source);
}

void Record_formatter::append(Record const& record, Record_buffer& out) const {
  std::string_view const name = priority_name(record.priority);
  if (format_ == Record_format::json) {
    append_raw("\"priority\":", out);
    append_number(record.priority, out);
    append_raw(",\"priority_name\":\"", out);
    append_raw(name, out);
    out.push_back('"');
    append_raw(source_, out);
    append_raw(",\"pid\":", out);
    append_number(record.process_id, out);
    append_raw(",\"tid\":", out);
    append_number(record.thread_id, out);
    append_raw(",\"file\":", out);
    append_json_string(record.file, out);
    append_raw(",\"line\":", out);
    append_number(record.line, out);
    append_raw(",\"function\":", out);
    append_json_string(record.function, out);
    append_raw(",\"message\":", out);
    append_json_string(record.message, out);
    return;
  }
  out.push_back('[');
  append_number(record.priority, out);
  out.push_back(' ');
  append_raw(name, out);
  out.push_back(']');
  append_raw(source_, out);
  append_raw(" pid=", out);
  append_number(record.process_id, out);
  append_raw(" tid=", out);
  append_number(record.thread_id, out);
  out.push_back(' ');
  append_text(record.file, out);
  out.push_back(':');
  append_number(record.line, out);
  out.push_back(' ');
  append_text(record.function, out);
  append_raw(": ", out);
  append_text(record.message, out);
}

std::string record_pattern(Record_format format) {
  constexpr std::string_view local_time = "%Y-%m-%dT%H:%M:%S.%f%z";
  if (format == Record_format::json) {
    return "{\"time\":\"" + std::string(local_time) + "\",%v}";
  }
  return std::string(local_time) + " %v";
}

}  // namespace oqa_logger
