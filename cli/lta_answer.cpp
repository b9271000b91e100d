#include "lta_answer.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "lta_paths.hpp"

namespace tolvenra::cli {
namespace {

/// X2 compares what G2 and the missing-data test compare together.
double X2_tail(const lta_fit& fit) {
  const auto df = static_cast<std::int64_t>(fit.apparent_df) + fit.cat_df;
  constexpr auto too_many = std::numeric_limits<std::int32_t>::max();
  if (fit.apparent_df == too_many || fit.cat_df == too_many) return std::nan("");
  return chi_square_tail(fit.fit_extra[0], df);
}

class answer_builder {
 public:
  answer_builder(const lta_data& data, const lta_options& options, const lta_fit& fit)
      : data_(data),
        model_(data.model),
        fit_(fit),
        ns_(static_cast<std::size_t>(options.statuses)),
        moves_(data.ntime() - 1) {}

  void add_estimates(lta_answer& answer) const {
    answer.status_labels = model_.status_names;
    for (std::size_t s = answer.status_labels.size(); s < ns_; ++s)
      answer.status_labels.push_back(fmt::format("{}", s + 1));
    for (std::size_t g = 0; g < data_.groups(); ++g) {
      const auto delta = fit_.delta.begin() + static_cast<std::ptrdiff_t>(ns_ * g);
      answer.delta.emplace_back(delta, delta + static_cast<std::ptrdiff_t>(ns_));
      auto& tau = answer.tau.emplace_back();
      for (std::size_t move = 0; move < moves_; ++move) tau.push_back(tau_table(move, g));
      auto& rho = answer.rho.emplace_back();
      for (std::size_t t = 0; t < data_.ntime(); ++t) rho.push_back(rho_tables(t, g));
    }
  }

  void add_coefficients(lta_answer& answer) const {
    const std::size_t starting = data_.starting.size() + 1;
    for (std::size_t g = 0; starting > 1 && g < data_.groups(); ++g) {
      lta_answer::table& of_group = answer.delta_beta.emplace_back();
      lta_answer::marks& runaway = answer.delta_runaway.emplace_back();
      for (std::size_t s = 0; s < ns_; ++s) {
        of_group.push_back(row_of(fit_.delta_beta, starting, s + ns_ * g, s, model_.reference,
                                  is_shut(model_.delta_code, s + ns_ * g, fit_.delta)));
        runaway.push_back(
            marks_of(fit_.start_runs, starting * (s + ns_ * g), of_group.back().size(), answer));
      }
    }
    for (std::size_t g = 0; !data_.moving.empty() && g < data_.groups(); ++g) {
      auto& of_group = answer.tau_beta.emplace_back();
      auto& runaway = answer.tau_runaway.emplace_back();
      for (std::size_t move = 0; move < moves_; ++move) {
        auto& of_move = of_group.emplace_back();
        auto& marks = runaway.emplace_back(ns_);
        for (std::size_t from = 0; from < ns_; ++from) {
          of_move.push_back(moving_rows(g, move, from));
          for (std::size_t to = 0; to < ns_; ++to)
            marks[from].push_back(marks_of(
                fit_.move_runs,
                (data_.moving.size() + 1) * (from + ns_ * (to + ns_ * (move + moves_ * g))),
                of_move.back()[to].size(), answer));
        }
      }
    }
  }

  void add_shares(lta_answer& answer) const {
    const status_chains chains(data_, fit_);
    answer.group_shares.assign(data_.groups(), {data_.ntime(), std::vector<double>(ns_, 0.0)});
    answer.shares.assign(data_.ntime(), std::vector<double>(ns_, 0.0));
    answer.modal_cases = answer.shares;
    for (std::size_t i = 0; i < data_.rows; ++i) {
      const std::size_t g = data_.group_of(i);
      const double weight = data_.freq_of(i) * data_.weight_of(i);
      const auto shares = chains.shares(i);
      for (std::size_t t = 0; t < data_.ntime(); ++t) {
        for (std::size_t s = 0; s < ns_; ++s) {
          answer.shares[t][s] += weight / data_.weighted_cases * shares[t][s];
          answer.group_shares[g][t][s] += weight / data_.group_weighted_cases[g] * shares[t][s];
        }
        answer.modal_cases[t][modal(i, t)] += weight;
      }
      answer.sequences.push_back(chains.sequence(i));
    }
  }

  /// The most likely status at one time, of equally likely ones the first.
  [[nodiscard]] std::size_t modal(std::size_t person, std::size_t time) const {
    std::size_t best = 0;
    const auto post = [&](std::size_t s) {
      return fit_.post[person + data_.rows * (time + data_.ntime() * s)];
    };
    for (std::size_t s = 1; s < ns_; ++s)
      if (post(s) > post(best)) best = s;
    return best;
  }

  /// Free coefficients of one covariate of the start or of the transitions, over the groups.
  [[nodiscard]] std::int32_t df(const std::vector<std::int32_t>& code,
                                const std::vector<double>& value, std::size_t step) const {
    std::int32_t free = 0;
    const std::size_t rows = value.size() / ns_;
    for (std::size_t row = 0; row < rows; ++row) {
      const std::size_t first = row % step + row / step * step * ns_;
      std::int32_t open = 0;
      for (std::size_t s = 0; s < ns_; ++s) open += is_shut(code, first + s * step, value) ? 0 : 1;
      free += model_.binary ? 1 : open - 1;
    }
    return free;
  }

