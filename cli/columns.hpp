/// \file columns.hpp  Choosing columns and turning their texts into categories and numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "data_reader.hpp"

namespace tolvenra::cli {

/// The parts of a list, without the blanks around them.
std::vector<std::string> split(std::string_view list, char separator);

/// A finite decimal number that makes up the whole text.
std::optional<double> as_number(std::string_view text);

/// Which texts stand for a missing value: the empty text, "NA" and ".", and what the user adds. An
/// added number stands for every text of that number (-9 and -9.0).
class missing_texts {
 public:
  explicit missing_texts(const std::vector<std::string>& added);
  [[nodiscard]] bool operator()(const std::string& text) const;

 private:
  std::set<std::string, std::less<>> texts_{"", "NA", "."};
  std::set<double> numbers_;
};

/// A column as categories 1, 2, ... in the order of `labels`.
struct categories {
  std::string name;
  std::vector<std::string>
      labels;  ///< in numeric order when all are numbers (false before true when
               ///< all are booleans), otherwise in the order of their bytes
  std::vector<std::int32_t> code;  ///< one per row; 0 missing
};

/// Offset of the named column. Throws input_error, with names that come near, when there is none.
/// \param asked_by  the option that names it, for the message.
std::size_t find_column(const data_table& table, std::string_view name, std::string_view asked_by);

/// Columns of a list such as "A,q1-q12": names, and ranges by position. A text that is itself the
/// name of a column is that column, even with commas or hyphens in it. Throws input_error for
/// unknown names, ranges that run backwards and columns named twice.
std::vector<std::size_t> select_columns(const data_table& table,
                                        const std::vector<std::string>& lists,
                                        std::string_view asked_by);

/// Texts of the same number, or the same boolean in another case, are one category. Throws
/// input_error for more than 999 categories and for "inf" or "nan" among numbers.
categories categorise(const data_table& table, std::size_t column, const missing_texts& missing);

/// Offset of the label that stands for a text: the same text, or the same number or boolean where
/// all labels are such.
std::optional<std::size_t> find_label(const std::vector<std::string>& labels,
                                      std::string_view text);

/// The categories that the user listed, in that order; throws input_error, which names the line,
/// for any other text. \param asked_by  where the list stands
categories categorise_as(const data_table& table, std::size_t column, const missing_texts& missing,
                         const std::vector<std::string>& labels, std::string_view asked_by);

/// A column of finite numbers; throws input_error, which names the line, for anything else.
/// \param gaps  a missing value is allowed, and becomes NaN
std::vector<double> covariate_numbers(const data_table& table, std::size_t column,
                                      const missing_texts& missing, bool gaps = false);

/// A column of positive finite numbers; throws input_error, which names the line, for anything
/// else.
std::vector<double> positive_numbers(const data_table& table, std::size_t column,
                                     std::string_view meaning);

}  // namespace tolvenra::cli
