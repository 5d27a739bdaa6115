// Does a power cut at any point of a factory's work leave a phone that takes old records, new ones or none, and
// that the same work brings to its end? Guards against a phone that corrects with half of one calibration and half
// of another, and against one that no second run can heal.
//
//   powercuts [--share N] [emmc] [nand] [utility]     every cut, or every Nth

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iterator>
#include <map>
#include <set>

#include "awb_calibration/factory.h"
#include "awb_calibration/storage.h"
#include "demo/factory_line.h"
#include "demo/reference_lights.h"
#include "records/record_layouts.h"
#include "run/acceptance.h"
#include "tests/support/support.h"
#include "tests/volume/production_line.h"

namespace {

namespace fs = std::filesystem;
using awbcal::Acceptance;
using awbcal::camera_files;
using awbcal::camera_name;
using awbcal::CameraFiles;
using awbcal::CameraTuning;
using awbcal::camid_of;
using awbcal::kCameras;
using awbcal::RecordKind;
using calib::Camera;
using phone::Fault;
using phone::NandFault;
using support::Bytes;
using volume::Place;
using volume::Step;

constexpr size_t kSector = 512;
constexpr int64_t kHalfPage = 1024;  // of the chip's pages of 2048 bytes
constexpr const char* kCacheFolder = "/data/misc/camera/";
const Bytes kCutFile = {1};
constexpr const char* kExports = "/sys/android_camera_awb_cal/";

// ---- what is on a phone -----------------------------------------------------------------------------------

/// All that outlives a cut. The partition is one piece on eMMC, and the chip's blocks on NAND.
struct State {
  CameraFiles files;
  std::vector<Bytes> pieces;
  bool operator==(const State&) const = default;
};

using Key = std::pair<RecordKind, Camera>;
constexpr RecordKind kKinds[] = {RecordKind::awb,        RecordKind::a_light_awb, RecordKind::flash,
                                 RecordKind::dual_flash, RecordKind::aec,         RecordKind::gyro,
                                 RecordKind::dual_camera};

std::string name_of(const Key& key) {
  return fmt::format("{} camera's {}", camera_name(key.second), record_spec(key.first).name);
}

/// What the cameras make of a phone.
struct View {
  std::map<Key, Bytes> taken;  ///< the records that a correction or check takes, as the library loads them
  std::set<Key> unreached;
  std::vector<CameraTuning> tuning;

  Bytes of(const Key& key) const {
    const auto found = taken.find(key);
    return found == taken.end() ? Bytes{} : found->second;
  }
};

// ---- the phone under test -----------------------------------------------------------------------------------

class Bench {
 public:
  explicit Bench(const phone::Options& options)
      : phone_(phone::VirtualPhone::create(folder_.path() / "phone", options)),
        is_nand_(options.storage == phone::Storage::nand) {
    volume::fit_modules(phone_);
    properties_ = support::read_text(phone_.dir() / "properties").value();
    boot();
    for (const Camera camera : kCameras) {
      const auto node = node_of(camera);
      lens_shading_.push_back(support::read_bytes(node).value());
      lens_shading_.back().resize(calib::kExportFlash);
      std::fill_n(lens_shading_.back().begin(), calib::kExportLensShading, uint8_t{0});
      lens_shading_.back().resize(calib::kExportSize);
    }
  }

  phone::VirtualPhone& phone() { return phone_; }
  volume::Station station() { return {phone_, terminal_, console_}; }
  bool is_nand() const { return is_nand_; }

  /// A new process on a phone whose driver has published its modules.
  void boot() {
    phone_.clear_faults();
    if (is_nand_) phone_.nand().clear_faults();
    support::reset_library_state();
    support::write_text(phone_.dir() / "properties", properties_);
    phone_.reboot();
    phone_.take_calls();
    phone_.take_log();
    console_.take();
  }

  State save() {
    State state{.files = camera_files(phone_), .pieces = {}};
    if (!is_nand_) return {std::move(state.files), {phone_.partition()}};
    for (uint32_t block = 0; block < phone_.nand().geometry().blocks; ++block) {
      state.pieces.push_back(phone_.nand().block_bytes(block));
    }
    return state;
  }

