/// \file standard_error_form.hpp  Which models a driver of standard errors accepts, module
/// `estimation`.
#pragma once

#include <string_view>

#include "core/error_handler.hpp"
#include "estimation/mlresult.hpp"
#include "estimation/mlworkspace.hpp"

namespace tolvenra::estimation {

/// One of the drivers.
struct standard_error_form {
  routine here;
  std::string_view label;  ///< of what it allocates, for the report
  bool binary = false, invariant = false;
};

/// Refuses, under the driver's name, what it cannot handle. \return 0 or -1
int32 check_standard_error_form(const mlworkspace& work, const mlresult_type& result,
                                const standard_error_form& form, error_type& err);

}  // namespace tolvenra::estimation
