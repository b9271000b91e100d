#include "imputed_data.hpp"

#include <fmt/ranges.h>

#include <map>

#include "posteriors.hpp"

namespace tolvenra::cli {
namespace {

/// What a subject drew: its classes or statuses, then the categories of its missing responses.
using draw = std::vector<std::int32_t>;

class imputed_writer {
 public:
  imputed_writer(const data_table& table, const imputed_layout& layout, const case_data& data,
                 const imputation& result, std::FILE* file)
      : table_(table),
        layout_(layout),
        data_(data),
        result_(result),
        file_(file),
        subjects_(result.case_of.size()) {
    times_ = data.items.size() / layout.items;
    first_of_.assign(data.rows + 1, subjects_);
    for (std::size_t s = subjects_; s-- > 0;)
      first_of_[static_cast<std::size_t>(result.case_of[s]) - 1] = s;
  }

  void write_header() {
    std::string line = "imputation";
    for (const table_column& column : table_.columns) line += ',' + csv_field(column.name);
    for (const std::string& name : layout_.added) line += ',' + csv_field(name);
    fmt::print(file_, "{}\n", line);
  }

  /// \param number  of the imputation, from 0
  void write(std::size_t number) {
    for (std::size_t row = 0; row < table_.rows(); ++row) {
      const std::size_t i = layout_.case_of[row];
      std::map<draw, std::size_t> drawn;
      for (std::size_t s = first_of_[i]; s < first_of_[i + 1]; ++s) ++drawn[draw_of(s, number)];
      for (const auto& [what, count] : drawn) write_line(number, row, what, count);
    }
  }

 private:
  [[nodiscard]] draw draw_of(std::size_t subject, std::size_t number) const {
    const auto i = static_cast<std::size_t>(result_.case_of[subject]) - 1;
    draw drawn;
    for (std::size_t t = 0; t < times_; ++t)
      drawn.push_back(result_.latent[subject + subjects_ * (t + times_ * number)]);
    for (std::size_t q = 0; q < data_.items.size(); ++q)
      if (data_.items[q].code[i] == 0)
        drawn.push_back(result_.filled[subject + subjects_ * (q + data_.items.size() * number)]);
    return drawn;
  }

  /// Label of what a column of responses was filled in with; empty where there was a response.
  [[nodiscard]] std::string filled(std::size_t i, std::size_t response, const draw& what) const {
    if (data_.items[response].code[i] != 0) return {};
    std::size_t at = times_;
    for (std::size_t q = 0; q < response; ++q)
      if (data_.items[q].code[i] == 0) ++at;
    return data_.items[response].labels[static_cast<std::size_t>(what[at]) - 1];
  }

  void write_line(std::size_t number, std::size_t row, const draw& what, std::size_t count) {
    const std::size_t i = layout_.case_of[row];
    const std::size_t t = layout_.time_of.empty() ? 0 : layout_.time_of[row];
    std::vector<std::string> fields{fmt::format("{}", number + 1)};
    for (std::size_t column = 0; column < table_.columns.size(); ++column) {
      std::string text = table_.columns[column].text(row);
      if (column == layout_.freq) text = fmt::format("{}", count);
      if (const std::size_t first = layout_.response[column]; first != imputed_layout::none)
        if (std::string label = filled(i, first + layout_.items * t, what); !label.empty())
          text = std::move(label);
      fields.push_back(text.empty() ? "" : csv_field(text));
    }
    for (std::size_t k = 0; k < layout_.added.size(); ++k)
      fields.push_back(csv_field(
          layout_.labels[static_cast<std::size_t>(what[layout_.time_of.empty() ? k : t]) - 1]));
    fmt::print(file_, "{}\n", fmt::join(fields, ","));
  }

  const data_table& table_;
  const imputed_layout& layout_;
  const case_data& data_;
  const imputation& result_;
  std::FILE* file_;
  std::size_t subjects_, times_;
  std::vector<std::size_t> first_of_;  ///< first subject of every case, and the end
};

}  // namespace

void write_imputed(const data_table& table, const imputed_layout& layout, const case_data& data,
                   const imputation& result, std::FILE* file) {
  imputed_writer writer(table, layout, data, result, file);
  writer.write_header();
  const std::size_t draws = result.case_of.size() * (data.items.size() / layout.items);
  for (std::size_t number = 0; number < result.latent.size() / draws; ++number)
    writer.write(number);
}

}  // namespace tolvenra::cli
