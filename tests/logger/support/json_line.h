// A strict reader for the flat JSON objects the logger writes, one per line:
// string and integer values only, anything else (or trailing bytes) fails.
#pragma once

#include <cstdint>
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
  bool take(char expected) {
    if (position_ < text_.size() && text_[position_] == expected) {
      ++position_;
      return true;
    }
    return false;
  }

  std::optional<Json_value> read_value() {
    if (position_ < text_.size() && text_[position_] == '"') {
      std::optional<std::string> text = read_string();
      if (!text) return std::nullopt;
      return Json_value(std::move(*text));
    }
    std::size_t const start = position_;
    take('-');
    while (position_ < text_.size() && text_[position_] >= '0' && text_[position_] <= '9') {
      ++position_;
    }
    std::string const digits(text_.substr(start, position_ - start));
    if (digits.empty() || digits == "-") return std::nullopt;
    return Json_value(std::stoll(digits));
  }

  std::optional<unsigned> read_hex4() {
    if (position_ + 4 > text_.size()) return std::nullopt;
    unsigned value = 0;
    for (int index = 0; index < 4; ++index) {
      char const digit = text_[position_++];
      value <<= 4;
      if (digit >= '0' && digit <= '9') {
        value |= static_cast<unsigned>(digit - '0');
      } else if (digit >= 'a' && digit <= 'f') {
        value |= static_cast<unsigned>(digit - 'a' + 10);
      } else if (digit >= 'A' && digit <= 'F') {
        value |= static_cast<unsigned>(digit - 'A' + 10);
      } else {
        return std::nullopt;
      }
    }
    return value;
  }

  static void append_utf8(unsigned code, std::string& out) {
    if (code < 0x80) {
      out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
      out.push_back(static_cast<char>(0xc0 | (code >> 6)));
      out.push_back(static_cast<char>(0x80 | (code & 0x3f)));
    } else if (code < 0x10000) {
      out.push_back(static_cast<char>(0xe0 | (code >> 12)));
      out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3f)));
      out.push_back(static_cast<char>(0x80 | (code & 0x3f)));
    } else {
      out.push_back(static_cast<char>(0xf0 | (code >> 18)));
      out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3f)));
      out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3f)));
      out.push_back(static_cast<char>(0x80 | (code & 0x3f)));
    }
  }

  std::optional<std::string> read_string() {
    if (!take('"')) return std::nullopt;
    std::string out;
    while (position_ < text_.size()) {
      auto const character = static_cast<unsigned char>(text_[position_++]);
      if (character == '"') return out;
      if (character < 0x20) return std::nullopt;
      if (character != '\\') {
        out.push_back(static_cast<char>(character));
        continue;
      }
      if (position_ >= text_.size()) return std::nullopt;
      char const escape = text_[position_++];
      switch (escape) {
        case '"':
          out.push_back('"');
          break;
        case '\\':
          out.push_back('\\');
          break;
        case '/':
          out.push_back('/');
          break;
        case 'b':
          out.push_back('\b');
          break;
        case 'f':
          out.push_back('\f');
          break;
        case 'n':
          out.push_back('\n');
          break;
        case 'r':
          out.push_back('\r');
          break;
        case 't':
          out.push_back('\t');
          break;
        case 'u': {
          std::optional<unsigned> const code = read_hex4();
          if (!code || (*code >= 0xd800 && *code <= 0xdfff)) return std::nullopt;
          append_utf8(*code, out);
          break;
        }
        default:
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
