// awbcal demo: a production line calibrates a virtual phone; or a fleet of such phones, as images.

#include "demo/demo.h"

#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "demo/demo_fleet.h"

namespace awbcal {

Command add_demo(CLI::App& parent) {
  const auto options = std::make_shared<DemoOptions>();
  const auto plan = std::make_shared<FleetPlan>();
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
  CLI::Option* units = app->add_option("--units", plan->units, "Make a fleet of so many units instead");
  units->check(whole_number(1, 10000000))->type_name("NUMBER");
  const auto add_percent = [&](const char* name, double& value, double least, double most,
                               const char* description) {
    app->add_option(name, value, description)
        ->check(CLI::Range(least, most))
        ->type_name("PERCENT")
        ->needs(units);
  };
  add_percent("--spread", plan->spread, 0, 50, "Standard deviation of the fleet's ratios");
  add_percent("--bad", plan->bad, 0, 100, "Share of units that something happens to");
  add_percent("--drift", plan->drift, -3, 3, "Growth of the fleet's ratios per day");
  return {app, [options, plan](Terminal& terminal) {
            if (plan->units == 0) return run_demo(*options, terminal) ? kDone : kFailed;
            plan->seed = options->seed;
            make_demo_fleet(*plan, options->dir, terminal);
            return kDone;
          }};
}

}  // namespace awbcal
