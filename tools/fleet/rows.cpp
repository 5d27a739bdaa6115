#include "fleet/rows.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>

#include "inspect/errors.h"

namespace awbcal {

namespace {

using Json = nlohmann::ordered_json;

// ---- text -------------------------------------------------------------------------------------------------

std::string csv_text(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char character : text) quoted += character == '"' ? "\"\"" : std::string(1, character);
  return quoted + '"';
}

struct CsvField {
  std::string operator()(std::monostate) const { return ""; }
  std::string operator()(const std::string& text) const { return csv_text(text); }
  std::string operator()(int64_t number) const { return std::to_string(number); }
  std::string operator()(double number) const {
    return std::isfinite(number) ? fmt::format("{}", number) : "";
  }
};

struct JsonField {
  Json operator()(std::monostate) const { return nullptr; }
  Json operator()(const auto& value) const { return value; }
};

std::string csv_line(const char* row, const std::vector<Value>& unit, const std::vector<Value>& measurement) {
  std::string line = row;
  for (const auto* values : {&unit, &measurement}) {
    for (const Value& value : *values) line += ',' + std::visit(CsvField(), value);
  }
  return line + '\n';
}

void add_fields(Json& object, std::span<const Column> columns, const std::vector<Value>& values) {
  for (size_t i = 0; i < columns.size(); ++i) object[columns[i].name] = std::visit(JsonField(), values[i]);
}

std::string json_line(const char* row, const std::vector<Value>& unit,
                      const std::vector<Value>& measurement) {
  Json object = {{"row", row}};
  add_fields(object, unit_columns(), unit);
  add_fields(object, measurement_columns(), measurement);
  return object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

template <class Line>
std::string rows(const Unit& unit, const Line& line) {
  const std::vector<Value> values = unit_values(unit);
  std::string text = line("unit", values, std::vector<Value>(measurement_columns().size()));
  for (const Measurement& measurement : unit.measurements)
    text += line("measurement", values, measurement_values(measurement));
  return text;
}

Json json_array(const std::vector<Value>& values) {
  Json array = Json::array();
  for (const Value& value : values) array.push_back(std::visit(JsonField(), value));
  return array;
}

// ---- and back ---------------------------------------------------------------------------------------------

[[noreturn]] void not_of_a_unit(const char* column) {
  throw InputError(fmt::format("{}: a value that no unit has", column));
}

/// The values by their columns' names.
class Fields {
 public:
  Fields(std::span<const Column> columns, const std::vector<Value>& values)
      : columns_(columns), values_(values) {}

  std::string text(const char* column) const {
    const Value& value = at(column);
    if (std::holds_alternative<std::monostate>(value)) return "";
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    not_of_a_unit(column);
  }
  std::optional<double> number(const char* column) const {
    const Value& value = at(column);
    if (std::holds_alternative<std::monostate>(value)) return std::nullopt;
    if (const auto* number = std::get_if<double>(&value)) return *number;
    if (const auto* number = std::get_if<int64_t>(&value)) return static_cast<double>(*number);
    not_of_a_unit(column);
  }

 private:
  const Value& at(std::string_view column) const {
    const auto found =
        std::ranges::find_if(columns_, [column](const Column& each) { return each.name == column; });
    return values_.at(static_cast<size_t>(found - columns_.begin()));
  }

  std::span<const Column> columns_;
  const std::vector<Value>& values_;
};

int64_t time_of_text(const std::string& text) {
  std::tm time{};
  const char* end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &time);
  if (end == nullptr || *end != '\0') not_of_a_unit("time");
  return timegm(&time);
}

uint64_t hex_number(std::string_view text, const char* column) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  if (error != std::errc() || end != text.data() + text.size()) not_of_a_unit(column);
  return number;
}

