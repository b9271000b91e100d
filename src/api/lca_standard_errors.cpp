#include <limits>

#include "api/host_arrays.hpp"
#include "api/lca_run.hpp"
#include "estimation/standard_errors.hpp"

namespace tolvenra::api {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// The addresses of the results with their sizes.
struct error_cells {
  double* to;
  std::size_t count;
};

std::size_t size(int32 n) { return static_cast<std::size_t>(n); }

std::size_t beta_size(const lca_call& call) {
  return size(call.ncov + 1) * size(call.nc) * size(call.nstr);
}

std::array<error_cells, 5> cells_of(const lca_call& call) {
  const std::size_t gamma = size(call.nc) * size(call.nstr);
  const std::size_t rho = size(call.nci) * size(call.nc) * size(call.nrcmax) * size(call.nstr);
  const bool binary = call.ncov > 0 && call.nc > 1 && call.binary_wanted != 0;
  const std::size_t q = size(call.ncov + 1) * size(binary ? 1 : call.nc - 1) * size(call.nstr);
  return {error_cells{call.std_gamma, gamma}, error_cells{call.std_gamma_model, gamma},
          error_cells{call.std_rho, rho}, error_cells{call.std_beta, beta_size(call)},
          error_cells{call.cov_b, q * q}};
}

void set_run_info(const lca_call& call, std::size_t element, int32 value) {
  if (call.run_info) call.run_info[element] = value;
}

/// What the host reads until, and unless, standard errors exist.
void clear_results(const lca_call& call) {
  for (const error_cells& cells : cells_of(call))
    if (cells.to) std::fill_n(cells.to, cells.count, nan);
  set_run_info(call, 7, -1);
}

/// Everything that can fail comes before the first result is written.
int32 hand_back(lca_run& run) {
  const lca_call& call = run.call;
  const mlresult_type& result = run.best->result;
  array<double, 2> std_gamma, cov_b;
  array<double, 4> std_rho;
  array<double, 3> std_beta;
  if (estimation::get_std_errs_for_gamma(result, std_gamma, run.err) != 0 ||
      estimation::get_std_errs_for_rho(result, std_rho, run.err) != 0 ||
      estimation::get_cov_b(result, cov_b, run.err) != 0)
    return -1;
  if (result.std_beta.allocated &&
      estimation::get_std_errs_for_beta(result, std_beta, run.err) != 0)
    return -1;
  double deff = nan;
  if (result.has_deff && estimation::get_deff(result, deff, run.err) != 0) return -1;
  copy_out(std_gamma, call.std_gamma);
  copy_out(result.std_gamma_model, call.std_gamma_model);
  copy_out(std_rho, call.std_rho);
  if (std_beta.allocated)
    copy_out(std_beta, call.std_beta);
  else if (call.std_beta && call.ncov > 0)  // the only class is the reference
    std::fill_n(call.std_beta, beta_size(call), 0.0);
  copy_out(cov_b, call.cov_b);
  set_cell(call.deff, deff);
  set_run_info(call, 7, 1);
  set_run_info(call, 8, cov_b.n[0]);
  set_run_info(call, 9, result.n_boundary);
  return 0;
}

int32 compute(lca_run& run) {
  run.progress.begin_stage(run_stage::errors, static_cast<int32>(run.starts.size()));
  if (run.progress.announce(run.best->work.em)) return refuse_cancelled(run);
  const auto driver = estimation::driver_of(run.best->work);
  if (driver(run.best->work, run.best->result, run.err) != 0) return -1;
  return hand_back(run);
}

}  // namespace

void standard_errors(lca_run& run) {
  if (run.call.se_option == 0) return;
  clear_results(run.call);
  if (run.progress.cancelled()) return;
  run_apart(run, [&] { return compute(run); });
}

}  // namespace tolvenra::api
