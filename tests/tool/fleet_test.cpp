// Does `awbcal fleet` tell the truth of many units? Guards against a yield, an outlier or a row that is not so, a unit
// that is lost or ends the run, and a history that is torn or counts twice.

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "fleet/history.h"
#include "fleet/judge_process.h"
#include "fleet/rows.h"
#include "fleet/summary.h"
#include "fleet/summary_tables.h"
#include "inspect/errors.h"
#include "tests/support/tool_support.h"

namespace {

using namespace tool;
using testing::AllOf;

class Fleet : public ToolTest {
 protected:
  /// A demo's fleet; its folder.
  std::string fleet(const std::string& options) {
    EXPECT_EQ(run("demo --dir " + path("fleet") + " " + options).exit_code, 0);
    return path("fleet");
  }
  Outcome shell(const std::string& command) const {
    return support::run_shell("cd " + path("") + " || exit; { " + command + "\n} 2>&1");
  }
};

std::vector<std::vector<std::string>> rows_of(const std::string& csv) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(csv);
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string>& row = rows.emplace_back();
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, ',');) row.push_back(field);
  }
  return rows;
}

// ---- the truth --------------------------------------------------------------------------------------------

TEST_F(Fleet, TellsTheTruthOfADemosFleet) {
  const std::string folder = fleet("--units 800 --seed 5 --bad 20 --spread 4 --drift 0.3");
  const auto truth = rows_of(support::read_text(folder + "/truth.csv").value());
  const auto units = rows_of(shell("TZ=XYZ-5 " AWBCAL " fleet fleet/units --csv | grep -a ^unit,").output);
  ASSERT_EQ(units.size(), 800U);
  std::map<std::string, int> results;
  int copies = 0;
  for (size_t i = 0; i < units.size(); ++i) {
    EXPECT_EQ(units[i].at(1), truth.at(i + 1).at(0));
    EXPECT_EQ(units[i].at(3), truth.at(i + 1).at(1));
    EXPECT_EQ(units[i].at(7), truth.at(i + 1).at(2)) << units[i].at(1) << truth.at(i + 1).at(3);
    ++results[truth.at(i + 1).at(2)];
    // A copy of what is not to be seen cannot be seen.
    const std::string& before = truth.at(i).at(3);
    const bool is_seen = i > 0 && before != "cut" && before != "erased" && before != "copied";
    copies += is_seen && truth.at(i + 1).at(3) == "copied" ? 1 : 0;
  }
  const std::string summary = run("fleet " + folder + "/units").output;
  for (const auto& [result, count] : results)
    EXPECT_THAT(summary, Tells(fmt::format("{} {}", count, result)));
  EXPECT_THAT(summary, Tells(fmt::format("modules that are in another unit as well: {} ", copies)));
  EXPECT_THAT(summary, Tells("main camera, AWB record, 6 units: unit-"));
  // A drift of 0.3 % a day is 0.0023 of R/G; the fit of 800 units knows it to a few percent.
  EXPECT_THAT(unwrapped(summary),
              testing::ContainsRegex("front camera, AWB record 0\\.7[0-9]+ \\+0\\.002[0-9]+ 0"));
  EXPECT_THAT(run("fleet " + fleet("--units 100 --bad 0 --spread 1") + "/units").output,
              AllOf(Tells("100 units: 100 PASS"), Not(HasSubstr("far from")),
                    Not(HasSubstr("the same measurement"))));
}

/// Of a good main camera's AWB record.
awbcal::Unit unit_of(size_t number, uint32_t rg, uint32_t bg) {
  awbcal::Measurement awb{.spec = &awbcal::record_spec(awbcal::RecordKind::awb),
                          .camera = calib::Camera::main,
                          .source = "file",
                          .verdict = awbcal::Verdict::good,
                          .is_good = true,
                          .version = 3,
                          .words = {{rg, bg}}};
  return {.name = "u" + std::to_string(number),
          .path = "p",
          .time = 86400,
          .result = "PASS",
          .measurements = {awb}};
}

