#include "posteriors.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "input_error.hpp"

namespace tolvenra::cli {
namespace {

constexpr char modal_name[] = "modal_class";

std::string probability_name(std::size_t cls) { return fmt::format("class_{}", cls); }

}  // namespace

std::string csv_field(std::string_view text) {
  const bool plain = !text.empty() && text.find_first_of(",;\t\"\r\n") == std::string_view::npos &&
                     text.front() != ' ' && text.back() != ' ' && !text.starts_with("\xef\xbb\xbf");
  if (plain) return std::string(text);
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

void check_posterior_names(const data_table& table, std::int32_t classes) {
  for (const table_column& column : table.columns) {
    bool added = column.name == modal_name;
    for (std::int32_t c = 1; c <= classes; ++c)
      added = added || column.name == probability_name(static_cast<std::size_t>(c));
    if (added)
      throw input_error::of(
          "--posteriors: {} already has a column \"{}\", which would be added; rename or remove "
          "it.",
          table.source, column.name);
  }
}

void write_posteriors(const data_table& table, const lca_fit& fit, const lca_answer& answer,
                      std::FILE* file) {
  std::string line;
  for (const table_column& column : table.columns) line += csv_field(column.name) + ',';
  for (std::size_t k = 1; k <= answer.order.size(); ++k) line += probability_name(k) + ',';
  fmt::print(file, "{}{}\n", line, modal_name);
  for (std::size_t i = 0; i < table.rows(); ++i) {
    line.clear();
    for (const table_column& column : table.columns)  // an empty field stays empty
      line += (column.text(i).empty() ? "" : csv_field(column.text(i))) + ',';
    std::size_t modal = 0;
    const auto probability = [&](std::size_t k) {
      return fit.post_cls[i + table.rows() * answer.order[k]];
    };
    for (std::size_t k = 0; k < answer.order.size(); ++k) {
      line += fmt::format("{},", probability(k));
      if (probability(k) > probability(modal)) modal = k;
    }
    fmt::print(file, "{}{}\n", line, modal + 1);
  }
}

}  // namespace tolvenra::cli
