#include "fleet/judging.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

namespace awbcal {

namespace {

// So many at once that handing them over costs little, so few that an archive among them keeps nobody waiting.
constexpr size_t kBatch = 16;
constexpr size_t kMostBatchesWaiting = 64;

struct Batch {
  size_t number = 0;
  std::vector<std::string> paths = {};
};

class Belt {
 public:
  Belt(const NextUnit& next_unit, const std::atomic<bool>& stops, size_t workers)
      : next_unit_(next_unit), stops_(stops), working_(workers) {}

  /// The next batch for a worker; an empty one at the end.
  Batch next() {
    std::unique_lock lock(mutex_);
    has_room_.wait(lock, [this] { return begun_ - taken_ < kMostBatchesWaiting || is_abandoned_; });
    Batch batch{.number = begun_};
    while (batch.paths.size() < kBatch && !stops_ && !is_abandoned_) {
      std::optional<std::string> path = next_unit_();
      if (!path) break;
      batch.paths.push_back(std::move(*path));
    }
    if (!batch.paths.empty()) ++begun_;
    return batch;
  }

  void put(size_t number, std::vector<Unit> units) {
    const std::lock_guard lock(mutex_);
    done_.emplace(number, std::move(units));
    is_done_.notify_one();
  }

  void leave() {
    const std::lock_guard lock(mutex_);
    --working_;
    is_done_.notify_one();
  }

  /// Nobody takes what is done any more.
  void abandon() {
    const std::lock_guard lock(mutex_);
    is_abandoned_ = true;
    has_room_.notify_all();
  }

  /// The batches in their order; nothing after the last.
  std::optional<std::vector<Unit>> take() {
    std::unique_lock lock(mutex_);
    is_done_.wait(lock, [this] { return done_.contains(taken_) || working_ == 0; });
    const auto found = done_.find(taken_);
    if (found == done_.end()) return std::nullopt;
    std::vector<Unit> units = std::move(found->second);
    done_.erase(found);
    ++taken_;
    has_room_.notify_all();
    return units;
  }

 private:
  const NextUnit& next_unit_;
  const std::atomic<bool>& stops_;
  std::mutex mutex_;
  std::condition_variable has_room_;
  std::condition_variable is_done_;
  std::map<size_t, std::vector<Unit>> done_;
  size_t begun_ = 0;
  size_t taken_ = 0;
  size_t working_;
  bool is_abandoned_ = false;
};

void work(Belt& belt, const UnitJudge& judge) {
  while (true) {
    const Batch batch = belt.next();
    if (batch.paths.empty()) return belt.leave();
    std::vector<Unit> units;
    units.reserve(batch.paths.size());
    for (const std::string& path : batch.paths) units.push_back(judge(path));
    belt.put(batch.number, std::move(units));
  }
}

}  // namespace

void judge_units(const NextUnit& next, const std::vector<UnitJudge>& judges, const std::atomic<bool>& stops,
                 const std::function<void(Unit& unit)>& take) {
  Belt belt(next, stops, judges.size());
  std::vector<std::jthread> threads;
  for (const UnitJudge& judge : judges) threads.emplace_back([&belt, &judge] { work(belt, judge); });
  try {
    while (std::optional<std::vector<Unit>> units = belt.take()) {
      for (Unit& unit : *units) take(unit);
    }
  } catch (...) {
    belt.abandon();
    throw;
  }
}

}  // namespace awbcal