// The ratios of good modules lie along a line; what is off it is strange, though each ratio alone is not.
TEST(Summary, FindsWhatIsOffTheLineOfTheOthers) {
  awbcal::Summary summary;
  for (size_t i = 0; i < 400; ++i) {
    const auto along = static_cast<uint32_t>(i % 40);
    summary.add(unit_of(i, 760 + along, 600 - along + static_cast<uint32_t>(i / 40 % 3)));
  }
  EXPECT_TRUE(summary.ratios.begin()->second.outliers().empty());
  for (const size_t number : {size_t{400}, size_t{401}}) summary.add(unit_of(number, 795, 597));
  const auto outliers = summary.ratios.begin()->second.outliers();
  ASSERT_EQ(outliers.size(), 1U);
  EXPECT_EQ(outliers[0].cell.first, "u400");
  const auto lists = awbcal::comparison(summary);
  const auto far = std::ranges::find_if(lists, [](const awbcal::NamedList& list) {
    return list.what == "far from where the others are, main camera, AWB record";
  });
  ASSERT_NE(far, lists.end());
  EXPECT_EQ(far->units.count, 2U);
}

TEST(Summary, JudgesWithTheFactoryAndAgain) {
  awbcal::Summary summary;
  const auto add = [&summary](const char* result, awbcal::Verdict verdict, float percent) {
    awbcal::Unit unit = unit_of(summary.units, 760, 600);
    unit.result = result;
    unit.measurements[0].verdict = verdict;
    unit.measurements[0].margin = calib::Margin{.delta = percent, .limit = 100};
    summary.add(unit);
  };
  for (const float percent : {50.0F, 150.0F}) {
    add("PASS", awbcal::Verdict::good, percent);
    add("FAIL", awbcal::Verdict::out_of_tolerance, percent);
    add("INCOMPLETE", awbcal::Verdict::good, percent);
  }
  EXPECT_EQ(summary.days.at(1).judged, 4U);
  EXPECT_EQ(summary.days.at(1).passed, 2U);
  const awbcal::MarginStatistics& margin = summary.margins.begin()->second;
  EXPECT_EQ(margin.would_have_failed.names, (std::vector<std::string>{"u3", "u5"}));
  EXPECT_EQ(margin.passes_now.names, (std::vector<std::string>{"u1"}));
  EXPECT_EQ(margin.now_and_then, 2U);
}

TEST(Summary, CountsMarginsByTheirLimit) {
  awbcal::MarginStatistics margin;
  for (int i = 1; i <= 1000; ++i) margin.add("u" + std::to_string(i), i / 10.0);
  EXPECT_DOUBLE_EQ(margin.quantile(0.5), 50.0);
  EXPECT_DOUBLE_EQ(margin.quantile(0.99), 99.0);
  EXPECT_EQ(margin.worst.front().second, "u1000");
  EXPECT_EQ(margin.worst.back().second, "u991");
  EXPECT_NEAR(margin.capability(), (100 - 50.05) / (3 * 28.881), 1e-4);
}

TEST(SeenOnce, KnowsWhereAKeyWasFirst) {
  awbcal::SeenOnce seen;
  for (uint64_t unit = 0; unit < 3000; ++unit) {
    seen.begin_unit("unit " + std::to_string(unit));
    EXPECT_FALSE(seen.add(unit << 40)) << unit;
    EXPECT_FALSE(seen.add(unit << 40)) << "in the same unit";
  }
  seen.begin_unit("copy");
  EXPECT_EQ(seen.add(uint64_t{77} << 40), "unit 77");
  EXPECT_EQ(seen.add(uint64_t{2999} << 40), "unit 2999");
  EXPECT_FALSE(seen.add(12345));
}

// ---- one by one -------------------------------------------------------------------------------------------

