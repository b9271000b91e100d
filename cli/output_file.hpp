/// \file output_file.hpp  Result files that exist whole or not at all.
#pragma once

#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>

namespace tolvenra::cli {

/// A result could not be written although this looked possible before the analysis.
class output_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Where one option wants its results. The content is written to a temporary name in the same
/// folder and takes its name when it is complete; only devices and pipes are written as they are.
class output_file {
 public:
  /// Throws input_error when the file could not be written; leaves nothing behind.
  output_file(std::string path, const std::string& option);

  /// Lets `body` write the content. Throws output_error; then no part of it remains.
  void write(const std::function<void(std::FILE*)>& body) const;

  /// Do both name the same file?
  [[nodiscard]] bool same_as(const std::string& other) const;

 private:
  [[nodiscard]] std::FILE* open_temporary() const;

  std::string path_, target_, temporary_;
  bool direct_ = false;
};

}  // namespace tolvenra::cli