  void load(const State& state) {
    put_files(state.files);
    if (!is_nand_) return phone_.write_partition(0, state.pieces[0].data(), state.pieces[0].size());
    for (uint32_t block = 0; block < state.pieces.size(); ++block) {
      phone_.nand().set_block_bytes(block, state.pieces[block]);
    }
  }

  void put_files(const CameraFiles& files) {
    const fs::path folder = phone_.host_path(kCacheFolder);
    for (const auto& entry : fs::directory_iterator(folder)) fs::remove(entry.path());
    for (const auto& [name, file] : files) {
      support::write_text(folder / name, file.content);
      fs::permissions(folder / name, static_cast<fs::perms>(file.mode));
    }
  }

  View view() {
    View view;
    for (const Camera camera : kCameras) view_camera(camera, view);
    return view;
  }

  /// The starts of a camera that has these records and no others. How an AWB record is refused decides on the
  /// flash gains: zeros are bound to no module, a bad checksum ends all, and one that was judged bad neither.
  std::vector<CameraTuning> starts_with(Camera camera, const View& view);

 private:
  fs::path node_of(Camera camera) { return phone_.host_path(calib::kExportNode.of(camera)); }
  Bytes loaded(const Key& key);
  void view_camera(Camera camera, View& view);
  CameraTuning start(Camera camera, const std::map<RecordKind, Bytes>& caches);

