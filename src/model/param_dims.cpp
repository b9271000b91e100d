// Dimensions of a parameter set, its starting content and its release.
#include "model/param_checks.hpp"

namespace tolvenra::param {
namespace {

template <class Visit>
int32 visit_arrays(param_type& p, Visit&& visit) {
  return visit("nrc", p.nrc) + visit("nrs", p.nrs) + visit("gamma", p.gamma) + visit("rho", p.rho) +
         visit("beta", p.beta) + visit("delta", p.delta) + visit("tau", p.tau) +
         visit("big_rho", p.big_rho) + visit("delta_beta", p.delta_beta) +
         visit("tau_beta", p.tau_beta) + visit("gamma_restrictions", p.gamma_restrictions) +
         visit("rho_restrictions", p.rho_restrictions) +
         visit("delta_restrictions", p.delta_restrictions) +
         visit("tau_restrictions", p.tau_restrictions) +
         visit("big_rho_restrictions", p.big_rho_restrictions) +
         visit("baseline_tau", p.baseline_tau) + visit("binary_tau", p.binary_tau) +
         visit("gamma_prior", p.gamma_prior) + visit("gamma_prior_ess", p.gamma_prior_ess) +
         visit("rho_prior", p.rho_prior) + visit("rho_prior_ess", p.rho_prior_ess) +
         visit("delta_prior", p.delta_prior) + visit("delta_prior_ess", p.delta_prior_ess) +
         visit("tau_prior", p.tau_prior) + visit("tau_prior_ess", p.tau_prior_ess) +
         visit("big_rho_prior", p.big_rho_prior) + visit("big_rho_prior_ess", p.big_rho_prior_ess) +
         visit("beta_stabilizing_prior", p.beta_stabilizing_prior) +
         visit("delta_beta_stabilizing_prior", p.delta_beta_stabilizing_prior) +
         visit("tau_beta_stabilizing_prior", p.tau_beta_stabilizing_prior);
}

constexpr routine put_dims_routine{"put_dims", "param"};

/// Elements of the dims vector by name; the vector has at least nine.
struct named_dims {
  explicit named_dims(const array<int32, 1>& dims)
      : nci(dims(1)),
        ni(dims(2)),
        nt(dims(3)),
        ncov(dims(4)),
        ncov_delta(dims(5)),
        ncov_tau(dims(6)),
        nstr(dims(7)),
        nc(dims(8)),
        ns(dims(9)) {}
  int32 nci, ni, nt, ncov, ncov_delta, ncov_tau, nstr, nc, ns;
};

int32 check_counts(const named_dims& d, error_type& err) {
  const routine& here = put_dims_routine;
  if (d.nt < 1 || d.nt > most_times)
    return fail(err, here,
                {text("The number of times specified was ", d.nt, " The allowable range is 1 to ",
                      most_times)});
  for (const int32 ncov : {d.ncov_tau, d.ncov_delta, d.ncov})
    if (ncov > most_covariates)  // negative counts pass and stand for none
      return fail(err, here,
                  {text("The value of ncov,", ncov),
                   text("is greater than the maximum allowable, ", most_covariates)});
  if (d.nstr < 1 || d.nstr > most_strata)
    return fail(err, here,
                {text("The value of nstr specified,", d.nstr, ", was out of range."),
                 text("The allowable range is 1 to ", most_strata)});
  if (d.nc < 0 || d.nc > most_latent)
    return fail(err, here,
                {text("The number of latent classes specified was ", d.nc,
                      " The allowable range is 0 to ", most_latent)});
  if (d.ns < 0 || d.ns > most_latent)
    return fail(err, here,
                {text("The number of latent statuses specified was ", d.ns,
                      " The allowable range is 0 to ", most_latent)});
  return 0;
}

/// The categories of `count` items that start behind the first `skip` elements.
int32 check_categories(const array<int32, 1>& dims, int32 skip, int32 count, error_type& err) {
  if (count < 0 || count > most_items)
    return fail(
        err, put_dims_routine,
        {text("The number of items specified was ", count, " The maximum is ", most_items)});
  // A negative count of the other kind, refused later, may leave the vector short.
  const auto behind = std::span(dims.flat).subspan(static_cast<std::size_t>(skip));
  const auto range =
      fields::range_of(behind.first(std::min(behind.size(), static_cast<std::size_t>(count))));
  if (range.largest > most_categories || range.smallest < 0)  // worded alike for both bounds
    return fail(err, put_dims_routine,
                {text("The minimum response value specified was ",
                      range.largest > most_categories ? range.largest : range.smallest,
                      " The range is 0 to ", most_categories)});
  return 0;
}

int32 check_dims(const array<int32, 1>& dims, error_type& err) {
  const routine& here = put_dims_routine;
  if (dims.n[0] < 9)
    return fail(err, here,
                {text("The array size was only ", dims.n[0], "; it must be at least", 9)});
  const named_dims d(dims);
  if (check_counts(d, err) != 0) return -1;
  const int64 total = int64{9} + d.nci + d.ni;
  if (dims.n[0] < total)
    return fail(err, here,
                {text("The array size was only ", dims.n[0], "; it must be at least", 9,
                      " + nci + ni = ", total, " to contain nrc and nrs.")});
  if (check_categories(dims, 9, d.nci, err) != 0) return -1;
  return check_categories(dims, 9 + d.nci, d.ni, err);
}

int32 store_dims(const array<int32, 1>& dims, param_type& param, error_type& err) {
  const routine& here = put_dims_routine;
  const named_dims d(dims);
  if (fields::allocate(param.nrc, {d.nci}, "put_dims: param%nrc", here, err) != 0 ||
      fields::allocate(param.nrs, {d.ni}, "put_dims: param%nrs", here, err) != 0)
    return -1;
  std::copy_n(dims.flat.begin() + 9, d.nci, param.nrc.flat.begin());
  std::copy_n(dims.flat.begin() + 9 + d.nci, d.ni, param.nrs.flat.begin());
  param.nci = d.nci;
  param.ni = d.ni;
  param.nt = d.nt;
  param.ncov = d.ncov;
  param.ncov_delta = d.ncov_delta;
  param.ncov_tau = d.ncov_tau;
  param.nstr = d.nstr;
  param.nc = d.nc;
  param.ns = d.ns;
  param.nrcmax = fields::range_of(param.nrc.flat).largest;
  param.nrsmax = fields::range_of(param.nrs.flat).largest;
  param.dims_set = true;
  return 0;
}

template <class T, std::size_t R>
int32 make(array<T, R>& field, std::string_view label, const dims_of<R>& dims, T fill,
           error_type& err) {
  const routine& here = put_dims_routine;
  if (fields::allocate(field, extents_of(dims), label, here, err) != 0) return -1;
  std::fill(field.flat.begin(), field.flat.end(), fill);
  return 0;
}

double uniform(int32 categories) { return categories > 0 ? 1.0 / categories : 0.0; }

int32 make_parameters(param_type& p, error_type& err) {
  const routine& here = put_dims_routine;
  if (make(p.gamma, "put_dims: param%gamma", gamma_dims(p), uniform(p.nc), err) != 0 ||
      make(p.rho, "put_dims: param%rho", rho_dims(p), 0.0, err) != 0)
    return -1;
  if (run_random_rho_startvals(p, err, -1, -1) != 0)
    return fail(err, here, {text("Unable to generate random rho values.")});
  if (make(p.beta, "put_dims: param%beta", beta_dims(p), 0.0, err) != 0 ||
      make(p.delta, "put_dims: param%delta", delta_dims(p), uniform(p.ns), err) != 0 ||
      make(p.big_rho, "put_dims: param%big_rho", big_rho_dims(p), 0.0, err) != 0)
    return -1;
  if (run_random_big_rho_startvals(p, err, -1, -1) != 0)
    return fail(err, here, {text("Unable to generate random big rho values.")});
  if (make(p.tau, "put_dims: param%tau", tau_dims(p), uniform(p.ns), err) != 0 ||
      make(p.delta_beta, "put_dims: param%delta_beta", delta_beta_dims(p), 0.0, err) != 0 ||
      make(p.tau_beta, "put_dims: param%tau_beta", tau_beta_dims(p), 0.0, err) != 0)
    return -1;
  return 0;
}

int32 make_restrictions(param_type& p, error_type& err) {
  if (make(p.gamma_restrictions, "put_dims: param%gamma_restrictions", gamma_dims(p), 1, err) !=
          0 ||
      make(p.rho_restrictions, "put_dims: param%rho_restrictions", rho_dims(p), 1, err) != 0 ||
      make(p.delta_restrictions, "put_dims: param%delta_restrictions", delta_dims(p), 1, err) !=
          0 ||
      make(p.tau_restrictions, "put_dims: param%tau_restrictions", tau_dims(p), 1, err) != 0 ||
      make(p.big_rho_restrictions, "put_dims: param%big_rho_restrictions", big_rho_dims(p), 1,
           err) != 0 ||
      make(p.baseline_tau, "put_dims: param%baseline_tau", baseline_tau_dims(p), 1, err) != 0)
    return -1;
  return 0;
}

}  // namespace

int32 nullify_param(param_type& param, error_type& err) {
  const auto release = [&](std::string_view name, auto& a) {
    return fields::release(a, "nullify_param: param%" + std::string(name), err);
  };
  if (visit_arrays(param, release) != 0)
    return fail(err, {"nullify_param", "param"},
                {text("Could not deallocate part of param_type.")});
  param = param_type{};
  return 0;
}

int32 put_dims(const array<int32, 1>& dims, param_type& param, error_type& err) {
  if (check_dims(dims, err) != 0) return -1;
  if (nullify_param(param, err) != 0)
    return fail(err, put_dims_routine, {text("Unable to nullify parameter type")});
  if (store_dims(dims, param, err) == 0 && make_parameters(param, err) == 0 &&
      make_restrictions(param, err) == 0)
    return 0;
  param = param_type{};  // no half-made set
  return -1;
}

int32 get_dims(const param_type& param, array<int32, 1>& dims, error_type& err) {
  constexpr routine here{"get_dims", "param"};
  if (require_dims(param, here, err) != 0 ||
      fields::allocate(dims, {9 + param.nci + param.ni}, "get_dims: dims", here, err) != 0)
    return -1;
  const std::array counts{param.nci,      param.ni,   param.nt, param.ncov, param.ncov_delta,
                          param.ncov_tau, param.nstr, param.nc, param.ns};
  auto next = std::copy(counts.begin(), counts.end(), dims.flat.begin());
  next = std::copy(param.nrc.flat.begin(), param.nrc.flat.end(), next);
  std::copy(param.nrs.flat.begin(), param.nrs.flat.end(), next);
  return 0;
}

}  // namespace tolvenra::param
