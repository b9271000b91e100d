/// \file input_error.hpp  What the user typed or supplied cannot be used.
#pragma once

#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace tolvenra::cli {

/// Ends the command with the exit code for bad usage or input. The text says where (file and line,
/// column or option), what was found and what would be right.
class input_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;

  template <class... Args>
  static input_error of(fmt::format_string<Args...> format, Args&&... args) {
    return input_error(fmt::format(format, std::forward<Args>(args)...));
  }
};

}  // namespace tolvenra::cli
