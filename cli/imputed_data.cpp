#include "imputed_data.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "input_error.hpp"
#include "posteriors.hpp"

namespace tolvenra::cli {
namespace {

constexpr const char* imputation_name = "imputation";
constexpr const char* class_name = "class";

/// What the subjects of one row drew: the class (from 0, as printed) and the filled-in categories.
using draw = std::vector<std::int32_t>;

/// Writes line by line; knows which column of the table is which item.
class imputed_writer {
 public:
  imputed_writer(const data_table& table, const lca_data& data, const lca_options& options,
                 const lca_answer& answer, const imputation& result, std::FILE* file)
      : table_(table), data_(data), answer_(answer), result_(result), file_(file) {
    item_of_.assign(table.columns.size(), none);
    for (std::size_t j = 0; j < data.items.size(); ++j)
      item_of_[find_column(table, data.items[j].name, "--items")] = j;
    freq_ = options.freq.empty() ? none : find_column(table, options.freq, "--freq");
    printed_.resize(answer.order.size());
    for (std::size_t k = 0; k < answer.order.size(); ++k)
      printed_[answer.order[k]] = static_cast<std::int32_t>(k);
  }

  void write_header() {
    std::string line = imputation_name;
    for (const table_column& column : table_.columns) line += ',' + csv_field(column.name);
    fmt::print(file_, "{},{}\n", line, class_name);
  }

  void write(std::size_t number) {
    const std::size_t subjects = result_.row_of_subject.size();
    for (std::size_t first = 0; first < subjects;) {
      const std::int32_t row = result_.row_of_subject[first];
      std::map<draw, std::size_t> drawn;
      std::size_t s = first;
      for (; s < subjects && result_.row_of_subject[s] == row; ++s) ++drawn[draw_of(s, number)];
      first = s;
      for (const auto& [what, count] : drawn)
        write_line(number, static_cast<std::size_t>(row) - 1, what, count);
    }
  }

 private:
  static constexpr std::size_t none = static_cast<std::size_t>(-1);

  [[nodiscard]] draw draw_of(std::size_t subject, std::size_t number) const {
    const std::size_t subjects = result_.row_of_subject.size();
    const auto row = static_cast<std::size_t>(result_.row_of_subject[subject]) - 1;
    const auto cls = static_cast<std::size_t>(result_.cls[subject + subjects * number]) - 1;
    draw drawn{printed_[cls]};
    for (std::size_t j = 0; j < data_.items.size(); ++j)
      if (data_.items[j].code[row] == 0)
        drawn.push_back(result_.responses[subject + subjects * (j + data_.items.size() * number)]);
    return drawn;
  }

  void write_line(std::size_t number, std::size_t row, const draw& what, std::size_t count) {
    // Missing responses by item; the columns of the file may be in another order.
    std::vector<std::int32_t> filled(data_.items.size(), 0);
    std::size_t next = 1;
    for (std::size_t j = 0; j < data_.items.size(); ++j)
      if (data_.items[j].code[row] == 0) filled[j] = what[next++];
    std::string line = fmt::format("{}", number + 1);
    for (std::size_t column = 0; column < table_.columns.size(); ++column) {
      const std::size_t item = item_of_[column];
      line += ',';
      if (column == freq_) {
        line += fmt::format("{}", count);
      } else if (item != none && filled[item] > 0) {
        line += csv_field(data_.items[item].labels[static_cast<std::size_t>(filled[item]) - 1]);
      } else if (const std::string& text = table_.columns[column].text(row); !text.empty()) {
        line += csv_field(text);
      }
    }
    fmt::print(file_, "{},{}\n", line,
               csv_field(answer_.class_labels[static_cast<std::size_t>(what.front())]));
  }

  const data_table& table_;
  const lca_data& data_;
  const lca_answer& answer_;
  const imputation& result_;
  std::FILE* file_;
  std::vector<std::size_t> item_of_;  ///< by column
  std::size_t freq_ = none;
  std::vector<std::int32_t> printed_;  ///< by class of the engine
};

}  // namespace

void check_imputed_names(const data_table& table) {
  for (const table_column& column : table.columns)
    if (column.name == imputation_name || column.name == class_name)
      throw input_error::of(
          "--imputed: {} already has a column \"{}\", which would be added; rename or remove it.",
          table.source, column.name);
}

void write_imputed(const data_table& table, const lca_data& data, const lca_options& options,
                   const lca_answer& answer, const imputation& result, std::FILE* file) {
  imputed_writer writer(table, data, options, answer, result, file);
  writer.write_header();
  const std::size_t imputations = result.cls.size() / result.row_of_subject.size();
  for (std::size_t number = 0; number < imputations; ++number) writer.write(number);
}

}  // namespace tolvenra::cli
