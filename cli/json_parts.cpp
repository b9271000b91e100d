#include "json_parts.hpp"

#include <fmt/ranges.h>

#include <algorithm>

#include "fit_json.hpp"

namespace tolvenra::cli {

json name_or_null(const std::string& name) { return name.empty() ? json(nullptr) : json(name); }

json by_name(const std::vector<std::pair<std::string, double>>& values) {
  json object = json::object();
  for (const auto& [name, value] : values) object[name] = value;
  return object;
}

json engine_json() {
  return {{"version", TOLVENRA_VERSION},
          {"interface", fmt::format("{}", fmt::join(interface_version, "."))}};
}

json covariates_json(const case_data& data) {
  json list = json::array();
  for (const covariate& column : data.covariates) {
    const auto [low, high] = std::minmax_element(column.value.begin(), column.value.end());
    double sum = 0.0;
    for (std::size_t i = 0; i < data.rows; ++i) sum += data.freq_of(i) * column.value[i];
    list.push_back(
        {{"name", column.name}, {"mean", sum / data.cases}, {"min", *low}, {"max", *high}});
  }
  return list;
}

json tests_json(const std::vector<covariate_test>& tests) {
  json list = json::array();
  for (const covariate_test& test : tests)
    list.push_back({{"covariate", test.name},
                    {"statistic", or_null(test.statistic)},
                    {"df", test.df},
                    {"p", or_null(test.p)},
                    {"converged", test.converged}});
  return list;
}

json fit_json(const fit_figures& fit, const fit_tests& tests) {
  json result = {{"loglik", fit.loglik},
                 {"n_params", fit.n_params},
                 {"df", or_null(fit.df)},
                 {"G2", or_null(fit.G2)},
                 {"G2_p", or_null(fit.G2_p)},
                 {"X2", or_null(fit.X2)},
                 {"aic", fit.aic},
                 {"bic", fit.bic},
                 {"caic", fit.caic},
                 {"abic", fit.abic},
                 {"entropy", fit.entropy},
                 {"penalised_loglik", or_null(fit.penalised_loglik)}};
  result.update(fit_tests_json(tests));
  return result;
}

json starts_json(const std::vector<start_record>& starts) {
  json list = json::array();
  for (const start_record& start : starts) {
    const bool fitted = start.status == 0;
    list.push_back({{"seed", start.seed},
                    {"loglik", fitted ? json(start.loglik) : json(nullptr)},
                    {"iterations", fitted ? json(start.iterations) : json(nullptr)},
                    {"converged", start.converged},
                    {"status", start.status}});
  }
  return list;
}

std::string json_text(const json& document) {
  // Command-line texts need not be UTF-8; what is not, is replaced.
  return document.dump(2, ' ', false, json::error_handler_t::replace) + '\n';
}

}  // namespace tolvenra::cli
