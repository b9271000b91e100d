#include "lta_model.hpp"

#include "input_error.hpp"

namespace tolvenra::cli {
namespace {

using kind = parameter_axis::kind;

enum family_number : std::size_t { of_delta, of_tau, of_rho, of_delta_beta, of_tau_beta };

/// Which destinations are shut in some group: structural zeros.
std::vector<bool> shut_moves(const std::vector<std::int32_t>& code, const std::vector<double>& tau,
                             std::size_t per_group) {
  std::vector<bool> shut(per_group, false);
  for (std::size_t at = 0; at < code.size(); ++at)
    if (code[at] == 0 && tau[at] == 0.0) shut[at % per_group] = true;
  return shut;
}

class lta_model_builder {
 public:
  lta_model_builder(const lta_cases& data, const lta_options& options)
      : data_(data),
        options_(options),
        ns_(static_cast<std::size_t>(options.statuses)),
        moves_(data.ntime() - 1),
        space_(lta_parameters(data, options)) {}

  lta_model build() {
    model_.status_names = options_.status_names;
    const auto chosen = [&](const std::string& text, const char* key) {
      return text.empty() ? 0 : space_.find_latent({text, options_.asked_by(key)});
    };
    model_.reference = chosen(options_.reference, "reference");
    model_.binary = !options_.binary.empty();
    model_.compared = chosen(options_.binary, "binary");
    find_zeros();
    choose_references();
    take(make_parameter_model(space_, rules(), options_));
    return std::move(model_);
  }

 private:
  /// The zeros alone: they decide what can be a reference, and that who has coefficients.
  void find_zeros() {
    std::vector<family_rules> plain = rules();
    for (family_rules& rule : plain) rule.start_required.clear();
    lta_options without_starts = options_;
    without_starts.start.clear();
    const parameter_model made = make_parameter_model(space_, plain, without_starts);
    const family_values& tau = made.families[of_tau];
    const family_values& delta = made.families[of_delta];
    shut_ = shut_moves(tau.code, tau.value, ns_ * ns_ * moves_);
    shut_starts_ = shut_moves(delta.code, delta.value, ns_);
  }

  [[nodiscard]] bool is_shut(std::size_t from, std::size_t to, std::size_t move) const {
    return shut_[from + ns_ * (to + ns_ * move)];
  }

  [[nodiscard]] std::string status(std::size_t s) const {
    return options_.status_names.empty() ? fmt::format("{}", s + 1) : options_.status_names[s];
  }

  void choose_references() {
    const bool named = !options_.reference.empty();
    const char* key = model_.binary ? "binary" : "reference";
    const std::size_t wanted = model_.binary ? model_.compared : model_.reference;
    if (!data_.starting.empty()) {
      if ((named || model_.binary) && shut_starts_[wanted])
        throw input_error::of("{}: nobody can start in status {}, whose share is fixed at 0.",
                              options_.asked_by(key), status(wanted));
      if (!named)
        while (model_.reference + 1 < ns_ && shut_starts_[model_.reference]) ++model_.reference;
    }
    for (std::size_t move = 0; move < moves_; ++move)
      for (std::size_t from = 0; from < ns_; ++from) {
        const bool asked = !data_.moving.empty() && (named || model_.binary);
        if (asked && is_shut(from, wanted, move))
          throw input_error::of(
              "{}: nobody can move from status {} to status {} after time {}, where the transition "
              "is fixed at 0{}.",
              options_.asked_by(key), status(from), status(wanted), data_.times[move],
              model_.binary
                  ? ""
                  : "; without a reference the coefficients compare with staying in the status");
        std::size_t to = named ? wanted : from;
        for (std::size_t k = 0; is_shut(from, to, move) && k < ns_; ++k)
          if (!is_shut(from, k, move)) to = k;
        model_.reference_of.push_back(to);
      }
  }

  [[nodiscard]] std::vector<family_rules> rules() const {
    std::vector<family_rules> rules(5);
    rules[of_delta].always_filled = rules[of_tau].always_filled = true;
    rules[of_rho].start_required =
        "a start needs every item in every status (the last category may be left out).";
    for (const auto& [family, regression, name, first] :
         {std::tuple{of_delta, !data_.starting.empty(), "the shares at the start", "delta_beta"},
          std::tuple{of_tau, !data_.moving.empty(), "the transitions", "tau_beta"}}) {
      if (!regression) continue;
      rules[family].only_zeros = fmt::format(
          "with covariates {} follow from the coefficients and can only be fixed at 0.", name);
      rules[family].no_start = fmt::format(
          "with covariates {} follow from the coefficients; start from {}[intercept, ...] instead.",
          name, first);
    }
    const auto add_coefficients = [&](std::size_t family, const std::vector<std::string>& names,
                                      std::function<std::string(std::size_t)> no_start_at) {
      rules[family].no_restriction = "coefficients cannot be restricted; rho, delta and tau can.";
      if (names.empty()) rules[family].no_start = "there are none";
      rules[family].no_start_at = std::move(no_start_at);
    };
    const std::size_t starting = data_.starting.size() + 1, moving = data_.moving.size() + 1;
    add_coefficients(of_delta_beta, data_.starting, [=, this](std::size_t at) {
      const std::size_t s = at / starting % ns_;
      return reason(s, model_.reference, !shut_starts_.empty() && shut_starts_[s]);
    });
    add_coefficients(of_tau_beta, data_.moving, [=, this](std::size_t at) {
      const std::size_t from = at / moving % ns_, to = at / moving / ns_ % ns_;
      const std::size_t move = at / moving / ns_ / ns_ % moves_;
      return reason(to, model_.reference_of[from + ns_ * move], is_shut(from, to, move));
    });
    return rules;
  }

