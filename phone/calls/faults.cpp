#include "phone/calls/faults.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace phone {

const std::string_view kFaultFileHelp = R"(# Faults, one a line; read when a program attaches the phone.
#
#   CALL PATH NTH[+] EFFECT        a call of the C library or of a service
#   nand OP BLOCK NTH[+] EFFECT    an operation of the NAND chip
#
# CALL    open, read, write, ... as in "write"; * is any file call
# PATH    the phone's path, or a prefix that ends in *; * alone is any. For property calls the property's name
# NTH     the nth matching call from 1; with + also all later ones
# EFFECT  an errno name (EIO), or short=N: the transfer moves N bytes, or power_cut: the power goes before the
#         call, or power_cut=N: after N bytes of its transfer
# OP      erase, program, read, ask_bad, ecc_stats;  BLOCK is a number, or * for any
#         EFFECT is fail, corrupt, corrupt=BYTE, ecc_corrected, ecc_failed, power_cut or power_cut=N; BYTE counts
#         what is moved in the block, from its end if negative (-1 is the last byte); N of its bytes are done
#
#   write /dev/block/mmcblk0p6 3 EIO
#   read /data/misc/camera/* 1+ short=10
#   read /data/misc/camera/awb_cal 1 EINTR
#   nand program 4 1 corrupt=-1
)";

constinit bool any_fault_armed = false;

