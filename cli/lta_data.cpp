#include "lta_data.hpp"

#include <algorithm>
#include <cmath>

#include "input_error.hpp"

namespace tolvenra::cli {
namespace {

class lta_data_builder {
 public:
  lta_data_builder(const data_table& table, const lta_options& options)
      : options_(options), from_(arrange_waves(table, options)), missing_(options.na) {
    data_.source = table.source;
    data_.file_rows = table.rows();
    data_.rows = from_.row.size();
    data_.times = from_.times;
    if (options.is_long()) {
      const std::size_t id = find_column(table, options.id, options.asked_by("id"));
      data_.ids = table.columns[id].values;
    }
  }

  lta_data build() {
    add_responses();
    if (from_.freq) data_.freq = positive_numbers(from_.cases, *from_.freq, "frequency");
    if (from_.weight) data_.weight = positive_numbers(from_.cases, *from_.weight, "weight");
    if (from_.group) add_group(from_.cases, *from_.group, case_categories(), data_);
    add_covariates();
    check_independent(data_, options_, "covariates_start", 0, data_.starting.size());
    for (std::size_t t = 0; t + 1 < data_.ntime(); ++t)
      check_independent(data_, options_, "covariates_transition",
                        data_.starting.size() + t * data_.moving.size(), data_.moving.size());
    count_cases(data_);
    count_answers();
    if (!data_.freq.empty() || !data_.weight.empty())
      for (std::size_t i = 0; i < data_.rows; ++i)
        data_.engine_freq.push_back(data_.freq_of(i) * data_.weight_of(i));
    check_patterns(data_, data_.source, options_, "statuses",
                   static_cast<std::size_t>(options_.statuses), "statuses");
    data_.model = make_lta_model(data_, options_);
    if (data_.model.start_given)
      warn_of_equal_starts(data_.nitem(), static_cast<std::size_t>(options_.statuses),
                           data_.model.rho, "Statuses", data_.warnings);
    return std::move(data_);
  }

 private:
  /// The lists of the model file speak of items or of columns of people: those that a table has.
  [[nodiscard]] std::vector<listed_categories> lists_for(const data_table& table,
                                                         const std::vector<std::size_t>& used,
                                                         bool others) const {
    std::vector<listed_categories> lists;
    for (const listed_categories& list : options_.categories) {
      const bool here = std::any_of(used.begin(), used.end(), [&](std::size_t column) {
        return table.columns[column].name == list.columns.text;
      });
      if (here != others) lists.push_back(list);
    }
    return lists;
  }

  [[nodiscard]] category_reader case_categories() {
    case_options_ = options_;
    case_options_.categories = lists_for(from_.cases, {*from_.group}, false);
    return {from_.cases, case_options_};
  }

  void add_responses() {
    wave_options_ = options_;
    if (from_.group) wave_options_.categories = lists_for(from_.cases, {*from_.group}, true);
    const category_reader reader(from_.waves, wave_options_);
    for (const std::size_t column : from_.items) {
      data_.item_labels.push_back(reader.read(column));
      check_item(from_.waves, data_.item_labels.back(), "statuses", data_);
    }
    for (std::size_t t = 0; t < data_.ntime(); ++t)
      for (const categories& item : data_.item_labels) {
        categories& at_time = data_.items.emplace_back();
        at_time.name = fmt::format("{} ({})", item.name, data_.times[t]);
        at_time.labels = item.labels;
        for (const auto& row : from_.row)
          at_time.code.push_back(row[t] == no_row ? 0 : item.code[row[t]]);
      }
    for (categories& item : data_.item_labels) item.code.clear();
  }

  [[nodiscard]] bool answered(std::size_t person, std::size_t time) const {
    for (std::size_t j = 0; j < data_.nitem(); ++j)
      if (data_.items[time * data_.nitem() + j].code[person] != 0) return true;
    return false;
  }

