// A page for a browser: one file that needs no other and no network. Every chart is drawn from a table that stands
// beside it, so that the page shows the same numbers where no script runs.
#ifndef PAGE_PAGE_H
#define PAGE_PAGE_H

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "text/tables.h"

namespace awbcal {

/// A table of a chart; page.js knows it by its role.
struct ChartTable {
  const char* role;
  Table table;
  std::optional<double> step = {};  ///< of "density": the side of the squares that are counted
};

/// How page.js draws the tables of a chart.
enum class ChartKind {
  ratios,     ///< "golden": name, R/G, B/G, allowed; "points": name, R/G, B/G; "density": R/G, B/G, units
  histogram,  ///< "bins": percent of the limit, units
  days,       ///< "rows": day, units, yield
  pareto,     ///< "rows": units, share, together, what
  change,     ///< "rows": ..., R/G, after, ratio, B/G, after, ratio
};

struct Chart {
  ChartKind kind;
  std::string caption;
  std::vector<ChartTable> tables;
};

/// Numbers on a grid, a colour for each.
struct HeatMap {
  std::string caption;
  std::span<const float> values;  ///< row by row
  size_t columns;
};

/// Texts may be of others: they are escaped here, and nowhere else.
class Page {
 public:
  explicit Page(std::string_view title);

  void result(std::string_view text, Style style = Style::plain);
  void heading(std::string_view text);
  void subheading(std::string_view text);
  void paragraph(std::string_view text);
  void list(const std::vector<std::string>& lines);
  void table(const Table& table);
  void chart(const Chart& chart);
  void heat_maps(const std::vector<HeatMap>& maps);  ///< of one scale of colours

  /// The whole file. With which build of the tool it was made, and when, stands at its end.
  std::string html() const;

 private:
  std::string title_;
  std::string body_;
};

}  // namespace awbcal

#endif
