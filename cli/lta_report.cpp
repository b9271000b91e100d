#include "lta_report.hpp"

#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>

#include "fit_sentences.hpp"
#include "report_parts.hpp"

namespace tolvenra::cli {
namespace {

/// Estimates that were held equal may differ by the rounding of their sums.
bool equal(double a, double b) { return std::abs(a - b) <= 1e-9; }

template <class T>
bool equal(const std::vector<T>& a, const std::vector<T>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const auto& x, const auto& y) { return equal(x, y); });
}

class lta_reporter {
 public:
  lta_reporter(const lta_data& data, const lta_options& options, const lta_answer& answer)
      : data_(data),
        options_(options),
        answer_(answer),
        names_(data.model.status_names),
        ns_(answer.status_labels.size()) {}

  [[nodiscard]] std::string report() const {
    std::string text = fmt::format(
        "Latent transition analysis: {}, {}, {}\n\n", counted(ns_, "status", "statuses"),
        counted(data_.nitem(), "item", "items"), counted(data_.ntime(), "time", "times"));
    text += sample_section() + '\n' + item_section() + '\n' +
            fit_section(answer_, !data_.covariates.empty()) + '\n' +
            fit_test_section(answer_.of_fit, "statuses", false) + '\n' +
            search_section(options_, data_.model.start_given, answer_) + '\n';
    text += share_sections() + start_section() + transition_sections() + test_section() +
            start_coefficients() + transition_coefficients();
    if (answer_.any_runaway)
      text += runaway_paragraph("a status or a move never occurs, or always,",
                                options_.prior_strength > 0.0 ? "" : "--prior-strength");
    text += response_sections();
    return text;
  }

 private:
  [[nodiscard]] std::string sample_section() const {
    table_rows rows = sample_rows(data_, options_, {"Rows", data_.file_rows});
    if (options_.is_long())
      rows.insert(rows.begin() + 2, {"People", fmt::format("{} in {}", data_.rows, options_.id)});
    std::vector<std::string> times, held;
    for (std::size_t t = 0; t < data_.ntime(); ++t)
      times.push_back(fmt::format("{} ({} cases)", data_.times[t], data_.answered[t]));
    rows.push_back({"Times", fmt::format("{}: {}", times.size(), fmt::join(times, ", "))});
    if (options_.equal_over("time")) held.emplace_back("at every time");
    if (options_.equal_over("group")) held.emplace_back("in every group");
    if (!held.empty())
      rows.push_back(
          {"", fmt::format("the same response probabilities {}", fmt::join(held, " and "))});
    if (!data_.starting.empty())
      rows.push_back(
          {"Covariates", fmt::format("of the start: {}", fmt::join(data_.starting, ", "))});
    if (!data_.moving.empty())
      rows.push_back({data_.starting.empty() ? "Covariates" : "",
                      fmt::format("of the transitions: {}, at the time they start",
                                  fmt::join(data_.moving, ", "))});
    std::string text = "Sample\n" + aligned(rows, 2);
    if (!data_.weight.empty())
      text +=
          "  The weights are multiplied into the frequencies: estimates are as they should be, but "
          "tests and\n  criteria are descriptions.\n";
    return text;
  }

  [[nodiscard]] std::vector<const categories*> items() const {
    std::vector<const categories*> list;
    for (const categories& item : data_.item_labels) list.push_back(&item);
    return list;
  }

  [[nodiscard]] std::string item_section() const {
    std::vector<std::vector<std::string>> missing(data_.nitem());
    std::vector<std::string> headings;
    // With many times their sum has to do.
    const bool each = data_.ntime() <= 8;
    for (std::size_t t = 0; each && t < data_.ntime(); ++t)
      headings.push_back(fmt::format("{}{}", t == 0 ? "Missing at " : "", data_.times[t]));
    if (!each) headings.emplace_back("Missing");
    for (std::size_t j = 0; j < data_.nitem(); ++j) {
      double sum = 0.0;
      for (std::size_t t = 0; t < data_.ntime(); ++t) {
        const double at_time = data_.missing[t * data_.nitem() + j];
        sum += at_time;
        if (each) missing[j].push_back(fmt::format("{}", at_time));
      }
      if (!each) missing[j].push_back(fmt::format("{}", sum));
    }
    return item_table(headings, missing, items());
  }

