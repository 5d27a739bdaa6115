#include "demo/demo_fleet.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <fstream>
#include <map>
#include <stdexcept>

#include "demo/demo_folder.h"
#include "text/tables.h"
#include "text/utc.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

std::ofstream opened(const fs::path& path) {
  std::ofstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(fmt::format("{}: cannot be written", path.string()));
  return file;
}

void finish(std::ofstream& file, const fs::path& path) {
  file.close();
  if (!file) throw std::runtime_error(fmt::format("{}: cannot be written", path.string()));
}

void write_unit(const fs::path& folder, const FleetUnit& unit) {
  const fs::path path = folder / unit.name;
  std::ofstream file = opened(path);
  file.write(reinterpret_cast<const char*>(unit.image.data()),
             static_cast<std::streamsize>(unit.image.size()));
  finish(file, path);
  const timespec times[2] = {{unit.time, 0}, {unit.time, 0}};
  utimensat(AT_FDCWD, path.c_str(), times, 0);
}

void print_counts(Terminal& terminal, const char* title, const std::map<std::string, size_t>& counts) {
  Table table({title, ">units"});
  for (const auto& [what, count] : counts) table.row({what, std::to_string(count)});
  table.print(terminal, 2);
}

}  // namespace

void make_demo_fleet(const FleetPlan& plan, const fs::path& dir, Terminal& terminal) {
  const DemoFolder folder(dir);
  const fs::path units = folder.path() / "units";
  fs::create_directory(units);
  std::ofstream truth = opened(folder.path() / "truth.csv");
  truth << "unit,time,result,fault,out_of_limit\n";
  std::map<std::string, size_t> results;
  std::map<std::string, size_t> faults;
  for (size_t i = 0; i < plan.units; ++i) {
    const FleetUnit unit = make_unit(plan, i);
    write_unit(units, unit);
    truth << fmt::format("{},{},{},{},{:d}\n", unit.name, utc_text(unit.time), unit.result,
                         unit_fault_name(unit.fault), unit.is_out_of_limit);
    ++results[unit.result];
    ++faults[unit_fault_name(unit.fault)];
    if (i % 1000 == 0) terminal.progress(fmt::format("{} of {} units", i, plan.units));
  }
  finish(truth, folder.path() / "truth.csv");
  std::ofstream limits = opened(folder.path() / "limits.csv");
  limits << fleet_limits_text();
  finish(limits, folder.path() / "limits.csv");
  folder.keep();
  terminal.line(fmt::format("{} units of {} days in {}", plan.units, kFleetDays, units.string()));
  print_counts(terminal, "what they come to", results);
  print_counts(terminal, "what happened to them", faults);
  terminal.line(
      fmt::format("awbcal fleet {} --limits {}", units.string(), (folder.path() / "limits.csv").string()));
}

}  // namespace awbcal
