#include <limits>

#include "model/param.hpp"
#include "records.hpp"

namespace tolvenra::param {
namespace {

using namespace tests;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

strings in(const std::string& routine, strings lines) {
  lines.push_back("OCCURRED IN: " + routine + " in MOD param");
  return lines;
}

/// A prior, its effective sample sizes and their accessors.
template <std::size_t R>
struct family {
  const char* name;  ///< of the prior
  array<double, R> valid;
  std::array<int32, R - 1> rows;  ///< extents of the effective sample sizes
  bool param_type::*set;
  int32 (*put)(const array<double, R>&, param_type&, error_type&);
  int32 (*get)(const param_type&, array<double, R>&, error_type&);
  int32 (*put_ess)(const array<double, R - 1>&, param_type&, error_type&);
  int32 (*get_ess)(const param_type&, array<double, R - 1>&, error_type&);
  strings said_of_other_sum;  ///< in the words of the parameter
};

template <std::size_t R>
void expect_prior(const family<R>& f) {
  SCOPED_TRACE(f.name);
  param_type p = mixed_set();
  error_type err;
  array<double, R> prior;
  array<double, R - 1> ess;
  ASSERT_EQ(f.put(f.valid, p, err), 0);
  EXPECT_TRUE(p.*f.set);
  ASSERT_EQ(f.get(p, prior, err), 0);
  auto stored = f.valid;
  for (double& v : stored.flat) v = v == -7.0 ? 0.0 : v;  // padding
  EXPECT_EQ(prior, stored);
  ASSERT_EQ(f.get_ess(p, ess, err), 0);
  EXPECT_EQ(ess, (filled<double, R - 1>(f.rows, 1.0)));
  ess.flat.back() = 0.0;
  ess.flat.front() = 12.5;
  ASSERT_EQ(f.put_ess(ess, p, err), 0) << "0 switches a row off";
  auto got = ess;
  ASSERT_EQ(f.get_ess(p, got, err), 0);
  EXPECT_EQ(got, ess);
  ASSERT_EQ(f.put(f.valid, p, err), 0);
  ASSERT_EQ(f.get_ess(p, got, err), 0);
  EXPECT_EQ(got, (filled<double, R - 1>(f.rows, 1.0))) << "a new prior starts at 1";
}

template <std::size_t R>
void expect_refusals_of_prior(const family<R>& f) {
  SCOPED_TRACE(f.name);
  const std::string name = f.name, ess_name = name + "_ess";
  param_type with_prior = mixed_set();
  error_type err;
  ASSERT_EQ(f.put(f.valid, with_prior, err), 0);
  auto other_sum = f.valid;
  other_sum.flat.front() += 0.5;
  auto longer = f.rows;
  ++longer.back();
  const auto wrong_size = filled<double, R - 1>(longer, -1.0);
  const auto ones = filled<double, R - 1>(f.rows, 1.0);
  const auto with_last = [&](double v) {
    auto ess = ones;
    ess.flat.back() = v;
    return [ess, &f](auto& p, auto& e) { return f.put_ess(ess, p, e); };
  };
  array<double, R> prior;
  array<double, R - 1> ess;
  const strings negative = in(
      "put_" + ess_name, {"The " + ess_name + " array contained one or more", "negative numbers."});
  expect_refusals<param_type>(
      with_prior, {{"sum", [&](auto& p, auto& e) { return f.put(other_sum, p, e); },
                    in("put_" + name, f.said_of_other_sum)},
                   {"size", [&](auto& p, auto& e) { return f.put_ess(wrong_size, p, e); },
                    in("put_" + ess_name, {"Dimensions of matrix arguments not conformable"})},
                   {"negative", with_last(-0.5), negative},
                   {"not a number", with_last(nan), negative},
                   {"infinite", with_last(inf),
                    in("put_" + ess_name, {"The " + ess_name + " array contained one or more",
                                           "numbers that are not finite."})}});
  expect_refusals<param_type>(
      mixed_set(),
      {{"before the prior", [&](auto& p, auto& e) { return f.put_ess(ones, p, e); },
        in("put_" + ess_name, {"The " + name + " array must first be specified",
                               "before specifying " + ess_name + "."})},
       {"size comes first", [&](auto& p, auto& e) { return f.put_ess(wrong_size, p, e); },
        in("put_" + ess_name, {"Dimensions of matrix arguments not conformable"})},
       {"absent", [&](auto& p, auto& e) { return f.get(p, prior, e); },
        in("get_" + name, {"The " + name + " array has not yet been specified",
                           "in the parameter set provided."})},
       {"absent", [&](auto& p, auto& e) { return f.get_ess(p, ess, e); },
        in("get_" + ess_name, {"The " + ess_name + " array has not yet been",
                               "specified in the parameter set provided."})}});
}

template <class Visit>
void for_each_family(Visit&& visit) {
  const param_type p = mixed_set();
  visit(family<2>{"gamma_prior",
                  filled<double, 2>({2, 2}, 0.5),
                  {2},
                  &param_type::gamma_prior_set,
                  put_gamma_prior,
                  get_gamma_prior,
                  put_gamma_prior_ess,
                  get_gamma_prior_ess,
                  {"Column 1 in the gamma array", "sums to 1.5; it should sum to 1.0."}});
  visit(family<4>{"rho_prior",
                  uniform_rho(p),
                  {3, 2, 2},
                  &param_type::rho_prior_set,
                  put_rho_prior,
                  get_rho_prior,
                  put_rho_prior_ess,
                  get_rho_prior_ess,
                  {"The 'row' for stratum (group) 1, item 1",
                   "class 1 in rho sums to 1.5; it should sum to 1.0."}});
  visit(family<3>{"delta_prior",
                  filled<double, 3>({3, 2, 2}, 1.0 / 3),
                  {2, 2},
                  &param_type::delta_prior_set,
                  put_delta_prior,
                  get_delta_prior,
                  put_delta_prior_ess,
                  get_delta_prior_ess,
                  {"The 'row' for stratum (group) 1, class 1",
                   "status 1 to 3 in delta sums to 1.5; it should sum to 1.0."}});
  visit(family<5>{"tau_prior",
                  filled<double, 5>(p.tau.n, 1.0 / 3),
                  {3, 2, 2, 2},
                  &param_type::tau_prior_set,
                  put_tau_prior,
                  get_tau_prior,
                  put_tau_prior_ess,
                  get_tau_prior_ess,
                  {"Row 1 for stratum (group) 1", "class 1, transition 1 in tau",
                   "sums to 1.5; it should sum to 1.0."}});
  visit(family<6>{"big_rho_prior",
                  uniform_big_rho(p),
                  {2, 3, 3, 2, 2},
                  &param_type::big_rho_prior_set,
                  put_big_rho_prior,
                  get_big_rho_prior,
                  put_big_rho_prior_ess,
                  get_big_rho_prior_ess,
                  {"The 'row' for stratum (group) 1, item 1", "time 1, class 1",
                   "status 1 in big_rho sums to 1.5; it should sum to 1.0."}});
}

TEST(Priors, AreStoredWithOnePseudoObservationPerRow) {
  for_each_family([](const auto& f) { expect_prior(f); });
}

TEST(Priors, AreRefusedInTheWordsOfTheirParameter) {
  for_each_family([](const auto& f) { expect_refusals_of_prior(f); });
}

TEST(StabilizingPriors, AreStoredWithTheirWorth) {
  param_type p = mixed_set();
  error_type err;
  const auto gamma = array_of<double, 2>({2, 2}, {0.25, 0.75, 0.5, 0.5});
  const auto delta = filled<double, 3>({3, 2, 2}, 1.0 / 3);
  const auto tau = filled<double, 5>(p.tau.n, 1.0 / 3);
  ASSERT_EQ(put_beta_stabilizing_prior(gamma, 2.0, p, err), 0);
  ASSERT_EQ(put_delta_beta_stabilizing_prior(delta, 0.0, p, err), 0);
  ASSERT_EQ(put_tau_beta_stabilizing_prior(tau, 4.0, p, err), 0);
  EXPECT_TRUE(p.beta_stabilizing_prior_set && p.delta_beta_stabilizing_prior_set &&
              p.tau_beta_stabilizing_prior_set);
  array<double, 2> got2;
  array<double, 3> got3;
  array<double, 5> got5;
  double ess2 = -1, ess3 = -1, ess5 = -1;
  ASSERT_EQ(get_beta_stabilizing_prior(p, got2, err), 0);
  ASSERT_EQ(get_delta_beta_stabilizing_prior(p, got3, err), 0);
  ASSERT_EQ(get_tau_beta_stabilizing_prior(p, got5, err), 0);
  ASSERT_EQ(get_beta_stabilizing_prior_ess(p, ess2, err), 0);
  ASSERT_EQ(get_delta_beta_stabilizing_prior_ess(p, ess3, err), 0);
  ASSERT_EQ(get_tau_beta_stabilizing_prior_ess(p, ess5, err), 0);
  EXPECT_EQ(got2, gamma);
  EXPECT_EQ(got3, delta);
  EXPECT_EQ(got5, tau);
  EXPECT_EQ(ess2, 2.0);
  EXPECT_EQ(ess3, 0.0);
  EXPECT_EQ(ess5, 4.0);
}

TEST(StabilizingPriors, AreCheckedLikeTheProbabilitiesOfTheirRegression) {
  const auto gamma = [](double cell, double ess) {
    return [=](auto& p, auto& e) {
      return put_beta_stabilizing_prior(array_of<double, 2>({2, 2}, {0.5, cell, 0.5, 0.5}), ess, p,
                                        e);
    };
  };
  array<double, 2> out2;
  array<double, 5> out5;
  double ess = 0.0;
  const auto of_ess = [](const char* why) {
    return in("put_beta_stabilizing_prior", {"The beta_stabilizing_prior ess", why});
  };
  expect_refusals<param_type>(
      mixed_set(),
      {{"values before ess", gamma(0.25, -1.0),
        in("put_beta_stabilizing_prior",
           {"Column 1 in the gamma array", "sums to 0.75; it should sum to 1.0."})},
       {"negative", gamma(0.5, -1.0), of_ess("was negative.")},
       {"not a number", gamma(0.5, nan), of_ess("was negative.")},
       {"infinite", gamma(0.5, inf), of_ess("was not a finite number.")},
       {"delta",
        [](auto& p, auto& e) {
          return put_delta_beta_stabilizing_prior(filled<double, 3>({3, 2, 1}, 0.0), 1.0, p, e);
        },
        in("put_delta_beta_stabilizing_prior",
           {"Dimension 3 of the delta array is 1", "This must be equal to NSTR = 2"})},
       {"tau",
        [](auto& p, auto& e) {
          return put_tau_beta_stabilizing_prior(filled<double, 5>({3, 3, 2, 2, 1}, 0.0), 1.0, p, e);
        },
        in("put_tau_beta_stabilizing_prior",
           {"Dimension 5 of the tau array is 1", "This must be equal to NSTR = 2"})},
       {"absent", [&](auto& p, auto& e) { return get_beta_stabilizing_prior(p, out2, e); },
        in("get_beta_stabilizing_prior",
           {"The beta_stabilizing_prior array has not yet been specified",
            "in the parameter set provided."})},
       {"absent", [&](auto& p, auto& e) { return get_tau_beta_stabilizing_prior(p, out5, e); },
        in("get_tau_beta_stabilizing_prior",
           {"The tau_beta_stabilizing_prior array has not yet been specified",
            "in the parameter set provided."})}});
  expect_refusals<param_type>(
      {},
      {{"fresh", [&](auto& p, auto& e) { return get_delta_beta_stabilizing_prior_ess(p, ess, e); },
        in("get_delta_beta_stabilizing_prior_ess",
           {"The method could not be invoked because",
            "the parameter set has not yet been specified."})},
       {"fresh", gamma(0.5, 1.0),
        in("put_beta_stabilizing_prior",
           {"The method could not be invoked because", "the dimensions of the parameter set",
            "have not yet been specified."})}});
}

}  // namespace
}  // namespace tolvenra::param