// Scripts and tables are written by what the page says.
TEST(Columns, StandInTheManual) {
  const std::string page = support::read_text(SOURCE_DIR "/man/awbcal-fleet.1").value();
  for (const auto columns : {awbcal::unit_columns(), awbcal::measurement_columns()}) {
    for (const awbcal::Column& column : columns)
      EXPECT_THAT(page,
                  testing::ContainsRegex(fmt::format("\\.It ([a-z_]+, )?{}(, [a-z_]+)? Ta ", column.name)));
  }
}

// What verify says of a unit is what its row says.
TEST_F(Fleet, JudgesEachUnitAsVerifyDoes) {
  const std::string folder = fleet("--units 297 --seed 9 --bad 40");
  phone("fleet/units/x-phone");
  shell("tar czf fleet/units/y.tar.gz -C fleet/units x-phone && cp fleet/limits.csv fleet/units/z");
  const Outcome verified =
      shell("for unit in fleet/units/*; do " AWBCAL
            " verify --no-accept --golden 0.75,0.56 $unit >/dev/null 2>&1; echo $?; done");
  const Outcome judged = shell(AWBCAL " fleet fleet/units --golden 0.75,0.56 --csv | grep -a ^unit,");
  std::string codes;
  for (const auto& row : rows_of(judged.output)) {
    const std::string& result = row.at(7);
    codes += result == "PASS"                ? "0\n"
             : result == "FAIL"              ? "1\n"
             : result.starts_with("NOTHING") ? "3\n"
                                             : "2\n";
  }
  EXPECT_EQ(std::ranges::count(codes, '\n'), 300);
  EXPECT_EQ(codes, verified.output);
}

TEST_F(Fleet, TakesWhatIsNamedHoweverItIsNamed) {
  phone("units/de,ep/phone");
  text_file("units/de,ep/phone/build.prop", "ro.serialno=SN\"1\"\n");
  file("units/b.img", Bytes(0x4000));
  file("units/.hidden", Bytes(1));
  fs::create_directory_symlink("..", path("units/round"));
  text_file("list", "units/b.img\n\nunits/nosuch\nunits/de,ep/phone\n");
  text_file("front", "camera,light,golden_rg,golden_bg,threshold\nfront,normal,0.75,0.5,1\n");
  text_file("zeros", std::string("units/b.img\0units/de,ep/phone\0", 30));
  const struct {
    const char* arguments;
    int exit_code;
    const char* tells;
  } rows[] = {
      {"units", 0, "2 units: 1 NOTHING TO JUDGE, 1 PASS"},
      {"units --csv", 0, "\nunit,\"SN\"\"1\"\"\",\"units/de,ep/phone\","},
      {"units --ndjson", 0, R"({"row":"measurement","unit":"SN\"1\"","path":"units/de,ep/phone")"},
      {"units/b.img", 3, "1 unit: 1 NOTHING TO JUDGE"},
      {"- <list", 2, "units/nosuch: no such file"},
      {"- --golden 0.75,0.5 --threshold 1 <list", 1, "fail these limits: 1 SN\"1\""},
      {"-0 - <zeros", 0, "2 units: 1 NOTHING TO JUDGE, 1 PASS"},
      {"- </dev/null", 3, "no unit"},
      {"units --golden 0.75,0.5 --threshold 1", 1, "passed in the factory, fail these limits: 1 SN\"1\""},
      {"units --golden 0.78125,0.5859375 --threshold 0", 0, "main camera, AWB record 1 0.0 0.0 0.0 0.0 -"},
      {"units --golden 0.75,0.5 --threshold 1 --db kept", 1, "1 FAIL"},
      {"--from kept --limits front", 0, "2 units: 1 NOTHING TO JUDGE, 1 PASS"},
      {"units --threshold 1", 2, "--threshold: needs --golden"},
      {"", 2, "PATH or --from is required"},
      {"units --accept", 0, "2 units: 1 NOTHING TO JUDGE, 1 PASS"},
      {"units --limits list", 2, "list: does not begin with the line camera,light,"},
      {"--from units/b.img", 2, "units/b.img: "},
      {"--from nosuch", 2, "nosuch: cannot be opened"},
      {"units --since 2026-01-01", 2, "--since requires --from"},
      {"--from nosuch --since tomorrow", 2, "\"tomorrow\" is not a day"},
  };
  for (const char* newest : {"getprop.txt", "data/misc/camera/aec_cal"}) {
    shell("find units -type f | xargs touch -d 2026-01-01; touch -d 2026-01-05T06:07:08Z units/*/phone/" +
          std::string(newest));
    EXPECT_THAT(shell("TZ=XYZ-5 " AWBCAL " fleet units --csv").output,
                HasSubstr("phone\",2026-01-05T06:07:08Z,"))
        << newest;
  }
  for (const auto& [arguments, exit_code, tells] : rows) {
    const Outcome outcome = shell(std::string(AWBCAL " fleet ") + arguments);
    EXPECT_EQ(outcome.exit_code, exit_code) << arguments << outcome.output;
    EXPECT_THAT(outcome.output, Tells(tells)) << arguments;
  }
}

