/// \file near_names.hpp  What a mistyped name may have meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tolvenra::cli {

/// `Did you mean "freq"?` when known names come near the wanted one, else a list such as
/// `The columns are A, B, ....`, cut after 20 names.
/// \param they  how the list calls the names, as in "The columns"
std::string suggestion(std::string_view wanted, const std::vector<std::string>& known,
                       std::string_view they);

}  // namespace tolvenra::cli