  /// Why a status has no coefficients; empty when it has.
  [[nodiscard]] std::string reason(std::size_t s, std::size_t reference, bool shut) const {
    if (shut) return "its probability is fixed at 0, and it has no coefficients to start from.";
    if (model_.binary)
      return s == model_.compared ? ""
                                  : "a status that is not the one of `binary` belongs to the "
                                    "others and has no coefficients to start from.";
    return s == reference ? "the reference is what the others are compared with and has no "
                            "coefficients to start from."
                          : "";
  }

  void take(parameter_model made) {
    static_cast<stated_parameters&>(model_) = std::move(made.stated);
    const auto move_to = [&](family_number family, std::vector<double>& value) {
      value = std::move(made.families[family].value);
    };
    move_to(of_delta, model_.delta);
    move_to(of_tau, model_.tau);
    move_to(of_rho, model_.rho);
    move_to(of_delta_beta, model_.delta_beta);
    move_to(of_tau_beta, model_.tau_beta);
    model_.delta_code = std::move(made.families[of_delta].code);
    model_.tau_code = std::move(made.families[of_tau].code);
    model_.rho_code = std::move(made.families[of_rho].code);
  }

  const lta_cases& data_;
  const lta_options& options_;
  std::size_t ns_, moves_;
  parameter_space space_;
  std::vector<bool> shut_, shut_starts_;
  lta_model model_;
};

}  // namespace

parameter_space lta_parameters(const lta_cases& data, const lta_options& options) {
  const std::size_t items = data.nitem(), times = data.ntime(), groups = data.groups();
  const auto ns = static_cast<std::size_t>(options.statuses);
  const auto most = static_cast<std::size_t>(most_categories_of(data));
  const std::size_t starting = data.starting.size() + 1, moving = data.moving.size() + 1;
  const auto latent = [&](std::size_t stride) {
    return parameter_axis{kind::latent, ns, stride, options.status_names};
  };
  const std::vector<std::string> departures(data.times.begin(), data.times.end() - 1);
  const auto departure = [&](std::size_t stride) {
    return parameter_axis{kind::time, times - 1, stride, departures};
  };
  std::vector<std::string> names;
  std::vector<const categories*> columns;
  for (const categories& item : data.item_labels) {
    names.push_back(item.name);
    columns.push_back(&item);
  }
  parameter_family delta{"delta", {latent(1)}, ns * groups, 0, {}, {}};
  parameter_family tau{"tau", {latent(1), latent(ns), departure(ns * ns)}, 0, 1, {}, {}};
  tau.size = ns * ns * (times - 1) * groups;
  parameter_family rho{"rho", {}, items * ns * most * times * groups, 1, {}, {}};
  rho.axes = {{kind::item, items, 1, names}, {kind::category, most, items * ns, {}}, latent(items)};
  const bool same_times = options.equal_over("time");
  if (same_times) {
    rho.shared.emplace_back(times, items * ns * most);
  } else {
    rho.axes.push_back({kind::time, times, items * ns * most, data.times});
  }
  parameter_family delta_beta{"delta_beta", {}, starting * ns * groups, std::nullopt, {}, {}};
  delta_beta.axes = {{kind::coefficient, starting, 1, data.starting}, latent(starting)};
  parameter_family tau_beta{"tau_beta", {}, moving * tau.size, std::nullopt, {}, {}};
  tau_beta.axes = {{kind::coefficient, moving, 1, data.moving},
                   latent(moving),
                   latent(moving * ns),
                   departure(moving * ns * ns)};
  std::vector<parameter_family> families{delta, tau, rho, delta_beta, tau_beta};
  for (parameter_family& family : families) {
    const std::size_t stride = family.size / groups;
    const bool is_rho = family.name == "rho";
    family.no_group =
        is_rho && same_times
            ? "indices, but rho is the same at all times, so that no time can be named"
            : "indices, but there are no groups";
    if (!data.group) continue;
    if (is_rho && options.equal_over("group")) {
      family.shared.emplace_back(groups, stride);
      family.no_group = "indices, but the groups share rho, so that no group can be named";
    } else {
      family.axes.push_back({kind::group, groups, stride, data.group->labels});
    }
  }
  return {families, columns, "status", "statuses",
          fmt::format("rho[item, category, status{}], delta[status], tau[from, to, time], "
                      "delta_beta[covariate, status] or tau_beta[covariate, from, to, time], with "
                      "the group as a last index where there are groups",
                      same_times ? "" : ", time")};
}

lta_model make_lta_model(const lta_cases& data, const lta_options& options) {
  return lta_model_builder(data, options).build();
}

}  // namespace tolvenra::cli