TEST(Limits, AreReadLineByLine) {
  const std::string title = "camera,light,golden_rg,golden_bg,threshold\n";
  const awbcal::Limits limits =
      awbcal::parse_limits("l", title + "main,normal,0.75,0.5,20\r\nfront,a_light,1.1,0.35,7\n");
  EXPECT_EQ(limits.find(calib::Camera::front, awbcal::RecordKind::a_light_awb)->threshold, 7U);
  EXPECT_EQ(limits.find(calib::Camera::front, awbcal::RecordKind::awb), nullptr);
  for (const char* line :
       {"main,normal,0.75,0.5", "back,normal,1,1,20", "main,bright,1,1,20", "main,normal,0,1,20",
        "main,normal,nan,1,20", "main,normal,inf,1,20", "main,normal,1,1,-1", "main,normal,1,1,20 ",
        "main,normal,1,1,20\nmain,normal,1,1,20", ""}) {
    EXPECT_THROW(awbcal::parse_limits("l", title + line), awbcal::InputError) << line;
  }
}

// A record that ends the process of its judge ends no more than that.
TEST_F(Fleet, OutlivesAJudgeThatEnds) {
  const std::string folder = phone();
  const awbcal::UnitQuestion question{.verify = {.asks_library = true}};
  awbcal::JudgeProcess judge(question);
  EXPECT_EQ(judge.judged(folder).result, "PASS");
  support::run_shell("kill -KILL $(grep -ls '^PPid:[^0-9]*" + std::to_string(getpid()) +
                     "$' /proc/[0-9]*/status | cut -d/ -f3 | grep -vx $$)");
  const awbcal::Unit broken = judge.judged(folder);
  EXPECT_EQ(broken.result, awbcal::kBroken);
  EXPECT_EQ(broken.error, folder + ": judging it ended the process: Killed");
  EXPECT_EQ(judge.judged(folder).result, "PASS");
}

TEST_F(Fleet, SaysWhatIsDoneWhenItIsInterrupted) {
  phone("unit");
  const Outcome outcome = shell("mkfifo list; (exec 3<>list; echo unit >list; exec " AWBCAL
                                " fleet - <&3) >out & sleep 2; "
                                "kill -INT $!; wait $!; echo $?; cat out");
  EXPECT_THAT(outcome.output, AllOf(Tells("2\nInterrupted: this is of the units judged until then."),
                                    Tells("1 unit: 1 PASS")));
}

// ---- the history ------------------------------------------------------------------------------------------

/// Of the three forms of the same rows.
constexpr const char* kCompare = R"(import csv, json, sqlite3
def same(value):
    try: return float(value)
    except (TypeError, ValueError): return value or ""
