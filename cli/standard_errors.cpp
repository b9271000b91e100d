#include "standard_errors.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "lca_answer.hpp"

namespace tolvenra::cli {
namespace {

using kind = uncertainty::kind;

constexpr double z_95 = 1.959963984540054;  ///< upper 2.5 % point of the normal distribution

double logistic(double x) { return 1.0 / (1.0 + std::exp(-x)); }

/// Elements of a probability vector that were estimated. With fewer than two nothing was.
template <class Code>
bool is_estimated(std::size_t elements, Code&& code) {
  std::size_t free = 0;
  for (std::size_t k = 0; k < elements; ++k) free += code(k) != 0 ? 1 : 0;
  return free > 1;
}

class gatherer {
 public:
  gatherer(const lca_data& data, std::size_t classes, const lca_fit& fit,
           const std::vector<std::size_t>& order, standard_errors& to)
      : data_(data), model_(data.model), nc_(classes), fit_(fit), order_(order), to_(to) {}

  void gather_shares() {
    for (std::size_t g = 0; g < data_.groups(); ++g) {
      auto& of_group = to_.gamma.emplace_back();
      auto& of_model = to_.gamma_model.emplace_back();
      const bool estimated = is_estimated(nc_, [&](std::size_t c) {
        return model_.gamma_code.empty() ? 1 : model_.gamma_code[c + nc_ * g];
      });
      for (const std::size_t c : order_) {
        const std::size_t at = c + nc_ * g;
        of_group.push_back(
            one_probability(estimated && (model_.gamma_code.empty() || model_.gamma_code[at] != 0),
                            fit_.gamma[at], fit_.std_gamma[at]));
        of_model.push_back(of_group.back().is == kind::known
                               ? fit_.std_gamma_model[at]
                               : std::numeric_limits<double>::quiet_NaN());
      }
    }
  }

  void gather_responses() {
    const auto nrcmax = static_cast<std::size_t>(most_categories_of(data_));
    const std::size_t nitem = data_.items.size();
    for (std::size_t g = 0; g < data_.groups(); ++g) {
      auto& of_group = to_.rho.emplace_back(nitem);
      for (std::size_t j = 0; j < nitem; ++j)
        for (const std::size_t c : order_)
          of_group[j].push_back(responses(data_.items[j].labels.size(), [&](std::size_t k) {
            return j + nitem * (c + nc_ * (k + nrcmax * g));
          }));
    }
  }

  void gather_coefficients(const lca_answer& answer) {
    for (std::size_t g = 0; g < answer.beta.size(); ++g) {
      auto& of_group = to_.beta.emplace_back(nc_);
      for (std::size_t k = 0; k < nc_; ++k)
        for (std::size_t v = 0; v < answer.beta[g][k].size(); ++v)
          of_group[k].push_back(answer.runaway[g][k][v]
                                    ? uncertainty{kind::runaway}
                                    : coefficient(g, k, v, answer.beta[g][k][v]));
    }
  }

 private:
  static uncertainty one_probability(bool estimated, double p, double se) {
    return estimated ? of_probability(p, se) : uncertainty{};
  }

  /// One response vector; place(k) is that of its k-th category.
  template <class Place>
  std::vector<uncertainty> responses(std::size_t categories, Place&& place) const {
    const auto code = [&](std::size_t k) {
      return model_.rho_code.empty() ? 1 : model_.rho_code[place(k)];
    };
    const bool estimated = is_estimated(categories, code);
    std::vector<uncertainty> row;
    for (std::size_t k = 0; k < categories; ++k)
      row.push_back(
          one_probability(estimated && code(k) != 0, fit_.rho[place(k)], fit_.std_rho[place(k)]));
    return row;
  }

