// A unit's rows as text, and back.
#ifndef FLEET_ROWS_H
#define FLEET_ROWS_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "fleet/unit.h"

namespace awbcal {

/// The names of all columns, in the order of the rows' values; the first is "row": "unit" or "measurement".
std::string csv_title();

/// One line for the unit, whose other columns are empty, then one for each measurement, with the unit's columns again.
/// Lines end with a newline; as RFC 4180 has it, a text with a comma, quote or newline stands in quotes.
std::string csv_rows(const Unit& unit);

/// The same as one JSON object a line, null where there is no value.
std::string json_rows(const Unit& unit);

/// The unit for another process of this tool, and there.
std::string wire_text(const Unit& unit);
Unit unit_of_wire(const std::string& text);

/// The unit that has these values. Throws InputError for what no unit has.
Unit unit_of_values(const std::vector<Value>& values);
Measurement measurement_of_values(const std::vector<Value>& values);

}  // namespace awbcal

#endif
