/// \file random_generator.hpp  Uniform random numbers and seeding, module `random_generator`.
///
/// The combined multiplicative congruential generator of L'Ecuyer with 32 virtual generators of
/// 2^20 blocks of 2^30 numbers each. The state belongs to the caller: two analyses never share a
/// stream, and equal seeds repeat a stream bit for bit. Each routine returns 0, or -1 with its
/// report and a numeric result of 0.
/// Source: L'Ecuyer (1988), Comm. ACM 31, 742-749 and 774; L'Ecuyer & Cote (1991), ACM TOMS 17,
/// 98-111.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>

#include "core/array.hpp"
#include "core/error_handler.hpp"

namespace tolvenra {

/// One stream of random numbers; draws fail until it has been seeded.
struct ran_state_type {
  std::array<int32, 32> cg1{}, cg2{};  ///< current state of the two components, by generator
  std::array<int32, 32> ig1{}, ig2{};  ///< initial seeds of each virtual generator
  std::array<int32, 32> lg1{}, lg2{};  ///< last seeds: start of the current block
  std::array<logical, 32> qanti{};     ///< antithetic draws wanted
  int32 g = 1;                         ///< the current virtual generator, 1..32
  bool seeds_set = false;

  bool operator==(const ran_state_type&) const = default;
};

namespace random_generator {

inline constexpr int32 m1 = 2147483563, m2 = 2147483399;  ///< moduli of the two components

/// A local date and time; month 1..12, day 1..31.
struct clock_reading {
  int32 year, month, day, hour, minute, second, millisecond;
};

/// Sets the seeds of all 32 generators. Each starts from its own, but for generator 1 while another
/// one is current: it goes on until it is initialised (initgn). \param seed1  1..m1 \param
/// seed2  1..m2
int32 ran_setall(ran_state_type& state, int32 seed1, int32 seed2, error_type& err);

/// Seeds from the local date and time, or from `now` where given.
int32 ran_timeseed(ran_state_type& state, error_type& err,
                   const std::optional<clock_reading>& now = std::nullopt);

/// Seeds from a text: "a" counts as 1, every other character (blanks too) as 63.
int32 ran_phrasd(ran_state_type& state, std::string_view phrase, error_type& err);

/// Sets the current generator back to its initial seeds (type -1), to the start of its next block
/// (type 1) or of its current block (any other type).
int32 initgn(ran_state_type& state, int32 type, error_type& err);

/// result = a * s mod m; a and s in 1..m, the bound included.
int32 mltmod(int32 a, int32 s, int32 m, int32& result, error_type& err);

/// An integer in 1..2147483562 from the current generator.
int32 ran_genint(ran_state_type& state, int32& result, error_type& err);

/// A uniform in [2^-31, 1 - 2^-24] of single-precision resolution.
int32 unit_uniform(ran_state_type& state, double& result, error_type& err);

/// low + (high - low) * u with u a unit uniform.
int32 ran_genunf(ran_state_type& state, double low, double high, double& result, error_type& err);

/// A category 1..n drawn with the probabilities p(1..n), which sum to 1 within 1e-5. A uniform
/// beyond the accumulated total gives category 1.
int32 ran_genmuln(ran_state_type& state, std::span<const double> p, int32 n, int32& category,
                  error_type& err);
inline int32 ran_genmuln(ran_state_type& state, const array<double, 1>& p, int32 n, int32& category,
                         error_type& err) {
  return ran_genmuln(state, std::span(p.flat), n, category, err);
}

namespace detail {

/// True when the current generator can draw.
inline bool ready(const ran_state_type& state) {
  return state.seeds_set && state.g >= 1 && state.g <= 32;
}

/// Reports under `ran_genint` why no number can be drawn. \return -1
int32 refuse_draw(const ran_state_type& state, error_type& err);

/// refuse_draw, then "Operation failed." under the calling routine's own line. \return -1
int32 refuse_draw(const ran_state_type& state, std::string_view caller, error_type& err);

/// One step of the current generator of a state that is ready.
inline int32 next_integer(ran_state_type& state) {
  const auto g = static_cast<std::size_t>(state.g - 1);
  // Schrage's decomposition keeps both products within 32 bits.
  int32 s1 = state.cg1[g], s2 = state.cg2[g];
  s1 = 40014 * (s1 % 53668) - 12211 * (s1 / 53668);
  if (s1 < 0) s1 += m1;
  s2 = 40692 * (s2 % 52774) - 3791 * (s2 / 52774);
  if (s2 < 0) s2 += m2;
  state.cg1[g] = s1;
  state.cg2[g] = s2;
  int32 z = s1 - s2;
  if (z < 1) z += m1 - 1;
  return state.qanti[g] == logical::yes ? m1 - z : z;
}

/// The unit uniform of a state that is ready; the product is a single-precision one.
inline float next_uniform(ran_state_type& state) {
  return static_cast<float>(next_integer(state)) * 4.656613e-10F;
}

}  // namespace detail
}  // namespace random_generator
}  // namespace tolvenra
