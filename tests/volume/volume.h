// Random work at volume: so many rounds, from a seed that a failure names.
#ifndef TESTS_VOLUME_VOLUME_H
#define TESTS_VOLUME_VOLUME_H

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <random>
#include <string>

#include "text/terminal.h"

namespace volume {

struct Volume {
  std::string what;   ///< "NAND schedules"
  std::string round;  ///< "schedule"
  unsigned count;     ///< rounds, unless --count says otherwise
};

constexpr unsigned kRoundsOfASubject = 100;

/// Makes a Subject of each seed from --seed on, and a hundred rounds with it: run() returns nothing, or what went
/// wrong. The exit code of a program; what the library prints goes nowhere.
template <class Subject>
int run_rounds(int argc, char** argv, Volume volume) {
  CLI::App app{"Random " + volume.what + ", against a model."};
  uint32_t seed = std::random_device()();
  app.add_option("--count", volume.count, "how many");
  app.add_option("--seed", seed, "of the first hundred; the next has the next");
  CLI11_PARSE(app, argc, argv);
  awbcal::Terminal terminal;
  terminal.line(fmt::format("{} {} from seed {}", volume.count, volume.what, seed));
  const auto start = std::chrono::steady_clock::now();
  awbcal::ConsoleCapture console;
  for (unsigned done = 0; done < volume.count; ++seed) {
    Subject subject(seed);
    for (unsigned i = 1; i <= kRoundsOfASubject && done < volume.count; ++i, ++done) {
      const std::string wrong = subject.run();
      if (wrong.empty()) continue;
      terminal.line(fmt::format("{} {} of --seed {} --count {}: {}", volume.round, i, seed, i, wrong));
      return 1;
    }
    console.take();
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  terminal.line(fmt::format("all as modelled: {:.0f} a second", volume.count / seconds.count()));
  return terminal.finish() ? 0 : 1;
}

}  // namespace volume

#endif
