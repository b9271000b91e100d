#include "numerics/sort.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <string>

namespace tolvenra {
namespace {

const double nan = std::numeric_limits<double>::quiet_NaN();

/// Inputs that are unkind to quicksorts, of lengths around the insertion limit and beyond.
std::vector<std::vector<double>> unkind_inputs() {
  std::vector<std::vector<double>> all;
  std::mt19937 draw(20260);
  for (const int n : {0, 1, 2, 6, 7, 8, 9, 13, 14, 15, 16, 27, 100, 1000, 5003}) {
    std::vector<double> v(static_cast<std::size_t>(n));
    std::iota(v.begin(), v.end(), -3.0);
    all.push_back(v);
    std::reverse(v.begin(), v.end());
    all.push_back(v);
    all.emplace_back(v.size(), 4.0);
    for (std::size_t i = 0; i < v.size(); ++i)
      v[i] = static_cast<double>(std::min(i, v.size() - i));  // organ pipe
    all.push_back(v);
    for (const unsigned kinds : {3U, 1U << 20}) {
      for (double& x : v) x = static_cast<double>(draw() % kinds) - 1.0;
      all.push_back(v);
    }
  }
  return all;
}

template <class T>
array<T, 1> array_of(const std::vector<T>& v) {
  array<T, 1> a;
  a.allocate({static_cast<int32>(v.size())});
  a.flat = v;
  return a;
}

TEST(Sort, AgreesWithAStableSortOnUnkindInputs) {
  for (const auto& v : unkind_inputs()) {
    SCOPED_TRACE(v.size());
    std::vector<int32> order(v.size());
    std::iota(order.begin(), order.end(), 1);
    std::stable_sort(order.begin(), order.end(), [&](int32 i, int32 j) {
      return v[static_cast<std::size_t>(i - 1)] < v[static_cast<std::size_t>(j - 1)];
    });
    auto sorted = v;
    std::sort(sorted.begin(), sorted.end());

    error_type err;
    auto reals = array_of(v);
    auto integers = array_of(std::vector<int32>(v.begin(), v.end()));
    auto index = array_of(std::vector<int32>(v.size(), -1));
    ASSERT_EQ(sort::indexx_dble(reals, index, err), 0);
    EXPECT_EQ(index.flat, order);
    std::fill(index.flat.begin(), index.flat.end(), -1);
    ASSERT_EQ(sort::indexx_int(integers, index, err), 0);
    EXPECT_EQ(index.flat, order);
    ASSERT_EQ(sort::qsort_double(reals, err), 0);
    EXPECT_EQ(reals.flat, sorted);
    ASSERT_EQ(sort::qsort_int(integers, err), 0);
    EXPECT_EQ(integers.flat, std::vector<int32>(sorted.begin(), sorted.end()));
    EXPECT_FALSE(err_occurred(err));
  }
}

TEST(Sort, PutsNanBehindEveryNumberInTheOrderOfPosition) {
  std::vector<double> v(60, nan);
  for (std::size_t i = 0; i < v.size(); i += 3) v[i] = -static_cast<double>(i);
  v[30] = std::numeric_limits<double>::infinity();
  error_type err;
  auto index = array_of(std::vector<int32>(v.size(), 0));
  ASSERT_EQ(sort::indexx_dble(array_of(v), index, err), 0);
  EXPECT_EQ(index(1), 58);
  EXPECT_EQ(index(20), 31);
  EXPECT_EQ(index(21), 2);
  EXPECT_TRUE(std::is_sorted(index.flat.begin() + 20, index.flat.end()));
  auto a = array_of(v);
  ASSERT_EQ(sort::qsort_double(a, err), 0);
  EXPECT_EQ(a(1), -57.0);
  EXPECT_TRUE(std::all_of(a.flat.begin() + 20, a.flat.end(), [](double x) { return x != x; }));
}

TEST(Sort, StringsIgnoreCaseAndNothingElse) {
  array<std::array<char, 2>, 1> a;
  a.allocate({10});
  const char* words[] = {"b ", "A ", "a ", "[ ", "Zz", "zA", "_ ", "\xe9 ", "z1", "  "};
  for (int32 i = 1; i <= 10; ++i) std::copy_n(words[i - 1], 2, a(i).begin());
  error_type err;
  ASSERT_EQ(sort::qsort_strings(a, err), 0);
  std::string all;
  for (const auto& word : a.flat) all += std::string(word.begin(), word.end());
  all[6] = all[8] = 'a';  // "A" and "a" are equal keys in either order
  EXPECT_EQ(all, "  [ _ a a b z1zAZz\xe9 ");
}

TEST(Sort, ReportsAnIndexOfTheWrongLengthAndAStackThatIsTooSmall) {
  error_type err;
  array<int32, 1> index = vector_of<int32>({1, 2});
  EXPECT_EQ(sort::indexx_dble(vector_of({1.0, 2.0, 3.0}), index, err), -1);
  EXPECT_EQ(sort::indexx_int(vector_of<int32>({1}), index, err), -1);
  EXPECT_EQ(lines_of(err),
            (std::vector<std::string>{"Sort array size does not match index array size.",
                                      "OCCURRED IN: indexx_dble in MOD sort",
                                      "Sort array size does not match index array size.",
                                      "OCCURRED IN: indexx_int in MOD sort"}));
  std::vector<int> v(8, 1);
  EXPECT_FALSE(sort::detail::quicksort<int>(v, {}, std::less<int>{}));
}

}  // namespace
}  // namespace tolvenra
