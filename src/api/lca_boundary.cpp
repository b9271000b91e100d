#include <algorithm>
#include <limits>

#include "api/host_arrays.hpp"
#include "api/lca_run.hpp"

namespace tolvenra::api {
namespace {

int32 check_addresses(lca_run& run) {
  const missing_address missing = first_missing(run.call);
  if (missing.position == 0) return 0;
  return refuse(run, {text("A required argument is missing (NULL address):"),
                      text("position ", missing.position, " (", missing.name, ")")});
}

int32 check_sizes(lca_run& run) {
  const lca_call& call = run.call;
  if (call.nkase < 1)
    return refuse(run, {text("The number of cases specified was ", call.nkase),
                        text("There must be at least 1.")});
  if (call.nci < 1)
    return refuse(run, {text("The number of items specified was ", call.nci),
                        text("There must be at least 1.")});
  const int32 largest = *std::max_element(call.nrc, call.nrc + call.nci);
  if (call.nrcmax != largest)
    return refuse(run, {text("The extent of the category dimension specified was ", call.nrcmax),
                        text("It must be equal to the largest element of nrc, ", largest)});
  if (beyond_memory({call.nci, call.nc, call.nrcmax, call.nstr}, sizeof(double)) ||
      beyond_memory({call.nkase, call.nci}, sizeof(int32)))
    return refuse(run, {text("The dimensions specified are beyond what memory can hold.")});
  return 0;
}

}  // namespace

int32 check_lca_boundary(lca_run& run) { return check_addresses(run) == 0 ? check_sizes(run) : -1; }

void enter_lca(const lca_run& run) {
  set_logical(run.call.converged, false);
  set_cell(run.call.iterations, -1);
  run.message.begin();
  if (run.call.run_info) std::fill_n(run.call.run_info, TOLVENRA_RUN_INFO_SIZE, 0);
}

}  // namespace tolvenra::api
