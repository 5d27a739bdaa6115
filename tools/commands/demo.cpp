// awbcal demo: a production line calibrates a virtual phone.

#include <charconv>
#include <memory>

#include "commands/commands.h"
#include "demo/demo.h"

namespace awbcal {

namespace {

struct DemoArguments {
  DemoOptions options;
  std::string storage = "emmc";
};

/// A whole number that fits: the parser itself lets a negative one wrap.
std::string check_seed(const std::string& text) {
  uint64_t seed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
  const bool is_good = error == std::errc() && end == text.data() + text.size();
  return is_good ? "" : "not a whole number from 0 to 2^64 - 1: " + text;
}

}  // namespace

Command add_demo(CLI::App& parent) {
  const auto arguments = std::make_shared<DemoArguments>();
  DemoOptions& options = arguments->options;
  CLI::App* demo = parent.add_subcommand("demo", "Calibrate the cameras of a virtual phone");
  demo->add_option("--dir", options.dir, "Folder for the phone [a new temporary one]");
  demo->add_option("--seed", options.seed, "Seed of modules and noise [1]")
      ->check(check_seed)
      ->type_name("NUMBER");
  demo->add_option("--frames", options.frames, "CSV of the main camera's frames");
  demo->add_option("--storage", arguments->storage, "Partition on emmc or nand [emmc]")
      ->check(CLI::IsMember({"emmc", "nand"}))
      ->type_name("KIND");
  return {demo, [arguments](Terminal& terminal) {
            DemoOptions& chosen = arguments->options;
            chosen.storage = arguments->storage == "nand" ? phone::Storage::nand : phone::Storage::emmc;
            return run_demo(chosen, terminal) ? kDone : kFailed;
          }};
}

}  // namespace awbcal
