#include "model/model.hpp"

#include "model/record_fields.hpp"

namespace tolvenra::model {
namespace {

constexpr int32 most_latent = 99;

/// One of the two latent kinds: where its count and labels live and what is said about it.
struct latent_kind {
  int32 model_type::*count;
  array<name8, 1> model_type::*names;
  std::string_view prefix;
  std::string_view out_of_range;
  std::string_view label;
};

int32 put_count(int32 n, const latent_kind& kind, model_type& model, error_type& err) {
  const routine here = fields::routine_of(kind.label, "model");
  if (n < 0 || n > most_latent)
    return fail(err, here,
                {text(kind.out_of_range, n, " The allowable range is 0 to ", most_latent)});
  if (n != model.*kind.count) {
    array<name8, 1> names;
    if (n > 0) {
      if (fields::allocate(names, {n}, kind.label, here, err) != 0) return -1;
      for (int32 k = 1; k <= n; ++k) names(k) = fields::numbered(kind.prefix, k, 2);
    }
    model.*kind.names = std::move(names);
    model.*kind.count = n;
  }
  model.not_ready = false;
  return 0;
}

int32 put_names(const array<name8, 1>& from, std::string_view dimension_of, int32 count,
                array<name8, 1>& names, std::string_view label, const model_type& model,
                error_type& err) {
  const routine here = fields::routine_of(label, "model");
  if (model.not_ready)
    return fail(err, here,
                {text("The property could not be set because"),
                 text("NC or NS have not yet been specified.")});
  if (from.n[0] != count)
    return fail(err, here, {text(dimension_of), text("does not conform to the current model.")});
  return fields::store(from, names, label, here, err);
}

int32 get_names(const array<name8, 1>& names, array<name8, 1>& to, std::string_view absent,
                std::string_view label, error_type& err) {
  const routine here = fields::routine_of(label, "model");
  if (!names.allocated) return fail(err, here, {text(absent)});
  return fields::store(names, to, label, here, err);
}

}  // namespace

int32 nullify_model(model_type& model, error_type& err) {
  if (fields::release(model.class_names, "nullify_model: model%class_names", err) != 0 ||
      fields::release(model.status_names, "nullify_model: model%status_names", err) != 0)
    return fail(err, {"nullify_model", "model"},
                {text("Could not deallocate part of model_type.")});
  model = model_type{};
  return 0;
}

int32 put_nc(int32 nc, model_type& model, error_type& err) {
  constexpr latent_kind classes{&model_type::nc, &model_type::class_names, "LCLA_",
                                "The number of latent classes specified was ",
                                "put_nc: model%class_names"};
  return put_count(nc, classes, model, err);
}

int32 put_ns(int32 ns, model_type& model, error_type& err) {
  constexpr latent_kind statuses{&model_type::ns, &model_type::status_names, "LSTA_",
                                 "The number of latent statuses specified was ",
                                 "put_ns: model%status_names"};
  return put_count(ns, statuses, model, err);
}

int32 put_class_names(const array<name8, 1>& class_names, model_type& model, error_type& err) {
  return put_names(class_names, "Dimension of the argument class_names", model.nc,
                   model.class_names, "put_class_names: model%class_names", model, err);
}

int32 put_status_names(const array<name8, 1>& status_names, model_type& model, error_type& err) {
  return put_names(status_names, "Dimension of the argument status_names", model.ns,
                   model.status_names, "put_status_names: model%status_names", model, err);
}

int32 get_class_names(const model_type& model, array<name8, 1>& class_names, error_type& err) {
  return get_names(model.class_names, class_names,
                   "The class_names array has not yet been specified.",
                   "get_class_names: class_names", err);
}
int32 get_status_names(const model_type& model, array<name8, 1>& status_names, error_type& err) {
  return get_names(model.status_names, status_names,
                   "The status_names array has not yet been specified.",
                   "get_status_names: status_names", err);
}

}  // namespace tolvenra::model
