#include "numerics/random_generator.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>

namespace tolvenra::random_generator {
namespace {

constexpr int32 a1w = 1033780774, a2w = 1494757890;   // 40014, 40692 to the power 2^30
constexpr int32 a1vw = 2082007225, a2vw = 784306273;  // ... to the power 2^50

constexpr routine in(std::string_view name) { return {name, "random_generator"}; }

/// a * s mod m with m in place of a residue 0: 0 and m are one residue, but only m is a valid seed.
int32 jump(int32 a, int32 s, int32 m, int32& result, error_type& err) {
  if (mltmod(a, s, m, result, err) != 0) return -1;
  if (result == 0) result = m;
  return 0;
}

/// Installs seeds that lie within their bounds, reporting as `ran_setall`.
int32 install(ran_state_type& state, int32 seed1, int32 seed2, error_type& err) {
  const int32 entry = state.g;
  state.seeds_set = true;
  state.ig1[0] = seed1;
  state.ig2[0] = seed2;
  int32 status = initgn(state, -1, err);
  for (std::size_t k = 1; k < 32 && status == 0; ++k) {
    state.g = static_cast<int32>(k) + 1;
    if (jump(a1vw, state.ig1[k - 1], m1, state.ig1[k], err) != 0 ||
        jump(a2vw, state.ig2[k - 1], m2, state.ig2[k], err) != 0 || initgn(state, -1, err) != 0)
      status = -1;
  }
  state.g = entry;
  return status == 0 ? 0 : fail(err, in("ran_setall"), {text("Operation failed.")});
}

bool is_leap(int32 year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

/// Milliseconds since 1 January 2001; a common year counts as the single-precision number nearest
/// to its length.
double milliseconds(const clock_reading& now) {
  constexpr std::array<int32, 12> days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  double t = 0.0;
  for (int32 year = 2001; year < now.year; ++year)
    t += is_leap(year) ? 31622400000.0 : 31536001024.0;
  for (int32 month = 1; month < std::min(now.month, 13); ++month) {
    const int32 leap_day = month == 2 && is_leap(now.year) ? 1 : 0;
    t += 86400000.0 * (days[static_cast<std::size_t>(month - 1)] + leap_day);
  }
  t += static_cast<double>(static_cast<float>(now.day - 1) * 86400000.0F);
  t += ((now.hour * 60 + now.minute) * 60 + now.second) * 1000.0;
  return t + now.millisecond;
}

clock_reading read_clock() {
  using std::chrono::duration_cast, std::chrono::milliseconds, std::chrono::seconds;
  const auto since_epoch =
      duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch());
  const auto whole = std::chrono::floor<seconds>(since_epoch);
  const auto stamp = static_cast<std::time_t>(whole.count());
  std::tm local{};
#ifdef _WIN32
  localtime_s(&local, &stamp);
#else
  localtime_r(&stamp, &local);
#endif
  return {local.tm_year + 1900,
          local.tm_mon + 1,
          local.tm_mday,
          local.tm_hour,
          local.tm_min,
          local.tm_sec,
          static_cast<int32>((since_epoch - whole).count())};
}

}  // namespace

int32 detail::refuse_draw(const ran_state_type& state, error_type& err) {
  if (!state.seeds_set)
    return fail(err, in("ran_genint"), {text("Random generator seeds have not been set.")});
  return fail(err, in("ran_genint"), {text("There is no virtual generator ", state.g, ".")});
}

int32 detail::refuse_draw(const ran_state_type& state, std::string_view caller, error_type& err) {
  refuse_draw(state, err);
  return fail(err, in(caller), {text("Operation failed.")});
}

int32 ran_setall(ran_state_type& state, int32 seed1, int32 seed2, error_type& err) {
  const auto check = [&err](int32 seed, int32 most) {
    if (seed < 1) return fail(err, in("ran_setall"), {text("Seed must be 1 or greater.")});
    if (seed > most)
      return fail(err, in("ran_setall"), {text("Seed cannot be greater than 2147483399")});
    return int32{0};
  };
  if (check(seed1, m1) != 0 || check(seed2, m2) != 0) return -1;
  return install(state, seed1, seed2, err);
}

int32 ran_timeseed(ran_state_type& state, error_type& err,
                   const std::optional<clock_reading>& now) {
  const double t = milliseconds(now ? *now : read_clock());
  constexpr double half = 67108864.0;  // 2^26: the low and high halves of the count change places
  const double swapped = half * std::fmod(t, half) + std::floor(t / half);
  const auto seed1 = static_cast<int32>(std::fmod(t, double{m1}) + 1.0);
  const auto seed2 = static_cast<int32>(1.0 + std::fmod(swapped, double{m2}));
  if (ran_setall(state, seed1, seed2, err) == 0) return 0;
  return fail(err, in("ran_timeseed"), {text("Operation failed.")});
}

int32 ran_phrasd(ran_state_type& state, std::string_view phrase, error_type& err) {
  if (phrase.empty())
    return fail(err, in("ran_phrasd"), {text("A zero-length string is invalid.")});
  constexpr std::array<int64, 5> shift{1, 64, 4096, 262144, 16777216};
  constexpr int64 two_to_30 = int64{1} << 30;
  int64 seed1 = 1234567890, seed2 = 123456789;
  for (const char c : phrase) {
    const int64 v = c == 'a' ? 1 : 63;
    std::array<int64, 5> values{};
    for (std::size_t j = 0; j < 5; ++j) {
      values[j] = v - static_cast<int64>(j) - 1;
      if (values[j] < 1) values[j] += 63;
    }
    for (std::size_t j = 0; j < 5; ++j) {
      seed1 = (seed1 + shift[j] * values[j]) % two_to_30;
      seed2 = (seed2 + shift[j] * values[4 - j]) % two_to_30;
    }
  }
  if (seed1 < 1 || seed2 < 1)
    return fail(err, in("ran_setall"), {text("Seed must be 1 or greater.")});
  return install(state, static_cast<int32>(seed1), static_cast<int32>(seed2), err);
}

int32 initgn(ran_state_type& state, int32 type, error_type& err) {
  if (state.g < 1 || state.g > 32)
    return fail(err, in("initgn"), {text("There is no virtual generator ", state.g, ".")});
  const auto g = static_cast<std::size_t>(state.g - 1);
  int32 last1 = state.lg1[g], last2 = state.lg2[g];
  if (type == -1) {
    last1 = state.ig1[g];
    last2 = state.ig2[g];
  } else if (type == 1) {
    if (jump(a1w, state.lg1[g], m1, last1, err) != 0 ||
        jump(a2w, state.lg2[g], m2, last2, err) != 0)
      return fail(err, in("initgn"), {text("Could not initialize random seeds.")});
  }
  state.lg1[g] = state.cg1[g] = last1;
  state.lg2[g] = state.cg2[g] = last2;
  return 0;
}

int32 mltmod(int32 a, int32 s, int32 m, int32& result, error_type& err) {
  result = 0;
  if (a <= 0 || a > m || s <= 0 || s > m)
    return fail(err, in("mltmod"), {text("Parameters out of order.")});
  result = static_cast<int32>(int64{a} * s % m);
  return 0;
}

int32 ran_genint(ran_state_type& state, int32& result, error_type& err) {
  result = 0;
  if (!detail::ready(state)) return detail::refuse_draw(state, err);
  result = detail::next_integer(state);
  return 0;
}

int32 unit_uniform(ran_state_type& state, double& result, error_type& err) {
  result = 0.0;
  if (!detail::ready(state)) return detail::refuse_draw(state, err);
  result = detail::next_uniform(state);
  return 0;
}

int32 ran_genunf(ran_state_type& state, double low, double high, double& result, error_type& err) {
  result = 0.0;
  if (!detail::ready(state)) return detail::refuse_draw(state, "ran_genunf", err);
  if (!(low <= high))
    return fail(err, in("ran_genunf"), {text("Lower bound exceeds upper bound..")});
  const double width = high - low;
  if (!std::isfinite(width))
    return fail(err, in("ran_genunf"), {text("The bounds are infinite or too far apart.")});
  result = low + width * detail::next_uniform(state);
  return 0;
}

int32 ran_genmuln(ran_state_type& state, std::span<const double> p, int32 n, int32& category,
                  error_type& err) {
  category = 0;
  if (!detail::ready(state)) return detail::refuse_draw(state, "ran_genmuln", err);
  const auto size = static_cast<std::size_t>(std::max(n, 0));
  constexpr double tolerance = 1e-5F;
  double total = 0.0;
  bool negative = size > p.size();
  for (std::size_t k = 0; k < size && !negative; ++k) {
    total += p[k];
    negative = !(p[k] >= 0.0);
  }
  if (negative || !(std::abs(total - 1.0) <= tolerance))
    return fail(err, in("ran_genmuln"),
                {text("Error in probabilities, they should be nonnegative "
                      "numbers summing to 1.")});
  const double u = detail::next_uniform(state);
  category = 1;
  double reached = p[0];
  for (std::size_t k = 1; k < size; ++k) {
    const double next = reached + p[k];
    if (reached < u && u <= next) {
      category = static_cast<int32>(k) + 1;
      break;
    }
    reached = next;
  }
  return 0;
}

}  // namespace tolvenra::random_generator
