#include "estimation/distinct_rows.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <numeric>
#include <span>

namespace tolvenra {
namespace {

using word = std::uint64_t;

int32 bits_for(int32 largest) { return std::bit_width(static_cast<std::uint32_t>(largest)); }

/// One word of the sort key: consecutive columns packed side by side, the first most significant.
struct packed_columns {
  int32 first = 0, last = -1;  ///< response columns, 0-based; -1 stands for the stratum
  std::vector<int32> bits;
};

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

std::vector<packed_columns> pack(const case_columns& cases) {
  std::vector<packed_columns> words;
  int32 used = 65;
  const auto add = [&](int32 column, int32 bits) {
    if (used + bits > 64) {
      words.push_back({column, column - 1, {}});
      used = 0;
    }
    used += bits;
    words.back().last = column;
    words.back().bits.push_back(bits);
  };
  add(-1, bits_for(cases.nstr));
  for (int32 j = 0; j < cases.y->n[1]; ++j) add(j, bits_for(largest_of(column_of(*cases.y, j))));
  return words;
}

word key_of(const case_columns& cases, const packed_columns& columns, std::size_t i) {
  word key = 0;
  for (int32 j = columns.first; j <= columns.last; ++j) {
    const int32 code =
        j < 0 ? cases.strata->flat[i] : column_of(*cases.y, j)[i];
    key = (key << columns.bits[static_cast<std::size_t>(j - columns.first)]) |
          static_cast<word>(static_cast<std::uint32_t>(code));
  }
  return key;
}

std::vector<std::uint32_t> sorted_cases(const case_columns& cases) {
  const auto n = static_cast<std::size_t>(cases.y->n[0]);
  radix_sorter sorter(n);
  if (cases.cov)  // least significant first
    for (int32 k = cases.cov->n[1]; k-- > 0;)
      sorter.sort_by([values = cases.cov->data() + static_cast<std::size_t>(k) * n](
                         std::size_t i) { return ordered_image(values[i]); });
  const auto words = pack(cases);
  for (auto columns = words.rbegin(); columns != words.rend(); ++columns)
    sorter.sort_by([&](std::size_t i) { return key_of(cases, *columns, i); });
  return sorter.order();
}

bool same_covariates(const array<double, 2>* cov, std::size_t a, std::size_t b) {
  if (!cov) return true;
  const auto n = static_cast<std::size_t>(cov->n[0]);
  for (std::size_t k = 0; k < static_cast<std::size_t>(cov->n[1]); ++k)
    if (cov->flat[k * n + a] != cov->flat[k * n + b]) return false;
  return true;
}

/// Number of leading responses that two cases share.
int32 shared_responses(const array<int32, 2>& y, std::size_t a, std::size_t b) {
  const auto n = static_cast<std::size_t>(y.n[0]);
  int32 j = 0;
  while (j < y.n[1] && y.flat[static_cast<std::size_t>(j) * n + a] ==
                           y.flat[static_cast<std::size_t>(j) * n + b])
    ++j;
  return j;
}

/// Numbers the rows in sorted order and keeps what tells neighbours apart.
void number_rows(const case_columns& cases, const std::vector<std::uint32_t>& order,
                 distinct_rows& rows) {
  rows.ncol = cases.y->n[1];
  rows.row_of_case.resize(order.size());
  rows.stratum_start.assign(static_cast<std::size_t>(cases.nstr) + 1, 0);
  for (std::size_t k = 0; k < order.size(); ++k) {
    const std::size_t i = order[k];
    const int32 g = cases.strata->flat[i];
    bool fresh = true;
    int32 common = 0;
    if (k > 0 && cases.strata->flat[order[k - 1]] == g) {
      common = shared_responses(*cases.y, order[k - 1], i);
      fresh = common < rows.ncol || !same_covariates(cases.cov, order[k - 1], i);
    }
    if (fresh) {
      rows.first_case.push_back(static_cast<int32>(i) + 1);
      rows.shared.push_back(common);
      rows.stratum_start[static_cast<std::size_t>(g)] = ++rows.nrow;
    }
    rows.row_of_case[i] = rows.nrow;
  }
  for (std::size_t g = 1; g < rows.stratum_start.size(); ++g)
    rows.stratum_start[g] = std::max(rows.stratum_start[g], rows.stratum_start[g - 1]);
}

template <class Code>
void copy_codes(const array<int32, 2>& y, const std::vector<int32>& first_case,
                std::vector<Code>& codes) {
  const auto ncol = static_cast<std::size_t>(y.n[1]);
  codes.resize(first_case.size() * ncol);
  for (std::size_t j = 0; j < ncol; ++j) {
    const auto column = column_of(y, static_cast<int32>(j));
    for (std::size_t row = 0; row < first_case.size(); ++row)
      codes[row * ncol + j] =
          static_cast<Code>(column[static_cast<std::size_t>(first_case[row] - 1)]);
  }
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

}  // namespace

std::shared_ptr<const distinct_rows> collapse_cases(const case_columns& cases) {
  auto rows = std::make_shared<distinct_rows>();
  number_rows(cases, sorted_cases(cases), *rows);
  const auto largest = largest_of({cases.y->data(), cases.y->size()});
  if (largest <= 255)
    copy_codes(*cases.y, rows->first_case, rows->codes8);
  else
    copy_codes(*cases.y, rows->first_case, rows->codes16);
  rows->any_missing =
      std::find(cases.y->flat.begin(), cases.y->flat.end(), 0) != cases.y->flat.end();
  sum_weights(cases, *rows);
  return rows;
}

}  // namespace tolvenra
