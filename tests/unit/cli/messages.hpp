/// \file messages.hpp  What a part of the command complains of.
#pragma once

#include <functional>
#include <string>

#include "input_error.hpp"

namespace tolvenra::cli {

/// The message of the input_error that `body` throws; empty when it throws none.
inline std::string message_of(const std::function<void()>& body) {
  try {
    body();
  } catch (const input_error& error) {
    return error.what();
  }
  return "";
}

}  // namespace tolvenra::cli
