#include "fleet/history.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <array>

#include "fleet/rows.h"
#include "inspect/errors.h"

namespace awbcal {

namespace {

/// "awbf" in the file's header, so that no other database is taken for a history.
constexpr int64_t kApplication = 0x61776266;
/// A station waits so long while another writes.
constexpr int kPatience = 60'000;

// ---- the tables -------------------------------------------------------------------------------------------

std::string column_list(std::span<const Column> columns, bool with_types) {
  std::string list;
  for (const Column& column : columns)
    list += fmt::format(", {}{}{}", column.name, with_types ? " " : "", with_types ? column.type : "");
  return list;
}

/// From no table to the first version, and from each to the next. What was released is not changed any more: columns
/// that come later are added by a step of their own.
std::array<std::string, 1> migrations() {
  return {
      fmt::format("CREATE TABLE unit (id INTEGER PRIMARY KEY{});"
                  "CREATE UNIQUE INDEX unit_once ON unit (unit, time, ifnull(input_sha256, ''));"
                  "CREATE INDEX unit_time ON unit (time);"
                  "CREATE TABLE measurement (unit_id INTEGER NOT NULL REFERENCES unit (id){});"
                  "CREATE INDEX measurement_unit ON measurement (unit_id);",
                  column_list(unit_columns(), true), column_list(measurement_columns(), true))};
}

std::string insert_text(const char* how, const char* table, const char* first,
                        std::span<const Column> columns) {
  std::string places = "?";
  for (size_t i = 0; i < columns.size(); ++i) places += ", ?";
  return fmt::format("{} INTO {} ({}{}) VALUES ({})", how, table, first, column_list(columns, false), places);
}

// ---- values -----------------------------------------------------------------------------------------------

struct Bind {
  sqlite3_stmt* statement;
  int place;

