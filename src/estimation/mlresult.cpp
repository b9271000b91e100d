#include "estimation/mlresult.hpp"

#include <algorithm>

#include "core/dynamic_allocation.hpp"

namespace tolvenra::estimation {
namespace {

using namespace dynamic_allocation;

routine in_module(std::string_view name) { return {name, "estimation"}; }

int32 require(bool obtained, std::string_view name, error_type& err) {
  if (obtained) return 0;
  return fail(
      err, in_module(name),
      {text("The property could not be set because"),
       text("results of maximum likelihood estimation"), text("have not yet been obtained.")});
}

int32 require_filled(const mlresult_type& result, std::string_view name, error_type& err) {
  return require(result.filled, name, err);
}

template <class T>
int32 get_scalar(const mlresult_type& result, T mlresult_type::*field, T& value,
                 std::string_view name, error_type& err) {
  if (require_filled(result, name, err) != 0) return -1;
  value = result.*field;
  return 0;
}

/// A fit statistic, which is there once they have been computed.
template <class T>
int32 get_statistic(const mlresult_type& result, T mlresult_type::*field, T& value,
                    std::string_view name, error_type& err) {
  if (require(result.filled && result.has_fit_stats, name, err) != 0) return -1;
  value = result.*field;
  return 0;
}

int32 copy_vector(const mlresult_type& result, const std::vector<double>& from,
                  array<double, 1>& values, std::string_view name, error_type& err) {
  if (require_filled(result, name, err) != 0) return -1;
  const std::string label = std::string(name) + ": " + std::string(name.substr(4));
  if (dbl1_alloc(values, static_cast<int32>(from.size()), err, {}, label) != 0)
    return pass_on(err, in_module(name));
  values.flat = from;
  return 0;
}

int32 require_patterns(const mlresult_type& result, std::string_view name,
                       std::string_view complaint, error_type& err) {
  if (!result.pattern_row.empty()) return 0;
  return fail(err, in_module(name), {text(complaint)});
}

}  // namespace

int32 nullify_mlresult(mlresult_type& result, error_type& err) {
  if (dbl2_dealloc(result.cov_b, err, "nullify_mlresult: mlresult%cov_b") != 0)
    return fail(err, in_module("nullify_mlresult"),
                {text("Could not deallocate part of mlresult_type.")});
  result = mlresult_type{};
  return 0;
}

int32 get_iter(const mlresult_type& result, int32& value, error_type& err) {
  return get_scalar(result, &mlresult_type::iter, value, "get_iter", err);
}
int32 get_max_abs_diff(const mlresult_type& result, double& value, error_type& err) {
  return get_scalar(result, &mlresult_type::max_abs_diff, value, "get_max_abs_diff", err);
}
int32 get_mean_abs_diff(const mlresult_type& result, double& value, error_type& err) {
  return get_scalar(result, &mlresult_type::mean_abs_diff, value, "get_mean_abs_diff", err);
}
int32 get_converged(const mlresult_type& result, bool& value, error_type& err) {
  return get_scalar(result, &mlresult_type::converged, value, "get_converged", err);
}
int32 get_loglik(const mlresult_type& result, double& value, error_type& err) {
  return get_scalar(result, &mlresult_type::loglik, value, "get_loglik", err);
}
int32 get_cat_loglik(const mlresult_type& result, double& value, error_type& err) {
  return get_statistic(result, &mlresult_type::cat_loglik, value, "get_cat_loglik", err);
}
int32 get_cat_g2(const mlresult_type& result, double& value, error_type& err) {
  return get_statistic(result, &mlresult_type::cat_g2, value, "get_cat_g2", err);
}
int32 get_overflow(const mlresult_type& result, bool& value, error_type& err) {
  int32 count = 0;
  if (get_statistic(result, &mlresult_type::overflow_count, count, "get_overflow", err) != 0)
    return -1;
  value = count > 0;
  return 0;
}
int32 get_cat_df(const mlresult_type& result, int32& value, error_type& err) {
  return get_statistic(result, &mlresult_type::cat_df, value, "get_cat_df", err);
}
int32 get_X2(const mlresult_type& result, double& value, error_type& err) {
  return get_statistic(result, &mlresult_type::X2, value, "get_X2", err);
}
int32 get_G2(const mlresult_type& result, double& value, error_type& err) {
  return get_statistic(result, &mlresult_type::G2, value, "get_G2", err);
}
int32 get_entropyraw(const mlresult_type& result, double& value, error_type& err) {
  return get_statistic(result, &mlresult_type::entropyraw, value, "get_entropyraw", err);
}
int32 get_entropy(const mlresult_type& result, double& value, error_type& err) {
  return get_statistic(result, &mlresult_type::entropy, value, "get_entropy", err);
}
int32 get_aic(const mlresult_type& result, double& value, error_type& err) {
  return get_statistic(result, &mlresult_type::aic, value, "get_aic", err);
}
int32 get_bic(const mlresult_type& result, double& value, error_type& err) {
  return get_statistic(result, &mlresult_type::bic, value, "get_bic", err);
}
int32 get_caic(const mlresult_type& result, double& value, error_type& err) {
  return get_statistic(result, &mlresult_type::caic, value, "get_caic", err);
}
int32 get_abic(const mlresult_type& result, double& value, error_type& err) {
  return get_statistic(result, &mlresult_type::abic, value, "get_abic", err);
}
int32 get_deff(const mlresult_type& result, double& value, error_type& err) {
  if (require(result.has_deff, "get_deff", err) != 0) return -1;
  return get_scalar(result, &mlresult_type::deff, value, "get_deff", err);
}
int32 get_apparent_df(const mlresult_type& result, int32& value, error_type& err) {
  return get_scalar(result, &mlresult_type::apparent_df, value, "get_apparent_df", err);
}

int32 n_params_estimated(const mlresult_type& result, int32& value, error_type& err) {
  if (!result.filled)
    return fail(err, in_module("n_params_estimated"),
                {text("Values for this property have not yet been determined by the engine.")});
  value = result.n_params_estimated;
  return 0;
}

int32 get_llvec(const mlresult_type& result, array<double, 1>& values, error_type& err) {
  return copy_vector(result, result.llvec, values, "get_llvec", err);
}
int32 get_madvec(const mlresult_type& result, array<double, 1>& values, error_type& err) {
  return copy_vector(result, result.madvec, values, "get_madvec", err);
}

int32 get_post_cls(const mlresult_type& result, array<double, 2>& values, error_type& err) {
  if (require_filled(result, "get_post_cls", err) != 0) return -1;
  const auto& row_of_case = result.rows->row_of_case;
  const auto nkase = static_cast<int32>(row_of_case.size());
  if (dbl2_alloc(values, nkase, result.nc, err, {}, "get_post_cls: post_cls") != 0)
    return pass_on(err, in_module("get_post_cls"));
  for (int32 c = 1; c <= result.nc; ++c)
    for (int32 k = 1; k <= nkase; ++k) {
      const auto row = static_cast<std::size_t>(row_of_case[static_cast<std::size_t>(k - 1)] - 1);
      values(k, c) = result.post_cls[row * static_cast<std::size_t>(result.nc) +
                                     static_cast<std::size_t>(c - 1)];
    }
  return 0;
}

namespace {

/// Expands records by distinct row into an array whose first index is the case.
template <std::size_t R>
void expand_rows(const mlresult_type& result, const std::vector<double>& records,
                 array<double, R>& values) {
  const auto& row_of_case = result.rows->row_of_case;
  const std::size_t nkase = row_of_case.size();
  const std::size_t width = values.size() / std::max<std::size_t>(nkase, 1);
  for (std::size_t k = 0; k < nkase; ++k) {
    const double* record = records.data() + static_cast<std::size_t>(row_of_case[k] - 1) * width;
    for (std::size_t q = 0; q < width; ++q) values.flat[q * nkase + k] = record[q];
  }
}

int32 require_allocated(const std::vector<double>& records, std::string_view name,
                        error_type& err) {
  if (!records.empty()) return 0;
  return fail(err, in_module(name),
              {text("The ", name.substr(4), " array has not yet been allocated.")});
}

}  // namespace

int32 get_post_cls_sta(const mlresult_type& result, array<double, 4>& values, error_type& err) {
  constexpr std::string_view name = "get_post_cls_sta";
  if (require_filled(result, name, err) != 0 ||
      require_allocated(result.post_cls_sta, name, err) != 0)
    return -1;
  if (dbl4_alloc(values, static_cast<int32>(result.rows->row_of_case.size()), result.nc, result.nt,
                 result.ns, err, {}, "get_post_cls_sta: post_cls_sta") != 0)
    return pass_on(err, in_module(name));
  expand_rows(result, result.post_cls_sta, values);
  return 0;
}

int32 get_post_cls_adj_sta(const mlresult_type& result, array<double, 5>& values, error_type& err) {
  constexpr std::string_view name = "get_post_cls_adj_sta";
  if (require_filled(result, name, err) != 0 ||
      (result.nt > 1 && require_allocated(result.post_cls_adj_sta, name, err) != 0))
    return -1;
  if (dbl5_alloc(values, static_cast<int32>(result.rows->row_of_case.size()), result.nc, result.ns,
                 result.ns, result.nt - 1, err, {}, "get_post_cls_adj_sta: post_cls_adj_sta") != 0)
    return pass_on(err, in_module(name));
  expand_rows(result, result.post_cls_adj_sta, values);
  return 0;
}

int32 get_response_pattern_mat(const mlresult_type& result, array<int32, 2>& values,
                               error_type& err) {
  constexpr std::string_view name = "get_response_pattern_mat";
  if (require_filled(result, name, err) != 0 ||
      require_patterns(result, name, "The response_pattern_mat array has not yet been allocated.",
                       err) != 0)
    return -1;
  const distinct_rows& rows = *result.rows;
  const auto npatt = static_cast<int32>(result.pattern_row.size());
  if (int2_alloc(values, npatt, rows.ncol + 1, err, {},
                 "get_response_pattern_mat: response_pattern_mat") != 0)
    return pass_on(err, in_module(name));
  for (int32 p = 1; p <= npatt; ++p) {
    const int32 row = result.pattern_row[static_cast<std::size_t>(p - 1)];
    const auto stratum =
        std::upper_bound(rows.stratum_start.begin(), rows.stratum_start.end(), row - 1);
    values(p, 1) = static_cast<int32>(stratum - rows.stratum_start.begin());
    for (int32 j = 1; j <= rows.ncol; ++j) values(p, j + 1) = rows.response(row, j);
  }
  return 0;
}

int32 get_observed(const mlresult_type& result, array<double, 1>& values, error_type& err) {
  if (require_filled(result, "get_observed", err) != 0 ||
      require_patterns(result, "get_observed", "The observed array has not yet been allocated.",
                       err) != 0)
    return -1;
  return copy_vector(result, result.observed, values, "get_observed", err);
}
int32 get_expected(const mlresult_type& result, array<double, 1>& values, error_type& err) {
  if (require_filled(result, "get_expected", err) != 0 ||
      require_patterns(result, "get_expected", "The expected array has not yet been allocated.",
                       err) != 0)
    return -1;
  return copy_vector(result, result.expected, values, "get_expected", err);
}

int32 get_cov_b(const mlresult_type& result, array<double, 2>& values, error_type& err) {
  if (require_filled(result, "get_cov_b", err) != 0) return -1;
  if (!result.cov_b.allocated)
    return fail(
        err, in_module("get_cov_b"),
        {text("The cov_b array has not been associated"), text("in the mlresult type provided.")});
  if (dbl2_alloc(values, result.cov_b.n[0], result.cov_b.n[1], err, {}, "get_cov_b: cov_b") != 0)
    return pass_on(err, in_module("get_cov_b"));
  values.flat = result.cov_b.flat;
  return 0;
}

int32 get_iter(const mlworkspace& work, int32& value, error_type& err) {
  if (!work.initialised)
    return fail(err, in_module("get_iter"),
                {text("The property could not be read because"),
                 text("the workspace has not been initialized.")});
  if (work.em.iter < 1) return fail(err, in_module("get_iter"), {text("Unexpected error.")});
  value = work.em.iter;
  return 0;
}

namespace {

/// Copies a container; running out of memory is reported with the record's own line.
template <class Record>
int32 copy_container(const Record& from, Record& to, std::string_view name,
                     std::string_view complaint, error_type& err) {
  try {
    to = from;
  } catch (const std::bad_alloc&) {
    return fail(err, in_module(name), {text(complaint)});
  }
  return 0;
}

}  // namespace

int32 get_dataset(const mlworkspace& work, dataset_type& dataset, error_type& err) {
  return copy_container(work.given.dataset, dataset, "get_dataset",
                        "Unable to allocate an instance of the dataset type.", err);
}
int32 get_model(const mlworkspace& work, model_type& model, error_type& err) {
  return copy_container(work.given.model, model, "get_model",
                        "Unable to allocate an instance of the model type.", err);
}
int32 get_param(const mlworkspace& work, param_type& param, error_type& err) {
  return copy_container(work.given.param, param, "get_param",
                        "Unable to allocate an instance of the param type.", err);
}

}  // namespace tolvenra::estimation