  void count_answers() {
    for (std::size_t t = 0; t < data_.ntime(); ++t) {
      double& cases = data_.answered.emplace_back(0.0);
      for (std::size_t i = 0; i < data_.rows; ++i)
        if (answered(i, t)) cases += data_.freq_of(i);
      if (cases == 0.0)
        data_.warnings.push_back(fmt::format(
            "Nobody answered at time {}: what is said of it follows from the model alone.",
            data_.times[t]));
    }
    std::vector<std::size_t> silent_groups(data_.items.size(), 0);
    count_missing(data_, [&](std::size_t column, std::size_t group) {
      ++silent_groups[column];
      if (!options_.equal_over("group")) refuse_unanswered(column, group);
    });
    for (std::size_t column = 0; column < silent_groups.size(); ++column)
      if (silent_groups[column] == data_.groups()) refuse_unanswered(column, data_.groups());
  }

  /// Nothing tells the probabilities of an item that nobody answered. What restrictions may say of
  /// them is for the engine to judge.
  void refuse_unanswered(std::size_t column, std::size_t group) const {
    const bool restricted = !options_.equal.empty() || !options_.fix.empty();
    if (restricted || options_.equal_over("time")) return;
    throw input_error::of(
        "{}: item \"{}\" has no observed response at time {}{}. Hold the response probabilities "
        "equal over time (--invariant time), or leave out the item.",
        data_.source, data_.item_labels[column % data_.nitem()].name,
        data_.times[column / data_.nitem()],
        group < data_.groups() && data_.group
            ? fmt::format(" in group \"{}\"", data_.group->labels[group])
            : "");
  }

  void add_covariates() {
    for (const std::size_t column : from_.starting) {
      data_.starting.push_back(from_.cases.columns[column].name);
      add_covariate({data_.starting.back(), covariate_numbers(from_.cases, column, missing_)},
                    "covariates_start");
    }
    std::vector<std::vector<double>> values;
    for (const std::size_t column : from_.moving) {
      data_.moving.push_back(from_.waves.columns[column].name);
      values.push_back(covariate_numbers(from_.waves, column, missing_, true));
    }
    for (std::size_t t = 0; t + 1 < data_.ntime(); ++t)
      for (std::size_t v = 0; v < values.size(); ++v) {
        covariate added{data_.moving[v], {}};
        for (std::size_t i = 0; i < data_.rows; ++i)
          added.value.push_back(value_at(values[v], i, t, data_.moving[v]));
        add_covariate(std::move(added), "covariates_transition");
        data_.covariates.back().name += fmt::format(" ({})", data_.times[t]);
      }
  }

  void add_covariate(covariate added, const char* key) {
    check_covariate(from_.cases, options_, key, added, data_);
    data_.covariates.push_back(std::move(added));
  }

  /// The value at the time a transition starts. Where it is not known, a value that never changes
  /// serves; after a person's last response no value has a part in the likelihood, and the last
  /// known one stands in.
  double value_at(const std::vector<double>& value, std::size_t person, std::size_t time,
                  const std::string& name) const {
    const auto at = [&](std::size_t t) {
      const std::size_t row = from_.row[person][t];
      return row == no_row ? std::nan("") : value[row];
    };
    if (!std::isnan(at(time))) return at(time);
    double last = std::nan("");
    bool constant = true, needed = false;
    for (std::size_t t = 0; t < data_.ntime(); ++t) {
      needed = needed || (t > time && answered(person, t));
      if (std::isnan(at(t))) continue;
      constant = constant && (std::isnan(last) || at(t) == last);
      if (t < time || std::isnan(last)) last = at(t);
    }
    if (!std::isnan(last) && (constant || !needed)) return last;
    throw input_error::of(
        "{}, time \"{}\": covariate \"{}\" is missing; a transition takes it from the time at "
        "which it starts. {}",
        from_.person[person], data_.times[time], name,
        from_.row[person][time] == no_row
            ? "Add a row with the value (responses may be missing), or remove the person."
            : "Fill in the value, or remove the person.");
  }

  const lta_options& options_;
  wave_data from_;
  missing_texts missing_;
  analysis_options case_options_, wave_options_;
  lta_data data_;
};

}  // namespace

lta_data prepare_lta(const data_table& table, const lta_options& options) {
  return lta_data_builder(table, options).build();
}

report_terms report_terms_of(const lta_data& data, const lta_options& options) {
  const std::size_t starting = data.starting.size();
  return {"--prior-strength",
          options.prior_strength > 0.0,
          covariate_names(data, 0, starting),
          fmt::format("{}", fmt::join(data.moving, ", ")),
          data.group ? data.group->labels : std::vector<std::string>{},
          data.times};
}

}  // namespace tolvenra::cli