  /// The difference of two of the engine's coefficients, whose own reference has none.
  [[nodiscard]] uncertainty coefficient(std::size_t g, std::size_t k, std::size_t v,
                                        double b) const {
    if (model_.binary) return of_coefficient(b, std::sqrt(covariance(g, 0, 0, v)));
    if (k == model_.reference) return {};
    const std::size_t base = engine_reference(model_);
    const std::size_t one = order_[k], other = order_[model_.reference];
    const auto entry = [&](std::size_t a, std::size_t c) {
      if (a == base || c == base) return 0.0;
      return covariance(g, a - (a > base ? 1 : 0), c - (c > base ? 1 : 0), v);
    };
    for (const std::size_t c : {one, other})  // held where it is
      if (c != base && entry(c, c) == 0.0) return of_coefficient(b, 0.0);
    return of_coefficient(
        b, std::sqrt(entry(one, one) + entry(other, other) - 2.0 * entry(one, other)));
  }

  /// Of the v-th coefficients of two classes of a group; classes counted without the reference.
  [[nodiscard]] double covariance(std::size_t g, std::size_t a, std::size_t c,
                                  std::size_t v) const {
    const std::size_t rows = data_.covariates.size() + 1;
    const std::size_t each = model_.binary ? 1 : nc_ - 1;
    const auto order = static_cast<std::size_t>(fit_.run_info[8]);
    return fit_.cov_b[v + rows * (a + each * g) + order * (v + rows * (c + each * g))];
  }

  const lca_data& data_;
  const lca_model& model_;
  std::size_t nc_;
  const lca_fit& fit_;
  const std::vector<std::size_t>& order_;
  standard_errors& to_;
};

}  // namespace

uncertainty of_probability(double p, double se) {
  if (!(se > 0.0) || !(p > 0.0 && p < 1.0)) return {kind::boundary};
  const double logit = std::log(p / (1.0 - p));
  const double half = z_95 * se / (p * (1.0 - p));
  return {kind::known, se, logistic(logit - half), logistic(logit + half)};
}

uncertainty of_coefficient(double b, double se) {
  if (!(se > 0.0)) return {kind::boundary};
  return {kind::known, se, b - z_95 * se, b + z_95 * se};
}

standard_errors make_standard_errors(const lca_data& data, std::size_t classes, const lca_fit& fit,
                                     const lca_answer& answer) {
  standard_errors errors;
  errors.given = fit.has_errors();
  if (!errors.given) {
    errors.reason = plain_reason(fit.message);
    return errors;
  }
  errors.held = fit.run_info[9];
  gatherer gather(data, classes, fit, answer.order, errors);
  gather.gather_shares();
  gather.gather_responses();
  gather.gather_coefficients(answer);
  return errors;
}

double standard_errors::largest_of_probabilities() const {
  double largest = 0.0;
  const auto take = [&](const std::vector<uncertainty>& row) {
    for (const uncertainty& one : row) largest = std::max(largest, one.se);
  };
  for (const auto& row : gamma) take(row);
  for (const auto& of_group : rho)
    for (const auto& of_item : of_group)
      for (const auto& row : of_item) take(row);
  return largest;
}

std::string plain_reason(const std::string& message) {
  static constexpr std::pair<const char*, const char*> known[] = {
      {"Error in inverting information matrix",
       "the model is not identified; other values of its parameters fit as well"},
      {"The sample size is too small", "there are too few cases or fewer than two clusters"},
      {"does not allow clustered data",
       "with clusters the groups must share their response probabilities (--invariant)"},
      {"a rho in a polychotomous item",
       "some probabilities of an item with three or more categories are restricted and others of "
       "the same item and class are free"},
      {"Cannot get derivatives or standard errors",
       "they are not available for probabilities that are equal across items with three or more "
       "categories, or across categories, unless whole response vectors are equal"},
      {"if one or more rhos",
       "some probabilities of a response vector are equal across groups and others are not"},
      {"there are constraints on the gammas",
       "they are not available for restricted class shares beside covariates"},
      {"gammas", "some class shares are restricted and others are free"}};
  std::string text;
  const std::string_view report(message.data(),
                                std::min(message.find("OCCURRED IN"), message.size()));
  for (const char c : report) {
    const bool blank = c == ' ' || c == '\n' || c == '\r';
    if (!blank) text += c;
    if (blank && !text.empty() && text.back() != ' ') text += ' ';
  }
  for (const auto& [part, reason] : known)
    if (text.find(part) != std::string::npos) return reason;
  return text.substr(0, text.find_last_not_of(". ") + 1);
}

}  // namespace tolvenra::cli
