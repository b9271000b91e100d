/// \file model.hpp  Numbers and labels of the latent classes and statuses, module `model`.
///
/// Each routine returns 0, or -1 with its report and the record unchanged.
#pragma once

#include "core/array.hpp"
#include "core/error_handler.hpp"
#include "core/types.hpp"

namespace tolvenra {

struct model_type {
  bool not_ready = true;         ///< until put_nc or put_ns has succeeded
  int32 nc = 0, ns = 0;          ///< latent classes, latent statuses, 0..99
  array<name8, 1> class_names;   ///< (nc), absent without classes
  array<name8, 1> status_names;  ///< (ns), absent without statuses

  bool operator==(const model_type&) const = default;
};

namespace model {

int32 nullify_model(model_type& model, error_type& err);

/// A changed count brings default labels; the stored count again changes nothing.
int32 put_nc(int32 nc, model_type& model, error_type& err);
int32 put_ns(int32 ns, model_type& model, error_type& err);
int32 put_class_names(const array<name8, 1>& class_names, model_type& model, error_type& err);
int32 put_status_names(const array<name8, 1>& status_names, model_type& model, error_type& err);
int32 get_class_names(const model_type& model, array<name8, 1>& class_names, error_type& err);
int32 get_status_names(const model_type& model, array<name8, 1>& status_names, error_type& err);

}  // namespace model
}  // namespace tolvenra
