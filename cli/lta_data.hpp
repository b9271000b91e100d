/// \file lta_data.hpp  The table and the options as one latent transition analysis.
#pragma once

#include <string>
#include <vector>

#include "lta_model.hpp"
#include "lta_waves.hpp"
#include "plain_report.hpp"

namespace tolvenra::cli {

struct lta_data : lta_cases {
  std::string source;
  std::size_t file_rows = 0;        ///< of the data file; in long data more than people
  std::vector<std::string> ids;     ///< of the people in long data; empty in wide data
  std::vector<double> answered;     ///< [time]: cases (by frequency) with a response
  std::vector<double> engine_freq;  ///< frequency times weight; empty without either
  lta_model model;
};

/// Throws input_error for everything that leaves no analysis to be made.
lta_data prepare_lta(const data_table& table, const lta_options& options);

/// What the engine's reports speak of.
report_terms report_terms_of(const lta_data& data, const lta_options& options);

}  // namespace tolvenra::cli
