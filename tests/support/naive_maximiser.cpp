#include "support/naive_maximiser.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>

#include "support/bfgs.hpp"

namespace tolvenra::test {
namespace {

using table = std::vector<double>;

constexpr double no_chance = -1e300;  ///< log of 0

std::size_t z(int i) { return static_cast<std::size_t>(i); }

/// Logarithms of the shares that the logits of `count` categories give; in place is allowed.
void log_softmax(const double* logit, int count, double* out) {
  const double most = *std::max_element(logit, logit + count);
  double sum = 0.0;
  for (int c = 0; c < count; ++c) sum += std::exp(logit[c] - most);
  const double log_sum = most + std::log(sum);
  for (int c = 0; c < count; ++c) out[c] = logit[c] - log_sum;
}

table design_of(int n, int columns, const std::function<double(int, int)>& covariate) {
  table x;
  for (int k = 1; k <= n; ++k)
    for (int j = 0; j < columns; ++j) x.push_back(j == 0 ? 1.0 : covariate(k, j));
  return x;
}

double log_or_low(double p) { return std::log(std::max(p, 1e-12)); }

}  // namespace

/// Weighted posterior counts of a case, laid out as its rows of log probabilities.
struct naive_model::expectation {
  std::vector<table> of_case;
};

naive_model::naive_model(const lca_problem& p)
    : cases_(p.nkase),
      items_(p.nci),
      statuses_(p.nc),
      strata_(p.nstr),
      widest_(p.nrcmax()),
      equal_strata_(p.rho_equal_strata),
      categories_(p.nrc) {
  for (int k = 1; k <= cases_; ++k) {
    for (int j = 1; j <= items_; ++j) y_.push_back(p.response(k, j));
    weight_.push_back(p.case_weight(k));
    stratum_.push_back(p.stratum(k) - 1);
  }
  columns_ = {p.ncov + 1};
  x_ = {design_of(cases_, p.ncov + 1, [&](int k, int j) { return p.cov_at(k, j); })};
  for (int g = 0; g < strata_; ++g)
    fits_.push_back({g, -1, 0, p.baseline - 1, p.binary - 1, std::vector<bool>(z(statuses_)), {}});
  lay_out();
}

naive_model::naive_model(const lta_problem& p)
    : cases_(p.nkase),
      items_(p.ni),
      times_(p.nt),
      statuses_(p.ns),
      strata_(p.nstr),
      widest_(p.nrsmax()),
      equal_strata_(p.equal_strata),
      equal_time_(p.equal_time),
      categories_(p.nrs) {
  for (int k = 1; k <= cases_; ++k) {
    for (int i = 1; i <= items_; ++i)
      for (int t = 1; t <= times_; ++t) y_.push_back(p.response(k, i, t));
    weight_.push_back(p.case_weight(k));
    stratum_.push_back(p.stratum(k) - 1);
  }
  const auto cov = [&](int k, int j) {
    return p.cov[lta_problem::cell({k, j}, {cases_, p.ncov_delta + (times_ - 1) * p.ncov_tau})];
  };
  columns_ = {p.ncov_delta + 1};
  x_ = {design_of(cases_, p.ncov_delta + 1, cov)};
  for (int t = 0; t + 1 < times_; ++t) {
    columns_.push_back(p.ncov_tau + 1);
    x_.push_back(design_of(cases_, p.ncov_tau + 1, [&](int k, int j) {
      return cov(k, p.ncov_delta + t * p.ncov_tau + j);
    }));
  }
  const auto chosen = [&](const std::vector<std::int32_t>& by_row, int s, int t, int otherwise) {
    return by_row.empty() ? otherwise
                          : by_row[lta_problem::cell({s + 1, t + 1}, {statuses_, times_ - 1})] - 1;
  };
  for (int g = 0; g < strata_; ++g) {
    fits_.push_back(
        {g, -1, 0, p.baseline_delta - 1, p.binary_delta - 1, std::vector<bool>(z(statuses_)), {}});
    for (int t = 0; t + 1 < times_; ++t)
      for (int s = 0; s < statuses_; ++s) {
        naive_regression fit{
            g, t, s, chosen(p.baseline_tau, s, t, 0), chosen(p.binary_tau, s, t, -1), {}, {}};
        for (int d = 1; d <= statuses_; ++d)
          fit.absent.push_back(!p.tau_restrictions.empty() &&
                               p.tau_restrictions[p.tau_cell(s + 1, d, t + 1, g + 1)] == 0);
        fits_.push_back(fit);
      }
  }
  lay_out();
}

void naive_model::lay_out() {
  stratum_weight_.assign(z(strata_), 0.0);
  for (std::size_t k = 0; k < weight_.size(); ++k) stratum_weight_[z(stratum_[k])] += weight_[k];
  for (naive_regression& fit : fits_) {
    fit.offset = parameters_;
    parameters_ += z(statuses_ * (columns(fit) + 1));
  }
  int sequences = 1;
  for (int t = 0; t < times_; ++t) sequences *= statuses_;
  for (int q = 0; q < sequences; ++q)
    for (int t = 0, rest = q, from = 0; t < times_; ++t, rest /= statuses_) {
      const int status = rest % statuses_;
      cells_.push_back(status + (t == 0 ? 0 : statuses_ * (1 + (t - 1) * statuses_ + from)));
      from = status;
    }
  rho_offset_ = parameters_;
  parameters_ += rho_at(items_ - 1, statuses_ - 1, widest_ - 1, times_ - 1, strata_ - 1) + 1;
}

int naive_model::columns(const naive_regression& fit) const { return columns_[z(fit.time + 1)]; }
const double* naive_model::design(const naive_regression& fit, int k) const {
  return &x_[z(fit.time + 1)][z(k * columns(fit))];
}
int naive_model::answer(int k, int i, int t) const { return y_[z((k * items_ + i) * times_ + t)]; }
std::size_t naive_model::rho_at(int i, int s, int r, int t, int g) const {
  const int of_time = equal_time_ ? 0 : t;
  const int of_stratum = equal_strata_ ? 0 : g;
  return z((((of_stratum * (equal_time_ ? 1 : times_) + of_time) * statuses_ + s) * items_ + i) *
               widest_ +
           r);
}

void naive_model::log_probabilities(const naive_regression& fit, const double* x,
                                    const table& theta, double* out) const {
  const int p = columns(fit);
  const auto eta = [&](int c) {
    return std::inner_product(x, x + p, &theta[fit.offset + z(c * p)], 0.0);
  };
  if (fit.binary < 0) {
    for (int c = 0; c < statuses_; ++c) out[c] = fit.absent[z(c)] ? no_chance : eta(c);
    log_softmax(out, statuses_, out);
    return;
  }
  std::copy_n(&theta[fit.offset + z(statuses_ * p)], statuses_, out);
  out[fit.binary] = no_chance;
  log_softmax(out, statuses_, out);
  const double own = eta(fit.binary);
  const double log_rest = -std::max(own, 0.0) - std::log1p(std::exp(-std::abs(own)));
  for (int c = 0; c < statuses_; ++c) out[c] += log_rest;
  out[fit.binary] = own + log_rest;
}

table naive_model::log_rho(const table& theta) const {
  table out(parameters_ - rho_offset_, no_chance);
  for (std::size_t row = 0; row < out.size(); row += z(widest_))
    log_softmax(&theta[rho_offset_ + row], categories_[row / z(widest_) % z(items_)], &out[row]);
  return out;
}

std::vector<table> naive_model::case_rows(const table& theta) const {
  std::vector<table> rows(z(cases_));
  const std::size_t of_stratum = fits_.size() / z(strata_);
  for (int k = 0; k < cases_; ++k) {
    rows[z(k)].resize(of_stratum * z(statuses_));
    for (std::size_t f = 0; f < of_stratum; ++f) {
      const naive_regression& fit = fits_[z(stratum_[z(k)]) * of_stratum + f];
      log_probabilities(fit, design(fit, k), theta, &rows[z(k)][f * z(statuses_)]);
    }
  }
  return rows;
}

/// Enumerates the status sequences of every case. \return the log-likelihood
double naive_model::expect(const table& lrho, const std::vector<table>& rows, bool by_case,
                           expectation& e) const {
  double loglik = 0.0;
  e.of_case.resize(z(cases_));
  table wave(z(times_ * statuses_)), joint;
  for (int k = 0; k < cases_; ++k) {
    const table& row = rows[z(by_case ? k : stratum_[z(k)])];
    for (int t = 0; t < times_; ++t)
      for (int s = 0; s < statuses_; ++s) {
        double& sum = wave[z(t * statuses_ + s)] = 0.0;
        for (int i = 0; i < items_; ++i)
          if (const int r = answer(k, i, t); r > 0)
            sum += lrho[rho_at(i, s, r - 1, t, stratum_[z(k)])];
      }
    joint.assign(cells_.size() / z(times_), 0.0);
    for (std::size_t q = 0; q < cells_.size(); ++q) {
      const int at = cells_[q];
      joint[q / z(times_)] += row[z(at)] + wave[q % z(times_) * z(statuses_) + z(at % statuses_)];
    }
    const double most = *std::max_element(joint.begin(), joint.end());
    double sum = 0.0;
    for (double& value : joint) sum += value = std::exp(value - most);
    loglik += weight_[z(k)] * (most + std::log(sum));
    table& count = e.of_case[z(k)];
    count.assign(row.size(), 0.0);
    for (std::size_t q = 0; q < cells_.size(); ++q)
      count[z(cells_[q])] += weight_[z(k)] * joint[q / z(times_)] / sum;
  }
  return loglik;
}

/// Expected log-likelihood of the completed data, pseudo-cases included, and its gradient, which at
/// the parameters of the expectation is that of the log-likelihood (Fisher's identity).
double naive_model::expected_loglik(const table& theta, const table& lrho,
                                    const std::vector<table>& rows, const expectation& e,
                                    table* gradient, double& log_prior) const {
  double sum = 0.0;
  log_prior = 0.0;
  if (gradient) gradient->assign(theta.size(), 0.0);
  table by_rho(lrho.size(), 0.0), count(z(statuses_));
  const std::size_t of_stratum = fits_.size() / z(strata_);
  for (int k = 0; k < cases_; ++k) {
    const table& counted = e.of_case[z(k)];
    for (std::size_t f = 0; f < of_stratum; ++f) {
      const naive_regression& fit = fits_[z(stratum_[z(k)]) * of_stratum + f];
      const double* log_p = &rows[z(k)][f * z(statuses_)];
      double total = 0.0;
      for (int c = 0; c < statuses_; ++c) {
        const double expected = counted[f * z(statuses_) + z(c)];
        for (int i = 0; i < items_; ++i)
          if (const int r = answer(k, i, fit.time + 1); r > 0)
            by_rho[rho_at(i, c, r - 1, fit.time + 1, fit.stratum)] += expected;
        const double pseudo = fit.prior.empty() ? 0.0
                                                : prior_cases_ * weight_[z(k)] * fit.prior[z(c)] /
                                                      stratum_weight_[z(fit.stratum)];
        if (pseudo > 0.0) log_prior += pseudo * log_p[c];
        count[z(c)] = expected + pseudo;
        if (count[z(c)] > 0.0) sum += count[z(c)] * log_p[c];
        total += count[z(c)];
      }
      if (!gradient) continue;
      const double* x = design(fit, k);
      const int p = columns(fit);
      double* own = &(*gradient)[fit.offset];
      const auto add = [&](int c, double residual) {
        for (int j = 0; j < p; ++j) own[c * p + j] += residual * x[j];
      };
      const auto left = [&](int c) { return count[z(c)] - total * std::exp(log_p[c]); };
      if (fit.binary < 0) {
        for (int c = 0; c < statuses_; ++c)
          if (c != fit.baseline && !fit.absent[z(c)]) add(c, left(c));
        continue;
      }
      add(fit.binary, left(fit.binary));
      const double rest = total - count[z(fit.binary)];
      const table q = shares(fit, theta);
      for (int c = 0; c < statuses_; ++c)
        if (c != fit.binary) own[statuses_ * p + c] += count[z(c)] - 2.0 * rest * q[z(c)];
    }
  }
  for (std::size_t row = 0; row < by_rho.size(); row += z(widest_)) {
    const int r = categories_[row / z(widest_) % z(items_)];
    const double total = std::accumulate(&by_rho[row], &by_rho[row] + r, 0.0);
    for (std::size_t q = row; q < row + z(r); ++q) {
      if (by_rho[q] > 0.0) sum += by_rho[q] * lrho[q];
      if (gradient) (*gradient)[rho_offset_ + q] = by_rho[q] - total * std::exp(lrho[q]);
    }
  }
  return sum;
}

naive_maximum naive_model::value(const table& theta) const {
  expectation e;
  double log_prior = 0.0;
  const table lrho = log_rho(theta);
  const std::vector<table> rows = case_rows(theta);
  const double loglik = expect(lrho, rows, true, e);
  expected_loglik(theta, lrho, rows, e, nullptr, log_prior);
  return {loglik, loglik + log_prior, theta};
}

naive_maximum naive_model::climb(table theta, int em_steps) const {
  expectation e;
  double log_prior = 0.0;
  for (int step = 0; step < em_steps; ++step) {
    expect(log_rho(theta), case_rows(theta), true, e);
    ascend(
        [&](const table& at, table& gradient) {
          return expected_loglik(at, log_rho(at), case_rows(at), e, &gradient, log_prior);
        },
        theta, 15);
  }
  ascend(
      [&](const table& at, table& gradient) {
        const table lrho = log_rho(at);
        const std::vector<table> rows = case_rows(at);
        const double loglik = expect(lrho, rows, true, e);
        expected_loglik(at, lrho, rows, e, &gradient, log_prior);
        return loglik + log_prior;
      },
      theta, 3000);
  return value(theta);
}

table naive_model::start(const table& rho) const {
  table theta(parameters_, 0.0);
  const std::vector<int> extents{items_, statuses_, widest_, times_, strata_};
  for (int g = 1; g <= strata_; ++g)
    for (int t = 1; t <= times_; ++t)
      for (int s = 1; s <= statuses_; ++s)
        for (int i = 1; i <= items_; ++i)
          for (int r = 1; r <= categories_[z(i - 1)]; ++r)
            theta[rho_offset_ + rho_at(i - 1, s - 1, r - 1, t - 1, g - 1)] =
                log_or_low(rho[lta_problem::cell({i, s, r, t, g}, extents)]);
  return theta;
}

table naive_model::estimates(const lca_problem& fit) const {
  table theta = start(fit.rho);
  for (const naive_regression& own : fits_)
    for (int c = 1; c <= statuses_; ++c) {
      for (int j = 0; j <= fit.ncov; ++j)
        theta[own.offset + z((c - 1) * (fit.ncov + 1) + j)] = fit.beta_at(j, c, own.stratum + 1);
      theta[own.offset + z(statuses_ * (fit.ncov + 1) + c - 1)] =
          log_or_low(fit.gamma_at(c, own.stratum + 1));
    }
  return theta;
}

table naive_model::estimates(const lta_problem& fit) const {
  table theta = start(fit.big_rho);
  for (const naive_regression& own : fits_) {
    const int p = columns(own);
    const int g = own.stratum + 1;
    const int t = own.time + 1;
    const int s = own.origin + 1;
    for (int c = 1; c <= statuses_; ++c) {
      for (int j = 1; j <= p; ++j)
        theta[own.offset + z((c - 1) * p + j - 1)] =
            t == 0 ? fit.delta_beta[lta_problem::cell({j, c, g}, {p, statuses_, strata_})]
                   : fit.tau_beta[lta_problem::cell(
                         {j, s, c, t, g}, {p, statuses_, statuses_, times_ - 1, strata_})];
      theta[own.offset + z(statuses_ * p + c - 1)] =
          log_or_low(t == 0 ? fit.delta[fit.delta_cell(c, g)] : fit.tau[fit.tau_cell(s, c, t, g)]);
    }
  }
  return theta;
}

void naive_model::hand_over_rho(const table& theta, table& rho) const {
  const table lrho = log_rho(theta);
  const std::vector<int> extents{items_, statuses_, widest_, times_, strata_};
  for (int g = 1; g <= strata_; ++g)
    for (int t = 1; t <= times_; ++t)
      for (int s = 1; s <= statuses_; ++s)
        for (int i = 1; i <= items_; ++i)
          for (int r = 1; r <= categories_[z(i - 1)]; ++r)
            rho[lta_problem::cell({i, s, r, t, g}, extents)] =
                std::exp(lrho[rho_at(i - 1, s - 1, r - 1, t - 1, g - 1)]);
}

double naive_model::largest_predictor(const naive_regression& fit, const table& theta) const {
  double most = 0.0;
  const int p = columns(fit);
  for (int k = 0; k < cases_; ++k)
    for (int c = 0; c < statuses_ && stratum_[z(k)] == fit.stratum; ++c)
      most = std::max(most, std::inner_product(design(fit, k), design(fit, k) + p,
                                               &theta[fit.offset + z(c * p)], 0.0));
  return most;
}

double naive_model::largest_predictor(const table& theta) const {
  double most = 0.0;
  for (const naive_regression& fit : fits_) most = std::max(most, largest_predictor(fit, theta));
  return most;
}

/// Shares of the categories that the binary form does not compare, the compared one getting half.
table naive_model::shares(const naive_regression& fit, const table& theta) const {
  table out(theta.begin() + std::ptrdiff_t(fit.offset) + statuses_ * columns(fit),
            theta.begin() + std::ptrdiff_t(fit.offset) + statuses_ * (columns(fit) + 1));
  out[z(fit.binary)] = no_chance;
  log_softmax(out.data(), statuses_, out.data());
  for (double& share : out) share = 0.5 * std::exp(share);
  out[z(fit.binary)] = 0.5;
  return out;
}

void naive_model::hand_over(const table& theta, lca_problem& p) const {
  hand_over_rho(theta, p.rho);
  for (const naive_regression& own : fits_) {
    const double share = std::min(1.0, 650.0 / largest_predictor(own, theta));
    for (int c = 0; c < statuses_; ++c) {
      for (int j = 0; j <= p.ncov; ++j)
        p.beta[z(j + (p.ncov + 1) * (c + statuses_ * own.stratum))] =
            share * theta[own.offset + z(c * (p.ncov + 1) + j)];
      if (own.binary >= 0) p.gamma[z(c + statuses_ * own.stratum)] = shares(own, theta)[z(c)];
    }
  }
  p.start_given = true;
}

void naive_model::hand_over(const table& theta, lta_problem& p) const {
  hand_over_rho(theta, p.big_rho);
  for (const naive_regression& own : fits_) {
    const int columns_of = columns(own);
    const double share = std::min(1.0, 650.0 / largest_predictor(own, theta));
    const int g = own.stratum + 1;
    const int t = own.time + 1;
    const int s = own.origin + 1;
    for (int c = 1; c <= statuses_; ++c) {
      for (int j = 1; j <= columns_of; ++j)
        (t == 0 ? p.delta_beta[lta_problem::cell({j, c, g}, {columns_of, statuses_, strata_})]
                : p.tau_beta[lta_problem::cell(
                      {j, s, c, t, g}, {columns_of, statuses_, statuses_, times_ - 1, strata_})]) =
            share * theta[own.offset + z((c - 1) * columns_of + j - 1)];
      if (own.binary >= 0)
        (t == 0 ? p.delta[p.delta_cell(c, g)] : p.tau[p.tau_cell(s, c, t, g)]) =
            shares(own, theta)[z(c - 1)];
    }
  }
  p.random = false;
}

naive_plain naive_model::fit_plain(const table& rho) const {
  table lrho = log_rho(start(rho));
  const std::size_t of_stratum = fits_.size() / z(strata_);
  std::vector<table> rows(z(strata_), table(of_stratum * z(statuses_)));  // log probabilities
  for (std::size_t f = 0; f < fits_.size(); ++f) {
    const std::vector<bool>& absent = fits_[f].absent;
    const auto left = std::count(absent.begin(), absent.end(), false);
    for (std::size_t c = 0; c < absent.size(); ++c)
      rows[f / of_stratum][f % of_stratum * z(statuses_) + c] =
          absent[c] ? no_chance : -std::log(static_cast<double>(left));
  }
  expectation e;
  for (double change = 1.0; change > 1e-6;) {
    expect(lrho, rows, false, e);
    change = 0.0;
    const auto renew = [&](double* logs, const double* counts, int length) {
      const double total = std::accumulate(counts, counts + length, 0.0);
      for (int c = 0; c < length && total > 0.0; ++c) {
        change = std::max(change, std::abs(counts[c] / total - std::exp(logs[c])));
        logs[c] = counts[c] > 0.0 ? std::log(counts[c] / total) : no_chance;
      }
    };
    std::vector<table> counted(rows.size(), table(rows.front().size(), 0.0));
    table by_rho(lrho.size(), 0.0);
    for (int k = 0; k < cases_; ++k)
      for (std::size_t q = 0; q < rows.front().size(); ++q) {
        counted[z(stratum_[z(k)])][q] += e.of_case[z(k)][q];
        const int t = fits_[q / z(statuses_)].time + 1;
        const double count = e.of_case[z(k)][q];
        for (int i = 0; i < items_; ++i) {
          const std::size_t own = rho_at(i, static_cast<int>(q) % statuses_, 0, t, stratum_[z(k)]);
          const int given = answer(k, i, t);
          // A missing response is part of the complete data: expected as fitted so far.
          for (int r = 1; r <= categories_[z(i)]; ++r)
            by_rho[own + z(r - 1)] +=
                given > 0 ? (r == given ? count : 0.0) : count * std::exp(lrho[own + z(r - 1)]);
        }
      }
    for (std::size_t g = 0; g < rows.size(); ++g)
      for (std::size_t q = 0; q < rows[g].size(); q += z(statuses_))
        renew(&rows[g][q], &counted[g][q], statuses_);
    for (std::size_t row = 0; row < lrho.size(); row += z(widest_))
      renew(&lrho[row], &by_rho[row], categories_[row / z(widest_) % z(items_)]);
  }
  naive_plain plain;
  for (const table& of : rows)
    for (std::size_t q = 0; q < of.size(); q += z(statuses_)) {
      table& row = plain.rows.emplace_back();
      for (int c = 0; c < statuses_; ++c) row.push_back(std::exp(of[q + z(c)]));
    }
  for (const double l : lrho) plain.rho.push_back(std::exp(l));
  return plain;
}

/// Status of `of` for every status of `own`: the permutation of least squared distance.
std::vector<int> naive_model::nearest_labels(const naive_plain& of, const naive_plain& own, int t,
                                             int g) const {
  std::vector<int> order(z(statuses_));
  std::iota(order.begin(), order.end(), 0);
  std::vector<int> best = order;
  double least = std::numeric_limits<double>::max();
  do {
    double distance = 0.0;
    for (int s = 0; s < statuses_; ++s)
      for (int i = 0; i < items_; ++i)
        for (int r = 0; r < categories_[z(i)]; ++r)
          distance += std::pow(
              own.rho[rho_at(i, s, r, t, g)] - of.rho[rho_at(i, order[z(s)], r, t, g)], 2.0);
    if (distance < least) {
      least = distance;
      best = order;
    }
  } while (std::next_permutation(order.begin(), order.end()));
  return best;
}

void naive_model::set_prior(double cases, const naive_plain& of, const naive_plain* own) {
  prior_cases_ = cases;
  const std::size_t of_stratum = fits_.size() / z(strata_);
  for (std::size_t f = 0; f < fits_.size(); ++f) {
    naive_regression& fit = fits_[f];
    std::vector<int> from(z(statuses_)), to;
    std::iota(from.begin(), from.end(), 0);
    to = from;
    if (own) {
      to = nearest_labels(of, *own, fit.time + 1, fit.stratum);
      if (fit.time >= 0) from = nearest_labels(of, *own, fit.time, fit.stratum);
    }
    const std::size_t row = f / of_stratum * of_stratum +
                            (fit.time < 0 ? 0 : 1 + z(fit.time * statuses_ + from[z(fit.origin)]));
    fit.prior.assign(z(statuses_), 0.0);
    const auto present = std::count(fit.absent.begin(), fit.absent.end(), false);
    for (int c = 0; c < statuses_; ++c)
      if (!fit.absent[z(c)])
        fit.prior[z(c)] = std::max(of.rows[row][z(to[z(c)])], 0.01 / static_cast<double>(present));
    const double total = std::accumulate(fit.prior.begin(), fit.prior.end(), 0.0);
    for (double& value : fit.prior) value /= total;
  }
}

}  // namespace tolvenra::test
