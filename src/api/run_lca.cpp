#include "api/run_lca.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "api/fixed_values.hpp"
#include "api/host_arrays.hpp"
#include "api/lca_run.hpp"
#include "core/dynamic_allocation.hpp"
#include "estimation/fit_stats.hpp"
#include "numerics/cdf.hpp"
#include "numerics/random_generator.hpp"
#include "numerics/sort.hpp"

namespace tolvenra::api {
namespace {

using namespace dynamic_allocation;

int32 refuse(lca_run& run, std::initializer_list<text_lines> lines) {
  return fail(run.err, runlca_routine, lines);
}

/// One seed per start; without multiple starts every slot takes SEED itself.
int32 seed_starts(lca_run& run) {
  const lca_call& call = run.call;
  run.starts.resize(static_cast<std::size_t>(std::max(call.nstarts, 1)));
  if (call.nstarts > 1) {
    if (draw_start_seeds(call.seed, run.starts, run.err) != 0)
      return refuse(run, {text("Error initializing random number generator.")});
    return 0;
  }
  for (start_outcome& start : run.starts) start.seed = call.seed;
  if (call.seed < 1 && !call.start_given)
    return refuse(run, {text("If neither a starting value dataset nor a positive integer seed "),
                        text("is specified, then the NSTARTS option must be used.")});
  return 0;
}

int32 refuse_empty_strata(lca_run& run) {
  array<int32, 1> cases;
  cases.allocate({run.call.nstr});
  for (const int32 g : run.dataset.strata.flat) ++cases(g);
  for (int32 g = 1; g <= run.call.nstr; ++g)
    if (cases(g) == 0)
      return refuse(run, {text("There are no cases in stratum (group) ", g, "."),
                          text("Every stratum must have at least one case.")});
  return 0;
}

int32 load_data(lca_run& run) {
  const lca_call& call = run.call;
  dataset_type& data = run.dataset;
  error_type& err = run.err;
  using namespace dataset;
  if (put_nt(1, data, err) != 0 ||
      put_nrc(copy_in<int32, 1>(call.nrc, {call.nci}), data, err) != 0 ||
      put_nstr(call.nstr, data, err) != 0 ||
      put_y(copy_in<int32, 2>(call.y, {call.nkase, call.nci}), data, err) != 0)
    return -1;
  const auto by_case = [&](const double* values) {
    return copy_in<double, 1>(values, {call.nkase});
  };
  if (call.freq_given && put_freq(by_case(call.freq), data, err) != 0) return -1;
  if (call.weight_given && put_weight(by_case(call.weight), data, err) != 0) return -1;
  if (call.clusters &&
      put_cluster_information(copy_in<int32, 1>(call.clusters, {call.nkase}), data, err) != 0)
    return -1;
  if (call.strata_given &&
      put_strata(copy_in<int32, 1>(call.strata, {call.nkase}), data, err) != 0)
    return -1;
  if (refuse_empty_strata(run) != 0) return -1;
  estimation::rows_of(data);  // once, before the starts share it
  return 0;
}

int32 put_sizes(lca_run& run) {
  const lca_call& call = run.call;
  array<int32, 1> dims;
  if (int1_alloc(dims, 9 + call.nci, run.err, {}, "runlca: dims") != 0) return -1;
  const std::array<int32, 9> sizes{call.nci, 0, 1, call.ncov, 0, 0, call.nstr, call.nc, 1};
  std::copy(sizes.begin(), sizes.end(), dims.flat.begin());
  std::copy_n(call.nrc, call.nci, dims.flat.begin() + 9);
  return param::put_dims(dims, run.param, run.err);
}

bool holds_fixed(const array<int32, 4>& codes) {
  return std::find(codes.flat.begin(), codes.flat.end(), 0) != codes.flat.end();
}

int32 put_restrictions(lca_run& run) {
  const lca_call& call = run.call;
  if (call.gamma_restrictions &&
      param::put_gamma_restrictions(
          copy_in<int32, 2>(call.gamma_restrictions, {call.nc, call.nstr}), run.param, run.err) != 0)
    return -1;
  const std::array<int32, 4> shape{call.nci, call.nc, call.nrcmax, call.nstr};
  if (call.rho_restrictions &&
      param::put_rho_restrictions(copy_in<int32, 4>(call.rho_restrictions, shape), run.param,
                                  run.err) != 0)
    return -1;
  const bool fixed = holds_fixed(run.param.rho_restrictions);
  if (fixed && !call.rho)
    return refuse(run, {text("A required argument is missing (NULL address):"),
                        text("position 23 (rho)")});
  if (fixed || call.start_given) run.given_rho = copy_in<double, 4>(call.rho, shape);
  return 0;
}

/// Starting values of the host, or uniform gamma; fixed cells always take the host's values.
int32 put_start_values(lca_run& run) {
  const lca_call& call = run.call;
  if (call.gamma) {
    auto gamma = copy_in<double, 2>(call.gamma, {call.nc, call.nstr});
    if (!call.start_given) {
      array<double, 2> uniform = run.param.gamma;
      keep_fixed_values(gamma.flat, run.param.gamma_restrictions.flat,
                        param::gamma_rows(run.param), uniform.flat);
      gamma = std::move(uniform);
    }
    if (param::put_gamma(gamma, run.param, run.err) != 0) return -1;
  }
  return call.start_given ? param::put_rho(run.given_rho, run.param, run.err) : 0;
}

/// Observed proportions of an item's categories, over the cases that answered it.
std::vector<double> observed_proportions(const distinct_rows& rows, int32 item, int32 categories) {
  std::vector<double> p(static_cast<std::size_t>(categories), 0.0);
  double total = 0.0;
  for (int32 row = 1; row <= rows.nrow; ++row) {
    const double weight = rows.weight[static_cast<std::size_t>(row - 1)];
    const int32 r = rows.response(row, item);
    if (r == 0) continue;
    p[static_cast<std::size_t>(r - 1)] += weight;
    total += weight;
  }
  for (double& share : p) share = total > 0.0 ? share / total : 1.0 / categories;
  return p;
}

/// A prior that knows no labels: every class expects the proportions of the whole sample.
int32 put_rho_prior(lca_run& run) {
  const lca_call& call = run.call;
  array<double, 4> prior;
  array<double, 3> ess;
  prior.allocate({call.nci, call.nc, call.nrcmax, call.nstr});
  ess.allocate({call.nci, call.nc, call.nstr}, call.rho_prior_strength);
  for (int32 j = 1; j <= call.nci; ++j) {
    const auto p = observed_proportions(*run.dataset.rows, j, run.param.nrc(j));
    for (int32 g = 1; g <= call.nstr; ++g)
      for (int32 c = 1; c <= call.nc; ++c)
        for (int32 r = 1; r <= run.param.nrc(j); ++r)
          prior(j, c, r, g) = p[static_cast<std::size_t>(r - 1)];
  }
  if (param::put_rho_prior(prior, run.param, run.err) != 0) return -1;
  return param::put_rho_prior_ess(ess, run.param, run.err);
}

int32 put_gamma_prior(lca_run& run) {
  const lca_call& call = run.call;
  array<double, 2> prior;
  array<double, 1> ess;
  prior.allocate({call.nc, call.nstr}, 1.0 / call.nc);
  ess.allocate({call.nstr}, call.gamma_prior_strength);
  if (param::put_gamma_prior(prior, run.param, run.err) != 0) return -1;
  return param::put_gamma_prior_ess(ess, run.param, run.err);
}

int32 load_model(lca_run& run) {
  const lca_call& call = run.call;
  if (model::put_nc(call.nc, run.model, run.err) != 0 || put_sizes(run) != 0 ||
      param::put_rho_equal_across_strata(call.rho_equal_strata != 0, run.param, run.err) != 0)
    return -1;
  if (call.nc < 1)
    return refuse(run, {text("The number of latent classes specified was ", call.nc),
                        text("A run needs at least 1.")});
  if (put_restrictions(run) != 0 || put_start_values(run) != 0) return -1;
  if (call.rho_prior_strength > 0.0 && put_rho_prior(run) != 0) return -1;
  return call.gamma_prior_strength > 0.0 ? put_gamma_prior(run) : 0;
}

/// Adds the report of a start to the run's own.
void add_lines(const error_type& from, error_type& to) {
  to.occurred = true;
  for (const std::string& line : lines_of(from)) err_add_line(to.lines, line);
}

int32 refuse_all_failed(lca_run& run) {
  add_lines(run.starts.back().report, run.err);
  return refuse(run, {text("The model could not be fitted from any"),
                      text("set of starting values.")});
}

int32 fit_starts(lca_run& run) {
  const lca_call& call = run.call;
  start_search search;
  search.dataset = &run.dataset;
  search.model = &run.model;
  search.base = &run.param;
  search.random_rho = !call.start_given;
  search.fixed_rho = run.given_rho.allocated ? &run.given_rho : nullptr;
  search.controls = {call.criterion, call.max_iter, call.max_threads, {}};
  search.progress = &run.progress;
  run.best = run_starts(search, run.starts, run.err);
  if (run.progress.cancelled())
    return refuse(run, {text("The run was cancelled by the host.")});
  if (!run.best) return err_occurred(run.err) ? -1 : refuse_all_failed(run);
  for (const start_outcome& start : run.starts)
    if (start.status != 0) run.message.write(start.report);
  return 0;
}

/// Upper tail of a chi-square statistic; NaN where there is no test.
int32 upper_tail(double statistic, double df, bool meaningful, double& q, error_type& err) {
  q = std::numeric_limits<double>::quiet_NaN();
  if (!meaningful || !(df > 0.0) || std::isnan(statistic)) return 0;
  q = 1.0;
  double p = 0.0;
  return statistic > 0.0 ? cdf::cdf_chi(1, p, q, statistic, df, err) : 0;
}

/// Logarithm of the priors at the estimates, up to a constant.
template <std::size_t R>
double log_prior(const prob_block<R>& block) {
  double sum = 0.0;
  for (std::size_t q = 0; q < block.pseudo.size(); ++q)
    if (block.pseudo[q] > 0.0) sum += block.pseudo[q] * std::log(block.now.flat[q]);
  return sum;
}

int32 compute_statistics(lca_run& run) {
  mlresult_type& result = run.best->result;
  if (estimation::run_compute_fit_stats(run.best->work, result, run.err) != 0) return -1;
  const bool cells_fit = result.overflow_count == 0;
  double& g2_tail = run.fit_extra[1];
  double& cat_tail = run.fit_extra[5];
  double& x2_tail = run.fit_extra[6];
  run.fit_extra[0] = result.X2;
  run.fit_extra[2] = result.weighted_entropyraw;
  run.fit_extra[3] = result.weighted_entropy;
  run.fit_extra[4] = result.loglik + log_prior(run.best->work.gamma) + log_prior(run.best->work.rho);
  if (upper_tail(result.G2, result.apparent_df, cells_fit, g2_tail, run.err) != 0 ||
      upper_tail(result.cat_g2, result.cat_df, cells_fit, cat_tail, run.err) != 0 ||
      upper_tail(result.X2, double{1} * result.apparent_df + result.cat_df, cells_fit, x2_tail,
                 run.err) != 0)
    return -1;
  return 0;
}

/// One random class per case from its posterior, in case order.
int32 draw_classes(lca_run& run) {
  const lca_call& call = run.call;
  if (!call.want_draws || !call.drawn_class) return 0;
  const mlresult_type& result = run.best->result;
  const distinct_rows& rows = *result.rows;
  array<double, 1> prob;
  ran_state_type state;
  if (dbl1_alloc(prob, call.nc, run.err, {}, "runlca: prob") != 0 ||
      random_generator::ran_setall(state, call.seed2, call.seed2, run.err) != 0)
    return -1;
  run.drawn_class.reserve(rows.row_of_case.size());
  for (const int32 row : rows.row_of_case) {
    std::copy_n(result.post_cls.begin() + std::ptrdiff_t{row - 1} * call.nc, call.nc,
                prob.flat.begin());
    int32 drawn = 0;
    if (random_generator::ran_genmuln(state, prob, call.nc, drawn, run.err) != 0) return -1;
    run.drawn_class.push_back(drawn);
  }
  return 0;
}

int32 run_stages(lca_run& run) {
  if (check_lca_boundary(run) != 0 || seed_starts(run) != 0 || load_data(run) != 0 ||
      load_model(run) != 0 || fit_starts(run) != 0 || compute_statistics(run) != 0 ||
      draw_classes(run) != 0)
    return -1;
  return copy_out_lca(run);
}

}  // namespace

int32 run_lca(const lca_call& call) {
  lca_run run(call);
  enter_lca(run);
  const int32 status = run_stages(run);
  if (!run.starts.empty()) copy_out_starts(run);
  if (status != 0) run.message.write(run.err);
  return status;
}

}  // namespace tolvenra::api
