#include "estimation/distinct_rows.hpp"

#include <algorithm>
#include <bit>
#include <numeric>
#include <span>
#include <utility>

namespace tolvenra {
namespace {

using word = std::uint64_t;

int32 bits_for(int32 largest) { return std::bit_width(static_cast<std::uint32_t>(largest)); }

int32 largest_of(std::span<const int32> values) {
  return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
}

std::span<const int32> column_of(const array<int32, 2>& y, int32 column) {
  const auto n = static_cast<std::size_t>(y.n[0]);
  return {y.data() + static_cast<std::size_t>(column) * n, n};
}

/// Order-preserving image of a real number; both zeros are one value.
word ordered_image(double value) {
  const auto image = std::bit_cast<word>(value == 0.0 ? 0.0 : value);
  constexpr word sign = word{1} << 63;
  return (image & sign) != 0 ? ~image : image | sign;
}

/// Sorts case numbers by one word, stably, skipping bytes in which all keys agree.
class radix_sorter {
 public:
  explicit radix_sorter(std::size_t n) : order_(n), next_(n), keys_(n) {
    std::iota(order_.begin(), order_.end(), 0U);
  }

  template <class KeyOf>  // KeyOf(case) -> word
  void sort_by(KeyOf&& key_of) {
    word any = 0;
    word all = ~word{0};
    for (std::size_t i = 0; i < order_.size(); ++i) {
      keys_[i] = key_of(i);
      any |= keys_[i];
      all &= keys_[i];
    }
    const word varying = any & ~all;
    for (int shift = 0; shift < 64; shift += 8)
      if (((varying >> shift) & 0xFF) != 0) pass(shift);
  }

  [[nodiscard]] const std::vector<std::uint32_t>& order() const { return order_; }

 private:
  void pass(int shift) {
    std::array<std::uint32_t, 257> start{};
    for (const word key : keys_) ++start[((key >> shift) & 0xFF) + 1];
    std::partial_sum(start.begin(), start.end(), start.begin());
    for (const std::uint32_t i : order_) next_[start[(keys_[i] >> shift) & 0xFF]++] = i;
    order_.swap(next_);
  }

  std::vector<std::uint32_t> order_, next_;
  std::vector<word> keys_;
};

/// Stratum and responses of every case, packed side by side into a few words: comparing keys
/// compares the columns in their order, the stratum first.
class packed_cases {
 public:
  explicit packed_cases(const case_columns& cases) : n_(cases.strata->size()) {
    add_column(cases.nstr);
    for (int32 j = 0; j < cases.y->n[1]; ++j) add_column(largest_of(column_of(*cases.y, j)));
    keys_.assign(n_ * words_, 0);
    put(0, cases.strata->flat);
    for (int32 j = 0; j < cases.y->n[1]; ++j)
      put(static_cast<std::size_t>(j) + 1, column_of(*cases.y, j));
  }

  [[nodiscard]] std::size_t words() const { return words_; }
  [[nodiscard]] word key(std::size_t i, std::size_t w) const { return keys_[i * words_ + w]; }

  /// Number of leading columns, the stratum among them, in which two cases agree.
  [[nodiscard]] int32 shared(std::size_t a, std::size_t b) const {
    for (std::size_t w = 0; w < words_; ++w)
      if (const word differ = key(a, w) ^ key(b, w); differ != 0)
        return column_of_bit_[64 * w + static_cast<std::size_t>(63 - std::countl_zero(differ))];
    return static_cast<int32>(fields_.size());
  }

  /// Response of a case, 0-based column.
  [[nodiscard]] int32 response(std::size_t i, std::size_t column) const {
    const field& f = fields_[column + 1];
    return static_cast<int32>((key(i, f.at) >> f.shift) & f.mask);
  }

 private:
  struct field {
    std::size_t at = 0;  ///< word
    int32 shift = 0;
    word mask = 0;
  };

  void add_column(int32 largest) {
    const int32 bits = std::max(bits_for(largest), 1);
    if (words_ == 0 || left_ < bits) {
      ++words_;
      left_ = 64;
      column_of_bit_.resize(64 * words_, 0);
    }
    left_ -= bits;
    for (int32 b = left_; b < left_ + bits; ++b)
      column_of_bit_[64 * (words_ - 1) + static_cast<std::size_t>(b)] =
          static_cast<int32>(fields_.size());
    fields_.push_back({words_ - 1, left_, (word{1} << bits) - 1});
  }

  void put(std::size_t column, std::span<const int32> codes) {
    const field& f = fields_[column];
    for (std::size_t i = 0; i < n_; ++i)
      keys_[i * words_ + f.at] |= static_cast<word>(codes[i]) << f.shift;
  }