calib::FuseWords module_of_text(const std::string& text) {
  constexpr size_t kDigits = 8;
  calib::FuseWords words{};
  if (text.size() != words.size() * (kDigits + 1) - 1) not_of_a_unit("module");
  for (size_t i = 0; i < words.size(); ++i)
    words[i] = static_cast<decltype(words)::value_type>(
        hex_number(std::string_view(text).substr(i * (kDigits + 1), kDigits), "module"));
  return words;
}

Verdict verdict_of_name(const std::string& name) {
  for (int i = 0; i <= static_cast<int>(Verdict::hidden); ++i) {
    if (verdict_name(static_cast<Verdict>(i)) == name) return static_cast<Verdict>(i);
  }
  not_of_a_unit("verdict");
}

uint32_t word_of_ratio(double ratio) {
  const double word = ratio * 1024.0;
  if (!(word >= 0 && word <= UINT32_MAX)) not_of_a_unit("rg");
  return static_cast<uint32_t>(std::lround(word));
}

Value value_of(const Json& json) {
  if (json.is_string()) return json.get<std::string>();
  if (json.is_number_float()) return json.get<double>();
  return json.is_number() ? Value(json.get<int64_t>()) : Value();
}

std::vector<Value> values_of(const Json& array) {
  std::vector<Value> values;
  for (const Json& each : array) values.push_back(value_of(each));
  return values;
}

}  // namespace

std::string csv_title() {
  std::string title = "row";
  for (const auto columns : {unit_columns(), measurement_columns()}) {
    for (const Column& column : columns) title += fmt::format(",{}", column.name);
  }
  return title + '\n';
}

std::string csv_rows(const Unit& unit) {
  return rows(unit, csv_line);
}

std::string json_rows(const Unit& unit) {
  return rows(unit, json_line);
}

std::string wire_text(const Unit& unit) {
  Json rows = Json::array({json_array(unit_values(unit))});
  for (const Measurement& measurement : unit.measurements)
    rows.push_back(json_array(measurement_values(measurement)));
  return rows.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Unit unit_of_wire(const std::string& text) {
  const Json rows = Json::parse(text);
  Unit unit = unit_of_values(values_of(rows.at(0)));
  for (size_t i = 1; i < rows.size(); ++i)
    unit.measurements.push_back(measurement_of_values(values_of(rows[i])));
  return unit;
}

Unit unit_of_values(const std::vector<Value>& values) {
  const Fields read(unit_columns(), values);
  return {.name = read.text("unit"),
          .path = read.text("path"),
          .time = time_of_text(read.text("time")),
          .lot = read.text("lot"),
          .digest = read.text("input_sha256"),
          .tool = read.text("tool"),
          .result = read.text("result"),
          .error = read.text("error")};
}

Measurement measurement_of_values(const std::vector<Value>& values) {
  const Fields read(measurement_columns(), values);
  Measurement result{.spec = record_spec_of_id(read.text("kind")),
                     .camera = camera_of_name(read.text("camera")),
                     .source = read.text("source"),
                     .verdict = verdict_of_name(read.text("verdict")),
                     .is_good = read.number("good") == 1.0,
                     .found = read.text("found"),
                     .refused_by = read.text("refused_by")};
  if (result.spec == nullptr) not_of_a_unit("kind");
  if (const auto version = read.number("version")) result.version = static_cast<uint32_t>(*version);
  const auto rg = read.number("rg");
  const auto bg = read.number("bg");
  if (rg && bg) result.words = {word_of_ratio(*rg), word_of_ratio(*bg)};
  if (const auto delta = read.number("delta")) {
    result.margin = {.delta = static_cast<float>(*delta),
                     .limit = static_cast<float>(read.number("delta_limit").value_or(0))};
    result.limit = Limit{.golden = {static_cast<float>(read.number("golden_rg").value_or(0)),
                                    static_cast<float>(read.number("golden_bg").value_or(0))}};
  }
  if (const std::string module = read.text("module"); !module.empty()) result.module = module_of_text(module);
  if (const std::string content = read.text("content"); !content.empty())
    result.content = hex_number(content, "content");
  return result;
}

}  // namespace awbcal
