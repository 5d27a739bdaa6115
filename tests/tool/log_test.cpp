// Does `explain --log` tell from a log what the library did? Guards against a story that drifts from the lines that
// the library logs, from what `explain` finds in the same phone, and against certainty where lines are lost.

#include <fmt/format.h>

#include <map>

#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"
#include "log/log_story.h"
#include "run/explanation.h"
#include "run/scratch_phone.h"
#include "tests/support/random_phone.h"
#include "text/terminal.h"

namespace {

using namespace tool;
using awbcal::Act;
using awbcal::ActResult;
using awbcal::ActStory;
using awbcal::Deed;
using awbcal::DeedClass;
using awbcal::LogStory;
using phone::LogLine;
using Log = std::vector<LogLine>;

// ---- logs -------------------------------------------------------------------------------------------------

enum class Form { brief, threadtime, long_form, station };
constexpr Form kForms[] = {Form::brief, Form::threadtime, Form::long_form, Form::station};

constexpr const char* kForeign[] = {
    "I/CameraService( 411): Opening camera 0\n", "[   12.345678] mmc0: new high speed card\n",
    "11-21 20:15:00.120   411   420 W HwBinder: \xFF\x1b[2J camera_calibration\n",
    "[ 11-21 20:15:00.120   411:  420 W/HwBinder ]\nread from file OK\n\n"};

/// As logcat prints it, with lines of others in between.
std::string text_of(const Log& log, Form form, int pid = 812) {
  std::string text;
  for (size_t i = 0; i < log.size(); ++i) {
    if (i % 7 == 3) text += kForeign[i / 7 % std::size(kForeign)];
    const auto& [tag, priority, message] = log[i];
    const char letter = "??VDIWEF"[priority];
    const std::string time = fmt::format("11-21 20:{:02}:{:02}.{:03}", i / 60 % 60, i % 60, i % 1000);
    if (form == Form::long_form)
      text += fmt::format("[ {} {:5}:{:5} {}/{:<8} ]\n{}\n\n", time, pid, pid + 1, letter, tag, message);
    std::istringstream lines(form == Form::long_form ? "" : message);
    for (std::string line; std::getline(lines, line);) {
      if (form == Form::brief) text += fmt::format("{}/{:<8}({:5}): {}\n", letter, tag, pid, line);
      if (form == Form::threadtime)
        text += fmt::format("{} {:5} {:5} {} {:<8}: {}\n", time, pid, pid + 1, letter, tag, line);
      if (form == Form::station)
        text += fmt::format("STATION 7> {} {}/{}({}): {}\r\n", time, letter, tag, pid, line);
    }
  }
  return text;
}

LogStory tell(const std::string& text) {
  return awbcal::tell_log_bytes("log", {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

std::vector<std::string> sentences(const LogStory& story) {
  std::vector<std::string> result;
  for (const ActStory& each : story.acts) {
    const char* camera = each.act.camera ? awbcal::camera_name(*each.act.camera) : "";
    result.push_back(fmt::format("{} {}", camera, each.sentence));
  }
  return result;
}

/// Every k-th line from `first` on is lost.
Log without(const Log& log, size_t k, size_t first) {
  Log result;
  for (size_t i = 0; i < log.size(); ++i) {
    if (i % k != first) result.push_back(log[i]);
  }
  return result;
}

Log log_of(const awbcal::CameraRun& run) {
  Log log;
  for (const awbcal::LibraryCall& call : run) log.insert(log.end(), call.log.begin(), call.log.end());
  return log;
}

// ---- against explain ----------------------------------------------------------------------------------------

/// An exposure whose empty file ends it at once may have been asked for by the result check as well.
const ActStory* find(const LogStory& story, const awbcal::CorrectionStory& wanted) {
  for (const ActStory& each : story.acts) {
    const Act& act = each.act;
    const bool is_loaded_alone = act.candidates == awbcal::deeds(Deed::exposure, Deed::check_aec);
    if (!act.is_certain() && !is_loaded_alone) continue;
    const bool is_of_function =
        std::string_view(awbcal::spec_of(act.deed()).function) == wanted.reader->function;
    if (act.of() == DeedClass::correction && act.record() == wanted.spec && is_of_function) return &each;
  }
  return nullptr;
}

/// Whether the test of the log's story is that of explain. A log does not tell a short file from a damaged one, and
/// tells better where explain has no test to name.
bool is_same_test(const ActStory& told, const awbcal::CorrectionStory& known) {
  const bool is_better_told = known.test == 0 || known.test == 2;
  const bool has_no_flash = told.act.deed() == Deed::module_points_flash && told.act.camera == Camera::sub;
  // Blank but for the gyro record's bytes, or without the line that shows that all is 0xFF: a wrong checksum.
  const bool may_look_damaged = !told.act.words[0] || known.spec->kind == RecordKind::a_light_awb;
  // Nor does a mesh's log show the whole of a blank one.
  const bool is_blank_mesh = known.spec->kind == RecordKind::lens_shading && told.test == 4;
  const bool is_half_told = known.test == 1 && ((told.test == 3 && may_look_damaged) || is_blank_mesh);
  return told.test == known.test || is_better_told || has_no_flash || is_half_told;
}

struct Agreement {
  size_t done = 0;
  size_t refused = 0;
  size_t open = 0;
  size_t checked = 0;

  void compare(const LogStory& story, const awbcal::Phone& phone, Camera camera, const awbcal::CameraRun& run,
               bool is_whole) {
    size_t reached = 0;
    const auto known = awbcal::tell_corrections(phone, camera, awbcal::modules_of(phone), run);
    for (const awbcal::CorrectionStory& each : known) {
      const ActStory* told = find(story, each);
      if (each.acceptance == awbcal::Acceptance::not_reached) {
        // An empty file ends a correction without a word of its own, but not without its loader's.
        reached += told != nullptr && told->act.count == 0 && told->result == ActResult::refused ? 1 : 0;
        continue;
      }
      ++reached;
      compare_one(told, phone, camera, each, is_whole);
    }
    size_t corrections = 0;
    for (const ActStory& each : story.acts) {
      if (each.act.of() == DeedClass::check) compare_check(each, run);
      if (each.act.of() == DeedClass::correction) ++corrections;
    }
    // The file of an exposure that ends at once is opened by its result check as well.
    const bool is_exposure_twice =
        corrections == reached + 1 && story.acts.back().act.of() == DeedClass::check;
    if (is_whole) {
      EXPECT_TRUE(corrections == reached || is_exposure_twice) << ::testing::PrintToString(sentences(story));
    }
  }

  void compare_check(const ActStory& told, const awbcal::CameraRun& run) {
    if (!told.act.is_certain() || told.result == ActResult::not_known) return;
    const awbcal::LibraryCall* call = awbcal::find_call(run, told.act.function());
    ASSERT_NE(call, nullptr);
    EXPECT_EQ(told.result, call->answer ? ActResult::done : ActResult::refused) << told.sentence;
    ++checked;
  }

  void compare_one(const ActStory* told, const awbcal::Phone& phone, Camera camera,
                   const awbcal::CorrectionStory& known, bool is_whole) {
    if (told == nullptr || told->result == ActResult::not_known) {
      ++open;
      EXPECT_FALSE(is_whole) << known.sentence;
      return;
    }
    SCOPED_TRACE(known.sentence + "\n" + told->sentence);
    const bool is_done = known.acceptance == awbcal::Acceptance::accepted;
    ++(is_done ? done : refused);
    EXPECT_EQ(told->result, is_done ? ActResult::done : ActResult::refused);
    if (told->test != 0 || is_whole) {
      EXPECT_TRUE(is_done || is_same_test(*told, known)) << told->test << " " << known.test;
    }
    if (told->act.camera) {
      EXPECT_EQ(told->act.camera, camera);
    }
    if (is_whole) compare_record(told->act, phone, camera, known);
  }

  static void compare_record(const Act& act, const awbcal::Phone& phone, Camera camera,
                             const awbcal::CorrectionStory& known) {
    const auto* cache = phone.find(*known.spec, camera, awbcal::Source::cache);
    const auto* exported = phone.find(*known.spec, camera, awbcal::Source::kernel_export);
    const auto* record = cache != nullptr ? cache : exported;
    using From = awbcal::TakenFrom;
    const auto from = cache != nullptr      ? From::cache_file
                      : exported != nullptr ? From::kernel_export
                                            : From::nowhere;
    if (act.from) {
      EXPECT_EQ(*act.from, from);
    }
    if (act.known_module()) {
      EXPECT_EQ(*act.known_module(), awbcal::modules_of(phone).at(camera));
    }
    const auto bytes = act.bytes();
    if (bytes && record != nullptr && !record->is_truncated()) {
      EXPECT_EQ(*bytes, record->bytes);
    }
  }
};

class LogStories : public ToolTest {
 protected:
  /// The cameras of a seed's phone: their starts and result checks.
  template <class Check>
  void for_each_start(unsigned phones, const Check& check) {
    for (unsigned seed = 0; seed < phones; ++seed) {
      SCOPED_TRACE(seed);
      const fs::path dir = path("phone");
      fs::remove_all(dir);
      const RandomPhone made(dir, seed);
      const awbcal::Phone phone = awbcal::open_phone_of({.paths = {dir.string()}});
      for (const auto& [camera, run] : awbcal::run_cameras(phone, awbcal::modules_of(phone)))
        check(seed, phone, camera, run);
      if (HasFailure()) return;
    }
  }

  std::string demo_log() {
    EXPECT_EQ(run("demo --seed 1 --dir " + path("made")).exit_code, 0);
    return text("made/logcat.txt");
  }
};

TEST_F(LogStories, AgreeWithExplainOnAThousandStarts) {
  Agreement whole;
  for_each_start(334, [&](unsigned seed, const auto& phone, Camera camera, const auto& run) {
    whole.compare(tell(text_of(log_of(run), kForms[seed % 4])), phone, camera, run, true);
  });
  EXPECT_GT(whole.done, 1000U);
  EXPECT_GT(whole.refused, 1000U);
  EXPECT_GT(whole.checked, 4000U);
}

TEST_F(LogStories, AreRightInWhatTheySayOfLogsWithLinesLost) {
  Agreement lossy;
  for_each_start(20, [&](unsigned seed, const auto& phone, Camera camera, const auto& run) {
    for (size_t k = 2; k <= 9; ++k) {
      const Log log = without(log_of(run), k, seed % k);
      SCOPED_TRACE(k);
      lossy.compare(tell(text_of(log, kForms[k % 4])), phone, camera, run, false);
    }
  });
  EXPECT_GT(lossy.done + lossy.refused, 4 * lossy.open) << "a story that leaves all open is no story";
}

// What is left of two calls is not taken for one.
TEST_F(LogStories, KeepCallsApartWhoseBordersAreLost) {
  const auto told = [](const std::vector<std::string>& messages) {
    Log log;
    for (const std::string& message : messages)
      log.push_back({"camera_calibration", message.find("Not load") == message.npos ? 4 : 6, message});
    return tell(text_of(log, Form::brief));
  };
  const auto fuse = [](int i, int word) {
    return fmt::format("[AWB Calibration] sfuse.fuse_id_word{}:0x{:x}\n", i, word);
  };
  const std::string good = "[AWB Calibration] caBuff[0]:3099\n";
  const std::string used = "[AWB Calibration] valid bit and fuseID pass, use new white points\n";
  EXPECT_THAT(told({good, good}).acts, ::testing::SizeIs(2)) << "a line that comes again is the next call's";
  EXPECT_THAT(told({used, good}).acts, ::testing::SizeIs(2)) << "and so is one that belongs before it";
  EXPECT_THAT(told({good, fuse(1, 5), used}).acts, ::testing::SizeIs(2)) << "every call asks for the fuse ID";
  EXPECT_THAT(told({good, used}).acts, ::testing::SizeIs(1));

  const LogStory mixed =
      told({fuse(1, 1), fuse(2, 2), fuse(3, 3), fuse(2, 12), fuse(3, 13), fuse(4, 14), good});
  ASSERT_THAT(mixed.acts, ::testing::SizeIs(1));
  EXPECT_EQ(mixed.acts[0].act.known_module(), std::nullopt)
      << "the first word of one module, the rest of another";
  const LogStory whole = told({fuse(1, 1), fuse(2, 2), fuse(3, 3), fuse(4, 4), good});
  EXPECT_EQ(whole.acts.at(0).act.known_module(), (calib::FuseWords{1, 2, 3, 4}));
  const std::string judged = "Correct_Reference_Points_qorModule, [Flash Calibration] fuse_id_word 0x";
  EXPECT_NE(told({judged + "1, 0x2, 0x3, 0x4"}).acts.at(0).act.known_module(), std::nullopt);
  EXPECT_EQ(told({judged + "0, 0x2, 0x3, 0x4"}).acts.at(0).act.known_module(), std::nullopt)
      << "a record without a first fuse word has hidden the module's";
}

// ---- against the factory -----------------------------------------------------------------------------------

/// A calibration run and two writers as the seed has them, and what they left in the phone.
class FactoryDay {
 public:
  explicit FactoryDay(unsigned seed) : random_(seed) {
    for (uint32_t& word : fuse_.word) word = static_cast<uint32_t>(random_());
    scratch_.fit(camera_, calib::fuse_words(fuse_.word));
    phone().set_properties({{"mfg.calibration.status", "3"},
                            {"mfg.awb.calibration.camid", std::to_string(awbcal::camid_of(camera_))},
                            {"mfg.awb.calibration.threshold", std::to_string(3 + random_() % 12)},
                            {"mfg.awb.calibration.Alight", is_a_light_ ? "1" : "0"},
                            {"mfg.awb.calibration.ae.k.eb", random_() % 2 == 0 ? "1" : "0"},
                            {"mfg.awb.calibration.rg_ratio", "0.75"},
                            {"mfg.awb.calibration.bg_ratio", random_() % 8 == 0 ? "nan" : "0.5"}});
    if (random_() % 5 == 0)
      phone().add_fault({.call = "write", .path = "/dev/block/mmcblk0p6", .from_then_on = true});
    awbcal::ConsoleCapture console;
    phone().take_log();
    calibrate();
    write();
    log_ = phone().take_log();
  }

  const Log& log() const { return log_; }

  void compare_run(const ActStory& told, bool is_whole) const {
    SCOPED_TRACE(marker_ + told.sentence);
    const Act& act = told.act;
    const size_t delta = marker_.find("Delta=");
    const bool is_open =
        marker_.starts_with("Calibration fail: Time out!!") || marker_.starts_with("Can't write AEC");
    const ActResult truth = is_open        ? ActResult::unfinished
                            : has_success_ ? ActResult::done
                                           : ActResult::refused;
    EXPECT_TRUE(told.result == truth || told.result == ActResult::not_known);
    EXPECT_EQ(act.camera.value_or(camera_), camera_);
    EXPECT_EQ(act.is_a_light.value_or(is_a_light_), is_a_light_);
    EXPECT_TRUE(act.delta || delta == std::string::npos || !is_whole);
    if (act.delta && delta != std::string::npos) {
      EXPECT_THAT(*act.delta, testing::NanSensitiveDoubleNear(std::stod(marker_.substr(delta + 6)), 1e-6));
    }
    if (act.is_taken) {
      EXPECT_EQ(*act.is_taken, record_ != Bytes(32));
      EXPECT_EQ(*act.is_taken ? act.bytes().value_or(record_) : record_, record_);
    }
  }

  void compare_writer(const ActStory& told) const {
    if (told.act.deed() == Deed::write_aec) return;
    EXPECT_TRUE(told.result == (is_written_ ? ActResult::done : ActResult::refused) ||
                told.result == ActResult::not_known)
        << told.sentence;
    EXPECT_EQ(told.act.known_fuse().value_or(calib::fuse_words(fuse_.word)), calib::fuse_words(fuse_.word));
  }

 private:
  phone::VirtualPhone& phone() { return scratch_.phone(); }
  void frame(int trigger) {
    phone().set_property("mfg.awb.calibration.trigger", std::to_string(trigger));
    QOR_AWB_Calibration_collect(rg_ * 10, bg_ * 10, 10);
  }

  void calibrate() {
    uint32_t ignored[2];
    const auto frames = 6 + random_() % 9;
    const auto settles = random_() % 20;
    sensor_detect(awbcal::camid_of(camera_));
    QOR_Calibration_AEC_get_params(&ignored[0], &ignored[1]);
    check_and_init_awb_calibration();
    frame(0);
    for (size_t i = 0; i < frames; ++i) {
      if (i >= settles) QOR_Calibration_AEC_set_ready(256, 12000, 50);
      frame(1);
    }
    frame(0);
    constexpr calib::PerCamera kEnd{.main = ".txt", .front = "_front_CAM.txt", .sub = "_sub_CAM.txt"};
    const std::string name = is_a_light_ ? "awb_A_light_calibration_" : "awb_calibration_";
    const fs::path folder = phone().host_path("/data/misc/camera");
    const auto success = support::read_text(folder / (name + "success" + kEnd.of(camera_)));
    has_success_ = success.has_value();
    marker_ =
        success ? *success : support::read_text(folder / (name + "fail" + kEnd.of(camera_))).value_or("");
    const Bytes partition = phone().partition();
    const size_t slot = 0x20000 + 0x1000 * static_cast<size_t>(awbcal::camid_of(camera_));
    const auto first = partition.begin() + static_cast<std::ptrdiff_t>(slot + (is_a_light_ ? 0xEC0 : 0));
    record_.assign(first, first + 32);
  }

  void write() {
    const auto camid = static_cast<uint8_t>(awbcal::camid_of(camera_));
    const int32_t flash = random_() % 2 == 0
                              ? QOR_FLASH_Calibration_write_to_flash(camid, fuse_, rg_, bg_)
                              : QOR_Dual_FLASH_Calibration_write_to_flash(camid, fuse_, rg_, 2, 3, 4, 5, bg_);
    is_written_ = flash == 0;
    EXPECT_EQ(gyro_write_calibration(camid, fuse_), flash);
  }

  awbcal::ScratchPhone scratch_;
  std::mt19937 random_;
  Camera camera_ = awbcal::kCameras[random_() % 3];
  bool is_a_light_ = random_() % 3 == 0;
  int32_t rg_ = static_cast<int32_t>(700 + random_() % 120);
  int32_t bg_ = static_cast<int32_t>(480 + random_() % 60);
  awb_fuse_id fuse_{};
  bool has_success_ = false;
  bool is_written_ = false;
  std::string marker_;
  Bytes record_;
  Log log_;
};

TEST_F(LogStories, AgreeWithWhatTheFactoryLeftInThePhone) {
  std::map<ActResult, size_t> runs;
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    const FactoryDay day(seed);
    for (size_t k = 1; k <= 6; ++k) {
      SCOPED_TRACE(k);
      const LogStory story =
          tell(text_of(k == 1 ? day.log() : without(day.log(), k, seed % k), kForms[(seed + k) % 4]));
      size_t found = 0;
      for (const ActStory& each : story.acts) {
        if (each.act.of() == DeedClass::writer) day.compare_writer(each);
        if (each.act.of() != DeedClass::run) continue;
        day.compare_run(each, k == 1);
        if (k == 1) ++runs[each.result];
        ++found;
      }
      EXPECT_EQ(found, 1U) << ::testing::PrintToString(sentences(story));
      if (k == 1) {
        EXPECT_THAT(sentences(story), Not(::testing::Contains(HasSubstr("lost"))));
      }
    }
    if (HasFailure()) return;
  }
  for (const ActResult result : {ActResult::done, ActResult::refused, ActResult::unfinished})
    EXPECT_GT(runs[result], 5U);
  EXPECT_EQ(runs[ActResult::not_known], 0U);
}

// ---- what a log comes in ------------------------------------------------------------------------------------

/// How often what came to what: of that which is certain.
using Tally = std::map<std::string, size_t>;
Tally tally(const LogStory& story) {
  Tally result;
  for (const ActStory& each : story.acts) {
    if (!each.act.is_certain() || each.result == ActResult::not_known) continue;
    const char* camera = each.act.camera ? awbcal::camera_name(*each.act.camera) : "a";
    for (const char* whose : {camera, "any"})
      ++result[fmt::format("{} {} {} {}", whose, each.act.function(), each.act.record()->id,
                           static_cast<int>(each.result))];
  }
  return result;
}

// The demo's whole log: every kind of act, in one process.
TEST_F(LogStories, AreTheSameInEveryForm) {
  const std::string brief = demo_log();
  Log log;
  std::istringstream lines(brief);
  for (std::string line; std::getline(lines, line);) {
    const size_t end = line.find('(');
    const int priority = line[0] == 'D' ? 3 : line[0] == 'I' ? 4 : 6;
    log.push_back({line.substr(2, line.find_last_not_of(' ', end - 1) - 1), priority,
                   line.substr(line.find("): ") + 3)});
  }
  const std::vector<std::string> told = sentences(tell(brief));
  EXPECT_THAT(told, ::testing::SizeIs(81));
  EXPECT_THAT(told, Not(::testing::Contains(HasSubstr("lost"))));
  for (const Form form : kForms)
    EXPECT_EQ(sentences(tell(text_of(log, form))), told) << static_cast<int>(form);

  std::string wide = "\xFF\xFE";
  for (const char c : brief) wide += {c, '\0'};
  EXPECT_EQ(sentences(tell(wide)), told) << "as Windows writes it";
  // With lines lost fewer acts are certain, and none that was not there.
  const Tally whole = tally(tell(brief));
  for (size_t k = 2; k <= 20; ++k) {
    const Tally lossy = tally(tell(text_of(without(log, k, k / 2), kForms[k % 4])));
    size_t certain = 0;
    for (const auto& [what, count] : lossy) {
      const auto known = whole.find(what);
      if (what.starts_with("a ")) continue;
      ASSERT_TRUE(known != whole.end() && count <= known->second) << k << ": " << what;
      certain += count;
    }
    EXPECT_GT(certain, 100U) << k;
  }
}

TEST_F(LogStories, AreComparedWithThePhoneByAllThatTheyShow) {
  const std::string log = demo_log();
  const std::string factory = text_file("factory", log.substr(0, log.find("read from file OK")));
  const auto says = [](const std::string& of, const std::string& where) {
    return testing::Field(
        &Outcome::output,
        testing::ResultOf(unwrapped,
                          testing::ContainsRegex(of + ": the log's record \\(line [0-9]+\\) " + where)));
  };
  EXPECT_THAT(run("explain --log " + factory + " " + path("made")),
              says("A-light AWB record", "is in the phone"));
  const std::string lens_shading = "made/data/misc/camera/lsc_cal";
  file(lens_shading, damaged(bytes(lens_shading), 64 + 3576));
  for (const char* other : {"made/factory", "made/sys"}) fs::remove_all(path(other));
  EXPECT_THAT(run("explain main --log " + path("made/logcat.txt") + " " + path("made")),
              says("lens-shading record", "is not the one now in the phone"));
}

// ---- the table ----------------------------------------------------------------------------------------------

/// The library's lines are known in one table, made from its sources. A literal that changes there shows.
TEST_F(LogStories, KnowEveryLineThatTheLibraryCanLog) {
  const std::string kScript = "script/record-log-lines --check 2>&1";
  EXPECT_THAT(support::run_shell(SOURCE_DIR "/" + kScript), Exits(0, std::string()));

  const std::string copy = path("copy");
  fs::create_directories(copy + "/tools/log");
  support::run_shell("cd " SOURCE_DIR
                     " && cp -r --parents include common storage records factory correction verify "
                     "phone/include script/record-log-lines tools/log/library_lines.inc " +
                     copy);
  support::run_shell("sed -i 's/AEC is not settled !!/AEC is not settled!/' " + copy +
                     "/factory/awb_run.cpp");
  EXPECT_THAT(support::run_shell(copy + "/" + kScript),
              Exits(1, HasSubstr("+X(\"camera_calibration\", 'E', \"%s: AEC is not settled!\\n\")")));
}

// ---- the command --------------------------------------------------------------------------------------------

/// What a mail has of a phone: properties, the log of this boot and of the one before.
std::string bug_report(const std::string& log, const std::string& last) {
  std::string text =
      "========================================================\n== dumpstate: 2026-11-21 20:16:00\n"
      "------ SYSTEM PROPERTIES (getprop) ------\n[ro.pagesize]: [4096]\n";
  for (size_t i = 0; i < 4; ++i)
    text += fmt::format("[qor.camera.sensor.main_fuse{}]: [{}]\n", i + 1, static_cast<int32_t>(kModule[i]));
  return text +
         "------ 0.1s was the duration of 'SYSTEM PROPERTIES' ------\n\n"
         "------ MOUNTS (/proc/mounts) ------\n[ro.pagesize]: [2048]\n"
         "------ SYSTEM LOG (logcat -v threadtime -d *:v) ------\n--------- beginning of main\n" +
         log + "------ LAST LOGCAT (logcat -L) ------\n" + last;
}

class LogCommand : public LogStories {
 protected:
  Log started() {
    phone();
    Log log;
    const awbcal::Phone phone = awbcal::open_phone_of({.paths = {path("phone")}});
    for (const Camera camera : {Camera::main, Camera::front}) {
      const Log more = log_of(awbcal::run_cameras(phone, awbcal::modules_of(phone)).at(camera));
      log.insert(log.end(), more.begin(), more.end());
    }
    return log;
  }
};

TEST_F(LogCommand, TellsOfABugReportAndComparesItWithThePhone) {
  const Log log = started();
  const std::string report =
      bug_report(text_of(log, Form::threadtime), text_of(without(log, 2, 0), Form::threadtime));
  text_file("bugreport-1.txt", report);
  text_file("main_entry.txt", "bugreport-1.txt");
  text_file("FS/data/last.txt", report);
  ASSERT_EQ(support::run_shell("cd " + path("") +
                               " && python3 -m zipfile -c b.zip main_entry.txt bugreport-1.txt FS")
                .exit_code,
            0);
  const Outcome told = run("explain --log " + path("b.zip"));
  EXPECT_THAT(
      told,
      Exits(
          0, HasSubstr("b.zip: a bug report of "), HasSubstr("\n  read: bugreport-1.txt\n"),
          Not(HasSubstr("FS/")), HasSubstr("main module: fuse ID 11223344 55667788 99aabbcc ddeeff01\n"),
          HasSubstr("== the main camera starts ="),
          HasSubstr(", 11-21 20:00:06.006, process 812, SYSTEM LOG\n"),
          HasSubstr("process 812, LAST LOGCAT\n"),
          Tells(
              "White balance corrected: the AWB record of the cache file was used: R/G 0.7812, B/G 0.5859 "),
          Tells(
              "White balance NOT corrected: there is no AWB record, neither a cache file nor in the export (first of five tests)")));
  EXPECT_EQ(run("explain --log - <" + path("b.zip")).exit_code, 0);
  EXPECT_THAT(run("explain front --log " + path("b.zip")).output, Not(HasSubstr("main camera starts")));

  EXPECT_THAT(run("explain --log " + path("b.zip") + " " + path("phone")),
              Exits(0, Tells("the log's main module is the one in the phone: fuse ID 11223344"),
                    Tells("main camera, AWB record: the log's record (line "),
                    Tells("is in the phone: data/misc/camera/awb_cal ")));
  constexpr uint32_t kOtherWords[4] = {1, 2, 3, 4};
  file("phone/data/misc/camera/awb_cal", awb(3099, 700, 500, kOtherWords));
  fs::remove(path("phone/data/misc/camera/aec_cal"));
  EXPECT_THAT(
      run("explain main --log " + path("b.zip") + " " + path("phone")),
      Exits(
          0,
          Tells(
              "is not the one now in the phone: the log's is of fuse ID 11223344 55667788 99aabbcc ddeeff01, the phone's of fuse ID 00000001 00000002 00000003 00000004"),
          Tells("main camera, AEC record: the phone has none now")));
}

TEST_F(LogCommand, SaysWhatALogDoesNotTell) {
  const Log log = started();
  Log masked;
  std::ranges::copy_if(log, std::back_inserter(masked),
                       [](const LogLine& line) { return line.priority == 6; });
  EXPECT_THAT(run("explain --log " + text_file("masked", text_of(masked, Form::brief))),
              Exits(0, Tells("process 812: only errors are in the log"), Tells("NOT handed out")));
  EXPECT_THAT(run("explain --log " + text_file("none", kForeign[0])),
              Exits(3, HasSubstr("a log of 1 line, 0 of the library")));
  EXPECT_EQ(run("explain --log " + text_file("empty", "")).exit_code, 3);
  const std::string late = text_of({{"camera_calibration", 4, "of a later library"}}, Form::brief) +
                           "I/chatty  (  812): uid=1047 expire 12 lines\n" + std::string(100000, '(') + "\n";
  EXPECT_THAT(run("explain --log " + text_file("late", late)),
              Exits(3, Tells("1 line under the library's tags is none of this library"),
                    Tells("dropped 12 of its lines"), Tells("1 line: longer than a log has them")));
  std::string whole;
  for (int i = 0; i < 40; ++i) whole += text_of(log, Form::threadtime);
  text_file("whole", whole);
  ASSERT_EQ(
      support::run_shell(
          "cd " + path("") +
          " && gzip -k whole && head -c 9000 whole.gz >cut.gz && "
          "cp none a.txt && cp whole b.txt && tar cf ab.tar a.txt b.txt && head -c 1100 ab.tar >cut.tar")
          .exit_code,
      0);
  EXPECT_THAT(run("explain --log " + path("whole.gz")), Exits(0, Tells("White balance corrected")));
  EXPECT_THAT(
      run("explain --log " + path("cut.gz")),
      Exits(2, Tells("White balance corrected"), Tells("damaged, or it cannot be read: read up to line")));
  EXPECT_THAT(run("explain --log " + path("cut.tar")), Exits(2, Tells("damaged archive: read up to line 1")));
  EXPECT_THAT(run("explain --log " + path("missing")), Exits(2, HasSubstr("missing: no such file")));
  EXPECT_THAT(run("explain --log " + path("phone")), Exits(2, HasSubstr("a folder, not a log")));
  EXPECT_THAT(run("explain"), Exits(2, HasSubstr("CAMERA is required")));
  EXPECT_THAT(run("explain main"), Exits(2, HasSubstr("INPUT is required")));
  EXPECT_THAT(run("explain top phone"), Exits(2, HasSubstr("top: no camera")));
}

}  // namespace