  phone::TemporaryFolder folder_;
  awbcal::Terminal terminal_{awbcal::Colour::never};
  awbcal::ConsoleCapture console_;
  phone::VirtualPhone phone_;
  bool is_nand_;
  std::string properties_;
  std::vector<Bytes> lens_shading_;  ///< exports with nothing else in them, by camid
  std::map<std::pair<Camera, std::map<RecordKind, Bytes>>, CameraTuning> starts_;
};

/// The bytes that the library's own loader gives; of the kinds without one, those of the file that it opens.
Bytes Bench::loaded(const Key& key) {
  const auto& spec = record_spec(key.first);
  Bytes bytes(spec.size);
  const auto size = static_cast<uint32_t>(bytes.size());
  uint32_t word = 0;
  switch (key.first) {
    case RecordKind::awb:
      ReadFlash(bytes.data(), &word);
      return bytes;
    case RecordKind::a_light_awb:
      ReadFlashForDualCam(bytes.data(), size, 1);
      return bytes;
    case RecordKind::flash:
      ReadFlashForFlashCalibration(bytes.data(), size);
      return bytes;
    case RecordKind::dual_flash:
      ReadFlashForDualFlashCali(bytes.data(), size);
      return bytes;
    case RecordKind::aec:
      aec_read_calibration(bytes.data(), size);
      return bytes;
    default:
      break;
  }
  const bool is_dual_camera = key.first == RecordKind::dual_camera;
  if (!is_dual_camera) {
    if (auto cache = support::read_bytes(phone_.host_path(kCacheFolder) / spec.cache_file(key.second))) {
      cache->resize(spec.size);  // bytes that were not read are zeros
      return *cache;
    }
  }
  const fs::path node = is_dual_camera ? phone_.host_path(std::string(kExports) + "awb_cal_3D")
                                       : phone_.host_path(calib::kGyroFiles.node.of(key.second));
  const Bytes image = support::read_bytes(node).value();
  const size_t at =
      is_dual_camera ? calib::kAreaDualCamera - calib::kAreaDualCameraFirstForm : calib::kExportGyro;
  return Bytes(image.begin() + static_cast<ptrdiff_t>(at),
               image.begin() + static_cast<ptrdiff_t>(at + spec.size));
}

void Bench::view_camera(Camera camera, View& view) {
  const calib::GoldenRatios golden = awbcal::kNormalLight.golden();
  view.tuning.emplace_back(golden);
  awbcal::CameraRun run = start_camera(phone_, camera, golden, view.tuning.back());
  std::ranges::move(awbcal::check_results(phone_, camera), std::back_inserter(run));
  for (const RecordKind kind : kKinds) {
    if (kind == RecordKind::dual_camera && camera != Camera::main) continue;
    const Key key{kind, camera};
    bool is_reached = false;
    for (const awbcal::Answer& answer : answers_on(kind, run)) {
      if (answer.acceptance == Acceptance::accepted) view.taken[key] = loaded(key);
      is_reached =
          is_reached || (answer.acceptance != Acceptance::not_reached && !answer.reader->never_passes);
    }
    if (!is_reached) view.unreached.insert(key);
  }
}

CameraTuning Bench::start(Camera camera, const std::map<RecordKind, Bytes>& caches) {
  if (const auto known = starts_.find({camera, caches}); known != starts_.end()) return known->second;
  CameraFiles files;
  for (const auto& [kind, bytes] : caches) {
    files[std::string(record_spec(kind).cache_file(camera))] = {0644,
                                                                std::string(bytes.begin(), bytes.end())};
  }
  boot();
  put_files(files);
  support::write_bytes(node_of(camera), lens_shading_[static_cast<size_t>(camid_of(camera))]);
  CameraTuning tuning(awbcal::kNormalLight.golden());
  start_camera(phone_, camera, awbcal::kNormalLight.golden(), tuning);
  starts_.emplace(std::pair{camera, caches}, tuning);
  return tuning;
}

std::vector<CameraTuning> Bench::starts_with(Camera camera, const View& view) {
  std::map<RecordKind, Bytes> caches;
  for (const RecordKind kind : kKinds) {
    const bool is_corrected = kind != RecordKind::gyro && kind != RecordKind::dual_camera;
    const Bytes record = view.of({kind, camera});
    if (is_corrected && !record.empty()) caches[kind] = record;
  }
  const calib::FuseWords module = awbcal::module_of(phone_, camera);
  support::Words judged_bad = {3000, 1024, 1024};
  for (const uint64_t word : module) judged_bad.push_back(static_cast<uint32_t>(word));
  std::vector<CameraTuning> starts;
  for (const Bytes& awb : {Bytes{}, kCutFile, support::sealed32(judged_bad)}) {
    for (const Bytes& dual_flash : {Bytes{}, kCutFile}) {
      std::map<RecordKind, Bytes> with = caches;
      if (!awb.empty()) with.emplace(RecordKind::awb, awb);
      if (!dual_flash.empty()) with.emplace(RecordKind::dual_flash, dual_flash);
      starts.push_back(start(camera, with));
    }
  }
  return starts;
}

// ---- what came of the cuts ----------------------------------------------------------------------------------

struct Tally {
  unsigned cuts = 0;       ///< points at which the power went
  unsigned variants = 0;   ///< on eMMC, with each choice of the sectors that had reached the medium
  unsigned old_taken = 0;  ///< of the records that the step writes
  unsigned new_taken = 0;
  unsigned refused = 0;
  unsigned hidden = 0;     ///< refused, where the kernel's export has a good one: the cache file is cut
  unsigned unreached = 0;  ///< flash gains not asked for, behind an AWB cache file that is cut
  unsigned lost = 0;       ///< the partition has lost records that the step does not write
  unsigned lost_now = 0;   ///< and a camera start misses one of them, for want of a cache file
  unsigned unreadable =
      0;  ///< repeats refused while the half-written page does not read, and done from a backup
  std::vector<std::string> broken;

  void add(const Tally& other) {
    for (const auto part :
         {&Tally::cuts, &Tally::variants, &Tally::old_taken, &Tally::new_taken, &Tally::refused,
          &Tally::hidden, &Tally::unreached, &Tally::lost, &Tally::lost_now, &Tally::unreadable}) {
      this->*part += other.*part;
    }
    broken.insert(broken.end(), other.broken.begin(), other.broken.end());
  }
};

struct Cut {
  std::string what;
  std::optional<Fault> call = {};
  std::optional<NandFault> nand = {};
  bool is_within_page = false;
};

/// A step from a phone's state to the next, cut in between.
class StepUnderCuts {
 public:
  StepUnderCuts(Bench& bench, const Step& step) : bench_(bench), step_(step), before_(bench.save()) {
    before_view_ = view_of(before_);
    before_wiped_ = view_of({.files = {}, .pieces = before_.pieces});
    bench_.load(before_);
    bench_.boot();
    list_cuts();
    after_ = bench_.save();
    expect_only_writes();
    after_view_ = view_of(after_);
    after_wiped_ = view_of({.files = {}, .pieces = after_.pieces});
  }

