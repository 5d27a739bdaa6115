#include "log/recogniser.h"

#include <algorithm>

#include "log/line_rules.h"

namespace awbcal {

namespace {

constexpr size_t kMostStorageErrors = 3;

/// Storage logs these at error priority in good days too.
constexpr std::string_view kNoErrors[] = {
    library_line("partition_close(): emmc_close\n"),
    library_line("emmc_open(): cannot find eMMC partition [%s]!\n"),
    library_line("mtd: not writing bad block at 0x%08lx\n"),
};

constexpr std::string_view kFuseLines[] = {library_line("[AWB Calibration] sfuse.fuse_id_word1:0x%x\n"),
                                           library_line("[AWB Calibration] sfuse.fuse_id_word2:0x%x\n"),
                                           library_line("[AWB Calibration] sfuse.fuse_id_word3:0x%x\n"),
                                           library_line("[AWB Calibration] sfuse.fuse_id_word4:0x%x\n")};
constexpr std::string_view kDetected = library_line("[LSC/AWB Calibration] %s: detect cam id = %d\n");
constexpr std::string_view kSelected = library_line("set sensor selection :%d\n");

constexpr std::string_view kTrigger = library_line("calibration_trigger %d");
constexpr std::string_view kCounter = library_line("[AWB Calibration] :QOR_AWB_Calibration_counter:%d\n");
constexpr std::string_view kCounterAndCamid = library_line("%s: %3d %3d\n");
constexpr std::string_view kFrameLines[] = {
    kTrigger,
    library_line("QOR_AWB_Calibration_write_to_flash (%d,%d)\n"),
    library_line("%s: threshold = %d , light source version = %d\n"),
    kCounterAndCamid,
    kCounter,
    library_line("%s:counter=%3d rg=%f bg=%f\n"),
};

constexpr Deeds kRun = deeds(Deed::run);

/// Before the fuse ID is asked for, that is.
bool is_mesh_that_begins(const Act& act) {
  return act.candidates == deeds(Deed::mesh) && act.order == kBegin;
}

/// A number of frames that a run can only be at when it is another one.
bool begins_run(const Act& run, const LineMatch& match) {
  const std::string_view format = match.line().format;
  if (run.has_finished) return std::ranges::find(kFrameLines, format) != std::end(kFrameLines);
  if (format == kTrigger) return match.number(0) == 1 && run.frames.has_value();
  if (format == kCounter) return match.number(0) < run.frames.value_or(0);
  return format == kCounterAndCamid && match.number(1) < run.frames.value_or(0);
}

/// Every deed of the functions that these may belong to.
Deeds of_their_functions(Deeds candidates) {
  Deeds result = 0;
  for (size_t i = 0; i < kDeedCount; ++i) {
    if (has(candidates, i)) result |= deeds_of_function(spec_of(static_cast<Deed>(i)).function);
  }
  return result;
}

/// What a neighbour in the same call says of it.
void narrow(Act& act, const Act& neighbour) {
  if (act.is_certain() || !neighbour.is_certain() || act.call != neighbour.call) return;
  const Deeds common = act.candidates & of_their_functions(neighbour.candidates);
  if (common != 0) act.candidates = common;
  // Of the two lights' records, the one of normal light comes first.
  if (act.candidates == deeds(Deed::pair_normal_light, Deed::pair_a_light))
    act.candidates &= ~neighbour.candidates;
}

bool has_any(const std::array<std::optional<uint32_t>, 4>& words) {
  return std::any_of(words.begin(), words.end(), [](const auto& word) { return word.has_value(); });
}

/// A call for the pair reads the record of normal light, then that of A light.
void tell_pair_apart(Act& first, Act& second) {
  constexpr Deeds kPair = deeds(Deed::pair_normal_light, Deed::pair_a_light);
  if (first.candidates != kPair || second.candidates != kPair) return;
  first.candidates = deeds(Deed::pair_normal_light);
  second.candidates = deeds(Deed::pair_a_light);
}

/// A line that any of several acts begins with, and nothing else.
bool says_nothing(const Act& act) {
  return !act.is_certain() && !act.from && !act.is_crc_good && !act.is_taken && !act.known_valid_word() &&
         !act.fuse[0];
}

}  // namespace

std::optional<uint32_t> Recogniser::process_of(uint32_t section, int64_t pid) {
  const auto known = by_pid_.find({section, pid});
  if (known != by_pid_.end()) return known->second;
  if (processes_.size() == kMostProcesses) return std::nullopt;
  const auto index = static_cast<uint32_t>(processes_.size());
  by_pid_.emplace(std::pair(section, pid), index);
  processes_.push_back({.section = section, .pid = pid});
  states_.emplace_back();
  return index;
}

void Recogniser::take_dropped(uint32_t section, int64_t pid, uint64_t lines) {
  // Of a process that is not the library's nobody wants to know.
  const auto known = by_pid_.find({section, pid});
  if (known != by_pid_.end()) processes_[known->second].dropped += lines;
}

void Recogniser::take(const LogEntry& entry) {
  const auto process = process_of(entry.section, entry.pid);
  if (!process) {
    ++untold_;
    return;
  }
  LogProcess& counted = processes_[*process];
  State& state = states_[*process];
  ++counted.lines;
  if (entry.priority == 'E') ++counted.errors;
  const auto match = match_line(entry.tag, entry.priority, entry.text);
  if (!match) {
    ++counted.unknown;
    return;
  }
  if (entry.tag != kCalibrationTag) return take_storage(state, entry);
  if (take_context(state, *match)) return;
  const LineRule* rule = rule_of(*match, entry.priority);
  if (rule == nullptr) return;
  const Deeds named = deeds_of_function(match->text(0));
  const Deeds wanted = (rule->of & named) != 0 ? rule->of & named : rule->of;
  if (rule->order == kInside && !state.run) return;
  Act* act = wanted == kRun ? open_run(state, entry, *process, *match)
                            : open_act(state, entry, *process, wanted, rule->order, rule->repeats);
  if (act == nullptr) return;
  if (rule->apply != nullptr) rule->apply(*act, *match);
  act->last_line = entry.line;
  keep_camera(state, *act);
}

/// Lines that are about the process and not about one act.
bool Recogniser::take_context(State& state, const LineMatch& match) {
  const std::string_view format = match.line().format;
  if (format == kDetected) {
    state.camera = calib::camera_of_selection(static_cast<int32_t>(match.number(1)));
    state.has_just_detected = true;
    state.act.reset();
    return true;
  }
  if (format == kSelected) {
    // It shows the selection before: the new one is known from the line above it alone.
    if (!state.has_just_detected) state.camera.reset();
    state.act.reset();
  }
  state.has_just_detected = false;
  for (size_t i = 0; i < std::size(kFuseLines); ++i) {
    if (format == kFuseLines[i]) take_fuse_word(state, i, static_cast<uint32_t>(match.hex(0)));
  }
  return format == kSelected;
}

/// Every call asks for the fuse ID, and is another than the one before.
void Recogniser::take_fuse_word(State& state, size_t i, uint32_t word) {
  if (state.act && is_mesh_that_begins(acts_[*state.act])) {
    acts_[*state.act].module[i] = word;
    return;
  }
  state.act.reset();
  if (i <= state.last_fuse_word) state.fresh_module = {};
  state.fresh_module[i] = word;
  state.last_fuse_word = i;
}

void Recogniser::take_storage(const State& state, const LogEntry& entry) {
  if (entry.priority != 'E' || !state.last) return;
  const auto match = match_line(entry.tag, entry.priority, entry.text);
  const bool is_no_error = std::any_of(std::begin(kNoErrors), std::end(kNoErrors),
                                       [&](std::string_view line) { return match->line().format == line; });
  if (is_no_error) return;
  Act& act = acts_[*state.last];
  if (act.storage_errors.size() < kMostStorageErrors) act.storage_errors.emplace_back(entry.text);
  ++act.storage_error_count;
}

Act* Recogniser::open_act(State& state, const LogEntry& entry, uint32_t process, const Deeds& wanted,
                          int order, bool repeats) {
  if (state.act) {
    Act& act = acts_[*state.act];
    const bool fits = order > act.order || (repeats && order == act.order) || order == kAnywhere;
    if (fits && (act.candidates & wanted) != 0) {
      act.candidates &= wanted;
      act.order = std::max(act.order, order);
      state.last = state.act;
      return &act;
    }
  }
  Act* act = new_act(state, entry, process, wanted);
  if (act == nullptr) return nullptr;
  act->order = order;
  state.act = state.last;
  return act;
}

Act* Recogniser::open_run(State& state, const LogEntry& entry, uint32_t process, const LineMatch& match) {
  if (state.run && !begins_run(acts_[*state.run], match)) {
    state.last = state.run;
    if (has_any(state.fresh_module)) acts_[*state.run].module = std::exchange(state.fresh_module, {});
    return &acts_[*state.run];
  }
  Act* act = new_act(state, entry, process, kRun);
  if (act != nullptr) state.run = state.last;
  return act;
}

Act* Recogniser::new_act(State& state, const LogEntry& entry, uint32_t process, const Deeds& candidates) {
  if (acts_.size() == kMostActs) {
    ++untold_;
    state.act.reset();
    state.run.reset();
    state.last.reset();
    return nullptr;
  }
  const bool is_new_call = has_any(state.fresh_module);
  Act act{.candidates = candidates,
          .process = process,
          .first_line = entry.line,
          .last_line = entry.line,
          .time = std::string(entry.time)};
  const Deeds last = state.last ? of_their_functions(acts_[*state.last].candidates) : 0;
  if (is_new_call || (candidates & last) == 0) {
    state.module = std::exchange(state.fresh_module, {});
    state.last_fuse_word = 0;
    state.call = ++next_call_;
  }
  act.call = state.call;
  act.module = state.module;
  // A writer's is the slot that its own lines name.
  if (act.of() == DeedClass::correction || act.of() == DeedClass::check) act.camera = state.camera;
  acts_.push_back(std::move(act));
  state.last = acts_.size() - 1;
  return &acts_.back();
}

/// A reader's camera is the one that is selected; a writer's slot says nothing of it.
void Recogniser::keep_camera(State& state, const Act& act) const {
  const DeedClass of = act.of();
  if (act.camera && (of == DeedClass::correction || of == DeedClass::check)) state.camera = act.camera;
}

std::vector<Act> Recogniser::finish() {
  // Calls are numbered over all processes; the acts of one are together in none but their own.
  std::map<uint64_t, std::vector<size_t>> by_call;
  for (size_t i = 0; i < acts_.size(); ++i) by_call[acts_[i].call].push_back(i);
  for (const auto& [call, acts] : by_call) {
    if (acts.size() == 2) tell_pair_apart(acts_[acts[0]], acts_[acts[1]]);
    for (size_t i = 1; i < acts.size(); ++i) {
      narrow(acts_[acts[i - 1]], acts_[acts[i]]);
      narrow(acts_[acts[i]], acts_[acts[i - 1]]);
    }
  }
  std::erase_if(acts_, says_nothing);
  return std::move(acts_);
}

}  // namespace awbcal