  [[nodiscard]] std::string in_group(std::size_t g) const {
    return data_.group ? fmt::format(" in group {}", data_.group->labels[g]) : "";
  }

  [[nodiscard]] std::string by_time(const lta_answer::table& rows, bool counts) const {
    return in_blocks(ns_, [&](std::size_t first, std::size_t end) {
      table_rows table{with_latent_names({"Time"}, names_, "Status", first, end)};
      for (std::size_t t = 0; t < rows.size(); ++t) {
        table.push_back({data_.times[t]});
        for (std::size_t s = first; s < end; ++s)
          table.back().push_back(counts ? fmt::format("{:.10g}", rows[t][s]) : fixed(rows[t][s]));
      }
      return aligned(table, 1);
    });
  }

  [[nodiscard]] std::string share_sections() const {
    std::string text;
    for (std::size_t g = 0; data_.group && g < data_.groups(); ++g)
      text += "Status shares" + in_group(g) + '\n' + by_time(answer_.group_shares[g], false) + '\n';
    text += std::string("Status shares") + (data_.group ? " over all groups\n" : "\n") +
            by_time(answer_.shares, false);
    text += std::string("\nMost likely status: ") + (data_.weight.empty() ? "" : "weighted ") +
            "cases\n" + by_time(answer_.modal_cases, true);
    return text;
  }

  [[nodiscard]] std::string start_section() const {
    return fmt::format("\nStart: shares at time {}{}\n", data_.times.front(),
                       data_.starting.empty() ? "" : ", averages over the cases") +
           in_blocks(ns_, [&](std::size_t first, std::size_t end) {
             table_rows table{
                 with_latent_names({data_.group ? "Group" : ""}, names_, "Status", first, end)};
             for (std::size_t g = 0; g < data_.groups(); ++g) {
               table.push_back({data_.group ? data_.group->labels[g] : "Share"});
               for (std::size_t s = first; s < end; ++s)
                 table.back().push_back(fixed(answer_.delta[g][s]));
             }
             return aligned(table, 1);
           });
  }

  [[nodiscard]] std::string status_name(std::size_t s) const {
    return names_.empty() ? fmt::format("Status {}", s + 1) : names_[s];
  }

  [[nodiscard]] std::string move_text(std::size_t move) const {
    return fmt::format("from time {} to {}", data_.times[move], data_.times[move + 1]);
  }

  [[nodiscard]] std::string transition_table(const lta_answer::table& tau) const {
    return in_blocks(ns_, [&](std::size_t first, std::size_t end) {
      table_rows table{with_latent_names({"From \\ to"}, names_, "Status", first, end)};
      for (std::size_t from = 0; from < ns_; ++from) {
        table.push_back({status_name(from)});
        for (std::size_t to = first; to < end; ++to) table.back().push_back(fixed(tau[from][to]));
      }
      return aligned(table, 1);
    });
  }

  [[nodiscard]] std::string transition_sections() const {
    const auto& tau = answer_.tau;
    const char* averages = data_.moving.empty() ? "" : ", averages over the cases";
    const bool same_groups = std::all_of(
        tau.begin(), tau.end(), [&](const auto& of_group) { return equal(of_group, tau.front()); });
    std::string text;
    for (std::size_t g = 0; g < (same_groups ? 1 : tau.size()); ++g) {
      const std::string where =
          same_groups && data_.group ? std::string(" in every group") : in_group(g);
      const bool stationary =
          tau[g].size() > 1 && std::all_of(tau[g].begin(), tau[g].end(), [&](const auto& move) {
            return equal(move, tau[g].front());
          });
      for (std::size_t move = 0; move < (stationary ? 1 : tau[g].size()); ++move)
        text += fmt::format("\nTransitions {}{}{}\n",
                            stationary ? "from each time to the next" : move_text(move), where,
                            averages) +
                transition_table(tau[g][move]);
    }
    return text;
  }

  [[nodiscard]] std::string test_section() const {
    if (data_.covariates.empty()) return "";
    if (!covariates_are_tested(data_))
      return "\nCovariates are not tested under weights: the likelihood ratio is no chi-square "
             "then.\n";
    return test_table(answer_.tests);
  }

