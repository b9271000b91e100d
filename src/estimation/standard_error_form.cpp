#include "estimation/standard_error_form.hpp"

#include <algorithm>
#include <map>
#include <set>

namespace tolvenra::estimation {
namespace {

using codes = std::vector<int32>;

codes response_codes(const mlworkspace& work, int32 j, int32 c, int32 g) {
  codes of_row;
  for (int32 r = 1; r <= work.data.nrc(j); ++r) of_row.push_back(work.rho.code(j, c, r, g));
  return of_row;
}

codes class_codes(const mlworkspace& work, int32 g) {
  const int32* first = work.gamma.code.column(g);
  return {first, first + work.latent.nc};
}

bool all(const codes& row, bool (*holds)(int32)) {
  return std::all_of(row.begin(), row.end(), holds);
}
bool any(const codes& row, bool (*holds)(int32)) {
  return std::any_of(row.begin(), row.end(), holds);
}
bool free(int32 code) { return code == 1; }
bool constrained(int32 code) { return code != 1; }

/// Calls body(g, j, c) for every response row.
template <class Body>
bool any_response_row(const mlworkspace& work, Body&& body) {
  for (int32 g = 1; g <= work.data.nstr; ++g)
    for (int32 c = 1; c <= work.latent.nc; ++c)
      for (int32 j = 1; j <= work.data.nci; ++j)
        if (body(g, j, c)) return true;
  return false;
}

bool any_class_row(const mlworkspace& work, bool (*holds)(const codes&)) {
  for (int32 g = 1; g <= work.data.nstr; ++g)
    if (holds(class_codes(work, g))) return true;
  return false;
}

/// Equality groups with members in more than one stratum.
class shared_groups {
 public:
  void note(int32 code, int32 g) {
    if (code < 2) return;
    const auto first = first_.emplace(code, g).first;
    if (first->second != g) shared_.insert(code);
  }
  [[nodiscard]] bool contains(int32 code) const { return shared_.contains(code); }
  /// Whether some of the codes are shared, but not all.
  [[nodiscard]] bool split(const codes& row) const {
    const auto count =
        std::count_if(row.begin(), row.end(), [&](int32 code) { return contains(code); });
    return count > 0 && count < static_cast<std::ptrdiff_t>(row.size());
  }

 private:
  std::map<int32, int32> first_;
  std::set<int32> shared_;
};

/// The responses are the same in all strata, by the option or because whole rows are equal.
bool responses_invariant(const mlworkspace& work) {
  if (work.data.nstr == 1 || work.rho_equal_across_strata) return true;
  return !any_response_row(work, [&](int32 g, int32 j, int32 c) {
    const codes row = response_codes(work, j, c, g);
    return row.size() > 1 &&
           (row != response_codes(work, j, c, 1) || any(row, [](int32 code) { return code < 2; }));
  });
}

int32 refuse(const standard_error_form& form, error_type& err,
             std::initializer_list<text_lines> lines) {
  return fail(err, form.here, lines);
}

int32 refuse_situation(const standard_error_form& form, error_type& err) {
  return refuse(form, err, {text("Not able to get std. errs. for this situation yet")});
}

int32 refuse_clusters(const standard_error_form& form, error_type& err) {
  return refuse(form, err,
                {text("The current version of this software does not allow clustered data with "),
                 text("non-measurement-invariant groups.")});
}

int32 check_gamma_constraints(const mlworkspace& work, const standard_error_form& form,
                              error_type& err) {
  shared_groups shared;
  codes every;
  for (int32 g = 1; g <= work.data.nstr; ++g)
    for (const int32 code : class_codes(work, g)) {
      shared.note(code, g);
      every.push_back(code);
    }
  if (shared.split(every))
    return refuse(
        form, err,
        {text("Standard errors cannot be provided if one or more gammas   "),
         text("are set to be in the same equivalence class as gammas in a different group"),
         text("but others are not.")});
  const bool some = std::any_of(every.begin(), every.end(), constrained);
  if (some && work.beta.active)
    return refuse(form, err,
                  {text("Standard errors cannot be provided if there are constraints "),
                   text("on the gammas but there are covariates are in the model.")});
  if (any_class_row(work, [](const codes& row) { return any(row, constrained) && any(row, free); }))
    return refuse(form, err,
                  {text("Standard errors cannot be provided if some gammas within  "),
                   text("a group are constrained but others are not.")});
  return 0;
}

int32 check_rho_constraints(const mlworkspace& work, const standard_error_form& form,
                            error_type& err) {
  if (work.rho_equal_across_strata) return 0;
  shared_groups shared;
  any_response_row(work, [&](int32 g, int32 j, int32 c) {
    for (const int32 code : response_codes(work, j, c, g)) shared.note(code, g);
    return false;
  });
  if (any_response_row(work, [&](int32 g, int32 j, int32 c) {
        return shared.split(response_codes(work, j, c, g));
      }))
    return refuse(form, err,
                  {text("Standard errors cannot be provided if one or more rhos   "),
                   text("are set to be in the same equivalence class as rhos in a different group"),
                   text("but others in the same stratum, class, and item are not.")});
  return 0;
}

int32 check_polytomous_items(const mlworkspace& work, const standard_error_form& form,
                             error_type& err) {
  if (!any_response_row(work, [&](int32 g, int32 j, int32 c) {
        const codes row = response_codes(work, j, c, g);
        return row.size() > 2 && any(row, constrained) && !all(row, constrained);
      }))
    return 0;
  return refuse(form, err,
                {text("Standard errors cannot be provided if a rho in a polychotomous item "),
                 text("is constrained but another rho in the same item is free.")});
}

int32 check_kind(const mlworkspace& work, const standard_error_form& form, error_type& err) {
  const bool binary = work.beta.active && work.given.param.gamma_binary_regression;
  if (binary && !form.binary && work.latent.nc > 2)  // of two classes it is the multinomial model
    return refuse(form, err,
                  {text("Not able to get std. errs. for the binary regression case yet")});
  if (form.binary && work.latent.nc <= 2)
    return refuse(form, err,
                  {text("The BINARY option is not meaningful unless there are >2 classes.")});
  return form.binary && !binary ? refuse_situation(form, err) : 0;
}

}  // namespace

int32 check_standard_error_form(const mlworkspace& work, const mlresult_type& result,
                                const standard_error_form& form, error_type& err) {
  if (!work.initialised || !result.filled)
    return refuse(
        form, err,
        {text("The property could not be set because"),
         text("results of maximum likelihood estimation"), text("have not yet been obtained.")});
  if (work.data.ni > 0 || work.latent.ns > 1)
    return refuse(form, err, {text("Not able to get standard errors yet for LTA.")});
  if (check_kind(work, form, err) != 0) return -1;
  const bool invariant = responses_invariant(work);
  if (form.invariant && !form.binary &&
      (check_gamma_constraints(work, form, err) != 0 ||
       check_rho_constraints(work, form, err) != 0))
    return -1;
  if (work.data.clustered && !invariant) return refuse_clusters(form, err);
  if (form.invariant ? !invariant : work.data.clustered) return refuse_situation(form, err);
  return check_polytomous_items(work, form, err);
}

}  // namespace tolvenra::estimation
