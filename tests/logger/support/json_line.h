// A strict reader for the flat JSON objects the logger writes, one per line:
// string and integer values only, anything else (or trailing bytes) fails.
#pragma once

#include <cctype>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace oqa_logger_test {

using Json_value = std::variant<std::string, long long>;
using Json_object = std::map<std::string, Json_value>;

class Json_line_reader {
 public:
  explicit Json_line_reader(std::string_view text) : text_(text) {}

  std::optional<Json_object> read_object() {
    Json_object object;
    if (!take('{')) return std::nullopt;
    if (take('}')) return at_end() ? std::optional(object) : std::nullopt;
    do {
      std::optional<std::string> key = read_string();
      if (!key || !take(':')) return std::nullopt;
      std::optional<Json_value> value = read_value();
      if (!value || object.count(*key) != 0) return std::nullopt;
      object.emplace(std::move(*key), std::move(*value));
    } while (take(','));
    if (!take('}') || !at_end()) return std::nullopt;
    return object;
  }

 private:
  bool at_end() const { return position_ == text_.size(); }
  char peek() const { return at_end() ? '\0' : text_[position_]; }
  bool take(char expected) {
    if (peek() != expected) return false;
    ++position_;
    return true;
  }

  std::optional<Json_value> read_value() {
    if (peek() == '"') {
      std::optional<std::string> text = read_string();
      if (!text) return std::nullopt;
      return Json_value(std::move(*text));
    }
    std::size_t const start = position_;
    take('-');
    std::size_t const digits = position_;
    while (peek() >= '0' && peek() <= '9') ++position_;
    if (position_ == digits) return std::nullopt;
    long long const number = std::stoll(std::string(text_.substr(start, position_ - start)));
    return Json_value(number);
  }

  // \uXXXX outside the surrogates (the logger writes no pairs), as UTF-8.
  bool read_unicode_escape(std::string& out) {
    constexpr std::string_view hex_digits = "0123456789abcdef";
    unsigned code = 0;
    for (int index = 0; index < 4; ++index) {
      std::size_t const digit = hex_digits.find(static_cast<char>(std::tolower(peek())));
      if (at_end() || digit == std::string_view::npos) return false;
      code = code * 16 + static_cast<unsigned>(digit);
      ++position_;
    }
    if (code >= 0xd800 && code <= 0xdfff) return false;
    if (code < 0x80) {
      out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
      out.push_back(static_cast<char>(0xc0 | (code >> 6)));
      out.push_back(static_cast<char>(0x80 | (code & 0x3f)));
    } else {
      out.push_back(static_cast<char>(0xe0 | (code >> 12)));
      out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3f)));
      out.push_back(static_cast<char>(0x80 | (code & 0x3f)));
    }
    return true;
  }

  std::optional<std::string> read_string() {
    constexpr std::string_view escapes = "\"\\/bfnrt";
    constexpr std::string_view escaped = "\"\\/\b\f\n\r\t";
    if (!take('"')) return std::nullopt;
    std::string out;
    while (!at_end()) {
      char const character = text_[position_++];
      if (character == '"') return out;
      if (static_cast<unsigned char>(character) < 0x20 || (character == '\\' && at_end())) {
        return std::nullopt;
      }
      if (character != '\\') {
        out.push_back(character);
        continue;
      }
      char const escape = text_[position_++];
      if (std::size_t const index = escapes.find(escape); index != std::string_view::npos) {
        out.push_back(escaped[index]);
      } else if (escape != 'u' || !read_unicode_escape(out)) {
        return std::nullopt;
      }
    }
    return std::nullopt;
  }

  std::string_view text_;
  std::size_t position_ = 0;
};

inline std::optional<Json_object> parse_json_line(std::string_view line) {
  return Json_line_reader(line).read_object();
}

inline std::string json_string(Json_object const& object, std::string const& key) {
  auto const found = object.find(key);
  if (found == object.end() || !std::holds_alternative<std::string>(found->second)) return "<none>";
  return std::get<std::string>(found->second);
}

inline long long json_integer(Json_object const& object, std::string const& key) {
  auto const found = object.find(key);
  if (found == object.end() || !std::holds_alternative<long long>(found->second)) return -1000;
  return std::get<long long>(found->second);
}

}  // namespace oqa_logger_test