  [[nodiscard]] std::string reference_text(std::size_t s) const {
    return (names_.empty() ? "status " : "") + answer_.status_labels[s];
  }

  static void add_rows(table_rows& table, const std::vector<std::string>& labels,
                       const std::vector<std::string>& covariates, const std::vector<double>& b,
                       const std::vector<bool>& runaway) {
    for (std::size_t v = 0; v < b.size(); ++v) {
      std::vector<std::string>& row = table.emplace_back(labels);
      if (v > 0) std::fill(row.begin(), row.end(), "");
      row.push_back(v == 0 ? "(intercept)" : covariates[v - 1]);
      row.push_back(runaway[v] ? no_finite_estimate : fixed(b[v]));
      row.push_back(v == 0 || runaway[v] ? "" : odds_text(b[v]));
    }
  }

  [[nodiscard]] std::string start_coefficients() const {
    std::string text;
    for (std::size_t g = 0; g < answer_.delta_beta.size(); ++g) {
      text += fmt::format(
          "\nStart: log-odds against {}{}\n",
          data_.model.binary ? "all other statuses" : reference_text(data_.model.reference),
          in_group(g));
      table_rows table{{"Status", "Covariate", "Coefficient", "Odds ratio"}};
      for (std::size_t s = 0; s < ns_; ++s)
        add_rows(table, {answer_.status_labels[s]}, data_.starting, answer_.delta_beta[g][s],
                 answer_.delta_runaway[g][s]);
      text += aligned(table, 2);
    }
    return text;
  }

  [[nodiscard]] std::string transition_coefficients() const {
    std::string text;
    for (std::size_t g = 0; g < answer_.tau_beta.size(); ++g)
      for (std::size_t move = 0; move + 1 < data_.ntime(); ++move) {
        text += fmt::format("\nTransitions {}{}: log-odds of the move against another\n",
                            move_text(move), in_group(g));
        table_rows table{{"From", "To", "Against", "Covariate", "Coefficient", "Odds ratio"}};
        for (std::size_t from = 0; from < ns_; ++from)
          for (std::size_t to = 0; to < ns_; ++to)
            add_rows(table,
                     {answer_.status_labels[from], answer_.status_labels[to], against(from, move)},
                     data_.moving, answer_.tau_beta[g][move][from][to],
                     answer_.tau_runaway[g][move][from][to]);
        text += aligned(table, 4);
      }
    return text;
  }

  [[nodiscard]] std::string against(std::size_t from, std::size_t move) const {
    if (data_.model.binary) return "all others";
    return answer_.status_labels[data_.model.reference_of[from + ns_ * move]];
  }

  [[nodiscard]] std::string response_sections() const {
    const auto& rho = answer_.rho;
    const bool same_groups = std::all_of(
        rho.begin(), rho.end(), [&](const auto& of_group) { return equal(of_group, rho.front()); });
    std::string text;
    for (std::size_t g = 0; g < (same_groups ? 1 : rho.size()); ++g) {
      const std::string where =
          same_groups && data_.group ? std::string(" in every group") : in_group(g);
      const bool same_times = std::all_of(rho[g].begin(), rho[g].end(), [&](const auto& at_time) {
        return equal(at_time, rho[g].front());
      });
      for (std::size_t t = 0; t < (same_times ? 1 : rho[g].size()); ++t)
        text += fmt::format("\nItem-response probabilities {}{}\n",
                            same_times ? "at every time" : "at time " + data_.times[t], where) +
                in_blocks(ns_, [&](std::size_t first, std::size_t end) {
                  return response_table(items(), names_, "Status", first, end,
                                        [&](auto j, auto k, auto s) { return rho[g][t][j][s][k]; });
                });
    }
    return text;
  }

  const lta_data& data_;
  const lta_options& options_;
  const lta_answer& answer_;
  const std::vector<std::string>& names_;
  std::size_t ns_;
};

}  // namespace

std::string lta_report(const lta_data& data, const lta_options& options, const lta_answer& answer) {
  return lta_reporter(data, options, answer).report();
}

}  // namespace tolvenra::cli
