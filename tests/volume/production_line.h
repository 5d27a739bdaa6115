// A production line's work on one phone, step by step, each with the bytes of the partition that it may write.
#ifndef TESTS_VOLUME_PRODUCTION_LINE_H
#define TESTS_VOLUME_PRODUCTION_LINE_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "inspect/cameras.h"
#include "phone/virtual_phone.h"
#include "text/terminal.h"

namespace volume {

/// Bytes of the partition.
struct Place {
  size_t offset;
  size_t size;
};

struct Step {
  std::string name;
  std::vector<Place> writes;  ///< in their order
  std::function<void()> run;
};

/// What the steps print goes nowhere.
struct Station {
  phone::VirtualPhone& phone;
  awbcal::Terminal& terminal;
  awbcal::ConsoleCapture& console;
};

/// Every run and every writer, on every camera. `round` changes all that is measured: a line that calibrates a
/// phone for the second time has other values, and a front camera that is out of tolerance.
std::vector<Step> production_steps(Station station, unsigned round);

/// Three modules, and their lens-shading images.
void fit_modules(phone::VirtualPhone& phone);

}  // namespace volume

#endif
