#include "model/param.hpp"
#include "numerics/random_generator.hpp"
#include "records.hpp"

namespace tolvenra::param {
namespace {

using namespace tests;

strings in_put_dims(strings lines) {
  lines.push_back("OCCURRED IN: put_dims in MOD param");
  return lines;
}

TEST(PutDims, GivesEveryArrayItsShapeAndStart) {
  const param_type p = mixed_set();
  EXPECT_TRUE(p.dims_set);
  EXPECT_EQ(p.nrcmax, 4);
  EXPECT_EQ(p.nrsmax, 3);
  EXPECT_EQ(p.nrs, vector_of({3, 2}));
  EXPECT_EQ(p.gamma, (filled<double, 2>({2, 2}, 0.5)));
  EXPECT_EQ(p.rho.n, (std::array<int32, 4>{3, 2, 4, 2}));
  EXPECT_EQ(p.beta, (filled<double, 3>({2, 2, 2}, 0.0)));
  EXPECT_EQ(p.delta, (filled<double, 3>({3, 2, 2}, 1.0 / 3)));
  EXPECT_EQ(p.tau, (filled<double, 5>({3, 3, 2, 2, 2}, 1.0 / 3)));
  EXPECT_EQ(p.big_rho.n, (std::array<int32, 6>{2, 3, 3, 3, 2, 2}));
  EXPECT_EQ(p.delta_beta, (filled<double, 4>({3, 3, 2, 2}, 0.0)));
  EXPECT_EQ(p.tau_beta, (filled<double, 6>({4, 3, 3, 2, 2, 2}, 0.0)));
  EXPECT_EQ(p.gamma_restrictions, (filled<int32, 2>({2, 2}, 1)));
  EXPECT_EQ(p.rho_restrictions, (filled<int32, 4>(p.rho.n, 1)));
  EXPECT_EQ(p.delta_restrictions, (filled<int32, 3>({3, 2, 2}, 1)));
  EXPECT_EQ(p.tau_restrictions, (filled<int32, 5>(p.tau.n, 1)));
  EXPECT_EQ(p.big_rho_restrictions, (filled<int32, 6>(p.big_rho.n, 1)));
  EXPECT_EQ(p.baseline_tau, (filled<int32, 2>({3, 2}, 1)));
  EXPECT_EQ(p.baseline_gamma + p.baseline_delta, 2);
  EXPECT_FALSE(p.binary_tau.allocated || p.gamma_prior.allocated);

  array<int32, 1> dims;
  error_type err;
  ASSERT_EQ(get_dims(p, dims, err), 0);
  EXPECT_EQ(dims, vector_of({3, 2, 3, 1, 2, 3, 2, 2, 3, 2, 3, 4, 3, 2}));
}

TEST(PutDims, AcceptsEmptyParts) {
  const param_type p = sized({0, 0, 1, -1, -5, 0, 1, 0, 0});
  EXPECT_EQ(p.gamma.n, (std::array<int32, 2>{0, 1}));
  EXPECT_EQ(p.beta.n[0] + p.delta_beta.n[0], 0);
  EXPECT_EQ(p.tau.n[2], 0);
  EXPECT_EQ(p.nrcmax, 0);
  param_type q = p;
  error_type err;
  EXPECT_EQ(put_beta(p.beta, q, err) + put_delta_beta(p.delta_beta, q, err), 0);
  EXPECT_EQ(sized({1, 0, 1, 0, 0, 0, 1, 2, 1, 0}).rho.n[2], 0) << "an item without categories";
  EXPECT_EQ(sized({1, 0, 1, 0, 0, 0, 1, 1, 1, 2, 77}).nrs.n[0], 0) << "longer than needed";
}

TEST(PutDims, RefusesInTheOrderOfItsChecks) {
  // nci, ni, nt, ncov, ncov_delta, ncov_tau, nstr, nc, ns, then categories
  const std::string times = "The number of times specified was ";
  const std::string items = "The number of items specified was ";
  const std::string response = "The minimum response value specified was ";
  const auto ncov = [](const char* n) {
    return strings{std::string("The value of ncov, ") + n,
                   "is greater than the maximum allowable, 99"};
  };
  const auto nstr = [](const char* n) {
    return strings{std::string("The value of nstr specified, ") + n + ", was out of range.",
                   "The allowable range is 1 to 999"};
  };
  const struct {
    std::vector<int32> dims;
    strings lines;
  } cases[] = {
      {{0, 0, 0, 0, 0, 0, 0, 0}, {"The array size was only 8; it must be at least 9"}},
      {{2, 0, 0, 100, 0, 0, 0, 0, 0}, {times + "0 The allowable range is 1 to 99"}},
      {{2, 0, 100, 100, 0, 0, 0, 0, 0}, {times + "100 The allowable range is 1 to 99"}},
      {{2, 0, 1, 100, 101, 102, 0, 0, 0}, ncov("102")},
      {{2, 0, 1, 100, 101, 99, 0, 0, 0}, ncov("101")},
      {{2, 0, 1, 100, 99, 99, 0, 0, 0}, ncov("100")},
      {{2, 0, 1, 0, 0, 0, 0, 100, 0}, nstr("0")},
      {{2, 0, 1, 0, 0, 0, 1000, 100, 0}, nstr("1000")},
      {{2, 0, 1, 0, 0, 0, 1, 100, 100},
       {"The number of latent classes specified was 100 The allowable range is 0 to 99"}},
      {{2, 0, 1, 0, 0, 0, 1, 2, -1},
       {"The number of latent statuses specified was -1 The allowable range is 0 to 99"}},
      {{2, 0, 1, 0, 0, 0, 1, 2, 1},
       {"The array size was only 9; it must be at least 9 + nci + ni = 11",
        " to contain nrc and nrs."}},
      {{2147483647, 2147483647, 1, 0, 0, 0, 1, 2, 1},
       {"The array size was only 9; it must be at least 9 + nci + ni = 4294967303",
        " to contain nrc and nrs."}},
      {{-1, 0, 1, 0, 0, 0, 1, 2, 1}, {items + "-1 The maximum is 999"}},
      {{1, -1, 1, 0, 0, 0, 1, 2, 1, 2}, {items + "-1 The maximum is 999"}},
      {{5, -5, 1, 0, 0, 0, 1, 2, 1}, {items + "-5 The maximum is 999"}},
      {{2, 1, 1, 0, 0, 0, 1, 2, 1, 1000, -1, -2}, {response + "1000 The range is 0 to 999"}},
      {{2, 1, 1, 0, 0, 0, 1, 2, 1, 999, -1, -2}, {response + "-1 The range is 0 to 999"}},
      {{2, 1, 1, 0, 0, 0, 1, 2, 1, 999, 0, 1001}, {response + "1001 The range is 0 to 999"}},
  };
  std::vector<refusal<param_type>> refusals;
  for (const auto& t : cases) {
    const auto dims = array_of<int32, 1>({static_cast<int32>(t.dims.size())}, t.dims);
    refusals.push_back({t.lines[0].c_str(),
                        [dims](auto& p, auto& e) { return put_dims(dims, p, e); },
                        in_put_dims(t.lines)});
  }
  const auto many = filled<int32, 1>({1100}, 1);
  auto items1000 = many;
  items1000(1) = 1000;
  refusals.push_back({"items", [=](auto& p, auto& e) { return put_dims(items1000, p, e); },
                      in_put_dims({items + "1000 The maximum is 999"})});
  expect_refusals(mixed_set(), refusals);
}

TEST(PutDims, ReportsWhatDoesNotFitMemoryAndLeavesNoHalfMadeSet) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer stops the program instead";
#endif
  // big_rho of 156 TB is beyond the address space; all that is made before it is small.
  auto dims = filled<int32, 1>({9 + 999}, 999);
  const auto counts = {0, 999, 99, 0, 0, 0, 999, 99, 2};
  std::copy(counts.begin(), counts.end(), dims.flat.begin());
  param_type p = mixed_set();
  error_type err;
  EXPECT_EQ(put_dims(dims, p, err), -1);
  EXPECT_EQ(lines_of(err),
            in_put_dims({"Unable to allocate memory for object", "put_dims: param%big_rho",
                         "OCCURRED IN: dbl6_alloc in MOD dynamic_pointer_allocation"}));
  EXPECT_TRUE(p == param_type{});
}

TEST(NullifyParam, EmptiesTheSetOrSaysWhatCannotBeReleased) {
  param_type p = mixed_set();
  error_type err;
  EXPECT_EQ(nullify_param(p, err), 0);
  EXPECT_TRUE(p == param_type{});
  p = mixed_set();
  p.tau.n[1] = 0;  // storage and extents disagree
  EXPECT_EQ(put_dims(vector_of({0, 0, 1, 0, 0, 0, 1, 1, 1}), p, err), -1);
  EXPECT_EQ(lines_of(err),
            (strings{"Unable to deallocate memory for object", "nullify_param: param%tau",
                     "OCCURRED IN: dbl5dealloc in MOD dynamic_pointer_allocation",
                     "Could not deallocate part of param_type.",
                     "OCCURRED IN: nullify_param in MOD param", "Unable to nullify parameter type",
                     "OCCURRED IN: put_dims in MOD param"}));
}

TEST(RandomStarts, TakeTheStreamInTheDocumentedOrder) {
  param_type p = mixed_set();
  error_type err;
  ASSERT_EQ(run_random_rho_startvals(p, err, 12345, 67890), 0);
  ASSERT_EQ(run_random_big_rho_startvals(p, err, 12345, 67890), 0);
  ran_state_type state;
  ASSERT_EQ(random_generator::ran_setall(state, 12345, 67890, err), 0);
  const auto draw = [&](int32 count) {
    std::vector<double> u(static_cast<std::size_t>(count));
    double sum = 0.0;
    for (double& x : u) {
      EXPECT_EQ(random_generator::unit_uniform(state, x, err), 0);
      sum += x;
    }
    for (double& x : u) x /= sum;
    return u;
  };
  for (int32 c = 1; c <= 2; ++c)
    for (int32 j = 1; j <= 3; ++j) {
      const auto u = draw(p.nrc(j));
      for (int32 r = 1; r <= 4; ++r)
        for (int32 s = 1; s <= 2; ++s)
          EXPECT_EQ(p.rho(j, c, r, s), r <= p.nrc(j) ? u[static_cast<std::size_t>(r - 1)] : 0.0);
    }
  ASSERT_EQ(random_generator::ran_setall(state, 12345, 67890, err), 0);
  for (int32 c = 1; c <= 2; ++c)
    for (int32 t = 1; t <= 3; ++t)
      for (int32 k = 1; k <= 3; ++k)
        for (int32 i = 1; i <= 2; ++i) {
          const auto u = draw(p.nrs(i));
          for (int32 r = 1; r <= 3; ++r)
            for (int32 s = 1; s <= 2; ++s)
              EXPECT_EQ(p.big_rho(i, k, r, t, c, s),
                        r <= p.nrs(i) ? u[static_cast<std::size_t>(r - 1)] : 0.0);
        }
}

TEST(RandomStarts, CopyOverTimesAndClassesWhereTheseAreEqual) {
  param_type free = mixed_set();
  error_type err;
  ASSERT_EQ(run_random_big_rho_startvals(free, err, 7, 8), 0);
  for (const bool over_time : {false, true})
    for (const bool over_class : {false, true}) {
      param_type p = mixed_set();
      ASSERT_EQ(put_big_rho_equal_across_time(over_time, p, err), 0);
      ASSERT_EQ(put_big_rho_equal_across_class(over_class, p, err), 0);
      ASSERT_EQ(run_random_big_rho_startvals(p, err, 7, 8), 0);
      for (int32 r = 1; r <= 3; ++r)
        for (int32 t = 1; t <= 3; ++t)
          for (int32 c = 1; c <= 2; ++c)
            for (int32 s = 1; s <= 2; ++s)
              EXPECT_EQ(p.big_rho(2, 3, r, t, c, s),
                        free.big_rho(2, 3, r, over_time ? 1 : t, over_class ? 1 : c, 1));
    }
}

TEST(RandomStarts, RepeatWithSeedsVaryWithTheClockAndGiveASingleCategoryOne) {
  param_type a = sized({2, 0, 1, 0, 0, 0, 3, 2, 1, 1, 5});
  param_type b = a;
  error_type err;
  ASSERT_EQ(run_random_rho_startvals(a, err, 5, 6), 0);
  ASSERT_EQ(run_random_rho_startvals(b, err, 5, 6), 0);
  EXPECT_EQ(a.rho, b.rho);
  for (int32 s = 1; s <= 3; ++s) EXPECT_EQ(a.rho(1, 2, 1, s), 1.0);
  for (const int32 seed2 : {6, -1}) {  // one negative seed is enough
    ASSERT_EQ(run_random_rho_startvals(b, err, seed2 == 6 ? -1 : 5, seed2), 0);
    EXPECT_NE(a.rho, b.rho);
  }
}

TEST(RandomStarts, FailWithoutDimensionsOrWithASeedOfZero) {
  error_type err;
  expect_refusals<param_type>(
      {},
      {{"rho",
        [](auto& p, auto& e) { return run_random_rho_startvals(p, e, 1, 1); },
        {"The method could not be invoked because", "the dimensions of the parameter set",
         "have not yet been specified.", "OCCURRED IN: run_random_rho_startvals in MOD param"}}});
  param_type p = mixed_set();
  const param_type before = p;
  EXPECT_EQ(run_random_big_rho_startvals(p, err, 0, 1), -1);
  const strings lines = lines_of(err);
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2], "Error initializing random number generator.");
  EXPECT_EQ(lines.back(), "OCCURRED IN: run_random_big_rho_startvals in MOD param");
  EXPECT_TRUE(p == before);
}

}  // namespace
}  // namespace tolvenra::param
