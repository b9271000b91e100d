#include "estimation/augmentation_records.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "core/dynamic_allocation.hpp"
#include "estimation/augmentation_steps.hpp"
#include "model/record_fields.hpp"

namespace tolvenra::estimation {
namespace {

routine in_module(std::string_view name) { return {name, "estimation"}; }

/// body(array, name) for the fields of a summary, until one fails.
template <std::size_t R, class Body>
int32 for_each_field(daparam<R>& param, Body&& body) {
  int32 status = body(param.imp, "imp");
  if (status == 0) status = body(param.eff_n, "eff_n");
  if (status == 0) status = body(param.var_imp, "var_imp");
  if (status == 0) status = body(param.qbar, "qbar");
  if (status == 0) status = body(param.ubar, "ubar");
  if (status == 0) status = body(param.bi_var, "bi_var");
  if (status == 0) status = body(param.var, "var");
  if (status == 0) status = body(param.std_err, "std_err");
  if (status == 0) status = body(param.df, "df");
  if (status == 0) status = body(param.hi_ci, "hi_ci");
  if (status == 0) status = body(param.lo_ci, "lo_ci");
  return status;
}

/// Releases an array; a failure names it.
template <class T, std::size_t R>
int32 release_named(array<T, R>& a, std::string_view here, std::string_view complaint,
                    error_type& err) {
  if (fields::release(a, std::string(here), err) == 0) return 0;
  return fail(err, in_module(here), {text(complaint)});
}

int32 require(bool obtained, std::string_view name, error_type& err) {
  if (obtained) return 0;
  return fail(
      err, in_module(name),
      {text("The property could not be retrieved because"),
       text("results of the data augmentation procedure"), text("have not yet been obtained.")});
}

template <std::size_t R>
int32 get_labels(const daresult& result, const array<int32, R>& from, array<int32, R>& labels,
                 std::string_view name, std::string_view label, error_type& err) {
  if (require(result.obtained, name, err) != 0) return -1;
  return fields::store(from, labels, label, in_module(name), err);
}

}  // namespace

template <std::size_t R>
int32 allocate_daparam(const std::array<int32, R>& extents, int32 imputations, daparam<R>& param,
                       error_type& err) {
  std::array<int32, R + 1> by_imputation{};
  std::copy(extents.begin(), extents.end(), by_imputation.begin());
  by_imputation[R] = imputations;
  return for_each_field(param, [&](auto& a, std::string_view name) {
    const std::string label = "allocate_daparam: daparam%" + std::string(name);
    if constexpr (std::tuple_size_v<decltype(a.n)> == R)
      return fields::allocate(a, extents, label, in_module("allocate_daparam"), err);
    else
      return fields::allocate(a, by_imputation, label, in_module("allocate_daparam"), err);
  });
}

template <std::size_t R>
int32 nullify_daparam(daparam<R>& param, error_type& err) {
  return for_each_field(param, [&](auto& a, std::string_view name) {
    return release_named(a, "nullify_daparam",
                         "Could not deallocate daparam%" + std::string(name) + ".", err);
  });
}

int32 nullify_daresult(daresult& result, error_type& err) {
  constexpr std::string_view here = "nullify_daresult";
  const int32 status =
      for_each_parameter(result, [&](auto& natural, auto& logit, const da_wording& words) {
        if (nullify_daparam(natural, err) != 0)
          return fail(err, in_module(here), {text(words.natural.release)});
        if (nullify_daparam(logit, err) != 0)
          return fail(err, in_module(here), {text(words.logit.release)});
        return 0;
      });
  const auto release = [&](auto& a, std::string_view complaint) {
    return release_named(a, here, complaint, err);
  };
  if (status != 0 ||
      release(result.class_label_tracking, "Could not deallocate daresult%class_label_tracking.") !=
          0 ||
      release(result.status_label_tracking,
              "Could not deallocate daresult%status_label_tracking.") != 0 ||
      release(result.class_label_tracking_kase,
              "Could not deallocate daresult%class_label_tracking_kase.") != 0 ||
      release(result.status_label_tracking_kase,
              "Could not deallocate daresult%status_label_tracking_kase.") != 0 ||
      release(result.ciy_imp_save, "Could not deallocate daresult%ciy_imp_save.") != 0 ||
      release(result.siy_imp_save, "Could not deallocate daresult%siy_imp_save.") != 0 ||
      release(result.imputed_cls_save, "Could not deallocate daresult%imputed_cls_save.") != 0 ||
      release(result.imputed_sta_save, "Could not deallocate daresult%imputed_sta_save.") != 0)
    return -1;
  result = daresult{};
  return 0;
}

int32 nullify_daworkspace(dawork& work, error_type& err) {
  const auto release = [&](auto& a, std::string_view complaint) {
    return release_named(a, "nullify_daworkspace", complaint, err);
  };
  if (release(work.imputed_cls, "Could not deallocate dawork%imputed_cls.") != 0 ||
      release(work.imputed_sta, "Could not deallocate dawork%imputed_sta.") != 0 ||
      release(work.ciy_imp, "Could not deallocate dawork%ciy_imp.") != 0 ||
      release(work.siy_imp, "Could not deallocate dawork%siy_imp.") != 0 ||
      release(work.imputed_cls_save, "Could not deallocate dawork%imputed_cls_save.") != 0 ||
      release(work.imputed_sta_save, "Could not deallocate dawork%imputed_sta_save.") != 0 ||
      release(work.ciy_imp_save, "Could not deallocate dawork%ciy_imp_save.") != 0 ||
      release(work.siy_imp_save, "Could not deallocate dawork%siy_imp_save.") != 0)
    return -1;
  work = dawork{};
  return 0;
}

template <std::size_t R>
int32 get_da_param_stats(const daresult& result, daparam<R> daresult::*which, daparam<R>& stats,
                         error_type& err) {
  constexpr std::string_view here = "get_da_param_stats";
  if (require(result.obtained, here, err) != 0) return -1;
  const daparam<R>& from = result.*which;
  if (!from.qbar.allocated)
    return fail(err, in_module(here), {text("The parameter has not yet been allocated.")});
  return allocation::allocate_under("get_da_param_stats: daparam", in_module(here), err, [&] {
    daparam<R> copy = from;
    stats = std::move(copy);
  });
}

int32 get_class_label_tracking(const daresult& result, array<int32, 3>& labels, error_type& err) {
  return get_labels(result, result.class_label_tracking, labels, "get_class_label_tracking",
                    "get_class_label_tracking: class_label_tracking", err);
}

int32 get_status_label_tracking(const daresult& result, array<int32, 5>& labels, error_type& err) {
  return get_labels(result, result.status_label_tracking, labels, "get_status_label_tracking",
                    "get_status_label_tracking: status_label_tracking", err);
}

#define TOLVENRA_DAPARAM(R)                                                                      \
  template int32 allocate_daparam(const std::array<int32, R>&, int32, daparam<R>&, error_type&); \
  template int32 nullify_daparam(daparam<R>&, error_type&);                                      \
  template int32 get_da_param_stats(const daresult&, daparam<R> daresult::*, daparam<R>&,        \
                                    error_type&);
TOLVENRA_DAPARAM(2)
TOLVENRA_DAPARAM(3)
TOLVENRA_DAPARAM(4)
TOLVENRA_DAPARAM(5)
TOLVENRA_DAPARAM(6)
#undef TOLVENRA_DAPARAM

}  // namespace tolvenra::estimation
