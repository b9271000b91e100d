/// \file dataset_checks.hpp  What the files of module `dataset` share.
#pragma once

#include "model/dataset.hpp"
#include "model/record_fields.hpp"

namespace tolvenra::dataset {

inline int32 require_items(const dataset_type& dataset, const routine& here, error_type& err) {
  if (!dataset.not_ready) return 0;
  return fail(err, here,
              {text("The property could not be set because"),
               text("NRC or NRS have not yet been specified.")});
}

inline int32 require_y(const dataset_type& dataset, const routine& here, error_type& err) {
  if (dataset.y_set) return 0;
  return fail(err, here,
              {text("The array may not be loaded because"), text("y has not yet been specified.")});
}

/// Copies a field out; `here.name` behind "get_" is the name of the array.
template <class T, std::size_t R>
int32 get_array(const array<T, R>& field, array<T, R>& to, const routine& here, error_type& err) {
  const std::string_view name = here.name.substr(4);
  if (!field.allocated)
    return fail(err, here, {text("The ", name, " array has not yet been specified.")});
  return fields::store(field, to, std::string(here.name) + ": " + std::string(name), here, err);
}

/// Columns of cov.
inline int32 covariate_columns(const dataset_type& dataset) {
  return dataset.ncov + dataset.ncov_delta + dataset.ncov_tau * std::max(dataset.nt - 1, 0);
}

}  // namespace tolvenra::dataset
