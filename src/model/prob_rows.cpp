#include "model/prob_rows.hpp"

#include "model/param.hpp"

namespace tolvenra {

row_layout rows_along(std::span<const int32> extents, std::size_t along,
                      std::span<const int32> own) {
  row_layout rows;
  rows.width = extents[along];
  int64 nrows = 1;
  for (std::size_t k = 0; k < extents.size(); ++k) {
    if (k < along) rows.step *= extents[k];
    if (k != along) nrows *= extents[k];
  }
  rows.nrows = static_cast<int32>(nrows);
  rows.length.assign(static_cast<std::size_t>(nrows), rows.width);
  if (!own.empty())  // the first index runs fastest over the rows too
    for (std::size_t m = 0; m < rows.length.size(); ++m) rows.length[m] = own[m % own.size()];
  return rows;
}

namespace {

template <class T>
void fill_padding(std::span<T> values, const row_layout& rows, T value) {
  for (int32 m = 0; m < rows.nrows; ++m)
    for (int32 r = rows.length[static_cast<std::size_t>(m)]; r < rows.width; ++r)
      values[static_cast<std::size_t>(rows.base(m) + r * rows.step)] = value;
}

}  // namespace

void clear_padding(std::span<double> values, const row_layout& rows) {
  fill_padding(values, rows, 0.0);
}
void free_padding(std::span<int32> codes, const row_layout& rows) { fill_padding(codes, rows, 1); }

namespace param {

row_layout gamma_rows(const param_type& param) {
  return rows_along(std::array{param.nc, param.nstr}, 0);
}

row_layout rho_rows(const param_type& param) {
  return rows_along(std::array{param.nci, param.nc, param.nrcmax, param.nstr}, 2, param.nrc.flat);
}

row_layout delta_rows(const param_type& param) {
  return rows_along(std::array{param.ns, param.nc, param.nstr}, 0);
}

row_layout tau_rows(const param_type& param) {
  return rows_along(std::array{param.ns, param.ns, param.nt - 1, param.nc, param.nstr}, 1);
}

row_layout big_rho_rows(const param_type& param) {
  return rows_along(std::array{param.ni, param.ns, param.nrsmax, param.nt, param.nc, param.nstr}, 2,
                    param.nrs.flat);
}

}  // namespace param
}  // namespace tolvenra
