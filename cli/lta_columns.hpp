/// \file lta_columns.hpp  Which columns of wide data hold an item at each time.
#pragma once

#include <string>
#include <vector>

#include "data_reader.hpp"
#include "lta_options.hpp"

namespace tolvenra::cli {

/// An item or covariate of wide data.
struct wide_columns {
  std::string name;
  std::vector<std::size_t> at;  ///< the column of every time
};

struct wide_form {
  std::vector<std::string> times;
  std::vector<wide_columns> items;
  /// Covariates of transitions. The last time starts none: it has the column of the one before.
  std::vector<wide_columns> moving;
};

/// Reads --items, --pattern, --times and --covariates-transition of wide data. An item whose
/// columns are listed is called by what their names have in common at the beginning, where this
/// tells the items apart, else by the name of its first column. Throws input_error.
wide_form find_wide_columns(const data_table& table, const lta_options& options);

}  // namespace tolvenra::cli
