// A record that lives on the heap for one scope.
#ifndef COMMON_ON_HEAP_H
#define COMMON_ON_HEAP_H

#include <cstdlib>
#include <type_traits>

namespace calib {

/// Allocated as zeros, freed at the end of the scope. False when there was no memory.
template <class Record>
class OnHeap {
  static_assert(std::is_trivial_v<Record>);

 public:
  OnHeap() : record_(static_cast<Record*>(calloc(1, sizeof(Record)))) {}
  OnHeap(const OnHeap&) = delete;
  OnHeap& operator=(const OnHeap&) = delete;
  ~OnHeap() { free(record_); }

  explicit operator bool() const { return record_ != nullptr; }
  Record& operator*() const { return *record_; }
  Record* operator->() const { return record_; }

 private:
  Record* record_;
};

}  // namespace calib

#endif