namespace {

struct Armed {
  Fault fault;
  unsigned matches = 0;
};

struct State {
  std::recursive_mutex mutex;
  std::vector<Armed> armed;
  unsigned struck = 0;
  bool powered = true;
  bool journal_kept = true;
  std::vector<Call> journal;
};

// Never destroyed: interposed calls may come after the last static destructor.
State& state() {
  static auto* const instance = new State;
  return *instance;
}

bool path_matches(std::string_view pattern, std::string_view path) {
  if (pattern.empty()) return true;
  if (pattern.ends_with('*')) return path.starts_with(pattern.substr(0, pattern.size() - 1));
  return pattern == path;
}

// Every fault counts the call, also when another fault strikes it.
CallEffect strike(std::string_view call, std::string_view path, bool any_name_counts) {
  CallEffect effect;
  bool decided = false;
  for (Armed& armed : state().armed) {
    const Fault& fault = armed.fault;
    const bool named = fault.call == call || (any_name_counts && fault.call == "*");
    if (!named || !path_matches(fault.path, path)) continue;
    ++armed.matches;
    const bool due = armed.matches == fault.nth || (fault.from_then_on && armed.matches > fault.nth);
    if (!due || std::exchange(decided, true)) continue;
    ++state().struck;
    effect = fault.transfer >= 0 ? CallEffect{.transfer = fault.transfer} : CallEffect{.error = fault.error};
    if (fault.power_cut) state().powered = false;
  }
  return effect;
}

std::optional<int> errno_named(std::string_view name) {
  for (int number = 1; number < 134; ++number) {
    const char* known = strerrorname_np(number);
    if (known != nullptr && name == known) return number;
  }
  return std::nullopt;
}

std::optional<int64_t> number(std::string_view text) {
  int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

struct Words {
  std::string call, op, place, nth, effect;
};

/// NTH[+] of a line; false if it is none.
template <typename AnyFault>
bool take_count(std::string_view text, AnyFault& fault) {
  fault.from_then_on = text.ends_with('+');
  const auto nth = number(text.substr(0, text.size() - fault.from_then_on));
  if (!nth || *nth < 1 || *nth > UINT32_MAX) return false;
  fault.nth = static_cast<unsigned>(*nth);
  return true;
}

/// "NAME=N"; nothing when the effect is another.
std::optional<int64_t> effect_number(std::string_view effect, std::string_view name) {
  if (!effect.starts_with(name) || effect.substr(name.size(), 1) != "=") return std::nullopt;
  return number(effect.substr(name.size() + 1));
}

std::optional<Fault> call_fault(const Words& words) {
  Fault fault{.call = words.call, .path = words.place == "*" ? "" : words.place};
  if (!take_count(words.nth, fault)) return std::nullopt;
  fault.power_cut = words.effect.starts_with("power_cut");
  if (words.effect == "power_cut") return fault;
  const auto part = effect_number(words.effect, fault.power_cut ? "power_cut" : "short");
  fault.transfer = part.value_or(-1);
  if (fault.transfer >= 0) return fault;
  const auto error = errno_named(words.effect);
  fault.error = error.value_or(0);
  return error ? std::optional(fault) : std::nullopt;
}

template <typename Enum>
std::optional<Enum> named(const std::map<std::string_view, Enum>& names, std::string_view name) {
  const auto found = names.find(name);
  return found == names.end() ? std::nullopt : std::optional(found->second);
}

std::optional<NandFault> nand_fault(Words words) {
  using Op = NandFault::Op;
  using Effect = NandFault::Effect;
  static const std::map<std::string_view, Op> kOps = {{"erase", Op::erase},
                                                      {"program", Op::program},
                                                      {"read", Op::read},
                                                      {"ask_bad", Op::ask_bad},
                                                      {"ecc_stats", Op::ecc_stats}};
  static const std::map<std::string_view, Effect> kEffects = {{"fail", Effect::fail},
                                                              {"corrupt", Effect::corrupt},
                                                              {"ecc_corrected", Effect::ecc_corrected},
                                                              {"ecc_failed", Effect::ecc_failed},
                                                              {"power_cut", Effect::power_cut}};
  NandFault fault;
  const auto byte = effect_number(words.effect, "corrupt");
  const auto done = effect_number(words.effect, "power_cut");
  if (byte) words.effect = "corrupt";
  if (done) words.effect = "power_cut";
  const auto op = named(kOps, words.op);
  const auto effect = named(kEffects, words.effect);
  const bool any_block = words.place == "*";
  const auto block = any_block ? std::optional<int64_t>(-1) : number(words.place);
  if (!op || !effect || (done && *done < 0) || !block || (*block < 0 && !any_block) ||
      !take_count(words.nth, fault)) {
    return std::nullopt;
  }
  fault.op = *op;
  fault.effect = *effect;
  fault.block = *block;
  fault.byte = byte.value_or(0);
  fault.done = done.value_or(-1);
  return fault;
}

bool read_fault_line(const std::string& line, FaultFile& faults) {
  std::istringstream in(line);
  Words words;
  if (!(in >> words.call) || words.call[0] == '#') return true;
  if (words.call == "nand") in >> words.op;
  std::string rest;
  if (!(in >> words.place >> words.nth >> words.effect) || in >> rest) return false;
  if (words.call == "nand") {
    const auto fault = nand_fault(words);
    if (fault) faults.nand.push_back(*fault);
    return fault.has_value();
  }
  const auto fault = call_fault(words);
  if (fault) faults.calls.push_back(*fault);
  return fault.has_value();
}

}  // namespace

CallEffect effect_on_file_call(std::string_view call, std::string_view path, const char* journal_name) {
  const std::lock_guard lock(state().mutex);
  const std::string_view name = journal_name != nullptr ? journal_name : call;
  if (state().journal_kept) state().journal.push_back({std::string(name), std::string(path)});
  const bool was_powered = state().powered;
  const CallEffect effect = strike(call, path, true);
  return was_powered || call == "close" ? effect : CallEffect{.error = EIO};
}

void cut_power() {
  const std::lock_guard lock(state().mutex);
  state().powered = false;
}

void power_on() {
  const std::lock_guard lock(state().mutex);
  state().powered = true;
}

CallEffect effect_on_service_call(std::string_view call, std::string_view subject) {
  if (!__atomic_load_n(&any_fault_armed, __ATOMIC_ACQUIRE)) return {};
  const std::lock_guard lock(state().mutex);
  return strike(call, subject, false);
}

void VirtualPhone::add_fault(const Fault& fault) {
  const std::lock_guard lock(state().mutex);
  state().armed.push_back({fault});
  // The journal and the matching know directories without their trailing slash.
  std::string& path = state().armed.back().fault.path;
  if (path.size() > 1 && path.ends_with('/')) path.pop_back();
  __atomic_store_n(&any_fault_armed, true, __ATOMIC_RELEASE);
}

void VirtualPhone::clear_faults() {
  const std::lock_guard lock(state().mutex);
  state().armed.clear();
  __atomic_store_n(&any_fault_armed, false, __ATOMIC_RELEASE);
  state().struck = 0;
  state().powered = true;
}

unsigned VirtualPhone::struck_faults() const {
  const std::lock_guard lock(state().mutex);
  return state().struck;
}

void keep_journal(bool on) {
  const std::lock_guard lock(state().mutex);
  state().journal_kept = on;
  state().journal.clear();
}

std::vector<Call> VirtualPhone::take_calls() {
  const std::lock_guard lock(state().mutex);
  return std::exchange(state().journal, {});
}

FaultFile read_fault_file(const std::filesystem::path& file) {
  FaultFile faults;
  std::ifstream in(file);
  std::string line;
  for (int row = 1; std::getline(in, line); ++row) {
    if (!read_fault_line(line, faults)) {
      throw std::runtime_error(file.string() + ":" + std::to_string(row) + ": not a fault: " + line);
    }
  }
  return faults;
}

}  // namespace phone
