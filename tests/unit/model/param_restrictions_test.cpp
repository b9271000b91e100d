#include "model/param.hpp"
#include "records.hpp"

namespace tolvenra::param {
namespace {

using namespace tests;

const strings no_dims{"The method could not be invoked because",
                      "the dimensions of the parameter set", "have not yet been specified."};

strings in(const char* routine, strings lines) {
  lines.push_back(std::string("OCCURRED IN: ") + routine + " in MOD param");
  return lines;
}

TEST(Restrictions, AreStoredAndReadBack) {
  const auto round_trip = [](auto field, auto put, auto get) {
    param_type p = mixed_set();
    error_type err;
    auto codes = p.*field;
    for (std::size_t k = 0; k < codes.size(); ++k) codes.flat[k] = static_cast<int32>(k % 5);
    codes.flat.back() = 2147483647;
    auto got = codes;
    EXPECT_EQ(put(codes, p, err), 0);
    EXPECT_EQ(get(p, got, err), 0);
    EXPECT_EQ(got, codes);
    EXPECT_EQ(p.*field, codes);
  };
  round_trip(&param_type::gamma_restrictions, put_gamma_restrictions, get_gamma_restrictions);
  round_trip(&param_type::rho_restrictions, put_rho_restrictions, get_rho_restrictions);
  round_trip(&param_type::delta_restrictions, put_delta_restrictions, get_delta_restrictions);
  round_trip(&param_type::tau_restrictions, put_tau_restrictions, get_tau_restrictions);
  round_trip(&param_type::big_rho_restrictions, put_big_rho_restrictions, get_big_rho_restrictions);
}

TEST(Restrictions, AreRefusedInAnotherShape) {
  const auto dims = [](const char* routine, const char* is, const char* must) {
    return in(routine, {is, must});
  };
  expect_refusals<param_type>(
      mixed_set(),
      {{"gamma rows",
        [&](auto& p, auto& e) {
          return put_gamma_restrictions(filled<int32, 2>({3, 3}, 1), p, e);
        },
        dims("put_gamma_restrictions", "The gamma_restrictions array has 3 rows;",
             "The number of rows must be equal to NC = 2")},
       {"gamma columns",
        [&](auto& p, auto& e) {
          return put_gamma_restrictions(filled<int32, 2>({2, 3}, 1), p, e);
        },
        dims("put_gamma_restrictions", "The gamma_restrictions array has 3 columns;",
             "The number of columns must be equal to nstr = 2")},
       {"rho: the first dimension first",
        [&](auto& p, auto& e) {
          return put_rho_restrictions(filled<int32, 4>({2, 1, 1, 1}, 1), p, e);
        },
        dims("put_rho_restrictions", "Dimension 1 of the rho_restrictions array is 2",
             "This must be equal to NCI = 3")},
       {"rho",
        [&](auto& p, auto& e) {
          return put_rho_restrictions(filled<int32, 4>({3, 2, 5, 1}, 1), p, e);
        },
        dims("put_rho_restrictions", "Dimension 3 of the rho_restrictions array is 5",
             "This must be equal to NRCMAX = 4")},
       {"rho: a blank in the name",
        [&](auto& p, auto& e) {
          return put_rho_restrictions(filled<int32, 4>({3, 2, 4, 1}, 1), p, e);
        },
        dims("put_rho_restrictions", "Dimension 4 of the rho restrictions array is 1",
             "This must be equal to NSTR = 2")},
       {"delta: the last dimension first",
        [&](auto& p, auto& e) {
          return put_delta_restrictions(filled<int32, 3>({1, 1, 1}, 1), p, e);
        },
        dims("put_delta_restrictions", "Dimension 3 of the delta_restrictions array is 1",
             "This must be equal to NSTR = 2")},
       {"tau",
        [&](auto& p, auto& e) {
          return put_tau_restrictions(filled<int32, 5>({3, 3, 1, 2, 2}, 1), p, e);
        },
        dims("put_tau_restrictions", "Dimension 3 of the tau_restrictions array is 1",
             "This must be equal to NT-1 = 2")},
       {"big_rho",
        [&](auto& p, auto& e) {
          return put_big_rho_restrictions(filled<int32, 6>({2, 3, 2, 3, 2, 2}, 1), p, e);
        },
        dims("put_big_rho_restrictions", "Dimension 3 of the big_rho_restrictions array is 2",
             "This must be equal to NRSMAX = 3")}});
}

TEST(Restrictions, AreRefusedWithANegativeCodeNamedByItsIndices) {
  const param_type p = mixed_set();
  const auto gamma = array_of<int32, 2>({2, 2}, {1, 1, 1, -4});
  auto rho = p.rho_restrictions;
  rho(2, 1, 3, 1) = -1;
  auto delta = p.delta_restrictions;
  delta(3, 2, 1) = -2;
  auto tau = p.tau_restrictions;
  tau(1, 3, 2, 1, 2) = -3;
  auto big_rho = p.big_rho_restrictions;
  big_rho(2, 1, 3, 2, 1, 2) = -5;  // of a category that the item does not have
  const auto slice = array_of<int32, 2>({2, 4}, {1, 1, 1, 1, 1, -6, 1, 1});
  const auto big_slice = array_of<int32, 2>({3, 3}, {1, 1, -7, 1, 1, 1, 1, 1, 1});
  expect_refusals<param_type>(
      p, {{"gamma", [&](auto& q, auto& e) { return put_gamma_restrictions(gamma, q, e); },
           in("put_gamma_restrictions",
              {"The item in row 2, column 2", "in the gamma_restrictions array is negative."})},
          {"rho", [&](auto& q, auto& e) { return put_rho_restrictions(rho, q, e); },
           in("put_rho_restrictions",
              {"The following element in rho_restrictions was negative:", "( 2, 1, 3, 1 ) = -1"})},
          {"delta", [&](auto& q, auto& e) { return put_delta_restrictions(delta, q, e); },
           in("put_delta_restrictions",
              {"The following element in delta_restrictions was negative:", "( 3, 2, 1 ) = -2"})},
          {"tau", [&](auto& q, auto& e) { return put_tau_restrictions(tau, q, e); },
           in("put_tau_restrictions", {"The following element in tau_restrictions was negative:",
                                       "( 1, 3, 2, 1, 2 ) = -3"})},
          {"big_rho", [&](auto& q, auto& e) { return put_big_rho_restrictions(big_rho, q, e); },
           in("put_big_rho_restrictions",
              {"The following element in big_rho_restrictions was negative:",
               "( 2, 1, 3, 2, 1, 2 ) = -5"})},
          {"slice", [&](auto& q, auto& e) { return put_rho_restrictions2(slice, 1, 1, q, e); },
           in("put_rho_restrictions2",
              {"The following element in rho_restrictions2 was negative:", "( 2, 3 ) = -6"})},
          {"slice",
           [&](auto& q, auto& e) { return put_big_rho_restrictions2(big_slice, 1, 1, 1, 1, q, e); },
           in("put_big_rho_restrictions2",
              {"The following element in big_rho_restrictions2 was negative:", "( 3, 1 ) = -7"})}});
}

TEST(Restrictions, OfASliceGoToTheirPlace) {
  param_type p = mixed_set();
  param_type expected = p;
  error_type err;
  auto codes = array_of<int32, 2>({2, 4}, {0, 2, 3, 4, 5, 6, 7, 8});
  for (int32 c = 1; c <= 2; ++c)
    for (int32 r = 1; r <= 4; ++r) expected.rho_restrictions(3, c, r, 2) = codes(c, r);
  ASSERT_EQ(put_rho_restrictions2(codes, 2, 3, p, err), 0);
  const auto big_codes = array_of<int32, 2>({3, 3}, {0, 2, 3, 4, 5, 6, 7, 8, 9});
  for (int32 k = 1; k <= 3; ++k)
    for (int32 r = 1; r <= 3; ++r)
      expected.big_rho_restrictions(1, k, r, 3, 2, 1) = big_codes(k, r);
  ASSERT_EQ(put_big_rho_restrictions2(big_codes, 1, 2, 3, 1, p, err), 0);
  EXPECT_TRUE(p == expected);
  array<int32, 2> got;
  ASSERT_EQ(get_rho_restrictions2(p, 2, 3, got, err), 0);
  EXPECT_EQ(got, codes);
  ASSERT_EQ(get_big_rho_restrictions2(p, 1, 2, 3, 1, got, err), 0);
  EXPECT_EQ(got, big_codes);
}

TEST(Restrictions, OfASliceCheckItemTimeClassStratumThenShape) {
  const auto none = array<int32, 2>{};
  array<int32, 2> out;
  const auto range = [](const char* routine, const char* argument, const char* limit) {
    return in(routine, {std::string("The value of the argument ") + argument + ", is out of range.",
                        std::string("The valid range is 1 to ") + limit});
  };
  expect_refusals<param_type>(
      mixed_set(),
      {{"item", [&](auto& p, auto& e) { return put_rho_restrictions2(none, 9, 9, p, e); },
        range("put_rho_restrictions2", "'citem', 9", "3")},
       {"stratum", [&](auto& p, auto& e) { return get_rho_restrictions2(p, 9, 3, out, e); },
        range("get_rho_restrictions2", "'stratum' (group), 9", "2")},
       {"rows", [&](auto& p, auto& e) { return put_rho_restrictions2(none, 1, 1, p, e); },
        in("put_rho_restrictions2",
           {"Dimension 1 of the rho_restrictions2 array is 0", "This must be equal to NC = 2"})},
       {"columns",
        [&](auto& p, auto& e) {
          return put_rho_restrictions2(filled<int32, 2>({2, 3}, 1), 1, 1, p, e);
        },
        in("put_rho_restrictions2", {"Dimension 2 of the rho_restrictions2 array is 3",
                                     "This must be equal to nrcmax = 4"})},
       {"status item",
        [&](auto& p, auto& e) { return put_big_rho_restrictions2(none, 9, 9, 9, 9, p, e); },
        range("put_big_rho_restrictions2", "'sitem', 9", "2")},
       {"time", [&](auto& p, auto& e) { return put_big_rho_restrictions2(none, 9, 9, 9, 1, p, e); },
        range("put_big_rho_restrictions2", "'time', 9", "3")},
       {"class", [&](auto& p, auto& e) { return get_big_rho_restrictions2(p, 9, 9, 1, 1, out, e); },
        range("get_big_rho_restrictions2", "'clss', 9", "2")},
       {"rows", [&](auto& p, auto& e) { return put_big_rho_restrictions2(none, 1, 1, 1, 1, p, e); },
        in("put_big_rho_restrictions2", {"The big_rho_restrictions2 array has 0 rows;",
                                         "The number of rows must be equal to NS = 3"})},
       {"columns",
        [&](auto& p, auto& e) {
          return put_big_rho_restrictions2(filled<int32, 2>({3, 4}, 1), 1, 1, 1, 1, p, e);
        },
        in("put_big_rho_restrictions2", {"The big_rho_restrictions2 array has 4 columns;",
                                         "The number of columns must be equal to nrsmax = 3"})}});
}

TEST(RestrictionsAndOptions, BreakTheirLinesEachInItsOwnWay) {
  param_type p = mixed_set();
  p.gamma_restrictions.release();
  p.rho_restrictions.release();
  p.delta_restrictions.release();
  p.tau_restrictions.release();
  p.big_rho_restrictions.release();
  p.baseline_tau.release();
  array<int32, 2> a2;
  array<int32, 3> a3;
  array<int32, 4> a4;
  array<int32, 5> a5;
  array<int32, 6> a6;
  expect_refusals<param_type>(
      p, {{"gamma", [&](auto& q, auto& e) { return get_gamma_restrictions(q, a2, e); },
           in("get_gamma_restrictions", {"The gamma_restrictions array has not yet",
                                         "been specified in the parameter set provided."})},
          {"rho", [&](auto& q, auto& e) { return get_rho_restrictions(q, a4, e); },
           in("get_rho_restrictions", {"The rho_restrictions array has not yet been",
                                       "specified in the parameter set provided."})},
          {"delta", [&](auto& q, auto& e) { return get_delta_restrictions(q, a3, e); },
           in("get_delta_restrictions", {"The delta_restrictions array has not yet been specified",
                                         "in the parameter set provided."})},
          {"tau", [&](auto& q, auto& e) { return get_tau_restrictions(q, a5, e); },
           in("get_tau_restrictions", {"The tau_restrictions array has not yet been specified",
                                       "in the parameter set provided."})},
          {"big_rho", [&](auto& q, auto& e) { return get_big_rho_restrictions(q, a6, e); },
           in("get_big_rho_restrictions", {"The big_rho_restrictions array has not yet",
                                           "been specified in the parameter set provided."})},
          {"baseline_tau", [&](auto& q, auto& e) { return get_baseline_tau(q, a2, e); },
           in("get_baseline_tau",
              {"The baseline_tau array has not yet been specified", "in the model provided."})},
          {"binary_tau", [&](auto& q, auto& e) { return get_binary_tau(q, a2, e); },
           in("get_binary_tau",
              {"The binary_tau array has not yet been specified", "in the model provided."})}});
}

TEST(RestrictionsAndOptions, NeedTheResponseProbabilitiesTheyBelongTo) {
  param_type p = mixed_set();
  p.rho.release();
  p.big_rho.release();
  const strings no_rho{"The rho array has not yet been specified",
                       "in the parameter set provided."};
  const strings no_big_rho{"The big_rho array has not yet been specified",
                           "in the parameter set provided."};
  expect_refusals<param_type>(
      p,
      {{"", [](auto& q, auto& e) { return put_rho_equal_across_strata(true, q, e); },
        in("put_rho_equal_across_strata", no_rho)},
       {"", [](auto& q, auto& e) { return put_big_rho_equal_across_strata(true, q, e); },
        in("put_big_rho_equal_across_strata", no_big_rho)},
       {"", [](auto& q, auto& e) { return put_big_rho_equal_across_time(true, q, e); },
        in("put_big_rho_equal_across_time", no_big_rho)},
       {"", [](auto& q, auto& e) { return put_big_rho_equal_across_class(true, q, e); },
        in("put_big_rho_equal_across_class", no_big_rho)},
       {"", [](auto& q, auto& e) { return put_rho_restrictions(q.rho_restrictions, q, e); },
        in("put_rho_restrictions", no_rho)},
       {"", [](auto& q, auto& e) { return put_big_rho_restrictions(q.big_rho_restrictions, q, e); },
        in("put_big_rho_restrictions", no_big_rho)}});
  expect_refusals<param_type>(
      {}, {{"", [](auto& q, auto& e) { return put_rho_equal_across_strata(true, q, e); },
            in("put_rho_equal_across_strata", no_dims)},
           {"", [](auto& q, auto& e) { return put_binary_delta(1, q, e); },
            in("put_binary_delta", no_dims)},
           {"", [](auto& q, auto& e) { return put_tau_restrictions({}, q, e); },
            in("put_tau_restrictions", no_dims)}});
}

TEST(Options, EachSetItsOwnFlag) {
  param_type p = mixed_set();
  error_type err;
  ASSERT_EQ(put_rho_equal_across_strata(true, p, err), 0);
  EXPECT_TRUE(get_rho_equal_across_strata(p));
  EXPECT_FALSE(get_big_rho_equal_across_strata(p));
  ASSERT_EQ(put_big_rho_equal_across_time(true, p, err), 0);
  EXPECT_TRUE(get_big_rho_equal_across_time(p));
  EXPECT_FALSE(get_big_rho_equal_across_class(p));
  ASSERT_EQ(put_big_rho_equal_across_class(true, p, err), 0);
  ASSERT_EQ(put_big_rho_equal_across_time(false, p, err), 0);
  EXPECT_TRUE(get_big_rho_equal_across_class(p));
  EXPECT_FALSE(get_big_rho_equal_across_time(p) || get_big_rho_equal_across_strata(p));
}

TEST(Options, ANewBaselineEndsABinaryRegressionTheStoredOneDoesNot) {
  param_type p = mixed_set();
  error_type err;
  ASSERT_EQ(put_binary_gamma(2, p, err), 0);
  EXPECT_EQ(get_binary_gamma(p), 2);
  ASSERT_EQ(put_baseline_gamma(1, p, err), 0);
  EXPECT_TRUE(p.gamma_binary_regression);
  ASSERT_EQ(put_baseline_gamma(2, p, err), 0);
  EXPECT_FALSE(p.gamma_binary_regression);
  EXPECT_EQ(get_baseline_gamma(p), 2);
  ASSERT_EQ(put_binary_gamma(2, p, err), 0);
  EXPECT_TRUE(p.gamma_binary_regression) << "the unchanged class sets it again";

  ASSERT_EQ(put_binary_delta(3, p, err), 0);
  ASSERT_EQ(put_baseline_delta(1, p, err), 0);
  EXPECT_TRUE(p.delta_binary_regression);
  ASSERT_EQ(put_baseline_delta(3, p, err), 0);
  EXPECT_FALSE(p.delta_binary_regression);

  const auto twos = filled<int32, 2>({3, 2}, 2);
  array<int32, 2> got;
  ASSERT_EQ(put_binary_tau(twos, p, err), 0);
  EXPECT_TRUE(p.tau_binary_regression);
  ASSERT_EQ(get_binary_tau(p, got, err), 0);
  EXPECT_EQ(got, twos);
  ASSERT_EQ(put_baseline_tau(filled<int32, 2>({3, 2}, 1), p, err), 0);
  EXPECT_FALSE(p.tau_binary_regression) << "of the two the last call decides";
  ASSERT_EQ(get_baseline_tau(p, got, err), 0);
  EXPECT_EQ(got, (filled<int32, 2>({3, 2}, 1)));
}

TEST(Options, RefuseChoicesOutOfRange) {
  const auto choice = [](const char* routine, const char* line) { return in(routine, {line}); };
  auto low = filled<int32, 2>({3, 2}, 4);
  low(2, 2) = 0;
  const auto high = filled<int32, 2>({3, 2}, 4);
  expect_refusals<param_type>(
      mixed_set(),
      {{"", [](auto& p, auto& e) { return put_baseline_gamma(0, p, e); },
        choice("put_baseline_gamma",
               "The baseline class specified was 0 The allowable range is 1 to 2")},
       {"", [](auto& p, auto& e) { return put_baseline_gamma(3, p, e); },
        choice("put_baseline_gamma",
               "The baseline class specified was 3 The allowable range is 1 to 2")},
       {"", [](auto& p, auto& e) { return put_baseline_delta(4, p, e); },
        choice("put_baseline_delta",
               "The baseline status specified was 4 The allowable range is 1 to 3")},
       {"", [](auto& p, auto& e) { return put_binary_gamma(3, p, e); },
        choice("put_binary_gamma",
               "The comparison class specified was 3 The allowable range is 1 to 2")},
       {"", [](auto& p, auto& e) { return put_binary_delta(0, p, e); },
        choice("put_binary_delta",
               "The comparison status specified was 0 The allowable range is 1 to 3")},
       {"rows first",
        [](auto& p, auto& e) {
          return put_baseline_tau(filled<int32, 2>({2, 3}, 1), p, e);
        },
        in("put_baseline_tau",
           {"Dimension 1 of the baseline_tau array is 2", "This must be equal to NS = 3"})},
       {"columns",
        [](auto& p, auto& e) {
          return put_binary_tau(filled<int32, 2>({3, 3}, 1), p, e);
        },
        in("put_binary_tau",
           {"Dimension 2 of the binary_tau array is 3", "This must be equal to NT - 1 = 2"})},
       {"smallest first", [=](auto& p, auto& e) { return put_baseline_tau(low, p, e); },
        in("put_baseline_tau",
           {"The minimum value in the array specified was 0", "The allowable minimum is 1."})},
       {"largest", [=](auto& p, auto& e) { return put_binary_tau(high, p, e); },
        in("put_binary_tau",
           {"The maximum value in the array specified was 4", "The allowable maximum is 3"})}});
}

}  // namespace
}  // namespace tolvenra::param
