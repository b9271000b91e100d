// Restriction codes: 0 fixed, 1 free, k >= 2 equality group k.
#include "model/param_slice_cuts.hpp"

namespace tolvenra::param {
namespace {

/// The line of a negative code: its indices and value, "( 2, 1, 3, 1 ) = -1".
template <std::size_t R>
text_lines code_at(const array<int32, R>& codes, int64 at) {
  std::string line;
  for (const int32 index : indices_at(codes.n, at))
    line += (line.empty() ? "( " : ", ") + to_text(int64{index});
  return text(line, " ) = ", codes.flat[static_cast<std::size_t>(at)]);
}

/// Offset of the first negative code, -1 for none.
template <std::size_t R>
int64 first_negative(const array<int32, R>& codes) {
  const auto at =
      std::find_if(codes.flat.begin(), codes.flat.end(), [](int32 code) { return code < 0; });
  return at == codes.flat.end() ? -1 : at - codes.flat.begin();
}

template <std::size_t R>
int32 check_codes(const array<int32, R>& codes, std::string_view following, const routine& here,
                  error_type& err) {
  const int64 at = first_negative(codes);
  return at < 0 ? 0 : fail(err, here, {text(following), code_at(codes, at)});
}

/// Shape, codes, storing. \param is, following  as in the reports
template <std::size_t R>
int32 put_codes(const array<int32, R>& codes, std::string_view is, std::string_view following,
                const dims_of<R>& dims, array<int32, R>& field, std::string_view label,
                error_type& err) {
  const routine here = routine_of(label);
  if (check_shape(codes, is, dims, here, err) != 0 || check_codes(codes, following, here, err) != 0)
    return -1;
  return store(codes, field, label, err);
}

/// How a missing array is reported: the sentence breaks in a different place for each.
struct absent_text {
  std::string_view line1, line2;
};
constexpr absent_text no_gamma{"The gamma_restrictions array has not yet",
                               "been specified in the parameter set provided."};
constexpr absent_text no_rho{"The rho_restrictions array has not yet been",
                             "specified in the parameter set provided."};
constexpr absent_text no_delta{"The delta_restrictions array has not yet been specified",
                               "in the parameter set provided."};
constexpr absent_text no_tau{"The tau_restrictions array has not yet been specified",
                             "in the parameter set provided."};
constexpr absent_text no_big_rho{"The big_rho_restrictions array has not yet",
                                 "been specified in the parameter set provided."};

int32 require(bool present, const absent_text& absent, const routine& here, error_type& err) {
  if (present) return 0;
  return fail(err, here, {text(absent.line1), text(absent.line2)});
}

template <std::size_t R>
int32 get_codes(const param_type& param, const array<int32, R>& field, array<int32, R>& codes,
                const absent_text& absent, std::string_view label, error_type& err) {
  const routine here = routine_of(label);
  if (require_dims(param, here, err) != 0 || require(field.allocated, absent, here, err) != 0)
    return -1;
  return store(field, codes, label, err);
}

template <std::size_t R, std::size_t N>
int32 get_slice_of_codes(const param_type& param, const slice_cut<N>& cut,
                         const array<int32, R>& full, array<int32, 2>& codes,
                         const absent_text& absent, std::string_view label, error_type& err) {
  const routine here = routine_of(label);
  if (require_dims(param, here, err) != 0 || check_indices(cut, here, err) != 0 ||
      require(full.allocated, absent, here, err) != 0)
    return -1;
  return copy_slice(full, cut, codes, label, err);
}

}  // namespace

int32 put_gamma_restrictions(const array<int32, 2>& codes, param_type& param, error_type& err) {
  constexpr routine here{"put_gamma_restrictions", "param"};
  if (require_dims(param, here, err) != 0 ||
      check_sides(codes, "The gamma_restrictions array has ", gamma_dims(param), here, err) != 0)
    return -1;
  if (const int64 at = first_negative(codes); at >= 0) {
    const auto [row, column] = indices_at(codes.n, at);
    return fail(err, here,
                {text("The item in row ", row, ", column ", column),
                 text("in the gamma_restrictions array is negative.")});
  }
  return store(codes, param.gamma_restrictions, "put_gamma_restrictions: param%gamma_restrictions",
               err);
}

int32 put_rho_restrictions(const array<int32, 4>& codes, param_type& param, error_type& err) {
  constexpr routine here{"put_rho_restrictions", "param"};
  if (require_dims(param, here, err) != 0) return -1;
  if (!param.rho.allocated)
    return refuse_absent("The rho array has not yet been specified", here, err);
  const auto dims = rho_dims(param);
  for (std::size_t k = 0; k < 3; ++k)
    if (check_extent(codes.n[k], dims[k], here, err, "Dimension ", k + 1,
                     " of the rho_restrictions array is ") != 0)
      return -1;
  if (codes.n[3] != param.nstr)
    return fail(err, here,
                {text("Dimension 4 of the rho restrictions array is ", codes.n[3]),
                 text("This must be equal to NSTR = ", param.nstr)});
  if (const int64 at = first_negative(codes); at >= 0)
    return fail(
        err, here,
        {text("The following element in rho_restrictions was negative:"), code_at(codes, at)});
  return store(codes, param.rho_restrictions, "put_rho_restrictions: param%rho_restrictions", err);
}

int32 put_delta_restrictions(const array<int32, 3>& codes, param_type& param, error_type& err) {
  if (require_dims(param, {"put_delta_restrictions", "param"}, err) != 0) return -1;
  return put_codes(codes, " of the delta_restrictions array is ",
                   "The following element in delta_restrictions was negative:", delta_dims(param),
                   param.delta_restrictions, "put_delta_restrictions: param%delta_restrictions",
                   err);
}

int32 put_tau_restrictions(const array<int32, 5>& codes, param_type& param, error_type& err) {
  if (require_dims(param, {"put_tau_restrictions", "param"}, err) != 0) return -1;
  return put_codes(codes, " of the tau_restrictions array is ",
                   "The following element in tau_restrictions was negative:", tau_dims(param),
                   param.tau_restrictions, "put_tau_restrictions: param%tau_restrictions", err);
}

int32 put_big_rho_restrictions(const array<int32, 6>& codes, param_type& param, error_type& err) {
  constexpr routine here{"put_big_rho_restrictions", "param"};
  if (require_dims(param, here, err) != 0) return -1;
  if (!param.big_rho.allocated)
    return refuse_absent("The big_rho array has not yet been specified", here, err);
  return put_codes(
      codes, " of the big_rho_restrictions array is ",
      "The following element in big_rho_restrictions was negative:", big_rho_dims(param),
      param.big_rho_restrictions, "put_big_rho_restrictions: param%big_rho_restrictions", err);
}

int32 put_rho_restrictions2(const array<int32, 2>& codes, int32 stratum, int32 citem,
                            param_type& param, error_type& err) {
  constexpr routine here{"put_rho_restrictions2", "param"};
  const auto cut = with_indices_reversed(rho_cut(param, stratum, citem));
  if (require_dims(param, here, err) != 0 || check_indices(cut, here, err) != 0 ||
      check_extent(codes.n[0], {"This must be equal to NC = ", param.nc}, here, err,
                   "Dimension 1 of the rho_restrictions2 array is ") != 0 ||
      check_extent(codes.n[1], {"This must be equal to nrcmax = ", param.nrcmax}, here, err,
                   "Dimension 2 of the rho_restrictions2 array is ") != 0 ||
      check_codes(codes, "The following element in rho_restrictions2 was negative:", here, err) !=
          0)
    return -1;
  return store_slice(codes, cut, param.nrcmax, param.rho_restrictions, rho_dims(param),
                     "put_rho_restrictions2: param%rho_restrictions", err);
}

int32 put_big_rho_restrictions2(const array<int32, 2>& codes, int32 stratum, int32 clss, int32 time,
                                int32 sitem, param_type& param, error_type& err) {
  constexpr routine here{"put_big_rho_restrictions2", "param"};
  const auto cut = with_indices_reversed(big_rho_cut(param, stratum, clss, time, sitem));
  if (require_dims(param, here, err) != 0 || check_indices(cut, here, err) != 0 ||
      check_sides(codes, "The big_rho_restrictions2 array has ", cut.sides, here, err) != 0 ||
      check_codes(codes, "The following element in big_rho_restrictions2 was negative:", here,
                  err) != 0)
    return -1;
  return store_slice(codes, cut, param.nrsmax, param.big_rho_restrictions, big_rho_dims(param),
                     "put_big_rho_restrictions2: param%big_rho_restrictions", err);
}

int32 get_gamma_restrictions(const param_type& param, array<int32, 2>& codes, error_type& err) {
  return get_codes(param, param.gamma_restrictions, codes, no_gamma,
                   "get_gamma_restrictions: gamma_restrictions", err);
}
int32 get_rho_restrictions(const param_type& param, array<int32, 4>& codes, error_type& err) {
  return get_codes(param, param.rho_restrictions, codes, no_rho,
                   "get_rho_restrictions: rho_restrictions", err);
}
int32 get_delta_restrictions(const param_type& param, array<int32, 3>& codes, error_type& err) {
  return get_codes(param, param.delta_restrictions, codes, no_delta,
                   "get_delta_restrictions: delta_restrictions", err);
}
int32 get_tau_restrictions(const param_type& param, array<int32, 5>& codes, error_type& err) {
  return get_codes(param, param.tau_restrictions, codes, no_tau,
                   "get_tau_restrictions: tau_restrictions", err);
}
int32 get_big_rho_restrictions(const param_type& param, array<int32, 6>& codes, error_type& err) {
  return get_codes(param, param.big_rho_restrictions, codes, no_big_rho,
                   "get_big_rho_restrictions: big_rho_restrictions", err);
}

int32 get_rho_restrictions2(const param_type& param, int32 stratum, int32 citem,
                            array<int32, 2>& codes, error_type& err) {
  return get_slice_of_codes(param, with_indices_reversed(rho_cut(param, stratum, citem)),
                            param.rho_restrictions, codes, no_rho,
                            "get_rho_restrictions2: rho_restrictions2", err);
}
int32 get_big_rho_restrictions2(const param_type& param, int32 stratum, int32 clss, int32 time,
                                int32 sitem, array<int32, 2>& codes, error_type& err) {
  return get_slice_of_codes(param,
                            with_indices_reversed(big_rho_cut(param, stratum, clss, time, sitem)),
                            param.big_rho_restrictions, codes, no_big_rho,
                            "get_big_rho_restrictions2: big_rho_restrictions2", err);
}

}  // namespace tolvenra::param
