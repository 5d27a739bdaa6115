// awbcal: the command line of the calibration library, for hosts.

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <exception>
#include <string>

#include "tools/demo.h"
#include "tools/frames.h"
#include "tools/terminal.h"

namespace {

// What a script can tell apart.
constexpr int kDone = 0;
constexpr int kFailed = 1;    // the work could not be finished
constexpr int kBadInput = 2;  // arguments or files that cannot be used

struct Arguments {
  awbcal::DemoOptions demo;
  std::string storage = "emmc";
};

/// A whole number that fits: the parser itself lets a negative one wrap.
std::string check_seed(const std::string& text) {
  uint64_t seed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
  const bool is_good = error == std::errc() && end == text.data() + text.size();
  return is_good ? "" : "not a whole number from 0 to 2^64 - 1: " + text;
}

CLI::App* add_demo(CLI::App& app, Arguments& arguments) {
  CLI::App* demo = app.add_subcommand("demo", "Calibrate the cameras of a virtual phone");
  demo->add_option("--dir", arguments.demo.dir, "Folder for the phone [a new temporary one]");
  demo->add_option("--seed", arguments.demo.seed, "Seed of modules and noise [1]")
      ->check(check_seed)
      ->type_name("NUMBER");
  demo->add_option("--frames", arguments.demo.frames, "CSV of the main camera's frames");
  demo->add_option("--storage", arguments.storage, "Partition on emmc or nand [emmc]")
      ->check(CLI::IsMember({"emmc", "nand"}))
      ->type_name("KIND");
  return demo;
}

int run(int argc, char** argv) {
  CLI::App app("Camera calibration records: make them, read them, check them", "awbcal");
  app.require_subcommand(1);
  Arguments arguments;
  const CLI::App* demo = add_demo(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kBadInput;
  }
  arguments.demo.storage = arguments.storage == "nand" ? phone::Storage::nand : phone::Storage::emmc;
  awbcal::Terminal terminal;
  const bool done = demo->parsed() && awbcal::run_demo(arguments.demo, terminal);
  return terminal.finish() && done ? kDone : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const awbcal::InputError& error) {
    std::fprintf(stderr, "awbcal: %s\n", error.what());
    return kBadInput;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "awbcal: %s\n", error.what());
    return kFailed;
  }
}
