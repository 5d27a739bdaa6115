// Do the pages say what they are made of, and nothing a stranger wrote for the browser? Guards against a number that is
// not the phone's, a text that becomes a script, and a name on a page that was to have none. What a browser makes of them
// is script/check page.

#include <fmt/format.h>

#include <regex>

#include "page/assets.h"
#include "page/fleet_page.h"
#include "run/tuning.h"
#include "tests/support/tool_support.h"

namespace {

using namespace tool;
using testing::AllOf;

size_t count(const std::string& text, const std::string& part) {
  size_t found = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

/// The cells of the rows of every table with this role.
std::vector<std::vector<std::string>> rows_of(const std::string& page, const std::string& role) {
  std::vector<std::vector<std::string>> rows;
  const std::string table = "data-role=\"" + role + "\"";
  for (size_t at = page.find(table); at != std::string::npos; at = page.find(table, at + 1)) {
    std::istringstream lines(page.substr(at, page.find("</tbody>", at) - at));
    for (std::string line; std::getline(lines, line);) {
      if (!line.starts_with("<tr><td")) continue;
      const std::regex cell("<td[^>]*>([^<]*)</td>");
      std::vector<std::string>& row = rows.emplace_back();
      for (std::sregex_iterator match(line.begin(), line.end(), cell), end; match != end; ++match)
        row.push_back((*match)[1]);
    }
  }
  return rows;
}

class Page : public ToolTest {};

/// With an AWB record of the main camera, `percent` of what this golden sample allows away from it.
awbcal::Unit unit_at(const std::string& name, double percent, uint32_t rg = 800) {
  const awbcal::Limit limit{.golden = {0.75F, 0.55F}, .threshold = 20};
  awbcal::Measurement awb{.spec = &awbcal::record_spec(awbcal::RecordKind::awb),
                          .camera = calib::Camera::main,
                          .verdict = awbcal::Verdict::good,
                          .is_good = percent <= 100,
                          .words = {{rg, 600}},
                          .limit = limit,
                          .margin = calib::Margin{.delta = static_cast<float>(percent), .limit = 100}};
  return {
      .name = name, .path = name, .result = awb.is_good ? "PASS" : "FAIL", .measurements = {std::move(awb)}};
}

std::string page_of(const std::vector<awbcal::Unit>& units) {
  awbcal::Summary summary;
  awbcal::FleetPoints points;
  for (const awbcal::Unit& unit : units) {
    summary.add(unit);
    points.add(unit);
  }
  return awbcal::fleet_page(summary, points, {.title = "Fleet"});
}

// ---- numbers ----------------------------------------------------------------------------------------------

TEST_F(Page, CountsAUnitInTheBarThatItsMarginIsIn) {
  std::vector<awbcal::Unit> units;
  for (const double percent : {0.0, 0.1, 5.0, 5.1, 99.9, 100.0, 100.1, 200.0, 200.1, 5000.0})
    units.push_back(unit_at(fmt::format("at {}", percent), percent));
  units.back().measurements[0].limit->threshold = 10;
  const std::string page = page_of(units);
  EXPECT_EQ(rows_of(page, "golden").size(), 2U) << "limits about one golden sample";
  std::map<std::string, std::string> bars;
  for (const auto& row : rows_of(page, "bins")) {
    if (row.at(1) != "0") bars[row[0]] = row[1];
  }
  EXPECT_THAT(bars,
              testing::UnorderedElementsAre(testing::Pair("0-5", "3"), testing::Pair("5-10", "1"),
                                            testing::Pair("95-100", "2"), testing::Pair("100-105", "1"),
                                            testing::Pair("195-200", "1"), testing::Pair("&gt; 200", "2")));
}

TEST_F(Page, DrawsUnitsAsPointsAndManyAsSquares) {
  std::vector<awbcal::Unit> units;
  const auto add = [&units](size_t number) {
    units.push_back(unit_at(fmt::format("unit-{}", number), number % 20 == 0 ? 120 : 50,
                            700 + static_cast<uint32_t>(number % 331)));
  };
  for (size_t i = 0; i < awbcal::kMostPoints; ++i) add(i);
  const std::string points = page_of(units);
  EXPECT_EQ(rows_of(points, "points").size(), awbcal::kMostPoints);
  EXPECT_TRUE(rows_of(points, "density").empty());
  add(awbcal::kMostPoints);
  const std::string squares = page_of(units);
  const auto failing = rows_of(squares, "points");
  ASSERT_EQ(failing.size(), awbcal::kMostFailingPoints);
  for (size_t i = 0; i < failing.size(); ++i) EXPECT_EQ(failing[i].at(0), fmt::format("unit-{}", 20 * i));
  // 331 words in 48 squares are seven a square: 0.7 to 0.7 + 330 of 1024, from the middle of the first.
  std::map<std::string, size_t> columns;
  for (const auto& row : rows_of(squares, "density")) columns[row.at(0)] += std::stoul(row.at(2));
  ASSERT_EQ(columns.size(), 48U);
  EXPECT_EQ(columns.begin()->first, fmt::format("{:.4f}", 703 / 1024.0));
  size_t all = 0;
  for (const auto& [centre, counted] : columns) all += counted;
  EXPECT_EQ(all, units.size());
  EXPECT_EQ(count(squares, "data-step=\"0.0068359375\""), 1U);
}

TEST_F(Page, GivesEachNumberOfAMapItsShade) {
  const float gains[] = {2.0F, 1.0F, 1.49F, NAN};
  awbcal::Page page("Maps");
  page.heat_maps({{"a map", gains, 2}});
  EXPECT_THAT(page.html(), HasSubstr("<tr><td class=\"s7\">2.00</td><td class=\"s0\">1.00</td></tr>\n"
                                     "<tr><td class=\"s3\">1.49</td><td class=\"s0\">nan</td></tr>\n"));
}

TEST_F(Page, ShowsTheVerdictsThatVerifyPrints) {
  const std::string limits = text_file("limits",
                                       "camera,light,golden_rg,golden_bg,threshold\n"
                                       "main,normal,0.7,0.6,9\nfront,normal,0.72,0.61,9\n");
  const std::string input = phone() + " --limits " + limits;
  file("phone/data/misc/camera/awb_cal_front_CAM", awb(3099, 716, 620));
  Bytes lens_shading(4000);
  put(lens_shading, 64,
      awbcal::make_lens_shading_record({kModule[0], kModule[1], kModule[2], kModule[3]}, 1.5));
  file("phone/data/misc/camera/lsc_cal", lens_shading);
  const Outcome verified = run("verify " + input);
  EXPECT_THAT(run("report " + input + " --html " + path("page.html")), Exits(verified.exit_code, ""));
  const std::string page = text("page.html");
  for (const char* said : {"out of limit", "bound to the fitted module",
                           "0.0825 from the golden sample, 0.0630 allowed (131 % of it)",
                           "White balance corrected: the AWB record was used, which is good",
                           "main module: fuse ID 11223344 55667788"}) {
    EXPECT_THAT(page, HasSubstr(said));
  }
  EXPECT_THAT(verified.output, AllOf(Tells("out of limit"), Tells("0.0825 from the golden sample")));
  EXPECT_THAT(rows_of(page, "golden"),
              testing::ElementsAre(testing::ElementsAre("golden sample, 9 %", "0.7000", "0.6000", "0.0630"),
                                   testing::ElementsAre("golden sample, 9 %", "0.7200", "0.6100", "0.0648")));
  EXPECT_THAT(page, HasSubstr(">0.9711<")) << "the front camera's R/G by its own golden sample";
  EXPECT_THAT(rows_of(page, "points"),
              testing::ElementsAre(testing::ElementsAre("AWB record", "0.7812", "0.5859", "out of limit"),
                                   testing::ElementsAre("AWB record", "0.6992", "0.6055", "good")));
  EXPECT_THAT(page, AllOf(HasSubstr("channel 1 before: corner 1.9000,"),
                          HasSubstr("channel 1 after: corner 2.1250,")));
  EXPECT_THAT(run("report " + file("blank", Bytes(32)) + " --as awb --html " + path("blank.html")),
              Exits(3, ""));
}

TEST_F(Page, ShowsTheRunOfAReplayBesideItsFrames) {
  std::string frames = "rg_sum,bg_sum,count\n";
  for (int i = 0; i < 11; ++i) frames += "800000,615000,1000\n";
  EXPECT_THAT(run("replay --golden 0.75,0.6 --threshold 10 " + text_file("frames.csv", frames) + " --html " +
                  path("page.html"))
                  .exit_code,
              0);
  EXPECT_THAT(rows_of(text("page.html"), "points").back(),
              testing::ElementsAre("the run", "0.7812", "0.6006", "passes"));
}

// ---- texts of others --------------------------------------------------------------------------------------

TEST_F(Page, TakesTextsForTexts) {
  const std::string evil = "<script>alert('&\"')</script>\u202E";
  awbcal::Unit unit = unit_at(evil, 120);
  unit.error = evil;
  std::string page = page_of({unit});
  EXPECT_EQ(count(page, "<script>"), 2U);
  EXPECT_EQ(count(page, "</script"), 2U) << "the chart library or the page's own script ends early";
  EXPECT_THAT(page, HasSubstr("&lt;script&gt;alert('&amp;&quot;')&lt;/script&gt;\\u202e"));
  // The browser runs what has one of these digests alone.
  const std::string digests = text_file("digests.py", R"(import base64, hashlib, re, sys
scripts = re.findall(b"<script>(.*?)</script>", sys.stdin.buffer.read(), re.S)
print(" ".join("'sha256-%s'" % base64.b64encode(hashlib.sha256(s).digest()).decode() for s in scripts), end=""))");
  const Outcome said = support::run_shell("python3 " + digests + " <" + text_file("page.html", page));
  EXPECT_THAT(page, HasSubstr("default-src 'none'; script-src " + said.output + ";"));
  EXPECT_EQ(count(page, "\u202E"), 0U) << "turns the text round";
  EXPECT_EQ(count(page, "://"), count(std::string(awbcal::kChartJs), "://") + 1)
      << "an address beside the licence's";
}

TEST_F(Page, HasNothingOfARedactedPhone) {
  const std::string folder = phone("serial-4711");
  text_file("serial-4711/build.prop", "ro.serialno=serial-4711\n");
  const std::string other = file("serial-4711.img", damaged(awb(3099, 800, 600, {1, 2, 3, 4}), 5));
  for (const std::string& input : {folder, other + " --as awb" + kFuse, "serial-4711.img --as awb" + kFuse}) {
    const Outcome made = support::run_shell("cd " + path("") + " && " AWBCAL " report " + input +
                                            " --redact --force --html page.html 2>&1");
    EXPECT_THAT(made, testing::AnyOf(Exits(0, ""), Exits(1, ""))) << input;
    const std::string page = text("page.html");
    for (const char* trace : {"serial-4711", "3344", "55667788", "99aabbcc", "ddeeff01"})
      EXPECT_EQ(count(page, trace), 0U) << input << trace;
    EXPECT_THAT(page, HasSubstr("main module: fuse ID 1122...<")) << input;
  }
}

// ---- the file ---------------------------------------------------------------------------------------------

TEST_F(Page, ReplacesAPageOnlyWhenAsked) {
  const std::string input = phone();
  const std::string frames = text_file("frames.csv", "rg_sum,bg_sum,count\n800,600,1\n");
  const std::string page = text_file("page.html", "somebody's");
  for (const std::string& command :
       {"report " + input, "fleet " + input, "replay --golden 0.7,0.6 " + frames}) {
    EXPECT_THAT(run(command + " --html " + page), Exits(2, HasSubstr("--force"))) << command;
    EXPECT_EQ(text("page.html"), "somebody's");
    EXPECT_THAT(run(command + " --html -"), Exits(2, HasSubstr("a page is a file: name it")));
    EXPECT_NE(run(command + " --force --html " + page).exit_code, 2) << command;
    EXPECT_TRUE(text("page.html").starts_with("<!DOCTYPE html>")) << command;
    text_file("page.html", "somebody's");
  }
  EXPECT_THAT(run("report " + input + "/getprop.txt --force --html " + input + "/getprop.txt"),
              Exits(2, HasSubstr("getprop.txt")));
}

}  // namespace
