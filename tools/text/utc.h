// Times as documents and rows have them.
#ifndef TEXT_UTC_H
#define TEXT_UTC_H

#include <cstdint>
#include <string>

namespace awbcal {

/// Seconds since 1970 as "2026-11-21T18:00:00Z".
std::string utc_text(int64_t time);

}  // namespace awbcal

#endif
