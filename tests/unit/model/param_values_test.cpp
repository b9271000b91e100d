#include <limits>

#include "model/param.hpp"
#include "records.hpp"

namespace tolvenra::param {
namespace {

using namespace tests;

const double nan = std::numeric_limits<double>::quiet_NaN();

const strings no_dims{"The method could not be invoked because",
                      "the dimensions of the parameter set", "have not yet been specified."};

strings in(const char* routine, strings lines) {
  lines.push_back(std::string("OCCURRED IN: ") + routine + " in MOD param");
  return lines;
}

/// put_ and get_ of one array with a valid value of it.
template <std::size_t R>
struct accessors {
  const char* name;
  array<double, R> valid;
  int32 (*put)(const array<double, R>&, param_type&, error_type&);
  int32 (*get)(const param_type&, array<double, R>&, error_type&);
  array<double, R> param_type::*field;
  std::array<const char*, R> must_equal;  ///< second line of each dimension's report

  [[nodiscard]] std::string putter() const { return std::string("put_") + name; }
  [[nodiscard]] std::string getter() const { return std::string("get_") + name; }
};

template <std::size_t R>
void expect_round_trip(const accessors<R>& a) {
  SCOPED_TRACE(a.name);
  param_type p = mixed_set();
  error_type err;
  array<double, R> got;
  EXPECT_EQ(a.put(a.valid, p, err), 0);
  EXPECT_EQ(a.get(p, got, err), 0);
  EXPECT_EQ(lines_of(err), strings{});
  auto expected = a.valid;
  for (double& v : expected.flat) v = v == -7.0 ? 0.0 : v;  // padding is stored as 0
  EXPECT_EQ(got, expected);
}

template <std::size_t R>
void expect_refusals_of_shape(const accessors<R>& a) {
  SCOPED_TRACE(a.name);
  array<double, R> out;
  const auto get = [&](auto& p, auto& e) { return a.get(p, out, e); };
  expect_refusals<param_type>(
      {}, {{"put without dimensions", [&](auto& p, auto& e) { return a.put(a.valid, p, e); },
            in(a.putter().c_str(), no_dims)},
           {"get without dimensions", get, in(a.getter().c_str(), no_dims)}});
  param_type released = mixed_set();
  (released.*a.field).release();
  expect_refusals<param_type>(
      released,
      {{"absent", get,
        in(a.getter().c_str(), {std::string("The ") + a.name + " array has not yet been specified",
                                "in the parameter set provided."})}});
  for (std::size_t k = 0; k < R; ++k) {  // this dimension and all before it are wrong
    if (R == 2) break;
    auto extents = a.valid.n;
    for (std::size_t q = 0; q <= k; ++q) ++extents[q];
    const auto wrong = filled<double, R>(extents, 0.1);
    expect_refusals<param_type>(
        mixed_set(),
        {{"the last wrong dimension", [&](auto& p, auto& e) { return a.put(wrong, p, e); },
          in(a.putter().c_str(), {"Dimension " + std::to_string(k + 1) + " of the " + a.name +
                                      " array is " + std::to_string(extents[k]),
                                  a.must_equal[k]})}});
  }
}

TEST(ParamArrays, AreStoredReadBackAndRefusedInAnotherShape) {
  const auto all = [](auto&& visit) {
    const param_type p = mixed_set();
    visit(accessors<2>{"gamma",
                       array_of<double, 2>({2, 2}, {0.25, 0.75, 1.0, 0.0}),
                       put_gamma,
                       get_gamma,
                       &param_type::gamma,
                       {}});
    visit(accessors<4>{"rho",
                       uniform_rho(p),
                       put_rho,
                       get_rho,
                       &param_type::rho,
                       {"This must be equal to NCI = 3", "This must be equal to NC = 2",
                        "This must be equal to NRCMAX = 4", "This must be equal to NSTR = 2"}});
    visit(accessors<3>{"beta",
                       filled<double, 3>({2, 2, 2}, -3.0),
                       put_beta,
                       get_beta,
                       &param_type::beta,
                       {"This must be equal to NCOV + 1 = 2", "This must be equal to NC = 2",
                        "This must be equal to NSTR = 2"}});
    visit(accessors<3>{"delta",
                       filled<double, 3>({3, 2, 2}, 1.0 / 3),
                       put_delta,
                       get_delta,
                       &param_type::delta,
                       {"This must be equal to NS = 3", "This must be equal to NC = 2",
                        "This must be equal to NSTR = 2"}});
    visit(accessors<5>{"tau",
                       filled<double, 5>(p.tau.n, 1.0 / 3),
                       put_tau,
                       get_tau,
                       &param_type::tau,
                       {"This must be equal to NS = 3", "This must be equal to NS = 3",
                        "This must be equal to NT-1 = 2", "This must be equal to NC = 2",
                        "This must be equal to NSTR = 2"}});
    visit(accessors<6>{"big_rho",
                       uniform_big_rho(p),
                       put_big_rho,
                       get_big_rho,
                       &param_type::big_rho,
                       {"This must be equal to NI = 2", "This must be equal to NS = 3",
                        "This must be equal to NRSMAX = 3", "This must be equal to NT = 3",
                        "This must be equal to NC = 2", "This must be equal to NSTR = 2"}});
    visit(accessors<4>{"delta_beta",
                       filled<double, 4>(p.delta_beta.n, 2.5),
                       put_delta_beta,
                       get_delta_beta,
                       &param_type::delta_beta,
                       {"This must be equal to ncov_delta + 1 = 3", "This must be equal to NS = 3",
                        "This must be equal to NC = 2", "This must be equal to NSTR = 2"}});
    visit(accessors<6>{"tau_beta",
                       filled<double, 6>(p.tau_beta.n, -0.5),
                       put_tau_beta,
                       get_tau_beta,
                       &param_type::tau_beta,
                       {"This must be equal to ncov_tau + 1 = 4", "This must be equal to NS = 3",
                        "This must be equal to NS = 3", "This must be equal to NT - 1 = 2",
                        "This must be equal to NC = 2", "This must be equal to NSTR = 2"}});
  };
  all([](const auto& a) { expect_round_trip(a); });
  all([](const auto& a) { expect_refusals_of_shape(a); });
}

TEST(PutGamma, ChecksRowsColumnsCellsAndSums) {
  const auto put = [](std::array<int32, 2> extents, std::vector<double> cells) {
    return
        [g = array_of<double, 2>(extents, cells)](auto& p, auto& e) { return put_gamma(g, p, e); };
  };
  const auto column2 = [](const char* sum) {
    return in("put_gamma", {"Column 2 in the gamma array",
                            std::string("sums to ") + sum + "; it should sum to 1.0."});
  };
  expect_refusals<param_type>(
      mixed_set(),
      {{"rows before columns", put({3, 1}, {1.0, 0.0, 0.0}),
        in("put_gamma",
           {"The gamma array has 3 rows;", "The number of rows must be equal to NC = 2"})},
       {"columns", put({2, 1}, {1.0, 0.0}),
        in("put_gamma",
           {"The gamma array has 1 columns;", "The number of columns must be equal to nstr = 2"})},
       {"negative", put({2, 2}, {0.5, 0.5, 1.5, -0.5}),
        in("put_gamma", {"The item in row 2, column 2", "in the gamma array is negative."})},
       {"sum", put({2, 2}, {0.5, 0.5, 0.25, 0.5}), column2("0.75")},
       {"beyond the tolerance", put({2, 2}, {0.5, 0.5, 0.5, 0.500002}), column2("1.000002")},
       {"not a number", put({2, 2}, {0.5, 0.5, nan, 0.5}), column2("nan")}});
  param_type p = mixed_set();
  error_type err;
  EXPECT_EQ(put({2, 2}, {0.5, 0.5, 0.5, 0.5000009})(p, err), 0);
}

/// Every probability array with one cell changed.
TEST(ParamArrays, ReportTheCellOrRowThatCannotBe) {
  const param_type p = mixed_set();
  const auto rho = [&](int32 j, int32 c, int32 r, int32 s, double v) {
    auto a = uniform_rho(p);
    a(j, c, r, s) = v;
    return [a](auto& to, auto& e) { return put_rho(a, to, e); };
  };
  const auto delta = [&](double v) {
    auto a = filled<double, 3>({3, 2, 2}, 1.0 / 3);
    a(2, 1, 2) = v;
    return [a](auto& to, auto& e) { return put_delta(a, to, e); };
  };
  const auto tau = [&](double v) {
    auto a = filled<double, 5>(p.tau.n, 1.0 / 3);
    a(3, 1, 2, 1, 2) = v;
    return [a](auto& to, auto& e) { return put_tau(a, to, e); };
  };
  const auto big_rho = [&](double v) {
    auto a = uniform_big_rho(p);
    a(2, 3, 1, 3, 1, 2) = v;
    return [a](auto& to, auto& e) { return put_big_rho(a, to, e); };
  };
  expect_refusals<param_type>(
      p,
      {{"rho cell", rho(3, 2, 4, 2, -0.1),
        in("put_rho",
           {"Rho array value for stratum (group) 2, item 3", "category 4, class 2 is negative."})},
       {"rho row", rho(2, 1, 3, 2, 1.0 / 3 + 0.5),
        in("put_rho", {"The 'row' for stratum (group) 2, item 2",
                       "class 1 in rho sums to 1.5; it should sum to 1.0."})},
       {"rho not a number", rho(1, 1, 1, 1, nan),
        in("put_rho", {"The 'row' for stratum (group) 1, item 1",
                       "class 1 in rho sums to nan; it should sum to 1.0."})},
       {"delta cell", delta(-1.0),
        in("put_delta",
           {"Delta array value for stratum (group) 2, class 1", "status 2 is negative."})},
       {"delta row", delta(1.0 / 3 + 1),
        in("put_delta", {"The 'row' for stratum (group) 2, class 1",
                         "status 1 to 3 in delta sums to 2; it should sum to 1.0."})},
       {"tau cell", tau(-1.0),
        in("put_tau", {"Column 1, row 3 of the tau", "matrix value for stratum (group) 2, class 1",
                       "transition 2 is negative."})},
       {"tau row", tau(1.0 / 3 + 1),
        in("put_tau", {"Row 3 for stratum (group) 2", "class 1, transition 2 in tau",
                       "sums to 2; it should sum to 1.0."})},
       {"big_rho cell", big_rho(-1.0),
        in("put_big_rho", {"Big rho array value for stratum (group) 2, item 2, time 3",
                           "category 1, status 3 is negative."})},
       {"big_rho row", big_rho(0.25),
        in("put_big_rho", {"The 'row' for stratum (group) 2, item 2", "time 3, class 1",
                           "status 3 in big_rho sums to 0.75; it should sum to 1.0."})}});
}

TEST(PutTau, LooksAtRowsOfOriginNotAtColumns) {
  param_type p = sized({0, 1, 2, 0, 0, 0, 1, 1, 2, 2});
  error_type err;
  const auto absorbing = array_of<double, 5>({2, 2, 1, 1, 1}, {1.0, 0.9, 0.0, 0.1});
  EXPECT_EQ(put_tau(absorbing, p, err), 0);
  const auto transposed = array_of<double, 5>({2, 2, 1, 1, 1}, {1.0, 0.0, 0.9, 0.1});
  EXPECT_EQ(put_tau(transposed, p, err), -1);
}

TEST(PutRho, PassesOverItemsWithoutCategories) {
  param_type p = sized({2, 0, 1, 0, 0, 0, 1, 1, 1, 0, 2});
  error_type err;
  EXPECT_EQ(put_rho(array_of<double, 4>({2, 1, 2, 1}, {9.0, 0.5, 9.0, 0.5}), p, err), 0);
  EXPECT_EQ(p.rho, (array_of<double, 4>({2, 1, 2, 1}, {0.0, 0.5, 0.0, 0.5})));
}

}  // namespace
}  // namespace tolvenra::param
