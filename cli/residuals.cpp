#include "residuals.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "report_parts.hpp"

namespace tolvenra::cli {
namespace {

/// Where the estimates of one class stand in the engine's arrays.
class estimates {
 public:
  estimates(const lca_data& data, std::int32_t classes, const lca_fit& fit)
      : fit_(fit),
        nitem_(data.items.size()),
        nc_(static_cast<std::size_t>(classes)),
        nrcmax_(static_cast<std::size_t>(most_categories_of(data))) {}

  /// Probability of two responses in a group, all counted from 0.
  [[nodiscard]] double both(std::size_t group, std::size_t item, std::size_t category,
                            std::size_t other, std::size_t other_category) const {
    double sum = 0.0;
    for (std::size_t c = 0; c < nc_; ++c)
      sum += fit_.gamma[c + nc_ * group] * rho(group, c, item, category) *
             rho(group, c, other, other_category);
    return sum;
  }

 private:
  [[nodiscard]] double rho(std::size_t group, std::size_t cls, std::size_t item,
                           std::size_t category) const {
    return fit_.rho[item + nitem_ * (cls + nc_ * (category + nrcmax_ * group))];
  }

  const lca_fit& fit_;
  std::size_t nitem_, nc_, nrcmax_;
};

/// The distinct response patterns; \param cases  by group, over those that answered both items.
void count_observed(const lca_data& data, const lca_fit& fit, pair_residual& pair,
                    std::vector<double>& cases) {
  const std::int32_t* first = fit.response_patterns.data() + data.rows * (pair.first + 1);
  const std::int32_t* second = fit.response_patterns.data() + data.rows * (pair.second + 1);
  const std::size_t width = data.items[pair.second].labels.size();
  const auto npattern = static_cast<std::size_t>(fit.run_info[4]);
  for (std::size_t p = 0; p < npattern; ++p) {
    if (first[p] == 0 || second[p] == 0) continue;
    const auto cell =
        static_cast<std::size_t>(first[p] - 1) * width + static_cast<std::size_t>(second[p] - 1);
    pair.observed[cell] += fit.pattern_counts[p];
    cases[static_cast<std::size_t>(fit.response_patterns[p] - 1)] += fit.pattern_counts[p];
  }
}

pair_residual residual_of(const lca_data& data, const estimates& model, const lca_fit& fit,
                          std::size_t first, std::size_t second) {
  const std::size_t rows = data.items[first].labels.size();
  const std::size_t columns = data.items[second].labels.size();
  pair_residual pair{first, second, std::vector<double>(rows * columns, 0.0),
                     std::vector<double>(rows * columns, 0.0)};
  std::vector<double> cases(data.groups(), 0.0);
  count_observed(data, fit, pair, cases);
  pair.cases = std::accumulate(cases.begin(), cases.end(), 0.0);
  pair.df = static_cast<double>((rows - 1) * (columns - 1));
  for (std::size_t cell = 0; cell < rows * columns; ++cell) {
    for (std::size_t g = 0; g < cases.size(); ++g)
      if (cases[g] > 0.0)
        pair.expected[cell] +=
            cases[g] * model.both(g, first, cell / columns, second, cell % columns);
    const double difference = pair.observed[cell] - pair.expected[cell];
    if (difference != 0.0) pair.X2 += difference * difference / pair.expected[cell];
  }
  return pair;
}

double per_df(const pair_residual& pair) { return pair.df > 0.0 ? pair.X2 / pair.df : 0.0; }

std::string cell_table(const lca_data& data, const std::vector<pair_residual>& residuals) {
  std::vector<std::vector<std::string>> rows{
      {"Items", "", "Responses", "", "Observed", "Expected"}};
  for (const pair_residual& pair : residuals) {
    const categories& first = data.items[pair.first];
    const categories& second = data.items[pair.second];
    for (std::size_t cell = 0; cell < pair.observed.size(); ++cell)
      rows.push_back(
          {cell == 0 ? first.name : "", cell == 0 ? second.name : "",
           first.labels[cell / second.labels.size()], second.labels[cell % second.labels.size()],
           fmt::format("{:.2f}", pair.observed[cell]), fmt::format("{:.2f}", pair.expected[cell])});
  }
  return aligned(rows, 4);
}

}  // namespace

std::vector<pair_residual> bivariate_residuals(const lca_data& data, std::int32_t classes,
                                               const lca_fit& fit) {
  const estimates model(data, classes, fit);
  std::vector<pair_residual> residuals;
  for (std::size_t j = 0; j < data.items.size(); ++j)
    for (std::size_t k = j + 1; k < data.items.size(); ++k)
      residuals.push_back(residual_of(data, model, fit, j, k));
  return residuals;
}

std::string residual_section(const lca_data& data, const std::vector<pair_residual>& residuals) {
  std::string text = "Bivariate residuals\n";
  if (residuals.empty()) return text + "  There is only one item.\n";
  std::vector<const pair_residual*> order;
  for (const pair_residual& pair : residuals) order.push_back(&pair);
  std::stable_sort(order.begin(), order.end(),
                   [](const auto* a, const auto* b) { return per_df(*a) > per_df(*b); });
  std::vector<std::vector<std::string>> rows{{"Items", "", "Cases", "X²", "df", "X²/df"}};
  for (const pair_residual* pair : order)
    rows.push_back({data.items[pair->first].name, data.items[pair->second].name,
                    fmt::format("{}", pair->cases), fixed(pair->X2), fmt::format("{}", pair->df),
                    pair->df > 0.0 ? fixed(per_df(*pair)) : "-"});
  text +=
      "  Observed against expected responses to two items; a pair with a large X²/df has more in\n"
      "  common than the classes explain. X² is not distributed as chi-square here.\n";
  return text + aligned(rows, 2) + '\n' + cell_table(data, residuals);
}

}  // namespace tolvenra::cli
