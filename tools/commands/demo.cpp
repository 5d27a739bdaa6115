// awbcal demo: a production line calibrates a virtual phone.

#include "demo/demo.h"

#include <memory>

#include "commands/commands.h"
#include "commands/options.h"

namespace awbcal {

Command add_demo(CLI::App& parent) {
  const auto options = std::make_shared<DemoOptions>();
  CLI::App* app = add_command(parent, "demo", "Calibrate the cameras of a virtual phone");
  app->add_option("--dir", options->dir, "Folder for the phone; otherwise a new temporary one")
      ->type_name("FOLDER");
  app->add_option("--seed", options->seed, "Seed for the modules and the noise")
      ->check(whole_number(0, UINT64_MAX))
      ->type_name("NUMBER");
  app->add_option("--frames", options->frames, "CSV of the main camera's frames")->type_name("FILE");
  app->add_option("--storage", options->storage, "Partition on emmc or nand")
      ->transform(
          named_values<phone::Storage>({{"emmc", phone::Storage::emmc}, {"nand", phone::Storage::nand}}))
      ->default_str("emmc")
      ->type_name("KIND");
  return {app, [options](Terminal& terminal) { return run_demo(*options, terminal) ? kDone : kFailed; }};
}

}  // namespace awbcal
