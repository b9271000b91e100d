/// \file lca_run.hpp  A latent class analysis as the benchmarks pose it to the driver.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "api/exports.hpp"
#include "api/generated/call_records.hpp"
#include "lca_data.hpp"

namespace tolvenra::bench {

struct problem {
  int n, items, categories, classes;
  std::vector<std::int32_t> nrc, y;
  std::vector<double> cov;  ///< (n, covariates)
  int covariates = 0;
  std::vector<std::int32_t> rho_restrictions;  ///< empty: all free
  std::vector<double> fixed_rho;               ///< values of fixed elements; empty: none

  problem(int cases, int nitems, int ncategories, int nclasses)
      : n(cases),
        items(nitems),
        categories(ncategories),
        classes(nclasses),
        nrc(static_cast<std::size_t>(nitems), ncategories),
        y(draw_responses(cases, nitems, ncategories, nclasses, 20260101)) {}

  /// \return iterations of all starts
  int run(int starts, double criterion, int max_iter, int threads) const {
    std::vector<double> gamma(static_cast<std::size_t>(classes));
    std::vector<double> rho = fixed_rho;
    rho.resize(static_cast<std::size_t>(items * classes * categories));
    std::vector<std::int32_t> iterations(static_cast<std::size_t>(starts));
    std::string message(400, ' ');
    api::lca_call call{};
    call.nci = items;
    call.nrc = nrc.data();
    call.nrcmax = categories;
    call.nkase = n;
    call.ncov = covariates;
    call.cov = cov.data();
    call.rho_restrictions = rho_restrictions.empty() ? nullptr : rho_restrictions.data();
    call.nstr = 1;
    call.y = y.data();
    call.nc = classes;
    call.gamma = gamma.data();
    call.rho = rho.data();
    call.nstarts = starts;
    call.seed = 17;
    call.criterion = criterion;
    call.max_iter = max_iter;
    call.max_threads = threads;
    call.start_iter = iterations.data();
    call.msg_len = static_cast<std::int32_t>(message.size());
    call.message = message.data();
    if (api::guarded_run_lca(call) != 0) throw std::runtime_error(message);
    int total = 0;
    for (const int count : iterations) total += count;
    return total;
  }
};

}  // namespace tolvenra::bench
