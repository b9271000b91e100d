#include "core/dynamic_allocation.hpp"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace tolvenra {
namespace {

using strings = std::vector<std::string>;
constexpr int32 most = std::numeric_limits<int32>::max();

// Sanitizers abort where the heap would throw. An array of bytes is the one that gets so far: any
// other of 2^31 by 2^31 is refused by its size in bytes.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool heap_throws = false;
#elif defined(__has_feature)
constexpr bool heap_throws = !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer);
#else
constexpr bool heap_throws = true;
#endif
template <class T, std::size_t R>
constexpr bool can_be_impossible = R > 2 || (R == 2 && (sizeof(T) > 1 || heap_throws));

/// What the operations on one kind of array did: statuses, elements (-1 when not
/// allocated) and report lines.
struct account {
  std::vector<int32> statuses;
  std::vector<int64> elements;
  strings lines;
};

/// Both forms of one allocation and its release, where they work and where extents that cannot be
/// held (2^31 per dimension), or storage that contradicts the extents, make them fail.
template <class T, std::size_t R, class Alloc, class Dealloc, std::size_t... K>
account exercise(const Alloc& alloc, const Dealloc& dealloc, std::index_sequence<K...>) {
  account done;
  error_type err;
  array<T, R> a;
  const auto note = [&](int32 status) {
    done.statuses.push_back(status);
    done.elements.push_back(a.allocated ? static_cast<int64>(a.size()) : -1);
  };
  note(dealloc(a, err, "never allocated"));
  note(alloc(a, (static_cast<void>(K), 2)..., err));
  const array<T, R> before = a;
  if constexpr (can_be_impossible<T, R>) {
    note(alloc(a, (static_cast<void>(K), most)..., err, std::nullopt, "runlca: dims"));
    array<int32, 1> dims;
    dims.allocate({static_cast<int32>(R)}, most);
    note(alloc(a, dims, err));
  }
  a = before;
  a.flat.pop_back();
  note(dealloc(a, err, "put_rho: rho"));
  note(alloc(a, (static_cast<void>(K), 1)..., err));
  a = before;
  note(dealloc(a, err));
  done.lines = lines_of(err);
  return done;
}

void expect_account(const account& done, std::size_t rank, bool impossible,
                    const std::string& module, const std::string& alloc,
                    const std::string& dealloc) {
  const std::string no_memory = "Unable to allocate memory for object";
  const std::string no_release = "Unable to deallocate memory for object";
  const std::string here = "OCCURRED IN: " + alloc + " in MOD " + module;
  const std::string release = "OCCURRED IN: " + dealloc + " in MOD " + module;
  const int64 full = int64{1} << rank;
  account want{{0, 0}, {-1, full}, {}};
  if (impossible)
    want = {{0, 0, -1, -1}, {-1, full, -1, -1}, {no_memory, "runlca: dims", here, no_memory, here}};
  for (const auto& line : {no_release, std::string("put_rho: rho"), release, no_release, here})
    want.lines.push_back(line);
  want.statuses.insert(want.statuses.end(), {-1, -1, 0});
  want.elements.insert(want.elements.end(), {full - 1, full - 1, -1});
  EXPECT_EQ(done.statuses, want.statuses) << here;
  EXPECT_EQ(done.elements, want.elements) << here;
  EXPECT_EQ(done.lines, want.lines);
}