  /// Every cut whose number in all is a multiple of `share`. Leaves the phone as the uncut step does.
  Tally examine(unsigned share, unsigned& number);

 private:
  View view_of(const State& state);
  void list_cuts();
  void list_call(const phone::Call& call, unsigned nth, size_t& partition_writes);
  void list_chip_cuts(unsigned erases, unsigned programs);
  void expect_only_writes();
  State state_after(const Cut& cut);
  std::vector<State> sector_choices(const State& cut);
  void examine_state(const State& cut, const std::string& what);
  void expect_others_unchanged(const State& cut);
  void expect_known_records(const View& view, const char* where);
  void expect_nothing_hidden(const View& view, const View& wiped);
  void expect_repeat_completes(const State& cut);
  void expect_backup_heals(const State& cut);
  bool has_ranges_of_after(const State& state) const;
  Bytes in_order(const State& state) const;
  bool is_touched(const Key& key) const {
    return before_view_.of(key) != after_view_.of(key) || before_wiped_.of(key) != after_wiped_.of(key);
  }
  void broken(const std::string& rule) { tally_.broken.push_back(step_.name + ", " + what_ + ": " + rule); }

  Bench& bench_;
  const Step& step_;
  std::map<std::string, View> views_;
  State before_, after_;
  View before_view_, before_wiped_, after_view_, after_wiped_;
  std::vector<Cut> cuts_;
  Tally tally_;
  std::string what_;
};

/// Boots a phone in this state and starts its cameras. They see nothing but the files and the record area: two
/// states that differ elsewhere are one.
View StepUnderCuts::view_of(const State& state) {
  std::string seen;
  for (const auto& [name, file] : state.files) seen += name + '\0' + file.content + '\0';
  const Bytes bytes = in_order(state);
  seen.append(bytes.begin() + calib::kAreaBase4k, bytes.begin() + calib::kAreaBase4k + 4 * calib::kSlotSize);
  const auto known = views_.find(seen);
  if (known != views_.end()) return known->second;
  bench_.load(state);
  bench_.boot();
  return views_[seen] = bench_.view();
}

// ---- the points at which a step can be cut ----------------------------------------------------------------

void StepUnderCuts::list_call(const phone::Call& call, unsigned nth, size_t& partition_writes) {
  static const std::set<std::string> kChanges = {"open",  "write",  "remove", "rename",
                                                 "chmod", "fchmod", "fsync"};
  if (!kChanges.contains(call.name)) return;
  const auto cut_after = [&](long bytes) {
    cuts_.push_back({.what = fmt::format("{} {} after {} bytes", call.name, call.path, bytes),
                     .call = Fault{.nth = nth, .transfer = bytes, .power_cut = true}});
  };
  if (call.name != "write") {
    if (call.path.starts_with(kCacheFolder)) cut_after(-1);
  } else if (call.path.starts_with(kCacheFolder)) {
    // A cache file at every length; of what is longer, the first byte and the middle.
    const auto file = bench_.phone().host_path(call.path);
    const auto size = fs::exists(file) ? static_cast<long>(fs::file_size(file)) : 0;
    const bool is_record = size <= 48 && !call.path.ends_with(".txt");
    for (long bytes = 0; bytes < size; bytes += is_record ? 1 : std::max(1L, size / 2)) cut_after(bytes);
  } else if (!bench_.is_nand()) {
    const Place& place = step_.writes.at(partition_writes++);
    for (size_t at = place.offset; at < place.offset + place.size; at = (at / kSector + 1) * kSector) {
      cut_after(static_cast<long>(at - place.offset));
    }
  }
}

void StepUnderCuts::list_chip_cuts(unsigned erases, unsigned programs) {
  const auto size = static_cast<int64_t>(before_.pieces[0].size());
  const auto cut_at = [&](NandFault::Op op, unsigned nth, int64_t done) {
    const bool is_erase = op == NandFault::Op::erase;
    cuts_.push_back(
        {.what = fmt::format("{} {} after {} bytes", is_erase ? "erase" : "program", nth, done),
         .nand = NandFault{.op = op, .effect = NandFault::Effect::power_cut, .nth = nth, .done = done},
         .is_within_page = !is_erase && done % (2 * kHalfPage) != 0});
  };
  for (unsigned nth = 1; nth <= erases; ++nth) {
    for (const int64_t done : {int64_t{0}, size / 2, size}) cut_at(NandFault::Op::erase, nth, done);
  }
  for (unsigned nth = 1; nth <= programs; ++nth) {
    for (int64_t done = kHalfPage; done <= size; done += kHalfPage) cut_at(NandFault::Op::program, nth, done);
  }
}

void StepUnderCuts::list_cuts() {
  const auto counts = [this] {
    std::pair<unsigned, unsigned> sums;
    if (!bench_.is_nand()) return sums;
    for (uint32_t block = 0; block < before_.pieces.size(); ++block) {
      sums.first += bench_.phone().nand().erase_count(block);
      sums.second += bench_.phone().nand().program_count(block);
    }
    return sums;
  };
  const auto at_first = counts();
  step_.run();
  unsigned nth = 0;
  size_t partition_writes = 0;
  for (const phone::Call& call : bench_.phone().take_calls()) list_call(call, ++nth, partition_writes);
  if (bench_.is_nand()) {
    list_chip_cuts(counts().first - at_first.first, counts().second - at_first.second);
  } else if (partition_writes != step_.writes.size()) {
    broken("writes the partition another time than it says");
  }
}

/// Without a cut not even the block that a record lies in changes beside it.
void StepUnderCuts::expect_only_writes() {
  Bytes expected = in_order(before_);
  const Bytes now = in_order(after_);
  for (const Place& place : step_.writes) {
    std::copy_n(now.begin() + static_cast<ptrdiff_t>(place.offset), place.size,
                expected.begin() + static_cast<ptrdiff_t>(place.offset));
  }
  if (now != expected) broken("without a cut, bytes beside those written have changed");
}

State StepUnderCuts::state_after(const Cut& cut) {
  bench_.load(before_);
  bench_.boot();
  if (cut.call) bench_.phone().add_fault(*cut.call);
  if (cut.nand) bench_.phone().nand().add_fault(*cut.nand);
  step_.run();
  return bench_.save();
}

/// Nothing syncs the partition: of the sectors written since the step began any may be missing.
std::vector<State> StepUnderCuts::sector_choices(const State& cut) {
  std::vector<State> choices = {cut};
  if (bench_.is_nand()) return choices;
  const Bytes& old = before_.pieces[0];
  for (size_t at = 0; at < old.size(); at += kSector) {
    const auto first = old.begin() + static_cast<ptrdiff_t>(at);
    if (std::equal(first, first + kSector, cut.pieces[0].begin() + static_cast<ptrdiff_t>(at))) continue;
    for (size_t i = choices.size(); i-- > 0;) {
      choices.push_back(choices[i]);
      std::copy_n(first, kSector, choices.back().pieces[0].begin() + static_cast<ptrdiff_t>(at));
    }
  }
  return choices;
}

// ---- the rules ----------------------------------------------------------------------------------------------

/// On eMMC no byte beside those written; on NAND no block beside those that they are in, and of these at most one
/// is neither as it was, nor as it is to be, nor empty.
void StepUnderCuts::expect_others_unchanged(const State& cut) {
  std::vector<bool> in_between;
  size_t good_blocks_size = 0;
  for (size_t i = 0; i < cut.pieces.size(); ++i) {
    const bool is_bad = bench_.is_nand() && bench_.phone().nand().is_bad(static_cast<uint32_t>(i));
    const size_t start = good_blocks_size;
    if (!is_bad) good_blocks_size += cut.pieces[i].size();
    Bytes expected = before_.pieces[i];
    bool is_touched = false;
    for (const Place& place : step_.writes) {
      const size_t first = std::max(place.offset, start),
                   last = std::min(place.offset + place.size, good_blocks_size);
      if (is_bad || first >= last) continue;
      is_touched = true;
      std::copy(cut.pieces[i].begin() + static_cast<ptrdiff_t>(first - start),
                cut.pieces[i].begin() + static_cast<ptrdiff_t>(last - start),
                expected.begin() + static_cast<ptrdiff_t>(first - start));
    }
    const bool is_block_at_work = is_touched && bench_.is_nand();
    if (!is_block_at_work && cut.pieces[i] != expected) broken("bytes beside those written have changed");
    const Bytes empty(cut.pieces[i].size(), 0xFF);
    in_between.push_back(is_block_at_work && cut.pieces[i] != before_.pieces[i] &&
                         cut.pieces[i] != after_.pieces[i] && cut.pieces[i] != empty);
  }
  // A run that writes two records has a state between them.
  if (step_.writes.size() == 1 && std::count(in_between.begin(), in_between.end(), true) > 1) {
    broken("more than one block was at work");
  }
}

/// Every record that is taken is the old one or the new one, and the start is that of a camera which has it.
void StepUnderCuts::expect_known_records(const View& view, const char* where) {
  for (const auto& [key, bytes] : view.taken) {
    const bool is_known = bytes == before_view_.of(key) || bytes == after_view_.of(key) ||
                          bytes == before_wiped_.of(key) || bytes == after_wiped_.of(key);
    if (!is_known) broken(fmt::format("{}: the {} is neither the old nor the new one", where, name_of(key)));
  }
  for (const Camera camera : kCameras) {
    const auto starts = bench_.starts_with(camera, view);
    if (std::find(starts.begin(), starts.end(), view.tuning[static_cast<size_t>(camid_of(camera))]) ==
        starts.end()) {
      broken(fmt::format("{}: the {} camera is corrected otherwise than with the records it takes", where,
                         camera_name(camera)));
    }
  }
}

void StepUnderCuts::expect_nothing_hidden(const View& view, const View& wiped) {
  bool is_unreached = false, is_lost = false, is_lost_now = false, is_hidden = false;
  for (const Camera camera : kCameras) {
    for (const RecordKind kind : kKinds) {
      const Key key{kind, camera};
      const Bytes now = view.of(key), now_wiped = wiped.of(key);
      if (is_touched(key)) {
        if (now.empty())
          ++tally_.refused;
        else
          ++(now == after_view_.of(key) || now == after_wiped_.of(key) ? tally_.new_taken : tally_.old_taken);
        is_hidden = is_hidden || (now.empty() && !now_wiped.empty() && now_wiped == after_wiped_.of(key));
        continue;
      }
      const bool partition_lost_it = now_wiped != before_wiped_.of(key);
      is_lost = is_lost || partition_lost_it;
      if (partition_lost_it && !(bench_.is_nand() && now_wiped.empty())) {
        broken(fmt::format("the partition has another {}", name_of(key)));
      }
      if (now == before_view_.of(key)) continue;
      if (now.empty() && view.unreached.contains(key) && is_touched({RecordKind::awb, camera})) {
        is_unreached = true;
      } else if (partition_lost_it) {
        is_lost_now = true;
      } else {
        broken(fmt::format("the {} is hidden", name_of(key)));
      }
    }
  }
  tally_.hidden += is_hidden;
  tally_.unreached += is_unreached;
  tally_.lost += is_lost;
  tally_.lost_now += is_lost_now;
}

Bytes StepUnderCuts::in_order(const State& state) const {
  Bytes all;
  for (size_t i = 0; i < state.pieces.size(); ++i) {
    if (bench_.is_nand() && bench_.phone().nand().is_bad(static_cast<uint32_t>(i))) continue;
    all.insert(all.end(), state.pieces[i].begin(), state.pieces[i].end());
  }
  return all;
}

bool StepUnderCuts::has_ranges_of_after(const State& state) const {
  const Bytes now = in_order(state), wanted = in_order(after_);
  return std::all_of(step_.writes.begin(), step_.writes.end(), [&](const Place& place) {
    const auto first = static_cast<ptrdiff_t>(place.offset),
               last = static_cast<ptrdiff_t>(place.offset + place.size);
    return std::equal(now.begin() + first, now.begin() + last, wanted.begin() + first);
  });
}

void StepUnderCuts::expect_repeat_completes(const State& cut) {
  bench_.load(cut);
  bench_.boot();
  step_.run();
  const State repeated = bench_.save();
  bench_.boot();
  const View view = bench_.view();
  for (const auto& [key, bytes] : after_view_.taken) {
    if (is_touched(key) && view.of(key) != bytes)
      broken(fmt::format("repeated, it does not bring the {}", name_of(key)));
  }
  if (!has_ranges_of_after(repeated)) broken("repeated, it does not write its records");
  if (!bench_.is_nand() && repeated.pieces != after_.pieces) broken("repeated, it leaves another partition");
  if (repeated.files != after_.files) broken("repeated, it leaves other files");
}

/// A page that was half written may not read. The writers read a block before they change it, and refuse; a
/// backup of the whole block needs no read.
void StepUnderCuts::expect_backup_heals(const State& cut) {
  const Bytes backup = in_order(before_);
  phone::Nand& nand = bench_.phone().nand();
  for (size_t i = 0; i < cut.pieces.size(); ++i) {
    if (cut.pieces[i] == before_.pieces[i]) continue;
    bench_.load(cut);
    bench_.boot();
    nand.add_fault({.op = NandFault::Op::read,
                    .effect = NandFault::Effect::ecc_failed,
                    .block = static_cast<int64_t>(i),
                    .from_then_on = true});
    step_.run();
    const size_t size = cut.pieces[i].size();
    const size_t logical = step_.writes[0].offset / size * size;
    if (bench_.save().pieces != cut.pieces) return broken("it writes on a chip that does not read");
    mtd_partition chip{};
    mtd_open(&chip, "mfg");
    if (mtd_write(&chip, static_cast<int64_t>(logical), static_cast<int64_t>(size),
                  backup.data() + logical) != 0) {
      broken("a backup is not taken");
    }
    mtd_close(&chip);
    ++tally_.unreadable;
    const State healed{.files = cut.files, .pieces = bench_.save().pieces};
    if (healed.pieces != before_.pieces) broken("a backup does not bring everything back");
    return expect_repeat_completes(healed);
  }
}

void StepUnderCuts::examine_state(const State& cut, const std::string& what) {
  what_ = what;
  ++tally_.variants;
  expect_others_unchanged(cut);
  const View view = view_of(cut);
  const View wiped = view_of({.files = {}, .pieces = cut.pieces});
  expect_known_records(view, "after the boot");
  expect_known_records(wiped, "after a factory reset");
  expect_nothing_hidden(view, wiped);
  expect_repeat_completes(cut);
}

Tally StepUnderCuts::examine(unsigned share, unsigned& number) {
  for (const Cut& cut : cuts_) {
    if (number++ % share != 0) continue;
    ++tally_.cuts;
    const State state = state_after(cut);
    for (const State& choice : sector_choices(state)) examine_state(choice, cut.what);
    if (cut.is_within_page && step_.writes[0].size < before_.pieces[0].size()) expect_backup_heals(state);
  }
  bench_.load(after_);
  bench_.boot();
  return tally_;
}

// ---- a line, and a flashing tool ------------------------------------------------------------------------

phone::Options phone_with(phone::Storage storage, std::vector<uint32_t> bad) {
  phone::Options options{.storage = storage, .partition_size = 0x28000};
  options.nand = {.erase_size = 128 * 1024, .blocks = 4, .factory_bad = std::move(bad)};
  return options;
}

Tally cut_factory_line(phone::Storage storage, unsigned share) {
  Bench bench(phone_with(storage, {0}));
  Tally tally;
  unsigned number = 0;
  for (const unsigned round : {0U, 1U}) {
    for (const Step& step : volume::production_steps(bench.station(), round)) {
      tally.add(StepUnderCuts(bench, step).examine(share, number));
    }
  }
  if (bench.is_nand() && !bench.phone().nand().violations().empty()) {
    tally.broken.push_back("the chip was used as a chip must not be");
  }
  return tally;
}

/// The calls that a flashing tool has for a partition's image.
void write_as_stream(const Bytes& image) {
  constexpr size_t kPiece = 100000;  // no block
  mtd_write_context* stream = mtd_write_partition(mtd_find_partition_by_name("mfg"));
  if (stream == nullptr) return;
  for (size_t at = 0; at < image.size(); at += kPiece) {
    mtd_write_data(stream, image.data() + at, static_cast<int64_t>(std::min(kPiece, image.size() - at)));
  }
  mtd_write_close(stream);
}

void write_as_whole(const Bytes& image) {
  mtd_data_handle handle{};
  if (mtd_data_open(&handle, "mfg") == 0 && mtd_data_read(&handle) == 0) {
    std::copy(image.begin(), image.end(), static_cast<uint8_t*>(handle.data));
    mtd_data_write(&handle);
  }
  mtd_data_close(&handle);
}

void write_by_descriptor(const Bytes& image) {
  const int fd = mtd_open_partition_device(mtd_find_partition_by_name("mfg"));
  if (fd < 0) return;
  mtd_write_partition_data(fd, static_cast<uint32_t>(image.size()), image.data());
  close(fd);
}

struct UtilityWriter {
  const char* name;
  void (*write)(const Bytes& image);
  bool passes_over_bad_blocks;  ///< the others write what a bad block leaves no room for
};

constexpr UtilityWriter kUtilityWriters[] = {{"stream", write_as_stream, true},
                                             {"whole partition", write_as_whole, false},
                                             {"descriptor", write_by_descriptor, false}};

/// The image of a phone that was calibrated twice is written over one that was calibrated once.
Tally cut_utility(bool has_bad_block, unsigned share) {
  Bench bench(
      phone_with(phone::Storage::nand, has_bad_block ? std::vector<uint32_t>{0} : std::vector<uint32_t>{}));
  for (const Step& step : volume::production_steps(bench.station(), 0)) step.run();
  const State once = bench.save();
  for (const Step& step : volume::production_steps(bench.station(), 1)) step.run();
  const Bytes image = bench.phone().partition();
  Tally tally;
  unsigned number = 0;
  for (const UtilityWriter& writer : kUtilityWriters) {
    if (has_bad_block && !writer.passes_over_bad_blocks) continue;
    bench.load(once);
    bench.boot();
    const Step step{.name = writer.name, .writes = {{0, image.size()}}, .run = [&] { writer.write(image); }};
    tally.add(StepUnderCuts(bench, step).examine(share, number));
  }
  return tally;
}

bool report(const char* what, const Tally& tally) {
  fmt::print("{}: {} cuts, {} states of the medium\n", what, tally.cuts, tally.variants);
  fmt::print("  records written: {} times the old one, {} times the new one, {} times refused\n",
             tally.old_taken, tally.new_taken, tally.refused);
  if (tally.hidden > 0) fmt::print("  a cut cache file in front of its good export: {}\n", tally.hidden);
  if (tally.unreached > 0)
    fmt::print("  flash gains not reached behind a cut AWB cache file: {}\n", tally.unreached);
  if (tally.lost > 0) {
    fmt::print("  other records of the block lost from the partition: {}, from a camera start: {}\n",
               tally.lost, tally.lost_now);
  }
  if (tally.unreadable > 0)
    fmt::print("  a block that does not read, healed from a backup: {}\n", tally.unreadable);
  for (size_t i = 0; i < std::min<size_t>(tally.broken.size(), 10); ++i)
    fmt::print("  BROKEN {}\n", tally.broken[i]);
  if (tally.broken.size() > 10) fmt::print("  BROKEN and {} more\n", tally.broken.size() - 10);
  std::fflush(stdout);
  return tally.broken.empty() && tally.cuts > 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Power cuts at every point of a factory's work."};
  unsigned share = 1;
  std::set<std::string> parts;
  app.add_option("--share", share, "take every Nth cut")->check(CLI::Range(1, 1000));
  app.add_option("parts", parts, "all if none is named")->check(CLI::IsMember({"emmc", "nand", "utility"}));
  CLI11_PARSE(app, argc, argv);
  const auto is_wanted = [&parts](const char* part) { return parts.empty() || parts.contains(part); };
  bool is_kept = true;
  if (is_wanted("emmc"))
    is_kept &= report("eMMC, factory line", cut_factory_line(phone::Storage::emmc, share));
  if (is_wanted("nand"))
    is_kept &= report("NAND, factory line", cut_factory_line(phone::Storage::nand, share));
  if (is_wanted("utility")) {
    is_kept &= report("NAND, MTD utility", cut_utility(false, share));
    is_kept &= report("NAND with a bad block, MTD utility", cut_utility(true, share));
  }
  return is_kept ? 0 : 1;
}
