/// \file lta_model_file.hpp  A transition analysis as a text to read, keep and change (TOML).
#pragma once

#include <string>
#include <string_view>

#include "lta_data.hpp"

namespace tolvenra::cli {

/// Reads a model file into options. A data file of relative path lies beside the model file. Throws
/// input_error, which names line, key and what was expected.
lta_options read_lta_model_file(const std::string& path);

/// \param source  how messages call the text; its folder is that of the data file
lta_options parse_lta_model(std::string_view text, const std::string& source);

/// The model file of an analysis: reading it gives the same analysis. Throws input_error for texts
/// that are not UTF-8.
std::string model_text(const lta_data& data, const lta_options& options);

}  // namespace tolvenra::cli
