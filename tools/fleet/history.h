// The history of a line in an SQLite file: tables `unit` and `measurement` with the rows' columns. Several processes
// of one machine may write to it; whatever ends them, it holds whole units only.
#ifndef FLEET_HISTORY_H
#define FLEET_HISTORY_H

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "fleet/unit.h"

struct sqlite3;
struct sqlite3_stmt;

namespace awbcal {

/// Which units of a history are meant; an empty text: all.
struct HistoryChoice {
  std::string since = {};  ///< "2026-11-01": of this day and later
  std::string until = {};  ///< of this day and before
  std::string lot = {};
};

class History {
 public:
  enum class Access { read, write };

  /// With Access::write the file is made, or brought to this version of its tables. Throws InputError, which names the
  /// file, for one that is no history, that a newer tool made, or that cannot be opened.
  History(const std::string& path, Access access);
  ~History();
  History(const History&) = delete;
  History& operator=(const History&) = delete;

  /// One transaction. A unit that is there already, of the same name, time and bytes, stays as it is.
  void add(const Unit& unit);
  /// In the order in which they were added.
  void for_each(const HistoryChoice& choice, const std::function<void(Unit& unit)>& take);

 private:
  struct Close {
    void operator()(sqlite3* database) const;
  };
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

  [[noreturn]] void fail(const char* what) const;
  void execute(const std::string& sql);
  Statement prepared(const std::string& sql);
  int64_t number(const std::string& sql);
  bool step(Statement& statement);
  void migrate();
  void check_is_history();

  std::string path_;
  std::unique_ptr<sqlite3, Close> database_;
  Statement insert_unit_;
  Statement insert_measurement_;
};

}  // namespace awbcal

#endif