  std::size_t n_, words_ = 0;
  int32 left_ = 0;
  std::vector<field> fields_;
  std::vector<int32> column_of_bit_;
  std::vector<word> keys_;
};

std::vector<std::uint32_t> sorted_cases(const case_columns& cases, const packed_cases& packed) {
  const auto n = cases.strata->size();
  radix_sorter sorter(n);
  if (cases.cov)  // least significant first
    for (int32 k = cases.cov->n[1]; k-- > 0;)
      sorter.sort_by([values = cases.cov->data() + static_cast<std::size_t>(k) * n](std::size_t i) {
        return ordered_image(values[i]);
      });
  for (std::size_t w = packed.words(); w-- > 0;)
    sorter.sort_by([&](std::size_t i) { return packed.key(i, w); });
  return sorter.order();
}

bool same_covariates(const array<double, 2>* cov, std::size_t a, std::size_t b) {
  if (!cov) return true;
  const auto n = static_cast<std::size_t>(cov->n[0]);
  for (std::size_t k = 0; k < static_cast<std::size_t>(cov->n[1]); ++k)
    if (cov->flat[k * n + a] != cov->flat[k * n + b]) return false;
  return true;
}

/// Numbers the rows in sorted order and keeps what tells neighbours apart.
void number_rows(const case_columns& cases, const packed_cases& packed, distinct_rows& rows) {
  const auto order = sorted_cases(cases, packed);
  rows.ncol = cases.y->n[1];
  rows.row_of_case.resize(order.size());
  rows.stratum_start.assign(static_cast<std::size_t>(cases.nstr) + 1, 0);
  for (std::size_t k = 0; k < order.size(); ++k) {
    const std::size_t i = order[k];
    const int32 common = k > 0 ? packed.shared(order[k - 1], i) - 1 : -1;  // -1: another stratum
    if (common < rows.ncol || !same_covariates(cases.cov, order[k - 1], i)) {
      rows.first_case.push_back(static_cast<int32>(i) + 1);
      rows.shared.push_back(std::max(common, 0));
      rows.stratum_start[static_cast<std::size_t>(cases.strata->flat[i])] = ++rows.nrow;
    }
    rows.row_of_case[i] = rows.nrow;
  }
  for (std::size_t g = 1; g < rows.stratum_start.size(); ++g)
    rows.stratum_start[g] = std::max(rows.stratum_start[g], rows.stratum_start[g - 1]);
}

template <class Code>
void copy_codes(const packed_cases& packed, const distinct_rows& rows, std::vector<Code>& codes) {
  const auto ncol = static_cast<std::size_t>(rows.ncol);
  codes.resize(rows.first_case.size() * ncol);
  for (std::size_t row = 0; row < rows.first_case.size(); ++row)
    for (std::size_t j = 0; j < ncol; ++j)
      codes[row * ncol + j] =
          static_cast<Code>(packed.response(static_cast<std::size_t>(rows.first_case[row] - 1), j));
}

/// Adds up the cases of every row, in case order.
void sum_weights(const case_columns& cases, distinct_rows& rows) {
  const auto nrow = static_cast<std::size_t>(rows.nrow);
  for (auto* sums : {&rows.cases, &rows.freq, &rows.weight, &rows.weight2}) sums->assign(nrow, 0.0);
  for (std::size_t i = 0; i < rows.row_of_case.size(); ++i) {
    const auto row = static_cast<std::size_t>(rows.row_of_case[i] - 1);
    const double f = cases.freq ? cases.freq->flat[i] : 1.0;
    const double w = cases.weight ? cases.weight->flat[i] : 1.0;
    rows.cases[row] += 1.0;
    rows.freq[row] += f;
    rows.weight[row] += f * w;
    rows.weight2[row] += f * w * w;
  }
}

/// Collapses the same cases once more, their responses left out.
covariate_patterns collapse_covariates(const case_columns& cases, const distinct_rows& rows) {
  covariate_patterns patterns;
  if (!cases.cov) return patterns;
  array<int32, 2> no_responses;
  no_responses.allocate({cases.y->n[0], 0});
  case_columns without = cases;
  without.y = &no_responses;
  distinct_rows distinct;
  number_rows(without, packed_cases(without), distinct);
  sum_weights(without, distinct);
  patterns.count = distinct.nrow;
  patterns.stratum_start = std::move(distinct.stratum_start);
  patterns.first_case = std::move(distinct.first_case);
  patterns.weight = std::move(distinct.weight);
  patterns.of_row.reserve(rows.first_case.size());
  for (const int32 k : rows.first_case)
    patterns.of_row.push_back(distinct.row_of_case[static_cast<std::size_t>(k - 1)]);
  return patterns;
}

}  // namespace

std::shared_ptr<const distinct_rows> collapse_cases(const case_columns& cases) {
  auto rows = std::make_shared<distinct_rows>();
  const packed_cases packed(cases);
  number_rows(cases, packed, *rows);
  const std::span<const int32> responses(cases.y->data(), cases.y->size());
  if (largest_of(responses) <= 255)
    copy_codes(packed, *rows, rows->codes8);
  else
    copy_codes(packed, *rows, rows->codes16);
  rows->any_missing = std::find(responses.begin(), responses.end(), 0) != responses.end();
  sum_weights(cases, *rows);
  rows->covariates = collapse_covariates(cases, *rows);
  if (cases.nrs)
    rows->statuses =
        grow_status_trees(*rows, {static_cast<int32>(cases.nrc->size()) + 1, *cases.nrs, cases.nt,
                                  cases.nstr, cases.status_covariates});
  else
    rows->tree = grow_trees(*rows, {cases.nrc->data(), cases.nrc->size()});
  return rows;
}

}  // namespace tolvenra
