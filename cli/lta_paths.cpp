#include "lta_paths.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tolvenra::cli {

status_chains::status_chains(const lta_data& data, const lta_fit& fit)
    : data_(data),
      fit_(fit),
      ns_(fit.delta.size() / data.groups()),
      ntime_(data.ntime()),
      most_(static_cast<std::size_t>(most_categories_of(data))) {}

/// \param average  element s * step is the average probability of status s, 0 where it is shut
/// \param beta  element s * stride begins the coefficients of status s
void status_chains::regress(const double* average, const double* beta, std::size_t coefficients,
                            std::size_t stride, std::size_t first_covariate, std::size_t reference,
                            std::size_t step, std::size_t person, double* result) const {
  const lta_model& model = data_.model;
  const auto open = [&](std::size_t s) { return average[s * step] > 0.0; };
  const auto predictor = [&](std::size_t s) {
    double eta = beta[s * stride];
    for (std::size_t v = 1; v < coefficients; ++v)
      eta += beta[s * stride + v] * data_.covariates[first_covariate + v - 1].value[person];
    return eta;
  };
  if (model.binary) {
    double others = 0.0;
    for (std::size_t s = 0; s < ns_; ++s)
      if (s != model.compared) others += average[s * step];
    const double p = 1.0 / (1.0 + std::exp(-predictor(model.compared)));
    for (std::size_t s = 0; s < ns_; ++s)
      result[s * step] =
          s == model.compared ? p : (others > 0.0 ? (1.0 - p) * average[s * step] / others : 0.0);
    return;
  }
  double largest = 0.0, sum = 0.0;
  for (std::size_t s = 0; s < ns_; ++s)
    if (open(s) && s != reference) largest = std::max(largest, predictor(s));
  for (std::size_t s = 0; s < ns_; ++s) {
    result[s * step] = open(s) ? std::exp((s == reference ? 0.0 : predictor(s)) - largest) : 0.0;
    sum += result[s * step];
  }
  for (std::size_t s = 0; s < ns_; ++s) result[s * step] /= sum;
}

std::vector<double> status_chains::start(std::size_t person) const {
  const std::size_t g = data_.group_of(person);
  const double* average = fit_.delta.data() + ns_ * g;
  std::vector<double> result(average, average + ns_);
  const std::size_t coefficients = data_.starting.size() + 1;
  if (!data_.starting.empty())
    regress(average, fit_.delta_beta.data() + coefficients * ns_ * g, coefficients, coefficients, 0,
            data_.model.reference, 1, person, result.data());
  return result;
}

std::vector<double> status_chains::moves(std::size_t person, std::size_t move) const {
  const std::size_t at = move + (ntime_ - 1) * data_.group_of(person);
  const double* average = fit_.tau.data() + ns_ * ns_ * at;
  std::vector<double> result(average, average + ns_ * ns_);
  if (data_.moving.empty()) return result;
  const std::size_t coefficients = data_.moving.size() + 1;
  const double* beta = fit_.tau_beta.data() + coefficients * ns_ * ns_ * at;
  for (std::size_t from = 0; from < ns_; ++from)
    regress(average + from, beta + coefficients * from, coefficients, coefficients * ns_,
            data_.starting.size() + data_.moving.size() * move,
            data_.model.reference_of[from + ns_ * move], ns_, person, result.data() + from);
  return result;
}

std::vector<std::vector<double>> status_chains::shares(std::size_t person) const {
  std::vector<std::vector<double>> result{start(person)};
  for (std::size_t move = 0; move + 1 < ntime_; ++move) {
    const std::vector<double> tau = moves(person, move);
    std::vector<double> next(ns_, 0.0);
    for (std::size_t to = 0; to < ns_; ++to)
      for (std::size_t from = 0; from < ns_; ++from)
        next[to] += result.back()[from] * tau[from + ns_ * to];
    result.push_back(std::move(next));
  }
  return result;
}

std::vector<double> status_chains::log_responses(std::size_t person, std::size_t time) const {
  std::vector<double> result(ns_, 0.0);
  const std::size_t nitem = data_.nitem();
  const std::size_t block = time + ntime_ * data_.group_of(person);
  for (std::size_t j = 0; j < nitem; ++j) {
    const std::int32_t code = data_.items[time * nitem + j].code[person];
    if (code == 0) continue;
    for (std::size_t s = 0; s < ns_; ++s)
      result[s] += std::log(
          fit_.rho[j + nitem * (s + ns_ * (static_cast<std::size_t>(code) - 1 + most_ * block))]);
  }
  return result;
}

std::vector<std::size_t> status_chains::sequence(std::size_t person) const {
  std::vector<double> best = log_responses(person, 0);
  const std::vector<double> first = start(person);
  for (std::size_t s = 0; s < ns_; ++s) best[s] += std::log(first[s]);
  std::vector<std::vector<std::size_t>> came_from;
  for (std::size_t move = 0; move + 1 < ntime_; ++move) {
    const std::vector<double> tau = moves(person, move);
    std::vector<double> next = log_responses(person, move + 1);
    std::vector<std::size_t>& origin = came_from.emplace_back(ns_, 0);
    for (std::size_t to = 0; to < ns_; ++to) {
      double reached = -std::numeric_limits<double>::infinity();
      for (std::size_t from = 0; from < ns_; ++from)
        if (const double way = best[from] + std::log(tau[from + ns_ * to]); way > reached) {
          reached = way;
          origin[to] = from;
        }
      next[to] += reached;
    }
    best = std::move(next);
  }
  std::vector<std::size_t> result(ntime_);
  result.back() =
      static_cast<std::size_t>(std::max_element(best.begin(), best.end()) - best.begin());
  for (std::size_t t = ntime_ - 1; t > 0; --t) result[t - 1] = came_from[t - 1][result[t]];
  return result;
}

}  // namespace tolvenra::cli