#define EXERCISE_IN(module, T, rank, alloc, dealloc)                                             \
  expect_account(                                                                                \
      exercise<T, rank>(module::alloc, module::dealloc, std::make_index_sequence<rank>{}), rank, \
      can_be_impossible<T, rank>, #module, #alloc, #dealloc)
#define EXERCISE(T, rank, alloc, dealloc)                   \
  EXERCISE_IN(dynamic_allocation, T, rank, alloc, dealloc); \
  EXERCISE_IN(dynamic_pointer_allocation, T, rank, alloc, dealloc)

TEST(DynamicAllocation, EveryMemberWorksAndReportsUnderItsOwnName) {
  EXERCISE(int32, 1, int1_alloc, int1_dealloc);
  EXERCISE(int32, 2, int2_alloc, int2_dealloc);
  EXERCISE(int32, 3, int3_alloc, int3_dealloc);
  EXERCISE(int32, 4, int4_alloc, int4_dealloc);
  EXERCISE(int32, 5, int5_alloc, int5_dealloc);
  EXERCISE(int32, 6, int6_alloc, int6_dealloc);
  EXERCISE(int32, 7, int7_alloc, int7_dealloc);
  EXERCISE(double, 1, dbl1_alloc, dbl1_dealloc);
  EXERCISE(double, 2, dbl2_alloc, dbl2_dealloc);
  EXERCISE(double, 3, dbl3_alloc, dbl3dealloc);
  EXERCISE(double, 4, dbl4_alloc, dbl4dealloc);
  EXERCISE(double, 5, dbl5_alloc, dbl5dealloc);
  EXERCISE(double, 6, dbl6_alloc, dbl6dealloc);
  EXERCISE(double, 7, dbl7_alloc, dbl7dealloc);
  EXERCISE(name8, 1, str1_alloc, str1_dealloc);
  EXERCISE(name8, 2, str2_alloc, str2_dealloc);
  EXERCISE(name8, 3, str3_alloc, str3_dealloc);
  EXERCISE(name8, 4, str4_alloc, str4_dealloc);
  EXERCISE(name8, 5, str5_alloc, str5_dealloc);
  EXERCISE(name8, 6, str6_alloc, str6_dealloc);
  EXERCISE(name8, 7, str7_alloc, str7_dealloc);
  EXERCISE(logical, 1, log1_alloc, log1_dealloc);
  EXERCISE(logical, 2, log2_alloc, log2_dealloc);
  EXERCISE(logical, 3, log3_alloc, log3_dealloc);
}

TEST(DynamicAllocation, BoundsAndEmptyDimensions) {
  using dynamic_allocation::dbl2_alloc;
  const struct {
    const char* why;
    std::array<int32, 2> upper, lower;
    std::array<int32, 2> extents;
  } cases[] = {{"lower bounds 1", {3, 2}, {1, 1}, {3, 2}},
               {"bounds around zero", {2, 0}, {-1, 0}, {4, 1}},
               {"upper just below lower", {0, 2}, {1, 1}, {0, 2}},
               {"upper far below lower", {-most, 2}, {most, 1}, {0, 2}},
               {"the other dimension empty", {most, 4}, {1, 5}, {most, 0}}};
  for (const auto& t : cases) {
    SCOPED_TRACE(t.why);
    error_type err;
    array<double, 2> a;
    ASSERT_EQ(dbl2_alloc(a, 5, 5, err), 0);
    a(5, 5) = 1.0;
    ASSERT_EQ(dbl2_alloc(a, t.upper[0], t.upper[1], err, t.lower), 0);
    EXPECT_TRUE(a.allocated);
    EXPECT_EQ(a.n, t.extents);
    EXPECT_EQ(a.stride[1], t.extents[0]);  // a loop over a column of an empty array has no end else
    for (std::size_t k = 0; k < a.size(); ++k) EXPECT_EQ(a.flat[k], 0.0);
    if (a.size() == 0) continue;
    a(t.lower[0], t.lower[1]) = 1.0;
    a(t.upper[0], t.upper[1]) = 2.0;
    EXPECT_EQ(a.flat.front(), 1.0);
    EXPECT_EQ(a.flat.back(), 2.0);
  }
}

TEST(DynamicAllocation, AnExtentBeyondAnIndexIsRefused) {
  error_type err;
  array<logical, 2> a;
  ASSERT_EQ(dynamic_allocation::log2_alloc(a, 2, 2, err), 0);
  EXPECT_EQ(dynamic_allocation::log2_alloc(a, most, 0, err, std::array<int32, 2>{0, 1}), -1);
  EXPECT_FALSE(a.allocated);
  EXPECT_EQ(lines_of(err), (strings{"Unable to allocate memory for object",
                                    "OCCURRED IN: log2_alloc in MOD dynamic_allocation"}));
}

TEST(DynamicAllocation, ExtentVectorsCountNegativeAsZeroAndMustFitTheRank) {
  error_type err;
  array<int32, 3> a;
  ASSERT_EQ(dynamic_allocation::int3_alloc(a, vector_of<int32>({2, -7, 3}), err), 0);
  EXPECT_TRUE(a.allocated);
  EXPECT_EQ(a.n, (std::array<int32, 3>{2, 0, 3}));
  EXPECT_EQ(dynamic_allocation::int3_alloc(a, vector_of<int32>({2, 2}), err), -1);
  EXPECT_EQ(lines_of(err).front(), "Dimensions of matrix arguments not conformable");
}

TEST(DynamicAllocation, AnEmptyDimensionBehindHugeOnesIsStillEmpty) {
  error_type err;
  array<double, 5> a;
  ASSERT_EQ(dynamic_allocation::dbl5_alloc(a, most, most, most, most, 0, err), 0);
  EXPECT_TRUE(a.allocated);
  EXPECT_EQ(a.size(), 0U);
}

}  // namespace
}  // namespace tolvenra
