#include <gtest/gtest.h>

#include <string>

#include "columns.hpp"
#include "data_reader.hpp"
#include "input_error.hpp"
#include "utf8.hpp"

namespace tolvenra::cli {
namespace {

using namespace std::string_literals;

std::string message_of(const std::string& text) {
  try {
    parse_table(text, "t");
  } catch (const input_error& error) {
    return error.what();
  }
  return "";
}

TEST(DetectSeparator, CountsOutsideQuotesInTheHeaderAlone) {
  const struct {
    const char* text;
    char separator;
  } cases[] = {{"a,b;c,d\n;;;;;", ','}, {"\"a,b,c\"\t\"d,e\"\n", '\t'},
               {"\n \na;b\n", ';'},     {"\tx\ty,z\n,,,,", '\t'},
               {"alone", ','},          {"", ','},
               {"\"a\n;;b\",c\n;", ','}};
  for (const auto& t : cases) EXPECT_EQ(detect_separator(t.text), t.separator) << t.text;
}

TEST(ParseTable, KnowsTheLineOfEveryRow) {
  const data_table table = parse_table("a,b\r\n1,\"x\r\ny\rz\n\"\r2,w\n3,v", "t");
  EXPECT_EQ(table.line, (std::vector<std::int64_t>{2, 6, 7}));
  EXPECT_EQ(table.columns[1].text(0), "x\r\ny\rz\n");
  EXPECT_EQ(table.columns[0].text(2), "3");
}

TEST(ParseTable, KeepsEachTextOnce) {
  const data_table table = parse_table("a\nx\ny\nx\n\"\"\nx\n", "t");
  EXPECT_EQ(table.columns[0].values, (std::vector<std::string>{"x", "y", ""}));
  EXPECT_EQ(table.columns[0].code, (std::vector<std::int32_t>{0, 1, 0, 2, 0}));
}

TEST(ParseTable, ReadsPiecesThatEndInsideFieldsAndLineEnds) {
  const std::string filler(65530, 'f');
  for (int shift = 0; shift < 12; ++shift) {
    const std::string first = filler.substr(static_cast<std::size_t>(shift));
    const data_table table = parse_table("a,b\r\n" + first + ",\"q\"\"\r\n\"\r\n1,2\r\n", "t");
    ASSERT_EQ(table.rows(), 2U);
    EXPECT_EQ(table.columns[0].text(0), first);
    EXPECT_EQ(table.columns[1].text(0), "q\"\r\n");
    EXPECT_EQ(table.line[1], 4) << "a pair of return and line feed counts once";
  }
}

TEST(ParseTable, AllowsColumnsWithoutANameOnly) {
  EXPECT_EQ(parse_table("\"\",\"a\",\n1,2,3\n", "t").columns.size(), 3U);
  EXPECT_EQ(message_of("a,b,a\n1,2,3\n"),
            "t, line 1: columns 1 and 3 are both named \"a\"; the first line should give each "
            "column a name of its own.");
}

TEST(ParseTable, RefusesWhatIsNoText) {
  EXPECT_EQ(message_of("a\n1\0"s + "2\n"), "t, line 2: a NUL byte; the file should be plain text.");
  EXPECT_NE(message_of("a\n1\"2\n"), "");
}

TEST(Utf8, RefusesWhatIsNotWellFormed) {
  const char* good[] = {
      "", "a", "\xC2\x80", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"};
  for (const char* text : good) EXPECT_EQ(first_invalid_utf8(text), std::string::npos) << text;
  const char* bad[] = {"\x80",
                       "\xC1\xBF",
                       "\xC2",
                       "\xE0\x9F\xBF",
                       "\xED\xA0\x80",
                       "\xF0\x8F\xBF\xBF",
                       "\xF4\x90\x80\x80",
                       "\xF5\x80\x80\x80",
                       "\xE2\x82",
                       "\xE2\x28\xA1"};
  for (const char* text : bad) EXPECT_EQ(first_invalid_utf8("ok" + std::string(text)), 2U) << text;
}

TEST(SelectColumns, PrefersWholeNamesToListsAndRanges) {
  const data_table table = parse_table("a;a-b;b;\"b,c\";c\n1;2;3;4;5\n", "t");
  const auto select = [&](std::vector<std::string> lists) {
    return select_columns(table, lists, "--items");
  };
  using offsets = std::vector<std::size_t>;
  EXPECT_EQ(select({"a-b"}), (offsets{1}));
  EXPECT_EQ(select({"b,c"}), (offsets{3}));
  EXPECT_EQ(select({"c, a"}), (offsets{4, 0}));
  EXPECT_EQ(select({"a-c"}), (offsets{0, 1, 2, 3, 4}));
  EXPECT_EQ(select({"a-b-c"}), (offsets{1, 2, 3, 4}));
  EXPECT_THROW(select({"a,,c"}), input_error);
}

TEST(Categorise, TakesTheShortestSpellingInAnyOrderOfRows) {
  for (const char* text : {"a\n01\n1.0\n1\n2\n", "a\n1\n2\n1.0\n01\n"}) {
    const categories item = categorise(parse_table(text, "t"), 0, missing_texts({}));
    EXPECT_EQ(item.labels, (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(item.code[0], 1);
  }
}

TEST(Categorise, OneTextAmongNumbersMakesThemAllTexts) {
  const categories item =
      categorise(parse_table("a\n10\n9\nnan\nx\nNA\n", "t"), 0, missing_texts({}));
  EXPECT_EQ(item.labels, (std::vector<std::string>{"10", "9", "nan", "x"}));
  EXPECT_EQ(item.code, (std::vector<std::int32_t>{1, 2, 3, 4, 0}));
}

TEST(Categorise, RefusesMoreThan999Categories) {
  std::string text = "a\n";
  for (int k = 1; k <= 999; ++k) text += std::to_string(k) + "\n";
  EXPECT_EQ(categorise(parse_table(text, "t"), 0, missing_texts({})).labels.size(), 999U);
  EXPECT_THROW(categorise(parse_table(text + "1000\n", "t"), 0, missing_texts({})), input_error);
}

}  // namespace
}  // namespace tolvenra::cli
