/// \file imputation_report.hpp  Combined estimates as tables and as JSON, whatever the model.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "imputation.hpp"
#include "json_parts.hpp"
#include "lca_answer.hpp"
#include "lta_answer.hpp"

namespace tolvenra::cli {

/// What an index is called and is: {"item", "A"}.
using named_index = std::pair<std::string, std::string>;

/// One parameter: its indices, and where its figures stand.
struct printed_parameter {
  std::vector<named_index> index;
  const combined_parameter* of = nullptr;
  std::size_t at = 0;
};

/// The parameters of a family under one heading, in the order of print.
struct parameter_table {
  std::string family, heading;
  std::vector<named_index> common;  ///< indices that the heading tells
  std::vector<printed_parameter> parameters;
};

/// Class shares, then response probabilities by group. \param result  outlives the tables
std::vector<parameter_table> lca_tables(const lca_data& data, const lca_options& options,
                                        const lca_answer& answer, const imputation& result);
/// Shares at the first time, transitions, then response probabilities, by group and time.
std::vector<parameter_table> lta_tables(const lta_data& data, const lta_options& options,
                                        const lta_answer& answer, const imputation& result);

/// How many imputations there are and how they were drawn.
std::string imputation_section(const analysis_options& options, const imputation_options& wanted);

/// Estimate, standard error, degrees of freedom, interval and missing information, one line each.
/// \param logit_intervals  the intervals of the logit scale, mapped back
std::string combined_section(const parameter_table& table, bool logit_intervals);

json imputation_json(const analysis_options& options, const imputation_options& wanted);
json combined_json(const std::vector<parameter_table>& tables);

}  // namespace tolvenra::cli