 private:
  /// Marks of `count` coefficients from `first` on.
  static std::vector<bool> marks_of(const runaway_directions& directions, std::size_t first,
                                    std::size_t count, lta_answer& answer) {
    std::vector<bool> marks;
    for (std::size_t v = 0; v < count; ++v) {
      marks.push_back(runs_away(directions, first + v));
      answer.any_runaway = answer.any_runaway || marks.back();
    }
    return marks;
  }

  static bool is_shut(const std::vector<std::int32_t>& code, std::size_t at,
                      const std::vector<double>& value) {
    return !code.empty() && code[at] == 0 && value[at] == 0.0;
  }

  [[nodiscard]] lta_answer::table tau_table(std::size_t move, std::size_t group) const {
    lta_answer::table rows(ns_);
    for (std::size_t from = 0; from < ns_; ++from)
      for (std::size_t to = 0; to < ns_; ++to)
        rows[from].push_back(fit_.tau[from + ns_ * (to + ns_ * (move + moves_ * group))]);
    return rows;
  }

  [[nodiscard]] std::vector<lta_answer::table> rho_tables(std::size_t time,
                                                          std::size_t group) const {
    const std::size_t nitem = data_.nitem();
    const auto most = static_cast<std::size_t>(most_categories_of(data_));
    std::vector<lta_answer::table> items;
    for (std::size_t j = 0; j < nitem; ++j) {
      lta_answer::table& of_item = items.emplace_back(ns_);
      for (std::size_t s = 0; s < ns_; ++s)
        for (std::size_t k = 0; k < data_.item_labels[j].labels.size(); ++k)
          of_item[s].push_back(
              fit_.rho[j + nitem * (s + ns_ * (k + most * (time + data_.ntime() * group)))]);
    }
    return items;
  }

  /// The coefficients of one status; none for the reference and for what is shut.
  [[nodiscard]] std::vector<double> row_of(const std::vector<double>& beta,
                                           std::size_t coefficients, std::size_t at, std::size_t s,
                                           std::size_t reference, bool shut) const {
    if (shut || (model_.binary ? s != model_.compared : s == reference)) return {};
    const auto first = beta.begin() + static_cast<std::ptrdiff_t>(coefficients * at);
    return {first, first + static_cast<std::ptrdiff_t>(coefficients)};
  }

  [[nodiscard]] lta_answer::table moving_rows(std::size_t g, std::size_t move,
                                              std::size_t from) const {
    lta_answer::table rows;
    for (std::size_t to = 0; to < ns_; ++to) {
      const std::size_t at = from + ns_ * (to + ns_ * (move + moves_ * g));
      rows.push_back(row_of(fit_.tau_beta, data_.moving.size() + 1, at, to,
                            model_.reference_of[from + ns_ * move],
                            is_shut(model_.tau_code, at, fit_.tau)));
    }
    return rows;
  }

  const lta_data& data_;
  const lta_model& model_;
  const lta_fit& fit_;
  std::size_t ns_, moves_;
};

}  // namespace

double chi_square_tail(double statistic, std::int64_t df) {
  constexpr std::int64_t countable = 10'000'000;  // terms; beyond, every table is sparse
  if (df < 1 || df > countable || !(statistic >= 0.0)) return std::nan("");
  if (statistic == 0.0) return 1.0;
  const double half = statistic / 2.0;
  const bool odd = df % 2 == 1;
  double tail = odd ? std::erfc(std::sqrt(half)) : 0.0;
  for (double k = odd ? 0.5 : 0.0; k < static_cast<double>(df) / 2.0 - 0.25; k += 1.0)
    tail += std::exp(k * std::log(half) - half - std::lgamma(k + 1.0));
  return std::min(tail, 1.0);
}

lta_answer make_lta_answer(const lta_data& data, const lta_options& options, const lta_fit& fit) {
  const lta_model& model = data.model;
  const answer_builder builder(data, options, fit);
  lta_answer answer;
  set_fit(data, fit, {.entropy = fit.fit_extra[7], .X2_p = X2_tail(fit), .bound = fit.fit_extra[8]},
          options.prior_strength > 0.0, answer);
  builder.add_estimates(answer);
  builder.add_coefficients(answer);
  builder.add_shares(answer);
  const std::size_t starting = data.starting.size();
  for (std::size_t k = 0; k < fit.test_stat.size(); ++k) {
    const bool starts = k < starting;
    add_test(fit, k,
             starts ? data.starting[k] + " (start)" : data.moving[k - starting] + " (transitions)",
             starts
                 ? builder.df(model.delta_code, fit.delta, 1)
                 : builder.df(model.tau_code, fit.tau, static_cast<std::size_t>(options.statuses)),
             answer);
  }
  add_fit_warnings(options, fit, starts_of(data.model, options), report_terms_of(data, options),
                   answer);
  return answer;
}

}  // namespace tolvenra::cli
