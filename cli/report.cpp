#include "report.hpp"

#include <fmt/ranges.h>

#include "fit_sentences.hpp"
#include "membership_report.hpp"
#include "standard_error_report.hpp"
#include "utf8.hpp"

namespace tolvenra::cli {
namespace {

constexpr std::size_t line_width = 100;

class lca_reporter {
 public:
  lca_reporter(const lca_data& data, const lca_options& options, const lca_answer& answer)
      : data_(data),
        options_(options),
        answer_(answer),
        errors_(answer.errors && answer.errors->given ? &*answer.errors : nullptr),
        names_(data.model.class_names),
        classes_(answer.shares.size()) {
    for (const categories& item : data.items) items_.push_back(&item);
  }

  [[nodiscard]] std::string report() const {
    std::string text =
        fmt::format("Latent class analysis: {}, {}\n\n", counted(classes_, "class", "classes"),
                    counted(items_.size(), "item", "items"));
    text += sample_section() + '\n' + item_section() + '\n' +
            fit_section(answer_, !data_.covariates.empty()) + '\n' +
            fit_test_section(answer_.of_fit, "classes", true) + '\n' +
            search_section(options_, data_.model.start_given, answer_) + '\n' +
            standard_error_section(data_, options_, answer_) + share_section() +
            membership_sections(data_, options_, answer_) + response_sections();
    if (options_.residuals) text += '\n' + residual_section(data_, answer_.residuals);
    return text;
  }

 private:
  [[nodiscard]] std::string sample_section() const {
    table_rows rows = sample_rows(data_, options_, {"Rows", data_.rows});
    for (auto& row : cluster_rows(options_, answer_)) rows.push_back(row);
    if (options_.invariant) rows.push_back({"", "the same response probabilities in every group"});
    if (!data_.covariates.empty()) {
      std::vector<std::string> names;
      for (const covariate& column : data_.covariates) names.push_back(column.name);
      rows.push_back({"Covariates", fmt::format("{}", fmt::join(names, ", "))});
    }
    return "Sample\n" + aligned(rows, 2);
  }

  [[nodiscard]] std::string item_section() const {
    std::vector<std::vector<std::string>> missing;
    for (const double count : data_.missing) missing.push_back({fmt::format("{}", count)});
    return item_table({"Missing"}, missing, items_);
  }

  [[nodiscard]] std::string share_section() const {
    std::size_t label = width_of(data_.group ? "all groups" : "Share");
    for (std::size_t g = 0; data_.group && g < data_.groups(); ++g)
      label = std::max(label, width_of(data_.group->labels[g]));
    return "Class shares\n" +
           in_blocks(
               classes_,
               [&](std::size_t first, std::size_t end) { return share_table(first, end); },
               at_once(label));
  }

  [[nodiscard]] std::string share_table(std::size_t first, std::size_t end) const {
    table_rows rows{with_latent_names({data_.group ? "Group" : ""}, names_, "Class", first, end)};
    const auto add = [&](const std::string& name, auto&& cell) {
      rows.push_back({name});
      for (std::size_t c = first; c < end; ++c) rows.back().push_back(cell(c));
    };
    for (std::size_t g = 0; g < data_.groups(); ++g) {
      const std::vector<double>& gamma = answer_.gamma[g];
      add(data_.group ? data_.group->labels[g] : "Share", [&](std::size_t c) {
        return errors_ ? with_error(gamma[c], errors_->gamma[g][c]) : fixed(gamma[c]);
      });
      if (errors_ && classes_ > 1)
        add("95 %", [&](std::size_t c) { return interval_text(errors_->gamma[g][c]); });
    }
    const uncertainty none;  // the engine gives the groups' alone
    if (data_.group)
      add("all groups", [&](std::size_t c) {
        return errors_ ? with_error(answer_.shares[c], none) : fixed(answer_.shares[c]);
      });
    return aligned(rows, 1);
  }

  [[nodiscard]] std::string response_sections() const {
    std::string text;
    for (std::size_t g = 0; g < (options_.invariant ? 1 : data_.groups()); ++g) {
      std::string where;
      if (options_.invariant)
        where = " in every group";
      else if (data_.group)
        where = fmt::format(" in group {}", data_.group->labels[g]);
      text += "\nItem-response probabilities" + where + '\n' +
              response_cells_of([&](auto j, auto k, auto c) {
                const double p = answer_.rho[g][j][c][k];
                return errors_ ? with_error(p, errors_->rho[g][j][c][k]) : fixed(p);
              });
      if (errors_)
        text += "\n95 % intervals of the item-response probabilities" + where + '\n' +
                response_cells_of([&](auto j, auto k, auto c) {
                  return interval_text(errors_->rho[g][j][c][k]);
                });
    }
    return text;
  }

  template <class Cell>
  std::string response_cells_of(Cell&& cell) const {
    std::size_t item = width_of("Item"), category = width_of("Category");
    for (const categories* column : items_) {
      item = std::max(item, width_of(column->name));
      for (const std::string& label : column->labels)
        category = std::max(category, width_of(label));
    }
    return in_blocks(
        classes_,
        [&](std::size_t first, std::size_t end) {
          return response_cells(items_, names_, "Class", first, end, cell);
        },
        at_once(item + 2 + category));
  }

  /// Classes in a block: as many as fit beside labels of this width, all blocks alike; as ever
  /// without standard errors.
  [[nodiscard]] std::size_t at_once(std::size_t label) const {
    if (!errors_) return classes_side_by_side;
    std::size_t cell = width_with_error;
    for (const std::string& name : names_) cell = std::max(cell, width_of(name));
    const std::size_t room = line_width - std::min(line_width, 2 + label);
    const auto most = std::clamp<std::size_t>(room / (cell + 2), 1, classes_side_by_side);
    const std::size_t blocks = (classes_ + most - 1) / most;
    return (classes_ + blocks - 1) / blocks;
  }

  const lca_data& data_;
  const lca_options& options_;
  const lca_answer& answer_;
  const standard_errors* errors_;  ///< null when there are none
  const std::vector<std::string>& names_;
  std::size_t classes_;
  std::vector<const categories*> items_;
};

}  // namespace

std::string lca_report(const lca_data& data, const lca_options& options, const lca_answer& answer) {
  return lca_reporter(data, options, answer).report();
}

}  // namespace tolvenra::cli
