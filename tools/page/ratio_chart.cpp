#include "page/ratio_chart.h"

#include <fmt/format.h>

#include <algorithm>

#include "factory/run_arithmetic.h"

namespace awbcal {

void add_limit(std::vector<Limit>& limits, const Limit& limit) {
  constexpr size_t kMost = 8;
  const auto is_same = [&limit](const Limit& each) {
    return each.golden.rg == limit.golden.rg && each.golden.bg == limit.golden.bg &&
           each.threshold == limit.threshold;
  };
  if (limits.size() < kMost && std::ranges::none_of(limits, is_same)) limits.push_back(limit);
}

ChartTable golden_table(const std::vector<Limit>& limits) {
  Table table({"", ">R/G", ">B/G", ">allowed distance"});
  for (const Limit& limit : limits) {
    const calib::Margin margin = calib::margin_of(limit.golden, limit.golden,
                                                  calib::tolerance_of(static_cast<float>(limit.threshold)));
    table.row({fmt::format("golden sample, {} %", limit.threshold), fmt::format("{:.4f}", limit.golden.rg),
               fmt::format("{:.4f}", limit.golden.bg), fmt::format("{:.4f}", margin.limit)});
  }
  return {"golden", table};
}

ChartTable point_table(const std::vector<RatioPoint>& points) {
  Table table({"", ">R/G", ">B/G", "result"});
  for (const RatioPoint& point : points) {
    table.row({point.name, fmt::format("{:.4f}", point.rg), fmt::format("{:.4f}", point.bg),
               Cell(point.result, point.is_bad ? Style::bad : Style::plain)});
  }
  return {"points", table};
}

}  // namespace awbcal
