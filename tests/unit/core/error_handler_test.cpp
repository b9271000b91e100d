#include "core/error_handler.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tolvenra {
namespace {

using strings = std::vector<std::string>;

error_type object_with(const strings& lines) {
  error_type err;
  for (const auto& line : lines) err_add_line(err.lines, line);
  return err;
}

TEST(ErrHandle, PutsTheStandardLineOfEachCode) {
  const struct {
    int32 code;
    const char* line;
  } cases[] = {{0, "No errors"},
               {1, "File could not be opened for read-access"},
               {2, "File could not be opened for write-access"},
               {3, "Error in reading file"},
               {4, "Error in writing to file"},
               {5, "Error in reading file: EOR or EOF encountered"},
               {6, "File open for write-access could not be closed"},
               {7, "File open for read-access could not be closed"},
               {100, "Matrix apparently singular"},
               {101, "Matrix not positive definite"},
               {102, "Attempted division by zero"},
               {103, "Attempted logarithm of non-positive number"},
               {104, "Argument to exp function too large"},
               {105, "Attempted square root of negative number"},
               {200, "Unable to allocate memory for object"},
               {201, "Unable to deallocate memory for object"},
               {300, "Non-square matrix encountered; square expected"},
               {301, "Dimensions of matrix arguments not conformable"},
               {8, "Unknown error code."},
               {-1, "Unknown error code."},
               {1001, "Unknown error code."}};
  for (const auto& t : cases) {
    error_type err;
    err_handle(err, t.code);
    EXPECT_TRUE(err_occurred(err)) << t.code;
    EXPECT_EQ(lines_of(err), strings{t.line}) << t.code;
  }
  error_type err;
  err_handle(err, 1000);
  EXPECT_TRUE(err_occurred(err));
  EXPECT_EQ(err.lines.head, nullptr);
}

TEST(ErrHandle, AppendsItsPartsInOrderAndTrimsAllButTheComments) {
  error_type err;
  err_handle(err, 3,
             {.whichsub = "put_tau_beta in MOD param  ",
              .file = "a b.dat   ",
              .line = -12,
              .msg = "  runlca: dims  ",
              .comment1 = "  first",
              .comment2 = "",
              .comment4 = "last"});
  EXPECT_EQ(lines_of(err),
            (strings{"Error in reading file", "  first", "", "last", "FILE: a b.dat", "LINE: -12",
                     "  runlca: dims", "OCCURRED IN: put_tau_beta in MOD param"}));
}

TEST(ErrHandle, CutsEveryLineAt80Characters) {
  const std::string digits = "0123456789",
                    cut = digits + digits + digits + digits + digits + digits + digits + digits;
  error_type err;
  err_handle(err, 1000, {.whichsub = cut, .file = cut, .msg = cut + "x", .comment1 = cut + "y"});
  EXPECT_EQ(lines_of(err),
            (strings{cut, "FILE: " + cut.substr(0, 74), cut, "OCCURRED IN: " + cut.substr(0, 67)}));
}

TEST(ErrMsg, FillsTheBufferWithoutPassingItsEnd) {
  using platform = std::optional<std::string_view>;
  const platform none, unix_ends = "UNIX", mac = "MAC";
  const struct {
    const char* why;
    strings lines;
    platform ends;
    std::size_t length;
    std::string text;  // filled up with blanks
  } cases[] = {{"no lines", {}, none, 6, ""},
               {"the platforms", {"A", "B"}, none, 10, "A\r\nB"},
               {"", {"A", "B"}, "PC", 10, "A\r\nB"},
               {"", {"A", "B"}, unix_ends, 10, "A\nB"},
               {"", {"A", "B"}, mac, 10, "A\rB"},
               {"blank filled before it is compared", {"A", "B"}, "MAC ", 10, "A\rB"},
               {"cut at four characters", {"A", "B"}, "UNIX too", 10, "A\nB"},
               {"case counts", {"A", "B"}, "unix", 10, "A\r\nB"},
               {"", {"A", "B"}, "mac", 10, "A\r\nB"},
               {"no platform at all", {"A", "B"}, "", 10, "A\r\nB"},
               {"a blank line leaves its line end", {"A", "", "B"}, unix_ends, 10, "A\n\nB"},
               {"a blank first line too", {"", "B"}, unix_ends, 10, "\nB"},
               {"inner and leading blanks stay", {" A  b  ", "B"}, unix_ends, 12, " A  b\nB"},
               {"four characters must remain", {"AB", "C"}, unix_ends, 4, "AB"},
               {"", {"AB", "C"}, unix_ends, 5, "AB"},
               {"", {"AB", "C"}, unix_ends, 6, "AB\nC"},
               {"", {"AB", "CDEF"}, none, 6, "AB\r\nCD"},
               {"the cut line is the last", {"AB", "CDEFG", "H"}, unix_ends, 7, "AB\nCDEF"},
               {"a buffer of four holds a line", {"ABCDE"}, none, 4, "ABCD"},
               {"a buffer of three does not", {"A"}, unix_ends, 3, ""},
               {"nor an empty one", {"A"}, none, 0, ""}};
  for (auto t : cases) {
    SCOPED_TRACE(std::string(t.why) + " " + std::to_string(t.length));
    const auto err = object_with(t.lines);
    std::string buffer(t.length + 2, '#');
    err_msg(err, buffer.data() + 1, t.length, t.ends);
    t.text.resize(t.length, ' ');
    EXPECT_EQ(buffer, "#" + t.text + "#");
  }
}

TEST(ErrReset, EmptiesTheObjectForFurtherReports) {
  error_type err;
  for (int k = 0; k < 300000; ++k) err_add_line(err.lines, "long chains must not recurse");
  err.occurred = true;
  err_reset(err);
  EXPECT_FALSE(err_occurred(err));
  EXPECT_EQ(err.lines.tail, nullptr);
  err_handle(err, 100);
  EXPECT_EQ(lines_of(err), strings{"Matrix apparently singular"});
}

TEST(LineList, TakingTheHeadAndMovingKeepHeadAndTailInStep) {
  auto from = object_with({"A", "B"});
  auto line = take_head(from.lines);
  ASSERT_NE(line, nullptr);
  append_at_tail(from.lines, std::move(line));
  EXPECT_EQ(lines_of(from), (strings{"B", "A"}));
  error_type to = object_with({"gone"});
  to.lines = std::move(from.lines);
  err_add_line(to.lines, "C");
  err_add_line(from.lines, "new");
  EXPECT_EQ(lines_of(to), (strings{"B", "A", "C"}));
  EXPECT_EQ(lines_of(from), strings{"new"});
  take_head(from.lines);
  EXPECT_EQ(from.lines.tail, nullptr);
  EXPECT_EQ(take_head(from.lines), nullptr);
}

TEST(Fail, ReportsAnyNumberOfLinesAndTheRoutineLast) {
  error_type err;
  const routine here{"estep", "estimation"};
  EXPECT_EQ(fail(err, here, {text("1"), text("2"), text("3"), text("4"), text("5")}), -1);
  EXPECT_EQ(fail(err, here, error_code::singular), -1);
  EXPECT_EQ(pass_on(err, {"run_em_modelfit", "estimation"}), -1);
  EXPECT_EQ(lines_of(err),
            (strings{"1", "2", "3", "4", "5", "OCCURRED IN: estep in MOD estimation",
                     "Matrix apparently singular", "OCCURRED IN: estep in MOD estimation",
                     "OCCURRED IN: run_em_modelfit in MOD estimation"}));
}

TEST(Text, JoinsPiecesAndBreaksOnlyWhereALineWouldPassItsEnd) {
  const std::string seventy(70, 'x');
  const struct {
    text_lines got, want;
  } cases[] = {
      {text("Element ", 3, " is ", -0.5, "."), {"Element 3 is -0.5."}},
      {text("at least", 9, ", not,", 1.5), {"at least 9, not, 1.5"}},
      {text(seventy, 123456789), {seventy + " 123456789"}},
      {text(seventy, 1234567890), {seventy, "1234567890"}},
      {text(seventy, 123456789, "."), {seventy + " 123456789", "."}},
      {text(seventy, " and so on", " to the end."), {seventy + " and so on", " to the end."}},
      {text(seventy + seventy), {seventy + seventy}},
      {text(""), {""}}};
  for (const auto& t : cases) EXPECT_EQ(t.got, t.want);
}

TEST(Text, WritesNumbersShortAndAlike) {
  const struct {
    double value;
    const char* text;
  } cases[] = {{1.0, "1"},
               {1.0 / 3.0, "0.333333333"},
               {1e10, "1e+10"},
               {-2.5e-7, "-2.5e-07"},
               {123456789.4, "123456789"},
               {-0.0, "-0"}};
  for (const auto& t : cases) EXPECT_EQ(to_text(t.value), t.text);
  EXPECT_EQ(to_text(int64{-9223372036854775807} - 1), "-9223372036854775808");
}

}  // namespace
}  // namespace tolvenra
