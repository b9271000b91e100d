// Display names of items, categories, covariates and strata.
#include "model/dataset_checks.hpp"

namespace tolvenra::dataset {
namespace {

int32 refuse(std::string_view dimension, const routine& here, error_type& err) {
  return fail(err, here, {text(dimension), text("does not conform to the current data.")});
}

std::string label_of(const routine& here) {
  return std::string(here.name) + ": dataset%" + std::string(here.name.substr(4));
}

int32 put_names(const array<name8, 1>& from, int32 count, std::string_view dimension,
                array<name8, 1> dataset_type::*field, dataset_type& dataset, const routine& here,
                error_type& err) {
  if (require_items(dataset, here, err) != 0) return -1;
  if (from.n[0] != count) return refuse(dimension, here, err);
  return fields::store(from, dataset.*field, label_of(here), here, err);
}

/// What is said of a matrix of category names that does not fit.
struct level_texts {
  std::string_view dimension1, dimension2;
};

int32 put_levels(const array<name8, 2>& from, int32 items, int32 categories,
                 const level_texts& texts, array<name8, 2> dataset_type::*field,
                 dataset_type& dataset, const routine& here, error_type& err) {
  if (require_items(dataset, here, err) != 0) return -1;
  if (from.n[0] != items) return refuse(texts.dimension1, here, err);
  if (from.n[1] != categories) return refuse(texts.dimension2, here, err);
  return fields::store(from, dataset.*field, label_of(here), here, err);
}

}  // namespace

int32 put_citem_names(const array<name8, 1>& names, dataset_type& dataset, error_type& err) {
  return put_names(names, dataset.nci, "Dimension of the argument citem_names",
                   &dataset_type::citem_names, dataset, {"put_citem_names", "dataset"}, err);
}
int32 put_sitem_names(const array<name8, 1>& names, dataset_type& dataset, error_type& err) {
  return put_names(names, dataset.ni, "Dimension of the argument sitem_names",
                   &dataset_type::sitem_names, dataset, {"put_sitem_names", "dataset"}, err);
}
int32 put_cov_names(const array<name8, 1>& names, dataset_type& dataset, error_type& err) {
  return put_names(names, covariate_columns(dataset), "Dimension of the argument cov_names",
                   &dataset_type::cov_names, dataset, {"put_cov_names", "dataset"}, err);
}
int32 put_strata_levels(const array<name8, 1>& levels, dataset_type& dataset, error_type& err) {
  return put_names(levels, dataset.nstr, "Dimension of the argument strata_levels",
                   &dataset_type::strata_levels, dataset, {"put_strata_levels", "dataset"}, err);
}

int32 put_citem_levels(const array<name8, 2>& levels, dataset_type& dataset, error_type& err) {
  return put_levels(
      levels, dataset.nci, dataset.nrcmax,
      {"Dimension 1 of the argument citem_levels", "Dimension 2 of the argument citem_levels"},
      &dataset_type::citem_levels, dataset, {"put_citem_levels", "dataset"}, err);
}
int32 put_sitem_levels(const array<name8, 2>& levels, dataset_type& dataset, error_type& err) {
  return put_levels(
      levels, dataset.ni, dataset.nrsmax,
      {"Dimension 1 of the argument sitem_levels", "Dimension 2 of the argument sitem_levels"},
      &dataset_type::sitem_levels, dataset, {"put_sitem_levels", "dataset"}, err);
}

int32 put_strata_name(const name8& name, dataset_type& dataset, error_type& err) {
  if (require_items(dataset, {"put_strata_name", "dataset"}, err) != 0) return -1;
  dataset.strata_name = name;
  return 0;
}

int32 get_citem_names(const dataset_type& dataset, array<name8, 1>& names, error_type& err) {
  return get_array(dataset.citem_names, names, {"get_citem_names", "dataset"}, err);
}
int32 get_sitem_names(const dataset_type& dataset, array<name8, 1>& names, error_type& err) {
  return get_array(dataset.sitem_names, names, {"get_sitem_names", "dataset"}, err);
}
int32 get_cov_names(const dataset_type& dataset, array<name8, 1>& names, error_type& err) {
  return get_array(dataset.cov_names, names, {"get_cov_names", "dataset"}, err);
}
int32 get_strata_levels(const dataset_type& dataset, array<name8, 1>& levels, error_type& err) {
  return get_array(dataset.strata_levels, levels, {"get_strata_levels", "dataset"}, err);
}
int32 get_citem_levels(const dataset_type& dataset, array<name8, 2>& levels, error_type& err) {
  return get_array(dataset.citem_levels, levels, {"get_citem_levels", "dataset"}, err);
}
int32 get_sitem_levels(const dataset_type& dataset, array<name8, 2>& levels, error_type& err) {
  return get_array(dataset.sitem_levels, levels, {"get_sitem_levels", "dataset"}, err);
}

}  // namespace tolvenra::dataset
