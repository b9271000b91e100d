/// \file dynamic_allocation.hpp  Allocation that reports instead of throwing, modules
/// `dynamic_allocation` (arrays owned outright) and `dynamic_pointer_allocation` (arrays in a
/// container field that others may hold too). Both modules have the same members; only the module
/// name in their reports differs.
///
///   int32 dbl3_alloc(array, n1, n2, n3, err, lower = {}, msg = {})   upper bounds, lower bounds 1
///   int32 dbl3_alloc(array, dims, err)                               vector of the extents
///   int32 dbl3dealloc(array, err, msg = {})
///
/// for `int`, `dbl`, `str` of ranks 1 to 7 and `log` of ranks 1 to 3. An allocated array is
/// released first; a negative extent counts as 0. Each returns 0, or -1 after report 200 (no memory
/// or an impossible size) or 201 (the array's storage is not what its extents say). `msg` names the
/// array in the report ("runlca: dims").
#pragma once

#include <algorithm>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <type_traits>

#include "core/array.hpp"
#include "core/error_handler.hpp"

namespace tolvenra {
namespace allocation {

/// A text literal as a template argument.
template <std::size_t N>
struct literal {
  char text[N]{};
  constexpr literal(const char (&from)[N]) { std::copy_n(from, N, text); }  // NOLINT: implicit
  [[nodiscard]] constexpr std::string_view view() const { return {text, N - 1}; }
};

template <class T>
inline constexpr bool is_text = false;
template <std::size_t N>
inline constexpr bool is_text<std::array<char, N>> = true;

struct integers {
  template <class T>
  static constexpr bool holds = std::is_same_v<T, int32>;
};
struct reals {
  template <class T>
  static constexpr bool holds = std::is_same_v<T, double>;
};
struct texts {
  template <class T>
  static constexpr bool holds = is_text<T>;
};
struct logicals {
  template <class T>
  static constexpr bool holds = std::is_same_v<T, logical>;
};

using message = std::optional<std::string_view>;

/// Number of elements of the given extents (negative counts as 0); -1 beyond what can be addressed.
template <std::size_t R>
int64 element_count(const std::array<int32, R>& extents, std::size_t bytes) {
  int64 total = 1;
  bool beyond = false;
  const int64 most = std::numeric_limits<int64>::max() / static_cast<int64>(bytes);
  for (const int32 n : extents) {
    if (n <= 0) return 0;
    beyond = beyond || total > most / n;
    if (!beyond) total *= n;
  }
  return beyond ? -1 : total;
}

inline int32 refuse(int32 code, const routine& here, const message& msg, error_type& err) {
  err_handle(err, code, {.whichsub = here.whichsub(), .msg = msg});
  return -1;
}

template <class T, std::size_t R>
int32 release(array<T, R>& a, const routine& here, const message& msg, error_type& err) {
  if (!a.allocated) return 0;
  if (element_count(a.n, sizeof(T)) != static_cast<int64>(a.size()))
    return refuse(error_code::release, here, msg, err);
  a.release();
  return 0;
}

template <class T, std::size_t R>
int32 allocate(array<T, R>& a, const std::array<int32, R>& lower,
               const std::array<int32, R>& extents, const routine& here, const message& msg,
               error_type& err) {
  if (release(a, here, msg, err) != 0) return -1;
  if (element_count(extents, sizeof(T)) < 0) return refuse(error_code::allocation, here, msg, err);
  try {
    a.allocate_from(lower, extents);
  } catch (const std::bad_alloc&) {
    a.release();
  } catch (const std::length_error&) {
    a.release();
  }
  return a.allocated ? 0 : refuse(error_code::allocation, here, msg, err);
}

/// Runs `body`, which allocates what `label` names; running out of memory becomes its report.
/// \return 0 or -1
template <class Body>
int32 allocate_under(std::string_view label, const routine& here, error_type& err, Body&& body) {
  try {
    body();
    return 0;
  } catch (const std::bad_alloc&) {
  } catch (const std::length_error&) {
  }
  return refuse(error_code::allocation, here, label, err);
}

template <std::size_t, class T>
using repeated = T;

/// Lower bounds of an array, all 1 unless given.
template <std::size_t R>
struct lower_bounds {
  std::array<int32, R> at;

  constexpr lower_bounds() { at.fill(1); }
  constexpr lower_bounds(std::nullopt_t) : lower_bounds() {}                // NOLINT: implicit
  constexpr lower_bounds(const std::array<int32, R>& given) : at(given) {}  // NOLINT: implicit
};

template <class Element, std::size_t R, literal Name, literal Module,
          class = std::make_index_sequence<R>>
struct alloc_operation;

template <class Element, std::size_t R, literal Name, literal Module, std::size_t... K>
struct alloc_operation<Element, R, Name, Module, std::index_sequence<K...>> {
  static constexpr routine here{Name.view(), Module.view()};

