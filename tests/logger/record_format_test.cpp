// Record bodies: text on one line, JSON strings that parse as valid UTF-8.
#include <gtest/gtest.h>

#include <string>

#include "record_format.h"
#include "support/json_line.h"

namespace oqa_logger {
namespace {

std::string body(Record_formatter const& formatter) {
  Record_buffer out;
  formatter.append({2, "f.cpp", 84, "fn", "m", 4321, 4325}, out);
  return fmt::to_string(out);
}

struct Escape_case {
  std::string input;
  std::string text;
  std::string json;
};
class Escapes : public testing::TestWithParam<Escape_case> {};
TEST_P(Escapes, KeepTextOnOneLineAndJsonValid) {
  Record_buffer text;
  append_text(GetParam().input, text);
  EXPECT_EQ(fmt::to_string(text), GetParam().text);
  Record_buffer json;
  append_json_string(GetParam().input, json);
  EXPECT_EQ(fmt::to_string(json), GetParam().json);
}
INSTANTIATE_TEST_SUITE_P(
    Strings, Escapes,
    testing::Values(
        Escape_case{"", "", "\"\""}, Escape_case{"plain", "plain", "\"plain\""},
        Escape_case{"\"\\\n\r\t", "\"\\\\n\\r\\t", "\"\\\"\\\\\\n\\r\\t\""},
        Escape_case{std::string("\x00\x1f\x7f", 3), "\\x00\\x1f\\x7f", "\"\\u0000\\u001f\\u007f\""},
        Escape_case{"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
                    "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
                    "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\""},
        // Stray continuation, overlong, surrogate, cut short, above U+10FFFF:
        // left as they are in text, replaced in JSON.
        Escape_case{"\x80", "\x80", "\"\\ufffd\""},
        Escape_case{"\xc0\xaf", "\xc0\xaf", "\"\\ufffd\\ufffd\""},
        Escape_case{"\xed\xa0\x80", "\xed\xa0\x80", "\"\\ufffd\\ufffd\\ufffd\""},
        Escape_case{"a\xe2\x82", "a\xe2\x82", "\"a\\ufffd\\ufffd\""},
        Escape_case{"\xf4\x90\x80\x80", "\xf4\x90\x80\x80", "\"\\ufffd\\ufffd\\ufffd\\ufffd\""}));

// Module and instance are escaped once, when the formatter is made.
TEST(RecordFormat, ModuleAndInstanceAreEscapedToo) {
  std::string const text = body(Record_formatter(Record_format::text, "M\nX", "i\"1"));
  EXPECT_NE(text.find("] M\\nX/i\"1 pid=4321"), std::string::npos) << text;
  // Built in steps: GCC 12 warns falsely about "{" + string + "}".
  std::string json(1, '{');
  json += body(Record_formatter(Record_format::json, "M\nX", "i\"1"));
  json += '}';
  auto const record = oqa_logger_test::parse_json_line(json);
  ASSERT_TRUE(record.has_value()) << json;
  EXPECT_EQ(oqa_logger_test::json_string(*record, "module"), "M\nX");
  EXPECT_EQ(oqa_logger_test::json_string(*record, "instance"), "i\"1");
}

}  // namespace
}  // namespace oqa_logger
