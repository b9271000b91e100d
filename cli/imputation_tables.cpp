#include <fmt/format.h>

#include "imputation_report.hpp"

namespace tolvenra::cli {
namespace {

/// A table under construction: the parameters share one array.
class table_builder {
 public:
  table_builder(const char* family, std::string heading, const combined_parameter& of)
      : table_{family, std::move(heading), {}, {}}, of_(of) {}

  /// Adds what the heading says of group and time.
  table_builder& common(const char* name, const std::string& label, const std::string& words) {
    table_.common.emplace_back(name, label);
    table_.heading += words + label;
    return *this;
  }
  void add(std::vector<named_index> index, std::size_t at) {
    table_.parameters.push_back({std::move(index), &of_, at});
  }
  parameter_table take() { return std::move(table_); }

 private:
  parameter_table table_;
  const combined_parameter& of_;
};

/// Response probabilities of a group, at a time. \param at  offset of (item, category, latent)
template <class At>
void add_responses(table_builder& table, const std::vector<const categories*>& items,
                   const char* latent, const std::vector<std::string>& labels, At&& at) {
  for (std::size_t j = 0; j < items.size(); ++j)
    for (std::size_t r = 0; r < items[j]->labels.size(); ++r)
      for (std::size_t k = 0; k < labels.size(); ++k)
        table.add(
            {{"item", items[j]->name}, {"category", items[j]->labels[r]}, {latent, labels[k]}},
            at(j, r, k));
}

std::vector<const categories*> pointers(const std::vector<categories>& items) {
  std::vector<const categories*> list;
  for (const categories& item : items) list.push_back(&item);
  return list;
}

/// Shares of classes, or of statuses at the first time. \param at  offset of (latent, group)
template <class At>
parameter_table share_table(table_builder table, const case_data& data, const char* latent,
                            const std::vector<std::string>& labels, At&& at) {
  for (std::size_t g = 0; g < data.groups(); ++g)
    for (std::size_t k = 0; k < labels.size(); ++k) {
      std::vector<named_index> index{{latent, labels[k]}};
      if (data.group) index.insert(index.begin(), {"group", data.group->labels[g]});
      table.add(std::move(index), at(k, g));
    }
  return table.take();
}

}  // namespace

std::vector<parameter_table> lca_tables(const lca_data& data, const lca_options& options,
                                        const lca_answer& answer, const imputation& result) {
  const std::size_t nc = answer.order.size();
  const std::size_t nitem = data.items.size();
  const auto nrcmax = static_cast<std::size_t>(most_categories_of(data));
  std::vector<parameter_table> tables;
  tables.push_back(share_table({"gamma", "Class shares", result.shares}, data, "class",
                               answer.class_labels,
                               [&](auto k, auto g) { return answer.order[k] + nc * g; }));
  for (std::size_t g = 0; g < (options.invariant ? 1 : data.groups()); ++g) {
    table_builder responses("rho",
                            options.invariant ? "Item-response probabilities in every group"
                                              : "Item-response probabilities",
                            result.responses);
    if (data.group && !options.invariant)
      responses.common("group", data.group->labels[g], " in group ");
    add_responses(responses, pointers(data.items), "class", answer.class_labels,
                  [&](auto j, auto r, auto k) {
                    return j + nitem * (answer.order[k] + nc * (r + nrcmax * g));
                  });
    tables.push_back(responses.take());
  }
  return tables;
}

std::vector<parameter_table> lta_tables(const lta_data& data, const lta_options& options,
                                        const lta_answer& answer, const imputation& result) {
  const std::vector<std::string>& statuses = answer.status_labels;
  const std::size_t ns = statuses.size();
  const std::size_t moves = data.ntime() - 1;
  const auto most = static_cast<std::size_t>(most_categories_of(data));
  std::vector<parameter_table> tables;
  tables.push_back(
      share_table({"delta", "Start: shares at time " + data.times.front(), result.shares}, data,
                  "status", statuses, [&](auto s, auto g) { return s + ns * g; }));
  const auto in_group = [&](table_builder& table, std::size_t g) {
    if (data.group) table.common("group", data.group->labels[g], " in group ");
  };
  for (std::size_t g = 0; g < data.groups(); ++g)
    for (std::size_t move = 0; move < moves; ++move) {
      table_builder table("tau", "Transitions", result.transitions);
      table.common("time", data.times[move], " from time ");
      table.common("next", data.times[move + 1], " to ");
      in_group(table, g);
      for (std::size_t from = 0; from < ns; ++from)
        for (std::size_t to = 0; to < ns; ++to)
          table.add({{"from", statuses[from]}, {"to", statuses[to]}},
                    from + ns * (to + ns * (move + moves * g)));
      tables.push_back(table.take());
    }
  const bool same_times = options.equal_over("time");
  const bool same_groups = options.equal_over("group");
  for (std::size_t g = 0; g < (same_groups ? 1 : data.groups()); ++g)
    for (std::size_t t = 0; t < (same_times ? 1 : data.ntime()); ++t) {
      std::string heading = "Item-response probabilities";
      if (same_times) heading += " at every time";
      table_builder table("rho", heading, result.responses);
      if (!same_times) table.common("time", data.times[t], " at time ");
      if (!same_groups) in_group(table, g);
      add_responses(table, pointers(data.item_labels), "status", statuses,
                    [&](auto i, auto r, auto s) {
                      return i + data.nitem() * (s + ns * (r + most * (t + data.ntime() * g)));
                    });
      tables.push_back(table.take());
    }
  return tables;
}

}  // namespace tolvenra::cli
