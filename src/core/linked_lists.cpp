#include "core/linked_lists.hpp"

#include <new>
#include <utility>

#include "core/dynamic_allocation.hpp"

namespace tolvenra::linked_lists {

int_list::~int_list() {
  while (head) head = std::move(head->next);
}

int32 int_list_add(int32 value, int_list& list, error_type& err) {
  std::unique_ptr<int_node> node(new (std::nothrow) int_node);
  if (!node)
    return fail(err, {"int_list_add", "linked_lists"},
                {text("Unable to allocate new node for linked list.")});
  node->value = value;
  node->ordinal = list.head ? list.head->ordinal + 1 : 1;
  node->next = std::move(list.head);
  list.head = std::move(node);
  return 0;
}

int32 int_list_to_array(array<int32, 1>& values, const int_list& list, error_type& err) {
  constexpr routine here{"int_list_to_array", "linked_lists"};
  const int32 count = int_list_length(list);
  if (count < 1) return fail(err, here, {text("Unable to allocate array for empty list.")});
  if (dynamic_allocation::int1_alloc(values, count, err) != 0)
    return fail(err, here, {text("Unable to allocate array for list.")});
  for (const int_node* node = list.head.get(); node; node = node->next.get())
    values(node->ordinal) = node->value;
  return 0;
}

int32 int_list_length(const int_list& list) { return list.head ? list.head->ordinal : 0; }

int32 int_list_ordinal(int32 value, const int_list& list) {
  if (!list.head) return -1;
  for (const int_node* node = list.head.get(); node; node = node->next.get())
    if (node->value == value) return node->ordinal;
  return 0;
}

int32 int_list_value(int32 ordinal, const int_list& list) {
  for (const int_node* node = list.head.get(); node; node = node->next.get())
    if (node->ordinal == ordinal) return node->value;
  return 0;
}

}  // namespace tolvenra::linked_lists
