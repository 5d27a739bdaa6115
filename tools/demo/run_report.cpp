#include "demo/run_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "inspect/claims.h"
#include "run/verification.h"

namespace awbcal {

namespace {

using calib::Camera;

struct StoredRecord {
  const RecordSpec& spec;
  uint32_t partition_offset;
  Bytes bytes;
};

StoredRecord stored_record(const phone::VirtualPhone& phone, RecordKind kind, Camera camera) {
  const RecordSpec& spec = record_spec(kind);
  const uint32_t offset = area_base(phone.property("ro.pagesize")) + area_offset(spec, camid_of(camera));
  const Bytes partition = phone.partition();
  const auto first = partition.begin() + offset;
  return {spec, offset, Bytes(first, first + static_cast<std::ptrdiff_t>(spec.size))};
}

constexpr size_t kShownAtMost = 8;

/// The last event and those at the start: a run that is never stored has one with every frame.
Table events_table(const RunResult& result) {
  Table table({">frame", ">luma", ">gain", ">exp us", ">samples", ">R/G", ">B/G", "what happens"});
  for (size_t i = 0; i < result.events.size(); ++i) {
    if (i + 1 >= kShownAtMost && i + 1 < result.events.size()) continue;
    const FrameEvent& event = result.events[i];
    const double samples = 1024.0 * (event.frame.count != 0 ? event.frame.count : 1);
    table.row({std::to_string(event.number), fmt::format("{:.1f}", event.luma),
               std::to_string(event.exposure.gain), std::to_string(event.exposure.exp_time),
               std::to_string(event.frame.count), fmt::format("{:.4f}", event.frame.rg_sum / samples),
               fmt::format("{:.4f}", event.frame.bg_sum / samples), event.what});
  }
  return table;
}

bool is_changed(const CameraFiles& before, const std::string& name, const CameraFile& now) {
  const auto old = before.find(name);
  return old == before.end() || !(old->second == now);
}

/// Where a byte of the partition lies on the NAND chip: blocks that are marked bad are passed over.
std::string place_on_chip(phone::Nand& nand, uint64_t offset) {
  const uint32_t erase_size = nand.geometry().erase_size;
  uint64_t good_before = offset / erase_size;
  uint32_t block = 0;
  for (; nand.is_bad(block) || good_before > 0; ++block) good_before -= nand.is_bad(block) ? 0 : 1;
  return fmt::format("mtd{} block {}, byte 0x{:x} of the chip", nand.geometry().mtd_number, block,
                     uint64_t{block} * erase_size + offset % erase_size);
}

bool is_nand(const phone::VirtualPhone& phone) {
  return !std::filesystem::exists(phone.host_path("/dev/block/mmcblk0p6"));
}

void show_place(Terminal& terminal, phone::VirtualPhone& phone, const StoredRecord& record, Camera camera) {
  const std::string place =
      is_nand(phone) ? place_on_chip(phone.nand(), record.partition_offset) : "/dev/block/mmcblk0p6";
  terminal.paragraph(fmt::format("{}: {} bytes at 0x{:x} of \"mfg\"", record.spec.name, record.spec.size,
                                 record.partition_offset));
  terminal.paragraph(fmt::format("{} camera's slot + 0x{:03x}; {}", camera_name(camera),
                                 record.spec.offset.value_or(0), place),
                     4);
}

/// The texts of the new or changed marker files.
void show_reports(Terminal& terminal, const CameraFiles& before, const CameraFiles& now) {
  for (const auto& [name, file] : now) {
    if (!name.ends_with(".txt") || !is_changed(before, name, file)) continue;
    terminal.paragraph(name);
    terminal.quote(file.content);
  }
}

void show_errors(Terminal& terminal, const RunResult& result) {
  std::map<std::string, int> counts;
  for (const std::string& line : result.error_lines) counts[line] += 1;
  if (!counts.empty()) terminal.paragraph("Errors in its log");
  for (const auto& [line, count] : counts) {
    terminal.quote(count > 1 ? fmt::format("({} times) {}", count, line) : line);
  }
}

std::string first_lines(const std::string& text) {
  constexpr size_t kLines = 12;
  size_t end = 0;
  for (size_t line = 0; line < kLines && end < text.size(); ++line) {
    end = std::min(text.find('\n', end), text.size() - 1) + 1;
  }
  const auto left = std::count(text.begin() + static_cast<std::ptrdiff_t>(end), text.end(), '\n');
  return text.substr(0, end) + (left > 0 ? fmt::format("({} more lines)\n", left) : "");
}

std::string failed_rules(const std::vector<RuleResult>& rules) {
  std::string names;
  for (const RuleResult& rule : rules) {
    if (!rule.passed) names += fmt::format("{} {}", names.empty() ? "bad" : ",", rule.rule);
  }
  return names;
}

/// What the record was written for: not its valid word, module and checksum.
std::string measured_values(const StoredRecord& record) {
  std::string values;
  for (const Field& field : decode(record.spec, record.bytes)) {
    if (field.offset == 0 || field.name.starts_with("fuse") || field.name == "CRC") continue;
    values += fmt::format("{}{} {}", values.empty() ? "" : ", ", field.name,
                          field.meaning.empty() ? field.value : field.meaning);
  }
  return values;
}

}  // namespace

Cell verdict_cell(bool passed) {
  return passed ? Cell("PASS", Style::good) : Cell("FAIL", Style::bad);
}

void show_run(Terminal& terminal, const RunPlan& plan, const RunResult& result) {
  terminal.paragraph("The factory tool sets");
  Table properties({"", ""});
  for (const auto& [name, value] : result.properties) properties.row({name, value});
  properties.print(terminal);
  terminal.paragraph(fmt::format("The camera opens: luma target {}, tolerance {}. The trigger goes to 1.",
                                 result.luma_target, result.luma_tolerance));
  if (!plan.recorded.empty()) terminal.paragraph("The frames come from the recorded stream.");
  events_table(result).print(terminal);
  if (result.while_waiting.empty()) return;
  terminal.paragraph("Until the record can be stored, the factory tool finds");
  show_reports(terminal, result.before, result.while_waiting);
}

void show_files(Terminal& terminal, const RunResult& result) {
  terminal.paragraph("Files under /data/misc/camera");
  Table table({"", ">", ">", ""});
  for (const auto& [name, file] : result.after) {
    if (!is_changed(result.before, name, file)) continue;
    table.row({result.before.contains(name) ? "replaced" : "new", fmt::format("{:04o}", file.mode),
               fmt::format("{} bytes", file.content.size()), name});
  }
  for (const auto& [name, file] : result.before) {
    if (!result.after.contains(name)) table.row({"removed", "", "", name});
  }
  table.print(terminal);
}

void show_outcome(Terminal& terminal, const RunResult& result) {
  terminal.paragraph("Console of the library");
  terminal.quote(first_lines(result.console));
  show_errors(terminal, result);
  show_files(terminal, result);
  show_reports(terminal, result.before, result.after);
}

void show_record(Terminal& terminal, phone::VirtualPhone& phone, RecordKind kind, Camera camera) {
  const StoredRecord record = stored_record(phone, kind, camera);
  show_place(terminal, phone, record, camera);
  print_hexdump(terminal, record.bytes, record.partition_offset);
  Table fields({">byte", "field", "value", "meaning"});
  for (const Field& field : decode(record.spec, record.bytes)) {
    fields.row({std::to_string(field.offset), field.name, field.value, field.meaning});
  }
  fields.print(terminal);
  Table rules({"", "", ""});
  for (const RuleResult& rule : rules_of(record.spec, record.bytes, module_of(phone, camera))) {
    rules.row({verdict_cell(rule.passed), rule.rule, rule.why});
  }
  rules.print(terminal);
}

void show_records(Terminal& terminal, const phone::VirtualPhone& phone,
                  const std::vector<std::pair<RecordKind, Camera>>& records) {
  Table table({"record", "camera", ">at", "", "values"});
  for (const auto& [kind, camera] : records) {
    const StoredRecord record = stored_record(phone, kind, camera);
    const auto rules = rules_of(record.spec, record.bytes, module_of(phone, camera));
    const std::string failed = failed_rules(rules);
    table.row({record.spec.name, record.spec.is_per_camera ? camera_name(camera) : "-",
               fmt::format("0x{:x}", record.partition_offset), verdict_cell(failed.empty()),
               failed.empty() ? measured_values(record) : failed});
  }
  table.print(terminal);
}

void show_verdict(Terminal& terminal, const phone::VirtualPhone& phone, const RunPlan& plan,
                  const RunResult& result) {
  if (!result.has_finished) {
    terminal.line(fmt::format("  {} after {} frames; the fail file remains.",
                              terminal.styled("No verdict", Style::bad), result.frames));
    return;
  }
  const RecordKind kind = plan.light.is_a_light ? RecordKind::a_light_awb : RecordKind::awb;
  const calib::Margin margin =
      margin_of(stored_record(phone, kind, plan.camera).bytes, plan.light.golden(), kTolerancePercent);
  terminal.line(fmt::format(
      "  Verdict: {}, {:.4f} from the golden sample, {:.4f} allowed ({:.0f} % of it)",
      terminal.styled(margin.is_kept() ? "PASS" : "FAIL", margin.is_kept() ? Style::good : Style::bad),
      margin.delta, margin.limit, percent_of_limit(margin)));
}

}  // namespace awbcal
