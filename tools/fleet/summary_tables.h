// What a fleet's summary says, in tables and lists: for a terminal and for a page.
#ifndef FLEET_SUMMARY_TABLES_H
#define FLEET_SUMMARY_TABLES_H

#include <string>
#include <vector>

#include "fleet/summary.h"
#include "text/tables.h"

namespace awbcal {

inline constexpr const char* kYieldTitle = "Yield per camera and kind";
inline constexpr const char* kFaultTitle = "What fails first";
inline constexpr const char* kMarginsTitle = "Margins, in percent of the limit";
inline constexpr const char* kTrendTitle = "Over time";
inline constexpr const char* kComparisonTitle = "What no single phone shows";

inline constexpr const char* kNoMargins =
    "not known: --golden or --limits says what the records are judged against";
inline constexpr const char* kCapabilityNote =
    "Ppk, the process capability against the limit: (100 - mean) / 3 standard deviations";
inline constexpr const char* kDriftNote = "-: no drift that is more than noise";

/// "2000 units: 41 FAIL, 1959 PASS"
std::string results_text(const Summary& summary);
/// "Yield: 97.9 % of the 1965 that could be judged"
std::string yield_text(const Summary& summary);

Table yield_table(const Summary& summary);
Table fault_table(const Summary& summary);  ///< the most frequent first
Table margin_table(const Summary& summary);
Table day_table(const Summary& summary);
Table drift_table(const Summary& summary);

struct NamedList {
  std::string what;
  NamedUnits units;
};

/// Units that these limits judge otherwise than the factory did.
std::vector<NamedList> judged_otherwise(const MarginStatistics& margin);
/// What no single phone shows; a list may be empty.
std::vector<NamedList> comparison(const Summary& summary);
std::string not_compared_text(const Summary& summary);

}  // namespace awbcal

#endif