def rows(file): return [{name: same(value) for name, value in row.items()} for row in file]
table = rows(csv.DictReader(open("csv")))
base = sqlite3.connect("history")
count = lambda name: base.execute("SELECT count(*) FROM " + name).fetchone()[0]
print(table == rows(map(json.loads, open("ndjson"))), base.execute("PRAGMA integrity_check").fetchone()[0],
      count("unit") + count("measurement") == len(table)))";

TEST_F(Fleet, AHistoryTellsTheSame) {
  fleet("--units 200 --bad 30");
  const std::string judge = AWBCAL " fleet fleet/units --limits fleet/limits.csv --lot A ";
  const std::string csv = shell(judge + "--csv").output;
  const std::string summary = shell(judge + "--db history").output;
  EXPECT_EQ(shell(judge + "--db history").output, summary) << "each unit again";
  EXPECT_EQ(shell(AWBCAL " fleet --from history").output, summary);
  EXPECT_EQ(shell(AWBCAL " fleet --from history --csv").output, csv);
  EXPECT_EQ(shell(AWBCAL " fleet --from history --limits fleet/limits.csv --csv").output, csv)
      << "judged again";
  EXPECT_THAT(shell(AWBCAL " fleet --from history --lot B").output, HasSubstr("no unit"));
  EXPECT_EQ(
      rows_of(
          shell(AWBCAL " fleet --from history --since 2026-01-04 --until 2026-01-06 --csv | grep -a ^unit,")
              .output)
          .size(),
      20U);
  shell("echo '" + std::string(kCompare) + "' >compare.py");
  shell(judge + "--csv >csv; " + judge + "--ndjson >ndjson");
  EXPECT_EQ(shell("python3 compare.py").output, "True ok True\n");
}

TEST_F(Fleet, AHistoryHoldsWholeUnitsWhateverEndsTheRun) {
  fleet("--units 60");
  const std::string judge = AWBCAL " fleet fleet/units --db ";
  shell(judge + "whole");
  for (int i = 0; i < 200; ++i) {
    // A history that is whole has nothing left to be torn.
    if (i % 4 == 0) shell("rm -f torn*");
    const pid_t child = fork();
    if (child == 0) {
      execl("/bin/sh", "sh", "-c", ("cd " + path("") + " && exec " + judge + "torn >/dev/null").c_str(),
            nullptr);
      _exit(1);
    }
    usleep(static_cast<useconds_t>(5000 + i * 250));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    if (!fs::exists(path("torn"))) continue;
    awbcal::History(path("torn"), awbcal::History::Access::read).for_each({}, [](const awbcal::Unit& unit) {
      EXPECT_EQ(unit.measurements.size(), unit.result == "PASS" ? 6U : unit.measurements.size());
    });
  }
  EXPECT_EQ(
      shell(
          "python3 -c \"import sqlite3; print(*sqlite3.connect('torn').execute('PRAGMA integrity_check'))\"")
          .output,
      "('ok',)\n");
  shell(judge + "torn & " + judge + "torn; wait");
  const std::string all = " --csv | sort";
  EXPECT_EQ(shell(AWBCAL " fleet --from torn" + all).output,
            shell(AWBCAL " fleet --from whole" + all).output);
}

TEST_F(Fleet, AHistoryIsNoOtherDatabase) {
  const auto python = [&](const std::string& sql) {
    shell("python3 -c \"import sqlite3; c = sqlite3.connect('h'); c.executescript('" + sql + "')\"");
    return run("fleet --from " + path("h")).output;
  };
  EXPECT_THAT(python("CREATE TABLE mine (x)"), HasSubstr("h: a database, but no history of awbcal fleet"));
  EXPECT_THAT(run("fleet --db " + path("h") + " " + path("")).output,
              HasSubstr("no history of awbcal fleet"));
  EXPECT_THAT(python("PRAGMA application_id = 1635213926; PRAGMA user_version = 99"),
              HasSubstr("h: made by a newer awbcal"));
}

}  // namespace
