/// \file saturated_steps.hpp  The steps that climb the log-likelihood of incomplete responses, and
/// what is known at a point. What they are for is told in saturated_em.hpp.
#pragma once

#include <span>
#include <vector>

#include "estimation/saturated_cells.hpp"

namespace tolvenra::estimation {

/// Classes and patterns that are linked by shared cells, numbered from 0.
struct block_numbers {
  std::vector<std::size_t> of_pattern, of_class;
  std::size_t count = 0;
};

block_numbers find_blocks(const cell_classes& classes, std::size_t npatt);

/// One fit: points are masses, the probabilities of the classes.
class cell_em {
 public:
  using values = std::vector<double>;

  /// \param count  weighted number of cases with each pattern, positive
  cell_em(const cell_classes& classes, const values& count, int32 threads);

  [[nodiscard]] const block_numbers& blocks() const { return blocks_; }
  [[nodiscard]] double total() const { return total_; }
  /// Visits of a class by a pattern so far: the work done.
  [[nodiscard]] int64 visits() const { return visits_; }

  /// Probabilities of the patterns at a point and everything that follows from them.
  void estep(const values& mass);
  // What the last E-step found: probabilities of the patterns, log-likelihood by block and in all,
  // and how far it may lie below its maximum.
  [[nodiscard]] const values& probability() const { return probability_; }
  [[nodiscard]] const values& loglik() const { return loglik_; }
  [[nodiscard]] double sum_of_loglik() const;
  [[nodiscard]] double shortfall() const;

  /// E-step at `from` and the M-step's answer. \return sum of the absolute changes
  double pass(const values& from, values& to);

  /// Newton steps of single classes on the log-likelihood less N times the probabilities, whose
  /// maximum is that of the log-likelihood alone: sweeps over the classes that have a probability
  /// or were found by the last E-step to deserve one, as many as cost about as much as a pass.
  void climb(values& mass);

  /// Scales every block to its share of the cases.
  void share_out(values& mass);

 private:
  [[nodiscard]] std::span<const int32> patterns_of(std::size_t k) const;
  /// Adds the masses of the listed classes up.
  template <class List>
  void add_up(const values& mass, const List& classes);
  [[nodiscard]] double newton_step(std::size_t k, double mass) const;
  void sweep(values& mass);

  const cell_classes& classes_;
  const values& count_;
  block_numbers blocks_;
  double total_;
  int32 threads_;
  int64 visits_ = 0;
  values probability_, weight_;             // by pattern
  values derivative_;                       // by class
  values cases_, loglik_, steepest_, sum_;  // by block
  std::vector<std::size_t> active_;         // classes that a sweep goes through
};

}  // namespace tolvenra::estimation
