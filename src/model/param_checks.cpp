#include "model/param_checks.hpp"

namespace tolvenra::param {
namespace {

constexpr std::string_view should_sum = "; it should sum to 1.0.";

dim n_strata(const param_type& p) { return {"This must be equal to NSTR = ", p.nstr}; }
dim n_classes(const param_type& p) { return {"This must be equal to NC = ", p.nc}; }
dim n_statuses(const param_type& p) { return {"This must be equal to NS = ", p.ns}; }

/// Coefficients of a regression; a negative number of covariates stands for none at all.
int32 coefficients(int32 ncov) { return std::max(ncov + 1, 0); }

}  // namespace

dims_of<2> gamma_dims(const param_type& p) {
  return {{{"The number of rows must be equal to NC = ", p.nc},
           {"The number of columns must be equal to nstr = ", p.nstr}}};
}
dims_of<4> rho_dims(const param_type& p) {
  return {{{"This must be equal to NCI = ", p.nci},
           n_classes(p),
           {"This must be equal to NRCMAX = ", p.nrcmax},
           n_strata(p)}};
}
dims_of<3> beta_dims(const param_type& p) {
  return {{{"This must be equal to NCOV + 1 = ", coefficients(p.ncov)}, n_classes(p), n_strata(p)}};
}
dims_of<3> delta_dims(const param_type& p) { return {{n_statuses(p), n_classes(p), n_strata(p)}}; }
dims_of<5> tau_dims(const param_type& p) {
  return {{n_statuses(p),
           n_statuses(p),
           {"This must be equal to NT-1 = ", p.nt - 1},
           n_classes(p),
           n_strata(p)}};
}
dims_of<6> big_rho_dims(const param_type& p) {
  return {{{"This must be equal to NI = ", p.ni},
           n_statuses(p),
           {"This must be equal to NRSMAX = ", p.nrsmax},
           {"This must be equal to NT = ", p.nt},
           n_classes(p),
           n_strata(p)}};
}
dims_of<4> delta_beta_dims(const param_type& p) {
  return {{{"This must be equal to ncov_delta + 1 = ", coefficients(p.ncov_delta)},
           n_statuses(p),
           n_classes(p),
           n_strata(p)}};
}
dims_of<6> tau_beta_dims(const param_type& p) {
  return {{{"This must be equal to ncov_tau + 1 = ", coefficients(p.ncov_tau)},
           n_statuses(p),
           n_statuses(p),
           {"This must be equal to NT - 1 = ", p.nt - 1},
           n_classes(p),
           n_strata(p)}};
}
dims_of<2> baseline_tau_dims(const param_type& p) {
  return {{n_statuses(p), {"This must be equal to NT - 1 = ", p.nt - 1}}};
}

int32 require_dims(const param_type& param, const routine& here, error_type& err) {
  if (param.dims_set) return 0;
  return fail(err, here,
              {text("The method could not be invoked because"),
               text("the dimensions of the parameter set"), text("have not yet been specified.")});
}

int32 refuse_absent(std::string_view absent, const routine& here, error_type& err) {
  return fail(err, here, {text(absent), text("in the parameter set provided.")});
}

int32 check_gamma(const array<double, 2>& gamma, const param_type& param, row_layout& rows,
                  const routine& here, error_type& err) {
  if (check_sides(gamma, "The gamma array has ", gamma_dims(param), here, err) != 0 ||
      make_rows(
          rows, [&] { return gamma_rows(param); }, here, err) != 0)
    return -1;
  const auto negative = [&](int64 at) {
    const auto [row, column] = indices_at(gamma.n, at);
    return fail(err, here,
                {text("The item in row ", row, ", column ", column),
                 text("in the gamma array is negative.")});
  };
  const auto sum = [&](int64 at, double total) {
    return fail(err, here,
                {text("Column ", indices_at(gamma.n, at)[1], " in the gamma array"),
                 text("sums to ", total, should_sum)});
  };
  return check_rows(gamma.flat, rows, negative, sum);
}

int32 check_rho(const array<double, 4>& rho, const param_type& param, row_layout& rows,
                const routine& here, error_type& err) {
  if (check_shape(rho, " of the rho array is ", rho_dims(param), here, err) != 0 ||
      make_rows(
          rows, [&] { return rho_rows(param); }, here, err) != 0)
    return -1;
  const auto negative = [&](int64 at) {
    const auto [j, c, r, s] = indices_at(rho.n, at);
    return fail(err, here,
                {text("Rho array value for stratum (group) ", s, ", item ", j),
                 text("category ", r, ", class ", c, " is negative.")});
  };
  const auto sum = [&](int64 at, double total) {
    const auto [j, c, r, s] = indices_at(rho.n, at);
    return fail(err, here,
                {text("The 'row' for stratum (group) ", s, ", item ", j),
                 text("class ", c, " in rho sums to ", total, should_sum)});
  };
  return check_rows(rho.flat, rows, negative, sum);
}

int32 check_delta(const array<double, 3>& delta, const param_type& param, row_layout& rows,
                  const routine& here, error_type& err) {
  if (check_shape(delta, " of the delta array is ", delta_dims(param), here, err) != 0 ||
      make_rows(
          rows, [&] { return delta_rows(param); }, here, err) != 0)
    return -1;
  const auto negative = [&](int64 at) {
    const auto [k, c, s] = indices_at(delta.n, at);
    return fail(err, here,
                {text("Delta array value for stratum (group) ", s, ", class ", c),
                 text("status ", k, " is negative.")});
  };
  const auto sum = [&](int64 at, double total) {  // the row runs over the statuses
    const auto [k, c, s] = indices_at(delta.n, at);
    return fail(err, here,
                {text("The 'row' for stratum (group) ", s, ", class ", c),
                 text("status ", k, " to ", param.ns, " in delta sums to ", total, should_sum)});
  };
  return check_rows(delta.flat, rows, negative, sum);
}

int32 check_tau(const array<double, 5>& tau, const param_type& param, row_layout& rows,
                const routine& here, error_type& err) {
  if (check_shape(tau, " of the tau array is ", tau_dims(param), here, err) != 0 ||
      make_rows(
          rows, [&] { return tau_rows(param); }, here, err) != 0)
    return -1;
  const auto negative = [&](int64 at) {
    const auto [row, column, t, c, s] = indices_at(tau.n, at);
    return fail(err, here,
                {text("Column ", column, ", row ", row, " of the tau"),
                 text("matrix value for stratum (group) ", s, ", class ", c),
                 text("transition ", t, " is negative.")});
  };
  const auto sum = [&](int64 at, double total) {
    const auto [row, column, t, c, s] = indices_at(tau.n, at);
    return fail(
        err, here,
        {text("Row ", row, " for stratum (group) ", s),
         text("class ", c, ", transition ", t, " in tau"), text("sums to ", total, should_sum)});
  };
  return check_rows(tau.flat, rows, negative, sum);
}

int32 check_big_rho(const array<double, 6>& big_rho, const param_type& param, row_layout& rows,
                    const routine& here, error_type& err) {
  if (check_shape(big_rho, " of the big_rho array is ", big_rho_dims(param), here, err) != 0 ||
      make_rows(
          rows, [&] { return big_rho_rows(param); }, here, err) != 0)
    return -1;
  const auto negative = [&](int64 at) {
    const auto [i, k, r, t, c, s] = indices_at(big_rho.n, at);
    return fail(err, here,
                {text("Big rho array value for stratum (group) ", s, ", item ", i, ", time ", t),
                 text("category ", r, ", status ", k, " is negative.")});
  };
  const auto sum = [&](int64 at, double total) {
    const auto [i, k, r, t, c, s] = indices_at(big_rho.n, at);
    return fail(
        err, here,
        {text("The 'row' for stratum (group) ", s, ", item ", i), text("time ", t, ", class ", c),
         text("status ", k, " in big_rho sums to ", total, should_sum)});
  };
  return check_rows(big_rho.flat, rows, negative, sum);
}

}  // namespace tolvenra::param
