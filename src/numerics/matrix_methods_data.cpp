#include <array>
#include <charconv>
#include <fstream>
#include <limits>
#include <new>

#include "numerics/matrix_checks.hpp"
#include "numerics/matrix_methods.hpp"
#include "numerics/sort.hpp"

namespace tolvenra::matrix_methods {
namespace {

constexpr std::size_t field_width = 8;

/// Right-justified in a field, asterisks when it does not fit.
std::string in_field(std::string_view digits) {
  if (digits.size() > field_width) return std::string(field_width, '*');
  return std::string(field_width - digits.size(), ' ') + std::string(digits);
}

std::string field(double value) {
  if (std::isnan(value)) return in_field("NaN");
  if (std::isinf(value)) return in_field(value > 0.0 ? "Infinity" : "-Inf");
  if (std::abs(value) >= 1e6) return in_field("wider than the field");
  std::array<char, 32> digits;
  const auto end = std::to_chars(digits.begin(), digits.end(), value, std::chars_format::fixed, 2);
  return in_field({digits.data(), static_cast<std::size_t>(end.ptr - digits.data())});
}

std::string field(int32 value) { return in_field(to_text(int64{value})); }

template <class T>
std::string lines_of_matrix(const array<T, 2>& a) {
  std::string all;
  for (int32 i = 1; i <= a.n[0]; ++i) {
    for (int32 j = 1; j <= a.n[1]; ++j) all += field(a(i, j));
    all += '\n';
  }
  return all;
}

template <class T>
int32 write(const array<T, 2>& a, std::string_view file, bool append, error_type& err) {
  constexpr routine here = in("write_matrix");
  const auto refuse = [&](int32 code) {
    err_handle(err, code, {.whichsub = here.whichsub(), .file = file});
    return -1;
  };
  constexpr int32 not_opened = 2, not_written = 4;
  try {
    std::ofstream out(std::string(file),
                      std::ios::binary | (append ? std::ios::app : std::ios::trunc));
    if (!out) return refuse(not_opened);
    const std::string lines = lines_of_matrix(a);
    out.write(lines.data(), static_cast<std::streamsize>(lines.size()));
    out.close();
    return out ? 0 : refuse(not_written);
  } catch (const std::bad_alloc&) {
    return fail(err, here, error_code::allocation);
  }
}

/// Mean and standard deviation of a column. \return 0 or -1 after a report
int32 moments(const double* x, std::size_t n, double& mean, double& deviation, const routine& here,
              error_type& err) {
  double sum = 0.0, squares = 0.0, largest = 0.0;
  for (std::size_t i = 0; i < n; ++i) sum += x[i];
  mean = sum / static_cast<double>(n);
  for (std::size_t i = 0; i < n; ++i) {
    squares += (x[i] - mean) * (x[i] - mean);
    largest = std::max(largest, std::abs(x[i]));
  }
  deviation = std::sqrt(squares / static_cast<double>(n - 1));
  if (!std::isfinite(deviation))
    return fail(err, here, {text("One of the columns in the dataset was not finite")});
  // The mean of equal numbers is not always that number: what remains is its rounding.
  if (!(deviation > 4.0 * std::numeric_limits<double>::epsilon() * largest))
    return fail(err, here, {text("One of the columns in the dataset had zero variance")});
  return 0;
}

/// Standardises `columns` columns of `n` rows; nothing is changed when one cannot be.
int32 standardize(double* x, std::size_t n, std::size_t columns, const routine& here,
                  error_type& err) {
  if (n < 2) return fail(err, here, {text("The dataset was too small")});
  double mean = 0.0, deviation = 0.0;
  for (std::size_t j = 0; j < columns; ++j)
    if (moments(x + j * n, n, mean, deviation, here, err) != 0) return -1;
  for (std::size_t j = 0; j < columns; ++j) {
    moments(x + j * n, n, mean, deviation, here, err);
    for (std::size_t i = 0; i < n; ++i) x[i + j * n] = (x[i + j * n] - mean) / deviation;
  }
  return 0;
}

}  // namespace

int32 add_a_ridge_to(array<double, 2>& a, double c, error_type& err) {
  constexpr routine here = in("add_a_ridge_to");
  if (!a.allocated || !is_square(a)) return fail(err, here, {text("Invalid matrix")});
  if (!(c >= 0.0) || !std::isfinite(c)) return fail(err, here, {text("Invalid ridge constant")});
  for (int32 i = 1; i <= a.n[0]; ++i) a(i, i) += c;
  return 0;
}

int32 add_a_diag_matrix_to(array<double, 2>& a, const array<double, 1>& d, error_type& err) {
  constexpr routine here = in("add_a_diag_matrix_to");
  if (!a.allocated || !is_square(a)) return fail(err, here, {text("Invalid matrix")});
  if (d.n[0] != a.n[0] || !all_finite(d)) return fail(err, here, {text("Invalid ridge vector")});
  for (int32 i = 1; i <= a.n[0]; ++i) a(i, i) += d(i);
  return 0;
}

int32 take_diag_real(const array<double, 2>& a, array<double, 1>& d, error_type& err) {
  constexpr routine here = in("take_diag_real");
  if (!is_square(a)) return fail(err, here, error_code::not_square, {text("input")});
  if (d.n[0] != a.n[0])
    return fail(err, here, error_code::not_conformable, {text("input, output")});
  for (int32 i = 1; i <= a.n[0]; ++i) d(i) = a(i, i);
  return finish(d, here, err);
}

int32 take_trace_real(const array<double, 2>& a, double& trace, error_type& err) {
  constexpr routine here = in("take_trace_real");
  trace = 0.0;
  if (!is_square(a)) return fail(err, here, error_code::not_square, {text("input")});
  for (int32 i = 1; i <= a.n[0]; ++i) trace += a(i, i);
  return std::isfinite(trace) ? 0 : fail(err, here, {text("The result is not finite.")});
}

int32 standardize_real_matrix(array<double, 2>& x, error_type& err) {
  return standardize(x.data(), static_cast<std::size_t>(x.n[0]), static_cast<std::size_t>(x.n[1]),
                     in("standardize_real_matrix"), err);
}

int32 standardize_real_vector(array<double, 1>& x, error_type& err) {
  return standardize(x.data(), x.size(), 1, in("standardize_real_vector"), err);
}

int32 indexx_dble(const array<double, 1>& a, array<int32, 1>& idx, error_type& err) {
  constexpr routine here = in("indexx_dble");
  if (idx.n[0] != a.n[0])
    return fail(err, here, {text("Sort array size does not match index array size.")});
  return sort::indexx_dble(a, idx, err) == 0 ? 0 : pass_on(err, here);
}

int32 pretty_print_real(const array<double, 2>& a, std::string& printed, error_type& err) {
  constexpr routine here = in("pretty_print_real");
  printed.clear();
  if (a.n[1] > 999) return fail(err, here, {text("Matrix too big")});
  try {
    printed = lines_of_matrix(a);
  } catch (const std::bad_alloc&) {
    return fail(err, here, error_code::allocation);
  }
  return 0;
}

int32 write_matrix(const array<double, 2>& a, std::string_view file, bool append, error_type& err) {
  return write(a, file, append, err);
}

int32 write_matrix(const array<int32, 2>& a, std::string_view file, bool append, error_type& err) {
  return write(a, file, append, err);
}

}  // namespace tolvenra::matrix_methods
