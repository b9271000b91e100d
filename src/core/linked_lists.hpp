/// \file linked_lists.hpp  A list of integers of unknown number, module `linked_lists`.
///
/// New values go to the head; ordinals count insertions from 1, so the head holds the newest.
#pragma once

#include <memory>

#include "core/array.hpp"
#include "core/error_handler.hpp"

namespace tolvenra::linked_lists {

struct int_node {
  int32 value = 0, ordinal = 0;
  std::unique_ptr<int_node> next;
};

/// Referenced by its head; empty when there is none.
struct int_list {
  std::unique_ptr<int_node> head;

  int_list() = default;
  int_list(const int_list&) = delete;
  int_list& operator=(const int_list&) = delete;
  ~int_list();  ///< node by node: a long chain must not recurse
};

/// Puts `value` at the head with the next ordinal. \return 0 or -1
int32 int_list_add(int32 value, int_list& list, error_type& err);
/// Allocates `values` and fills element i with the value of ordinal i; an empty list is an error.
int32 int_list_to_array(array<int32, 1>& values, const int_list& list, error_type& err);

int32 int_list_length(const int_list& list);
/// Ordinal of the first node from the head that holds `value`; 0 when none does, -1 when empty.
int32 int_list_ordinal(int32 value, const int_list& list);
/// Value of the node with `ordinal`; 0 when there is none.
int32 int_list_value(int32 ordinal, const int_list& list);

}  // namespace tolvenra::linked_lists
