/// \file fit_record.hpp  The result cells that every call of the engine has.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "case_data.hpp"
#include "tolvenra/tolvenra.h"

namespace tolvenra::cli {

struct start_record {
  std::int32_t seed = 0, iterations = -1, status = 1;  ///< status 0: fitted
  double loglik = TOLVENRA_FAILED_START;
  bool converged = false;
};

/// Arrays are column-major.
struct fit_record {
  bool completed = false;  ///< otherwise only message and run_info have a meaning
  std::string message;     ///< the engine's report, without padding
  bool converged = false;
  std::int32_t iterations = -1, overflow_count = 0, apparent_df = 0;
  double loglik = 0.0, G2 = 0.0;
  double cat_loglik = 0.0, cat_g2 = 0.0;  ///< saturated model; test of its missing responses
  std::int32_t cat_df = 0;
  std::array<std::int32_t, TOLVENRA_RUN_INFO_SIZE> run_info{};
  std::array<std::int32_t, TOLVENRA_N_PARAMS_SIZE> n_params{};
  std::array<double, TOLVENRA_FIT_EXTRA_SIZE> fit_extra{};
  std::vector<std::int32_t> response_patterns;  ///< (nrow, 1 + columns): group and responses
  std::vector<double> pattern_counts;           ///< (nrow, 2): observed and expected
  std::vector<double> test_stat, test_p;        ///< one per covariate; empty when not made
  std::vector<std::int32_t>
      test_status;  ///< 0 good, 5 statistic <= 0, 2 not converged, else failed
  std::vector<start_record> starts;
};

/// The result arrays of the starts, before they become records.
struct start_arrays {
  std::vector<std::int32_t> seed, iterations, status;
  std::vector<double> loglik;
  std::vector<std::uint8_t> converged;

  explicit start_arrays(std::size_t n)
      : seed(n), iterations(n, -1), status(n, 1), loglik(n, TOLVENRA_FAILED_START), converged(n) {}

  [[nodiscard]] std::vector<start_record> records() const {
    std::vector<start_record> result;
    for (std::size_t i = 0; i < seed.size(); ++i)
      result.push_back({seed[i], iterations[i], status[i], loglik[i], converged[i] != 0});
    return result;
  }
};

/// The version of the interface that the command is written for.
inline constexpr std::array<std::int32_t, 3> interface_version{4, 3, 2};

/// Does the library that was loaded offer this interface?
bool engine_matches();

/// The cases as the engine takes them: (rows, columns) responses.
std::vector<std::int32_t> response_matrix(const case_data& data);
/// Categories of every column of responses.
std::vector<std::int32_t> category_counts(const case_data& data);

/// Room for as many tests and patterns as the data can have.
void make_room(const case_data& data, std::size_t tests, fit_record& fit);

/// The report of the engine without its padding.
std::string trimmed(const std::vector<char>& message);

/// Directions along which coefficients have no finite estimate: the parts of all coefficients of a
/// family in each of them.
using runaway_directions = std::vector<std::vector<double>>;
/// Whether a coefficient, as a difference to that of a reference, takes part in any of them.
bool runs_away(const runaway_directions& directions, std::size_t at, std::size_t reference);
bool runs_away(const runaway_directions& directions, std::size_t at);

/// NULL for an empty array.
template <class T>
auto* data_or_null(T& array) {
  return array.empty() ? nullptr : array.data();
}

}  // namespace tolvenra::cli
