#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "matrix_fixture.hpp"

namespace tolvenra::matrix_methods {
namespace {

using namespace tests;

TEST(MatrixData, StandardizedColumnsHaveMeanZeroAndUnitDeviation) {
  matrix x = random_matrix(50, 3, 6);
  for (int32 i = 1; i <= 50; ++i) x(i, 2) = 1e6 + 1e-3 * x(i, 2);
  error_type err;
  ASSERT_EQ(standardize_real_matrix(x, err), 0);
  for (int32 j = 1; j <= 3; ++j) {
    double sum = 0.0, squares = 0.0;
    for (int32 i = 1; i <= 50; ++i) sum += x(i, j);
    for (int32 i = 1; i <= 50; ++i) squares += x(i, j) * x(i, j);
    EXPECT_NEAR(sum / 50.0, 0.0, 1e-7);
    EXPECT_NEAR(squares / 49.0, 1.0, 1e-12);
  }
  column v = vector_of({1.0, 3.0});
  ASSERT_EQ(standardize_real_vector(v, err), 0);
  EXPECT_NEAR(v(2), std::sqrt(0.5), 1e-15);

  const std::string small = "The dataset was too small",
                    flat = "One of the columns in the dataset had zero variance";
  const struct {
    std::vector<double> values;
    std::string line;
  } cases[] = {
      {{}, small}, {{1.0}, small}, {{2.0, 2.0, 2.0}, flat}, {{0.1, 0.1, 0.1, 0.1, 0.1, 0.1}, flat}};
  for (const auto& t : cases) {
    error_type e;
    column c = zeros(static_cast<int32>(t.values.size()));
    c.flat = t.values;
    EXPECT_EQ(standardize_real_vector(c, e), -1);
    EXPECT_EQ(lines_of(e)[0], t.line);
    EXPECT_EQ(c.flat, t.values);
  }
  matrix second = random_matrix(4, 2, 1);
  second(1, 2) = second(2, 2) = second(3, 2) = second(4, 2) = -3.0;
  const matrix kept = second;
  EXPECT_EQ(standardize_real_matrix(second, err), -1);
  EXPECT_EQ(second, kept);
  second(1, 2) = nan;
  EXPECT_EQ(standardize_real_matrix(second, err), -1);
}

TEST(MatrixData, RecodedIntegersAscendWithTheirCodes) {
  error_type err;
  array<int32, 1> recoded, unique;
  ASSERT_EQ(recode_integers(vector_of({7, 2147483647, 7, 1, 30}), recoded, unique, err), 0);
  EXPECT_EQ(recoded, vector_of({2, 4, 2, 1, 3}));
  EXPECT_EQ(unique, vector_of({1, 7, 30, 2147483647}));
  for (const int32 bad : {0, -4}) {
    error_type e;
    EXPECT_EQ(recode_integers(vector_of({3, bad}), recoded, unique, e), -1);
    EXPECT_EQ(lines_of(e), (strings{"Some of the source integers were negative or zero",
                                    "OCCURRED IN: recode_integers in MOD matrix_methods"}));
    EXPECT_EQ(unique.n[0], 4) << "a refused call changes nothing";
  }
  EXPECT_EQ(recode_integers({}, recoded, unique, err), -1);
  EXPECT_EQ(lines_of(err)[0], "Matrix was not allocated");
}

TEST(MatrixData, IndexSortAndTextForms) {
  error_type err;
  array<int32, 1> idx = vector_of({0, 0, 0}), wrong = vector_of({0});
  ASSERT_EQ(indexx_dble(vector_of({3.0, -1.0, 2.0}), idx, err), 0);
  EXPECT_EQ(idx, vector_of({2, 3, 1}));
  EXPECT_EQ(indexx_dble(vector_of({3.0, -1.0}), wrong, err), -1);
  EXPECT_EQ(lines_of(err), (strings{"Sort array size does not match index array size.",
                                    "OCCURRED IN: indexx_dble in MOD matrix_methods"}));

  matrix a = zeros(2, 4);
  a.flat = {0.5, -1.005, 99999.99, 99999.999, nan, -inf, inf, -12345.678};
  const std::string printed =
      "    0.5099999.99     NaNInfinity\n   -1.00********    -Inf********\n";
  std::string text_form;
  ASSERT_EQ(pretty_print_real(a, text_form, err), 0);
  EXPECT_EQ(text_form, printed);
  error_type big;
  EXPECT_EQ(pretty_print_real(zeros(1, 1000), text_form, big), -1);
  EXPECT_EQ(lines_of(big)[0], "Matrix too big");

  const std::string file = testing::TempDir() + "matrix_methods_test.txt";
  array<int32, 2> codes;
  codes.allocate({1, 3});
  codes.flat = {7, -1234567, 123456789};
  ASSERT_EQ(write_matrix(a, file, false, err), 0);
  ASSERT_EQ(write_matrix(codes, file, true, err), 0);
  std::ostringstream content;
  content << std::ifstream(file).rdbuf();
  EXPECT_EQ(content.str(), printed + "       7-1234567********\n");
  std::remove(file.c_str());
  error_type absent;
  EXPECT_EQ(write_matrix(a, "/nowhere/at/all", false, absent), -1);
  EXPECT_EQ(lines_of(absent),
            (strings{"File could not be opened for write-access", "FILE: /nowhere/at/all",
                     "OCCURRED IN: write_matrix in MOD matrix_methods"}));
}

}  // namespace
}  // namespace tolvenra::matrix_methods