  void operator()(std::monostate) const { sqlite3_bind_null(statement, place); }
  void operator()(const std::string& text) const {
    sqlite3_bind_text64(statement, place, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  }
  void operator()(int64_t number) const { sqlite3_bind_int64(statement, place, number); }
  void operator()(double number) const { sqlite3_bind_double(statement, place, number); }
};

void bind_values(sqlite3_stmt* statement, int first, const std::vector<Value>& values) {
  for (const Value& value : values) std::visit(Bind{statement, first++}, value);
}

std::string text_at(sqlite3_stmt* statement, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  return text == nullptr ? ""
                         : std::string(text, static_cast<size_t>(sqlite3_column_bytes(statement, column)));
}

Value value_at(sqlite3_stmt* statement, int column) {
  switch (sqlite3_column_type(statement, column)) {
    case SQLITE_TEXT:
      return text_at(statement, column);
    case SQLITE_INTEGER:
      return int64_t{sqlite3_column_int64(statement, column)};
    case SQLITE_FLOAT:
      return sqlite3_column_double(statement, column);
    default:
      return {};
  }
}

std::vector<Value> values_at(sqlite3_stmt* statement, int first, size_t count) {
  std::vector<Value> values;
  for (size_t i = 0; i < count; ++i) values.push_back(value_at(statement, first + static_cast<int>(i)));
  return values;
}

}  // namespace

void History::Close::operator()(sqlite3* database) const {
  sqlite3_close(database);
}

void History::Finalize::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

History::History(const std::string& path, Access access) : path_(path) {
  sqlite3* database = nullptr;
  // For a reader as well: the last one to close the file tidies up beside it. Without permission it is read-only.
  const int flags = SQLITE_OPEN_READWRITE | (access == Access::write ? SQLITE_OPEN_CREATE : 0);
  const int result = sqlite3_open_v2(path.c_str(), &database, flags, nullptr);
  database_.reset(database);
  if (result != SQLITE_OK) fail("cannot be opened");
  sqlite3_busy_timeout(database, kPatience);
  check_is_history();
  if (access == Access::read) return;
  // A commit of each unit then waits for no disk; what a power cut takes is whole units, the last ones.
  execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
  migrate();
  insert_unit_ = prepared(insert_text("INSERT OR IGNORE", "unit", "id", unit_columns()));
  insert_measurement_ = prepared(insert_text("INSERT", "measurement", "unit_id", measurement_columns()));
}

History::~History() = default;

void History::fail(const char* what) const {
  throw InputError(fmt::format("{}: {}: {}", path_, what, sqlite3_errmsg(database_.get())));
}

void History::execute(const std::string& sql) {
  if (sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
    fail("cannot be used");
}

History::Statement History::prepared(const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(database_.get(), sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
    fail("is no history of awbcal fleet");
  return Statement(statement);
}

bool History::step(Statement& statement) {
  const int result = sqlite3_step(statement.get());
  if (result != SQLITE_ROW && result != SQLITE_DONE) fail("cannot be used");
  return result == SQLITE_ROW;
}

int64_t History::number(const std::string& sql) {
  Statement statement = prepared(sql);
  return step(statement) ? sqlite3_column_int64(statement.get(), 0) : 0;
}

void History::check_is_history() {
  const int64_t application = number("PRAGMA application_id");
  const bool is_new = application == 0 && number("SELECT count(*) FROM sqlite_schema") == 0;
  if (application != kApplication && !is_new)
    throw InputError(fmt::format("{}: a database, but no history of awbcal fleet", path_));
  if (number("PRAGMA user_version") > static_cast<int64_t>(migrations().size()))
    throw InputError(fmt::format("{}: made by a newer awbcal", path_));
}

void History::migrate() {
  // Another station may be at it: the version is looked at again by the one whose turn it is.
  execute("BEGIN IMMEDIATE");
  const auto steps = migrations();
  for (auto version = static_cast<size_t>(number("PRAGMA user_version")); version < steps.size(); ++version) {
    execute(steps.at(version));
    execute(fmt::format("PRAGMA user_version = {}; PRAGMA application_id = {}", version + 1, kApplication));
  }
  execute("COMMIT");
}

void History::add(const Unit& unit) {
  execute("BEGIN IMMEDIATE");
  sqlite3_reset(insert_unit_.get());
  sqlite3_bind_null(insert_unit_.get(), 1);
  bind_values(insert_unit_.get(), 2, unit_values(unit));
  step(insert_unit_);
  if (sqlite3_changes(database_.get()) > 0) {
    const int64_t id = sqlite3_last_insert_rowid(database_.get());
    for (const Measurement& measurement : unit.measurements) {
      sqlite3_reset(insert_measurement_.get());
      sqlite3_bind_int64(insert_measurement_.get(), 1, id);
      bind_values(insert_measurement_.get(), 2, measurement_values(measurement));
      step(insert_measurement_);
      sqlite3_reset(insert_measurement_.get());
    }
  }
  sqlite3_reset(insert_unit_.get());
  execute("COMMIT");
}

void History::for_each(const HistoryChoice& choice, const std::function<void(Unit& unit)>& take) {
  if (number("PRAGMA application_id") == 0) return;
  Statement units = prepared(fmt::format(
      "SELECT id{} FROM unit WHERE (?1 = '' OR time >= ?1) AND (?2 = '' OR substr(time, 1, 10) <= ?2) AND "
      "(?3 = '' OR lot = ?3) ORDER BY id",
      column_list(unit_columns(), false)));
  bind_values(units.get(), 1, {choice.since, choice.until, choice.lot});
  Statement measurements =
      prepared(fmt::format("SELECT unit_id{} FROM measurement WHERE unit_id = ? ORDER BY rowid",
                           column_list(measurement_columns(), false)));
  while (step(units)) {
    Unit unit = unit_of_values(values_at(units.get(), 1, unit_columns().size()));
    sqlite3_reset(measurements.get());
    sqlite3_bind_int64(measurements.get(), 1, sqlite3_column_int64(units.get(), 0));
    while (step(measurements)) {
      unit.measurements.push_back(
          measurement_of_values(values_at(measurements.get(), 1, measurement_columns().size())));
    }
    take(unit);
  }
}

}  // namespace awbcal
