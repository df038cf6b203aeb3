// Record bodies: every field present, text on one line, JSON that parses.
#include <gtest/gtest.h>

#include <string>

#include "record_format.h"
#include "support/json_line.h"

namespace oqa_logger {
namespace {

using oqa_logger_test::json_integer;
using oqa_logger_test::json_string;
using oqa_logger_test::parse_json_line;

std::string body(Record_formatter const& formatter, Record const& record) {
  Record_buffer out;
  formatter.append(record, out);
  return fmt::to_string(out);
}

// The whole JSON object a sink would write around a body.
std::string whole_object(Record_formatter const& formatter, Record const& record) {
  std::string json(1, '{');
  json += body(formatter, record);
  json += '}';
  return json;
}

Record sample(std::string_view message) {
  return {2, "/src/ostrevan_oqa_demosaic.cpp", 84, "demosaic_transform_impl", message, 4321, 4325};
}

TEST(RecordFormat, TextHoldsEveryFieldInOneLine) {
  Record_formatter const formatter(Record_format::text, "OSTREVAN_OQA_DEMOSAIC", "");
  EXPECT_EQ(body(formatter, sample("ERROR:  Illegal input image width (1) specified!")),
            "[2 crit] OSTREVAN_OQA_DEMOSAIC pid=4321 tid=4325 /src/ostrevan_oqa_demosaic.cpp:84 "
            "demosaic_transform_impl: ERROR:  Illegal input image width (1) specified!");
}

TEST(RecordFormat, TextNamesTheInstanceAfterTheModule) {
  Record_formatter const formatter(Record_format::text, "CAMERA", "left");
  Record record = sample("m");
  record.priority = 7;
  EXPECT_EQ(body(formatter, record).substr(0, 21), "[7 debug] CAMERA/left");
}

TEST(RecordFormat, TextEscapesLineBreaksAndControlCharacters) {
  Record_formatter const formatter(Record_format::text, "M\nX", "");
  std::string const text = body(formatter, sample("one\ntwo\r\tthree\x01\x7f"));
  EXPECT_EQ(text.find('\n'), std::string::npos);
  EXPECT_NE(text.find("one\\ntwo\\r\\tthree\\x01\\x7f"), std::string::npos) << text;
  EXPECT_NE(text.find("M\\nX"), std::string::npos) << text;
}

TEST(RecordFormat, JsonHoldsEveryFieldSeparately) {
  Record_formatter const formatter(Record_format::json, "OSTREVAN_OQA_DEMOSAIC", "");
  std::string const json = whole_object(formatter, sample("a \"quoted\" \\ path"));
  auto const record = parse_json_line(json);
  ASSERT_TRUE(record.has_value()) << json;
  EXPECT_EQ(record->size(), 10U);
  EXPECT_EQ(json_integer(*record, "priority"), 2);
  EXPECT_EQ(json_string(*record, "priority_name"), "crit");
  EXPECT_EQ(json_string(*record, "module"), "OSTREVAN_OQA_DEMOSAIC");
  EXPECT_EQ(json_string(*record, "instance"), "");
  EXPECT_EQ(json_integer(*record, "pid"), 4321);
  EXPECT_EQ(json_integer(*record, "tid"), 4325);
  EXPECT_EQ(json_string(*record, "file"), "/src/ostrevan_oqa_demosaic.cpp");
  EXPECT_EQ(json_integer(*record, "line"), 84);
  EXPECT_EQ(json_string(*record, "function"), "demosaic_transform_impl");
  EXPECT_EQ(json_string(*record, "message"), "a \"quoted\" \\ path");
}

struct Escape_case {
  std::string input;
  std::string json;
};
class Json_strings : public testing::TestWithParam<Escape_case> {};
TEST_P(Json_strings, AreEscapedAndStayValidUtf8) {
  Record_buffer out;
  append_json_string(GetParam().input, out);
  EXPECT_EQ(fmt::to_string(out), GetParam().json);
}
INSTANTIATE_TEST_SUITE_P(
    Strings, Json_strings,
    testing::Values(Escape_case{"", "\"\""}, Escape_case{"plain", "\"plain\""},
                    Escape_case{"\"\\\n\r\t", "\"\\\"\\\\\\n\\r\\t\""},
                    Escape_case{std::string("\x00\x1f\x7f", 3), "\"\\u0000\\u001f\\u007f\""},
                    Escape_case{"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
                                "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\""},
                    // Stray continuation, overlong, surrogate, cut short, above U+10FFFF.
                    Escape_case{"\x80", "\"\\ufffd\""},
                    Escape_case{"\xc0\xaf", "\"\\ufffd\\ufffd\""},
                    Escape_case{"\xed\xa0\x80", "\"\\ufffd\\ufffd\\ufffd\""},
                    Escape_case{"a\xe2\x82", "\"a\\ufffd\\ufffd\""},
                    Escape_case{"\xf4\x90\x80\x80", "\"\\ufffd\\ufffd\\ufffd\\ufffd\""}));

TEST(RecordFormat, LongMessagesArriveWhole) {
  Record_formatter const formatter(Record_format::json, "M", "");
  std::string const message(20000, 'x');
  auto const record = parse_json_line(whole_object(formatter, sample(message)));
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(json_string(*record, "message"), message);
}

}  // namespace
}  // namespace oqa_logger
