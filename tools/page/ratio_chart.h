// R/G against B/G of units or frames, with what they are judged against.
#ifndef PAGE_RATIO_CHART_H
#define PAGE_RATIO_CHART_H

#include <string>
#include <vector>

#include "page/page.h"
#include "run/limits.h"

namespace awbcal {

/// A run or a frame.
struct RatioPoint {
  std::string name;
  double rg;
  double bg;
  std::string result;
  bool is_bad;
};

/// Adds it unless it is there; a chart has room for a few.
void add_limit(std::vector<Limit>& limits, const Limit& limit);

/// Golden samples, each with the distance that it allows.
ChartTable golden_table(const std::vector<Limit>& limits);

ChartTable point_table(const std::vector<RatioPoint>& points);

}  // namespace awbcal

#endif
