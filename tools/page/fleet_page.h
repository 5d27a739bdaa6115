// The page of a fleet: its summary, with charts.
#ifndef PAGE_FLEET_PAGE_H
#define PAGE_FLEET_PAGE_H

#include <map>
#include <string>
#include <vector>

#include "fleet/summary.h"
#include "page/ratio_chart.h"

namespace awbcal {

/// So many units are points of a chart; more are counted in squares.
inline constexpr size_t kMostPoints = 5000;
/// So many that fail are points even then.
inline constexpr size_t kMostFailingPoints = 200;

/// What a page needs of every unit and a summary does not keep. Its memory has a bound.
class FleetPoints {
 public:
  struct Points {
    std::vector<RatioPoint> all = {};  ///< empty once there are more than kMostPoints
    bool is_too_many = false;
    std::vector<RatioPoint> failing = {};
    std::vector<Limit> limits = {};  ///< what they were judged against, each once; the first few
  };

  void add(const Unit& unit);
  const std::map<Place, Points>& places() const { return places_; }

 private:
  std::map<Place, Points> places_ = {};
};

struct FleetPageFacts {
  std::string title;
  bool was_stopped = false;
};

std::string fleet_page(const Summary& summary, const FleetPoints& points, const FleetPageFacts& facts);

}  // namespace awbcal

#endif
