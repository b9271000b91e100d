#include "model/param.hpp"
#include "records.hpp"

namespace tolvenra::param {
namespace {

using namespace tests;

strings in(const char* routine, strings lines) {
  lines.push_back(std::string("OCCURRED IN: ") + routine + " in MOD param");
  return lines;
}

/// Numbers every cell of an array differently.
template <std::size_t R>
void number_cells(array<double, R>& a) {
  for (std::size_t k = 0; k < a.size(); ++k) a.flat[k] = static_cast<double>(k) + 0.5;
}

TEST(ParamSlices, AreReadFromTheirPlaceInTheFullArray) {
  param_type p = mixed_set();
  number_cells(p.rho);
  number_cells(p.beta);
  number_cells(p.delta);
  number_cells(p.tau);
  number_cells(p.big_rho);
  number_cells(p.delta_beta);
  number_cells(p.tau_beta);
  array<double, 2> a;
  error_type err;
  ASSERT_EQ(get_rho2(p, 2, 3, a, err), 0);
  EXPECT_EQ(a.n, (std::array<int32, 2>{2, 4}));
  EXPECT_EQ(a(1, 4), p.rho(3, 1, 4, 2));
  EXPECT_EQ(a(2, 1), p.rho(3, 2, 1, 2));
  ASSERT_EQ(get_beta2(p, 2, a, err), 0);
  EXPECT_EQ(a.n, (std::array<int32, 2>{2, 2}));
  EXPECT_EQ(a(1, 2), p.beta(1, 2, 2));
  ASSERT_EQ(get_delta2(p, 2, a, err), 0);
  EXPECT_EQ(a.n, (std::array<int32, 2>{3, 2}));
  EXPECT_EQ(a(3, 1), p.delta(3, 1, 2));
  ASSERT_EQ(get_tau2(p, 2, 1, 2, a, err), 0);
  EXPECT_EQ(a.n, (std::array<int32, 2>{3, 3}));
  EXPECT_EQ(a(3, 1), p.tau(3, 1, 2, 1, 2));
  ASSERT_EQ(get_big_rho2(p, 1, 2, 3, 2, a, err), 0);
  EXPECT_EQ(a.n, (std::array<int32, 2>{3, 3}));
  EXPECT_EQ(a(3, 2), p.big_rho(2, 3, 2, 3, 2, 1));
  ASSERT_EQ(get_delta_beta2(p, 1, 2, a, err), 0);
  EXPECT_EQ(a.n, (std::array<int32, 2>{3, 3}));
  EXPECT_EQ(a(1, 3), p.delta_beta(1, 3, 2, 1));
  ASSERT_EQ(get_tau_beta2(p, 1, 2, 2, 3, a, err), 0);
  EXPECT_EQ(a.n, (std::array<int32, 2>{4, 3}));
  EXPECT_EQ(a(4, 2), p.tau_beta(4, 3, 2, 2, 2, 1)) << "status is the origin, columns destinations";
}

TEST(ParamSlices, AreWrittenToTheirPlaceAndNowhereElse) {
  const auto probabilities =
      array_of<double, 2>({3, 3}, {0.1, 1.0, 0.5, 0.2, 0.0, 0.25, 0.7, 0.0, 0.25});
  const auto columns = array_of<double, 2>({3, 2}, {0.1, 0.2, 0.7, 0.0, 0.0, 1.0});
  const auto coefficients = array_of<double, 2>({4, 3}, {1, 2, 3, 4, -5, 6, 7, 8, 9, 10, 11, -12});
  param_type p = mixed_set();
  error_type err;
  {
    param_type expected = p;
    for (int32 c = 1; c <= 2; ++c)
      for (int32 r = 1; r <= 4; ++r) expected.rho(1, c, r, 2) = r == c ? 1.0 : 0.0;
    const auto rho2 = array_of<double, 2>({2, 4}, {1.0, 0.0, 0.0, 1.0, -9.0, 7.0, 0.5, 0.5});
    ASSERT_EQ(put_rho2(rho2, 2, 1, p, err), 0) << "item 1 has two categories, the rest is padding";
    EXPECT_TRUE(p == expected);
  }
  {
    param_type expected = p;
    for (int32 k = 1; k <= 3; ++k)
      for (int32 q = 1; q <= 3; ++q) {
        expected.tau(k, q, 1, 2, 1) = probabilities(k, q);
        expected.big_rho(1, k, q, 3, 2, 1) = probabilities(k, q);
        for (int32 x = 1; x <= 4; ++x) expected.tau_beta(x, 3, q, 2, 1, 2) = coefficients(x, q);
        if (q <= 2) expected.delta(k, q, 1) = columns(k, q);
      }
    ASSERT_EQ(put_tau2(probabilities, 1, 2, 1, p, err), 0);
    ASSERT_EQ(put_big_rho2(probabilities, 1, 2, 3, 1, p, err), 0);
    ASSERT_EQ(put_tau_beta2(coefficients, 2, 1, 2, 3, p, err), 0);
    ASSERT_EQ(put_delta2(columns, 1, p, err), 0);
    EXPECT_TRUE(p == expected);
  }
  const auto beta2 = filled<double, 2>({2, 2}, 4.0);
  ASSERT_EQ(put_beta2(beta2, 1, p, err), 0);
  EXPECT_EQ(p.beta(2, 2, 1) + p.beta(2, 2, 2), 4.0);
  ASSERT_EQ(put_delta_beta2(filled<double, 2>({3, 3}, 6.0), 2, 1, p, err), 0);
  EXPECT_EQ(p.delta_beta(3, 1, 1, 2) + p.delta_beta(3, 1, 2, 2), 6.0);
  EXPECT_EQ(lines_of(err), strings{});
}

TEST(ParamSlices, CheckTheirIndicesFirst) {
  const auto none = array<double, 2>{};
  array<double, 2> out;
  const auto range = [](const char* routine, const char* argument, const char* limit) {
    return in(routine, {std::string("The value of the argument ") + argument + ", is out of range.",
                        std::string("The valid range is 1 to ") + limit});
  };
  const auto shape = [](const char* routine, const char* has, const char* must) {
    return in(routine, {has, must});
  };
  expect_refusals<param_type>(
      mixed_set(),
      {{"stratum before item", [&](auto& p, auto& e) { return put_rho2(none, 3, 4, p, e); },
        range("put_rho2", "'stratum' (group), 3", "2")},
       {"item", [&](auto& p, auto& e) { return put_rho2(none, 1, 4, p, e); },
        range("put_rho2", "'citem', 4", "3")},
       {"item", [&](auto& p, auto& e) { return get_rho2(p, 1, 0, out, e); },
        range("get_rho2", "'citem', 0", "3")},
       {"class", [&](auto& p, auto& e) { return put_tau2(none, 1, 3, 9, p, e); },
        range("put_tau2", "'clss', 3", "2")},
       {"transition", [&](auto& p, auto& e) { return put_tau2(none, 1, 2, 3, p, e); },
        range("put_tau2", "'transition', 3", "2")},
       {"time", [&](auto& p, auto& e) { return get_big_rho2(p, 1, 1, 4, 9, out, e); },
        range("get_big_rho2", "'time', 4", "3")},
       {"status item", [&](auto& p, auto& e) { return put_big_rho2(none, 1, 1, 3, 3, p, e); },
        range("put_big_rho2", "'sitem', 3", "2")},
       {"status", [&](auto& p, auto& e) { return get_tau_beta2(p, 1, 1, 1, -1, out, e); },
        range("get_tau_beta2", "'status', -1", "3")},
       {"rho2", [&](auto& p, auto& e) { return put_rho2(none, 1, 1, p, e); },
        shape("put_rho2", "The rho2 array has 0 rows;",
              "The number of rows must be equal to NC = 2")},
       {"rho2",
        [](auto& p, auto& e) {
          return put_rho2(filled<double, 2>({2, 3}, 0.0), 1, 1, p, e);
        },
        shape("put_rho2", "The rho2 array has 3 columns;",
              "The number of columns must be equal to nrcmax = 4")},
       {"beta2", [&](auto& p, auto& e) { return put_beta2(none, 1, p, e); },
        shape("put_beta2", "The beta2 array has 0 rows;",
              "The number of rows must be equal to NCOV+1 = 2")},
       {"beta2",
        [](auto& p, auto& e) {
          return put_beta2(filled<double, 2>({2, 3}, 0.0), 1, p, e);
        },
        shape("put_beta2", "The beta2 array has 3 columns;",
              "The number of columns must be equal to NC = 2")},
       {"delta2", [&](auto& p, auto& e) { return put_delta2(none, 1, p, e); },
        shape("put_delta2", "The delta2 array has 0 rows;",
              "The number of rows must be equal to NS = 3")},
       {"big_rho2",
        [](auto& p, auto& e) {
          return put_big_rho2(filled<double, 2>({3, 2}, 0.0), 1, 1, 1, 1, p, e);
        },
        shape("put_big_rho2", "The big_rho2 array has 2 columns;",
              "The number of columns must be equal to nrsmax = 3")},
       {"delta_beta2", [&](auto& p, auto& e) { return put_delta_beta2(none, 1, 1, p, e); },
        shape("put_delta_beta2", "The delta_beta2 array has 0 rows;",
              "The number of rows must be equal to ncov_delta + 1 = 3")},
       {"tau_beta2", [&](auto& p, auto& e) { return put_tau_beta2(none, 1, 1, 1, 1, p, e); },
        shape("put_tau_beta2", "The tau_beta2 array has 0 rows;",
              "The number of rows must be equal to ncov_tau+1 = 4")},
       {"tau_beta2",
        [](auto& p, auto& e) {
          return put_tau_beta2(filled<double, 2>({4, 2}, 0.0), 1, 1, 1, 1, p, e);
        },
        shape("put_tau_beta2", "The tau_beta2 array has 2 columns;",
              "The number of columns must be equal to NS = 3")}});
  expect_refusals<param_type>(
      {},
      {{"no dimensions", [&](auto& p, auto& e) { return put_rho2(none, 1, 1, p, e); },
        in("put_rho2", {"The method could not be invoked because",
                        "the dimensions of the parameter set", "have not yet been specified."})}});
}

TEST(ParamSlices, CheckCellsAndSums) {
  auto square = filled<double, 2>({3, 3}, 1.0 / 3);
  auto columns = filled<double, 2>({3, 2}, 1.0 / 3);
  auto rho2 = filled<double, 2>({2, 4}, 0.25);
  const auto changed = [](auto a, int32 i, int32 j, double v) {
    a(i, j) = v;
    return a;
  };
  expect_refusals<param_type>(
      mixed_set(),
      {{"rho2 cell",
        [=](auto& p, auto& e) { return put_rho2(changed(rho2, 2, 3, -1.0), 1, 3, p, e); },
        in("put_rho2", {"The item in row 2, column 3", "in the rho2 array is negative."})},
       {"rho2 row of an item of 3 categories",
        [=](auto& p, auto& e) { return put_rho2(rho2, 1, 2, p, e); },
        in("put_rho2", {"Row 1 in the rho2 array", "sums to 0.75; it should sum to 1.0."})},
       {"delta2 cell",
        [=](auto& p, auto& e) { return put_delta2(changed(columns, 3, 2, -1.0), 1, p, e); },
        in("put_delta2", {"The item in row 3, column 2", "in the delta2 array is negative."})},
       {"delta2 column",
        [=](auto& p, auto& e) { return put_delta2(changed(columns, 3, 2, 4.0 / 3), 1, p, e); },
        in("put_delta2", {"Column 2 in the delta2 array", "sums to 2; it should sum to 1.0."})},
       {"tau2 cell",
        [=](auto& p, auto& e) { return put_tau2(changed(square, 3, 1, -1.0), 1, 1, 1, p, e); },
        in("put_tau2", {"The item in column 1, row 3", "in the tau2 array is negative."})},
       {"tau2 row",
        [=](auto& p, auto& e) { return put_tau2(changed(square, 3, 1, 4.0 / 3), 1, 1, 1, p, e); },
        in("put_tau2", {"Row 3 in the tau2 array", "sums to 2; it should sum to 1.0."})},
       {"big_rho2 row of an item of 2 categories",
        [=](auto& p, auto& e) { return put_big_rho2(square, 1, 1, 1, 2, p, e); },
        in("put_big_rho2",
           {"Row 1 in the big_rho2 array", "sums to 0.666666667; it should sum to 1.0."})}});
}

}  // namespace
}  // namespace tolvenra::param