  template <class T>
  requires(Element::template holds<T>) int32 operator()(array<T, R>& a, repeated<K, int32>... upper,
                                                        error_type& err,
                                                        const lower_bounds<R>& lower = {},
                                                        const message& msg = std::nullopt) const {
    const std::array<int32, R> last{upper...};
    std::array<int32, R> extents{};
    for (std::size_t k = 0; k < R; ++k) {
      const int64 extent = std::max<int64>(int64{last[k]} - lower.at[k] + 1, 0);
      if (extent > std::numeric_limits<int32>::max())  // from a lower bound below 1
        return release(a, here, msg, err) != 0 ? -1
                                               : refuse(error_code::allocation, here, msg, err);
      extents[k] = static_cast<int32>(extent);
    }
    return allocate(a, lower.at, extents, here, msg, err);
  }

  template <class T>
  requires(Element::template holds<T>) int32 operator()(array<T, R>& a, const array<int32, 1>& dims,
                                                        error_type& err) const {
    if (dims.size() != R) return refuse(error_code::not_conformable, here, std::nullopt, err);
    std::array<int32, R> extents{};
    std::copy_n(dims.flat.begin(), R, extents.begin());
    return allocate(a, lower_bounds<R>{}.at, extents, here, std::nullopt, err);
  }
};

template <class Element, std::size_t R, literal Name, literal Module>
struct dealloc_operation {
  template <class T>
  requires(Element::template holds<T>) int32 operator()(array<T, R>& a, error_type& err,
                                                        const message& msg = std::nullopt) const {
    return release(a, routine{Name.view(), Module.view()}, msg, err);
  }
};

}  // namespace allocation

// The members, once; the double releases of rank 3 to 7 are named without the underscore.
#define TOLVENRA_PAIR(module, element, rank, alloc, dealloc)                                       \
  inline constexpr allocation::alloc_operation<allocation::element, rank, #alloc, module> alloc{}; \
  inline constexpr allocation::dealloc_operation<allocation::element, rank, #dealloc, module>      \
      dealloc{};
#define TOLVENRA_MEMBERS(module)                               \
  TOLVENRA_PAIR(module, integers, 1, int1_alloc, int1_dealloc) \
  TOLVENRA_PAIR(module, integers, 2, int2_alloc, int2_dealloc) \
  TOLVENRA_PAIR(module, integers, 3, int3_alloc, int3_dealloc) \
  TOLVENRA_PAIR(module, integers, 4, int4_alloc, int4_dealloc) \
  TOLVENRA_PAIR(module, integers, 5, int5_alloc, int5_dealloc) \
  TOLVENRA_PAIR(module, integers, 6, int6_alloc, int6_dealloc) \
  TOLVENRA_PAIR(module, integers, 7, int7_alloc, int7_dealloc) \
  TOLVENRA_PAIR(module, reals, 1, dbl1_alloc, dbl1_dealloc)    \
  TOLVENRA_PAIR(module, reals, 2, dbl2_alloc, dbl2_dealloc)    \
  TOLVENRA_PAIR(module, reals, 3, dbl3_alloc, dbl3dealloc)     \
  TOLVENRA_PAIR(module, reals, 4, dbl4_alloc, dbl4dealloc)     \
  TOLVENRA_PAIR(module, reals, 5, dbl5_alloc, dbl5dealloc)     \
  TOLVENRA_PAIR(module, reals, 6, dbl6_alloc, dbl6dealloc)     \
  TOLVENRA_PAIR(module, reals, 7, dbl7_alloc, dbl7dealloc)     \
  TOLVENRA_PAIR(module, texts, 1, str1_alloc, str1_dealloc)    \
  TOLVENRA_PAIR(module, texts, 2, str2_alloc, str2_dealloc)    \
  TOLVENRA_PAIR(module, texts, 3, str3_alloc, str3_dealloc)    \
  TOLVENRA_PAIR(module, texts, 4, str4_alloc, str4_dealloc)    \
  TOLVENRA_PAIR(module, texts, 5, str5_alloc, str5_dealloc)    \
  TOLVENRA_PAIR(module, texts, 6, str6_alloc, str6_dealloc)    \
  TOLVENRA_PAIR(module, texts, 7, str7_alloc, str7_dealloc)    \
  TOLVENRA_PAIR(module, logicals, 1, log1_alloc, log1_dealloc) \
  TOLVENRA_PAIR(module, logicals, 2, log2_alloc, log2_dealloc) \
  TOLVENRA_PAIR(module, logicals, 3, log3_alloc, log3_dealloc)

namespace dynamic_allocation {
TOLVENRA_MEMBERS("dynamic_allocation")
}
namespace dynamic_pointer_allocation {
TOLVENRA_MEMBERS("dynamic_pointer_allocation")
}
#undef TOLVENRA_MEMBERS
#undef TOLVENRA_PAIR

}  // namespace tolvenra
