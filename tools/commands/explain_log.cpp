#include "commands/explain_log.h"

#include <fmt/format.h>

#include <map>

#include "commands/commands.h"
#include "inspect/phrases.h"
#include "log/log_comparison.h"
#include "log/log_story.h"

namespace awbcal {

namespace {

struct LogAnswer {
  LogStory story;
  std::optional<Phone> phone = {};
  std::vector<LogComparison> comparisons = {};
};

// ---- groups ----------------------------------------------------------------------------------------------

/// Acts that belong together: a camera start, a set of checks.
struct ActGroup {
  std::vector<const ActStory*> acts;

  const Act& first() const { return acts.front()->act; }
  bool takes(const Act& act) const {
    if (act.of() != first().of() || act.camera != first().camera || act.of() == DeedClass::run) return false;
    if (act.of() == DeedClass::writer) return true;
    return std::ranges::none_of(acts,
                                [&act](const ActStory* each) { return each->act.deed() == act.deed(); });
  }
};

std::vector<ActGroup> groups_of(const std::vector<const ActStory*>& acts) {
  std::vector<ActGroup> groups;
  std::map<uint32_t, size_t> last;  // by process
  for (const ActStory* each : acts) {
    const auto known = last.find(each->act.process);
    if (known != last.end() && groups[known->second].takes(each->act)) {
      groups[known->second].acts.push_back(each);
    } else {
      last.insert_or_assign(each->act.process, groups.size());
      groups.push_back({{each}});
    }
  }
  return groups;
}

std::string group_title(const ActGroup& group) {
  const Act& act = group.first();
  const std::string camera = act.camera ? fmt::format("the {} camera", camera_name(*act.camera)) : "a camera";
  switch (act.of()) {
    case DeedClass::correction:
      return camera + " starts";
    case DeedClass::check:
      return "result checks of " + camera;
    case DeedClass::writer:
      return act.camera ? "records of " + camera + " are written" : "records are written";
    case DeedClass::run:
      break;
  }
  return camera + " is calibrated";
}

/// "line 12, 11-21 20:15:00.123, process 812"
std::string place_of(const LogStory& story, const Act& act) {
  const LogProcess& process = story.processes[act.process];
  const std::string& section = story.sections[process.section];
  return fmt::format("line {}{}{}, process {}{}", act.first_line, act.time.empty() ? "" : ", ", act.time,
                     process.pid, section.empty() ? "" : fmt::format(", {}", section));
}

std::vector<const ActStory*> asked_for(const LogStory& story, const LogQuestion& question) {
  std::vector<const ActStory*> acts;
  for (const ActStory& each : story.acts) {
    if (!question.camera || !each.act.camera || each.act.camera == question.camera) acts.push_back(&each);
  }
  return acts;
}

// ---- for people ------------------------------------------------------------------------------------------

void print_process(Terminal& terminal, const LogStory& story, const LogProcess& process) {
  const std::string& section = story.sections[process.section];
  const std::string name = fmt::format("process {}{}{}", process.pid, section.empty() ? "" : ", ", section);
  if (process.has_only_errors()) {
    terminal.paragraph(
        fmt::format("{}: only errors are in the log, because it is masked or the rest is lost: what "
                    "went well is not told",
                    name));
  }
  if (process.dropped > 0) {
    terminal.paragraph(fmt::format("{}: the phone's log dropped {} of its lines", name, process.dropped));
  }
  if (process.unknown > 0) {
    terminal.paragraph(fmt::format("{}: {} under the library's tags {} none of this library", name,
                                   counted(process.unknown, "line"), process.unknown == 1 ? "is" : "are"));
  }
}

void print_input(Terminal& terminal, const LogStory& story) {
  terminal.paragraph(
      fmt::format(
          "{}: a {} of {}, {} of the library, from {}", story.input.name,
          story.is_bug_report ? "bug report" : "log", counted(story.lines, "line"), story.library_lines(),
          story.processes.size() == 1 ? "1 process" : fmt::format("{} processes", story.processes.size())),
      0);
  for (const std::string& file : story.input.files) terminal.paragraph("read: " + file);
  for (const std::string& unknown : story.input.unknown) terminal.paragraph("not known: " + unknown);
  if (story.cut_lines > 0)
    terminal.paragraph(
        fmt::format("{}: longer than a log has them, and cut", counted(story.cut_lines, "line")));
  if (story.untold > 0)
    terminal.paragraph(fmt::format("not told: {} more of the library", counted(story.untold, "line")));
  if (const Modules modules = story.modules(); !modules.empty()) show_modules(terminal, modules, {});
  for (const LogProcess& process : story.processes) print_process(terminal, story, process);
}

void print_answer(Terminal& terminal, const LogQuestion& question, const LogAnswer& answer) {
  print_input(terminal, answer.story);
  for (const ActGroup& group : groups_of(asked_for(answer.story, question))) {
    terminal.heading(group_title(group));
    terminal.paragraph(place_of(answer.story, group.first()));
    for (const ActStory* each : group.acts) terminal.paragraph(each->sentence);
  }
  if (!answer.phone) return;
  terminal.heading("The log and the phone");
  show_input(terminal, *answer.phone);
  if (answer.comparisons.empty()) terminal.paragraph("the log shows no record or module to compare");
  for (const LogComparison& each : answer.comparisons) terminal.paragraph(each.sentence);
}

// ---- for programs ----------------------------------------------------------------------------------------

const char* class_name(DeedClass of) {
  constexpr const char* kNames[] = {"correction", "check", "writer", "run"};
  return kNames[static_cast<size_t>(of)];
}

const char* result_name(ActResult result) {
  constexpr const char* kNames[] = {"done", "refused", "unfinished", "not known"};
  return kNames[static_cast<size_t>(result)];
}

template <class Value>
Json or_null(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json source_json(const Act& act) {
  if (!act.from) return nullptr;
  constexpr const char* kNames[] = {"cache", "export", "absent"};
  return kNames[static_cast<size_t>(*act.from)];
}

Json section_json(const LogStory& story, const LogProcess& process) {
  const std::string& section = story.sections[process.section];
  return section.empty() ? Json(nullptr) : Json(section);
}

Json act_json(const LogStory& story, const ActStory& told) {
  const Act& act = told.act;
  const LogProcess& process = story.processes[act.process];
  const bool has_margin = act.delta && act.limit;
  return {{"act", class_name(act.of())},
          {"line", act.first_line},
          {"last_line", act.last_line},
          {"time", act.time.empty() ? Json(nullptr) : Json(act.time)},
          {"pid", process.pid},
          {"section", section_json(story, process)},
          {"camera", json_of(act.camera)},
          {"function", act.function() == nullptr ? Json(nullptr) : Json(act.function())},
          {"kind", act.record() == nullptr ? Json(nullptr) : Json(act.record()->id)},
          {"result", result_name(told.result)},
          {"refused_by_test", told.test == 0 ? Json(nullptr) : Json(told.test)},
          {"source", source_json(act)},
          {"valid_word", or_null(act.known_valid_word())},
          {"fuse_id", or_null(act.known_fuse())},
          {"module", or_null(act.known_module())},
          {"margin", has_margin ? Json{{"delta", number_json(*act.delta)}, {"limit", number_json(*act.limit)}}
                                : Json(nullptr)},
          {"sentence", told.sentence}};
}

Json log_json(const LogStory& story) {
  return {{"name", story.input.name},
          {"bug_report", story.is_bug_report},
          {"files", story.input.files},
          {"lines", story.lines},
          {"library_lines", story.library_lines()},
          {"cut_lines", story.cut_lines},
          {"untold_lines", story.untold},
          {"unknown", story.input.unknown}};
}

Json answer_json(const LogQuestion& question, const LogAnswer& answer) {
  const LogStory& story = answer.story;
  Json document = json_document("explain");
  document["log"] = log_json(story);
  document["camera"] = json_of(question.camera);
  document["modules"] = modules_json(story.modules());
  document["processes"] = Json::array();
  for (const LogProcess& process : story.processes) {
    document["processes"].push_back({{"pid", process.pid},
                                     {"section", section_json(story, process)},
                                     {"lines", process.lines},
                                     {"only_errors", process.has_only_errors()},
                                     {"unknown_lines", process.unknown},
                                     {"dropped_lines", process.dropped}});
  }
  document["acts"] = Json::array();
  for (const ActStory* each : asked_for(story, question)) document["acts"].push_back(act_json(story, *each));
  if (!answer.phone) return document;
  document["phone"] = json_of(*answer.phone);
  document["comparison"] = Json::array();
  for (const LogComparison& each : answer.comparisons) {
    document["comparison"].push_back({{"camera", json_of(each.camera)},
                                      {"kind", each.spec == nullptr ? Json(nullptr) : Json(each.spec->id)},
                                      {"same", each.is_same},
                                      {"sentence", each.sentence}});
  }
  return document;
}

}  // namespace

int run_explain_log(const LogQuestion& question, Terminal& terminal) {
  LogAnswer answer{.story = tell_log(question.file)};
  if (!question.phone.paths.empty()) {
    answer.phone = open_phone_of(question.phone);
    answer.comparisons = compare_with_phone(answer.story, *answer.phone);
    if (question.camera) {
      std::erase_if(answer.comparisons, [&question](const LogComparison& each) {
        return each.camera && each.camera != question.camera;
      });
    }
  }
  if (question.json) {
    print_json(answer_json(question, answer));
  } else {
    print_answer(terminal, question, answer);
  }
  const bool is_known = answer.story.is_complete() && (!answer.phone || answer.phone->is_complete());
  if (!is_known) return kBadInput;
  return asked_for(answer.story, question).empty() ? kNothing : kDone;
}

}  // namespace awbcal
