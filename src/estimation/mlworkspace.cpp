#include "estimation/mlworkspace.hpp"

#include <numeric>
#include <vector>

#include "core/dynamic_allocation.hpp"

namespace tolvenra::estimation {
namespace {

int32 refuse_uninitialised(std::string_view name, error_type& err) {
  return fail(err, {name, "estimation"},
              {text("The property could not be set because"),
               text("the workspace has not yet been initialized"), text("using put_dataset.")});
}

void copy_sizes(const dataset_type& dataset, case_data& data) {
  data.nkase = dataset.nkase;
  data.nci = dataset.nci;
  data.ni = dataset.ni;
  data.nt = dataset.nt;
  data.nstr = dataset.nstr;
  data.nrcmax = dataset.nrcmax;
  data.nrsmax = dataset.nrsmax;
  data.ncov = dataset.ncov;
  data.ncov_delta = dataset.ncov_delta;
  data.ncov_tau = dataset.ncov_tau;
  data.nrc = dataset.nrc;
  data.nrs = dataset.nrs;
  data.aggregated = dataset.freq_set;
  data.weighted = dataset.weight_set;
  data.clustered = dataset.cluster_set;
}

int32 refuse_parameters(error_type& err, std::string_view first, std::string_view second) {
  return fail(err, {"put_param", "estimation"},
              {text("Unable to load parameter set into workspace;"), text(first), text(second)});
}

bool same_categories(const array<int32, 1>& a, const array<int32, 1>& b) {
  return a.flat == b.flat;
}

int32 check_items_and_latent(const param_type& param, const mlworkspace& work, error_type& err) {
  const case_data& data = work.data;
  if (param.nci != data.nci)
    return refuse_parameters(err, "the number of class items does not match that ",
                             "of the dataset previously supplied.");
  if (param.nc != work.latent.nc)
    return refuse_parameters(err, "the number of classes does not match that of the ",
                             "model previously supplied.");
  if (data.nci > 0 && !same_categories(param.nrc, data.nrc))
    return refuse_parameters(err, "the number of response categories for class items",
                             "does not match that of the dataset previously supplied.");
  if (param.ni != data.ni)
    return refuse_parameters(err, "the number of status items (zero) does not match that",
                             "of the dataset previously supplied.");
  if (param.nt != data.nt)
    return refuse_parameters(err, "the number of times does not match that of the ",
                             "dataset previously supplied.");
  if (param.ns != work.latent.ns)
    return refuse_parameters(err, "the number of statuses does not match that of the ",
                             "model previously supplied.");
  if (data.ni > 0 && !same_categories(param.nrs, data.nrs))
    return refuse_parameters(err, "the number of response categories for status items",
                             "does not match that of the dataset previously supplied.");
  return 0;
}

int32 check_covariates_and_strata(const param_type& param, const case_data& data, error_type& err) {
  if (param.ncov != data.ncov)
    return refuse_parameters(err, "the number of covariates does not match that of the ",
                             "dataset previously supplied.");
  if (param.ncov_delta != data.ncov_delta)
    return refuse_parameters(err, "the number of covariates for delta does not match ",
                             "that of the dataset previously supplied.");
  if (param.ncov_tau != data.ncov_tau)
    return refuse_parameters(err, "the number of covariates for tau does not match ",
                             "that of the dataset previously supplied.");
  if (param.nstr != data.nstr)
    return refuse_parameters(err, "the number of strata does not match that of the ",
                             "dataset previously supplied.");
  return 0;
}

/// base^exponent, or more than `most_sequences`.
int64 power(int64 base, int32 exponent) {
  int64 value = 1;
  for (int32 k = 0; k < exponent && value <= most_sequences; ++k) value *= base;
  return value;
}

/// Fills `loc`; the sequences of a status, or of two adjacent ones, follow in ascending order.
int32 list_sequences(int32 nt, latent_tables& latent, error_type& err) {
  using namespace dynamic_allocation;
  const int64 npatt = power(latent.ns, nt);
  if (latent.ns < 1 || npatt > most_sequences) return 0;
  const auto n = static_cast<int32>(npatt);
  const auto ns = latent.ns;
  const int32 pairs = nt > 1 ? n / ns / ns : 0;
  if (int2_alloc(latent.loc, n, nt, err, {}, "put_model: work%loc") != 0 ||
      int3_alloc(latent.patt_loc, n / ns, ns, nt, err, {}, "put_model: work%patt_loc") != 0 ||
      int4_alloc(latent.patt_adj_loc, pairs, ns, ns, nt - 1, err, {},
                 "put_model: work%patt_adj_loc") != 0)
    return -1;
  for (int32 t = 1; t <= nt; ++t) {
    std::vector<int32> listed(static_cast<std::size_t>(ns), 0);
    for (int32 p = 1; p <= n; ++p) {
      const int32 s = static_cast<int32>((p - 1) / power(ns, t - 1) % ns) + 1;
      latent.loc(p, t) = s;
      latent.patt_loc(++listed[static_cast<std::size_t>(s - 1)], s, t) = p;
    }
  }
  for (int32 t = 1; t < nt; ++t) {
    std::vector<int32> listed(static_cast<std::size_t>(ns * ns), 0);
    for (int32 p = 1; p <= n; ++p) {
      const int32 s = latent.loc(p, t);
      const int32 next = latent.loc(p, t + 1);
      const auto pair = static_cast<std::size_t>((s - 1) * ns + next - 1);
      latent.patt_adj_loc(++listed[pair], s, next, t) = p;
    }
  }
  return 0;
}

/// What a record may leave open while it is filled, but a fit divides by or indexes with.
int32 check_complete(const dataset_type& dataset, const routine& here, error_type& err) {
  if (dataset.nkase < 1) return fail(err, here, {text("The dataset has no cases.")});
  if (dataset.nstr < 1)
    return fail(err, here,
                {text("The number of strata of the dataset has not been specified."),
                 text("Use put_nstr before put_dataset.")});
  if (dataset.ni > 0 && dataset.nt < 1)
    return fail(err, here,
                {text("The number of times of the dataset has not been specified."),
                 text("Use put_nt before put_dataset.")});
  return 0;
}

int32 refuse_no_latent(std::string_view items, std::string_view latent, int32 n, error_type& err) {
  return fail(err, {"put_model", "estimation"},
              {text("The dataset has ", items, " items, but the number of latent"),
               text(latent, " of the model is ", n, ". There must be at least 1.")});
}

}  // namespace

std::shared_ptr<const distinct_rows> rows_of(const dataset_type& dataset) {
  if (dataset.rows) return dataset.rows;
  case_columns columns;
  columns.y = dataset.y.get();
  columns.strata = &dataset.strata;
  columns.cov = dataset.cov ? dataset.cov.get() : nullptr;
  columns.freq = dataset.freq_set ? &dataset.freq : nullptr;
  columns.weight = dataset.weight_set ? &dataset.weight : nullptr;
  columns.nstr = dataset.nstr;
  columns.nrc = &dataset.nrc;
  columns.nrs = dataset.ni > 0 ? &dataset.nrs : nullptr;
  columns.nt = dataset.nt;
  columns.status_covariates = dataset.ncov_delta > 0 || (dataset.ncov_tau > 0 && dataset.nt > 1);
  dataset.rows = collapse_cases(columns);
  return dataset.rows;
}

int32 nullify_mlworkspace_except_types(mlworkspace& work, error_type&) {
  containers kept = std::move(work.given);
  work = mlworkspace{};
  work.given = std::move(kept);
  return 0;
}

int32 nullify_mlworkspace(mlworkspace& work, error_type& err) {
  constexpr routine here{"nullify_mlworkspace", "estimation"};
  if (nullify_mlworkspace_except_types(work, err) != 0) return pass_on(err, here);
  if (dataset::nullify_dataset(work.given.dataset, err) != 0)
    return fail(err, here, {text("Unable to nullify an instance of dataset_type.")});
  if (model::nullify_model(work.given.model, err) != 0)
    return fail(err, here, {text("Unable to nullify an instance of model_type.")});
  if (param::nullify_param(work.given.param, err) != 0)
    return fail(err, here, {text("Unable to nullify an instance of param_type.")});
  return 0;
}

int32 put_dataset(const dataset_type& dataset, mlworkspace& work, error_type& err) {
  constexpr routine here{"put_dataset", "estimation"};
  if (nullify_mlworkspace(work, err) != 0)
    return fail(err, here, {text("Could not deallocate mlworkspace.")});
  if (!dataset.y) return fail(err, here, {text("Could not transfer work%y.")});
  const int64 covariates =
      dataset.ncov + dataset.ncov_delta + int64{dataset.ncov_tau} * (dataset.nt - 1);
  if (covariates > 0 && !dataset.cov) return fail(err, here, {text("Could not transfer cov.")});
  if (check_complete(dataset, here, err) != 0) return -1;
  using allocation::allocate_under;
  if (allocate_under("put_dataset: work%ciy", here, err, [&] { work.rows = rows_of(dataset); }) !=
          0 ||
      allocate_under("put_dataset: work%dataset", here, err,
                     [&] {
                       copy_sizes(dataset, work.data);
                       work.given.dataset = dataset;
                     }) != 0 ||
      allocate_under("put_dataset: work%nkase_by_str", here, err,
                     [&] { work.data.nkase_by_str.allocate({work.data.nstr}); }) != 0)
    return -1;
  work.data.missing = work.rows->any_missing;
  work.data.total_weight = std::accumulate(work.rows->weight.begin(), work.rows->weight.end(), 0.0);
  for (const int32 g : dataset.strata.flat) ++work.data.nkase_by_str(g);
  work.initialised = true;
  return 0;
}

int32 put_model(const model_type& model, mlworkspace& work, error_type& err) {
  if (!work.initialised) return refuse_uninitialised("put_model", err);
  if (work.data.nci > 0 && model.nc < 1) return refuse_no_latent("class", "classes", model.nc, err);
  if (work.data.ni > 0 && model.ns < 1)
    return refuse_no_latent("status", "statuses", model.ns, err);
  latent_tables& latent = work.latent;
  latent = latent_tables{};
  latent.nc = work.data.nci > 0 ? model.nc : 1;
  latent.ns = work.data.ni > 0 ? model.ns : 1;
  if (list_sequences(work.data.nt, latent, err) != 0)
    return pass_on(err, {"put_model", "estimation"});
  latent.loaded = true;
  work.given.model = model;
  return 0;
}

int32 put_param(const param_type& param, mlworkspace& work, error_type& err) {
  if (!work.initialised) return refuse_uninitialised("put_param", err);
  if (!param.dims_set)
    return fail(err, {"put_param", "estimation"},
                {text("Unable to retrieve parameter set dimensions.")});
  if (check_items_and_latent(param, work, err) != 0 ||
      check_covariates_and_strata(param, work.data, err) != 0)
    return -1;
  work.given.param = param;
  if (load_mlworkspace_param(work, err) != 0)
    return fail(err, {"put_param", "estimation"},
                {text("Unable to load parameter set into ml workspace.")});
  return 0;
}

}  // namespace tolvenra::estimation
