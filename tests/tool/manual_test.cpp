// Do the help, the manual pages and the completion tell of the same commands and options? Guards against an
// option that a person can use and cannot find.

#include <regex>
#include <set>

#include "tests/support/tool_support.h"

namespace {

using namespace tool;

const char* const kCommands[] = {"demo",   "show",  "verify", "explain", "diff",   "pack",   "redact",
                                 "replay", "fleet", "report", "pull",    "backup", "restore"};

std::set<std::string> matches(const std::string& text, const char* pattern) {
  std::set<std::string> found;
  const std::regex expression(pattern);
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match) {
    found.insert((*match)[1]);
  }
  return found;
}

std::string page(const std::string& name) {
  return support::read_text(fs::path(SOURCE_DIR) / "man" / (name + ".1")).value_or("(absent)");
}

/// What bash offers for the words typed so far.
std::set<std::string> completions(const std::string& words, int last) {
  const std::string script = "source " SOURCE_DIR "/docs/completion/awbcal.bash; COMP_WORDS=(awbcal " +
                             words + "); COMP_CWORD=" + std::to_string(last) +
                             "; _awbcal; printf '%s\\n' \"${COMPREPLY[@]}\"";
  return matches(
      run("--version >/dev/null 2>&1; bash -c '" + std::regex_replace(script, std::regex("'"), "'\\''") + "'",
          "")
          .output,
      "([^\n]+)\n");
}

TEST(Manual, HasAPageAndACompletionForEveryOption) {
  for (const std::string command : kCommands) {
    std::set<std::string> options = matches(run(command + " --help").output, "(--[a-z-]+)[ \n]");
    EXPECT_GT(options.size(), 1U) << command;
    const std::set<std::string> documented = matches(page("awbcal-" + command), "Fl (-[a-z-]+)");
    for (const std::string& option : options)
      EXPECT_TRUE(documented.contains(option.substr(1))) << command << option;
    EXPECT_EQ(documented.size(), options.size()) << command << ": an option that is no more";
    options.insert("--color");
    EXPECT_EQ(completions(command + " --", 2), options) << command;
  }
}

TEST(Manual, NamesEveryCommand) {
  std::set<std::string> commands(std::begin(kCommands), std::end(kCommands));
  EXPECT_EQ(matches(page("awbcal"), "awbcal-([a-z]+) 1"), commands);
  commands.insert("help");
  EXPECT_EQ(matches(run("--help").output, "\n  ([a-z]+)  "), commands);
  commands.insert({"--help", "--version", "--color"});
  EXPECT_EQ(completions("\"\"", 1), commands);
}

TEST(Manual, OffersTheValuesOfAnOption) {
  EXPECT_EQ(completions("show --base \"\"", 3), (std::set<std::string>{"2k", "4k"}));
  EXPECT_EQ(completions("explain \"\"", 2), (std::set<std::string>{"front", "main", "sub"}));
  EXPECT_EQ(completions("pack --seal-only gy", 3), (std::set<std::string>{"gyro"}));
  EXPECT_EQ(completions("verify --require awb,ae", 3), (std::set<std::string>{"awb,aec"}));
  EXPECT_EQ(completions("verify --only front:gy", 3), (std::set<std::string>{"front:gyro"}));
}

// The exit codes stand in the program and in the manual.
TEST(Manual, HasOneTableOfExitCodes) {
  const Outcome help = run("help exit-codes");
  EXPECT_EQ(help.exit_code, 0);
  std::string pages = page("awbcal");
  pages = pages.substr(pages.find("EXIT STATUS"));
  EXPECT_EQ(matches(help.output, "\n  ([0-9])  "), matches(pages, "It ([0-9])\n"));
  for (const char* text :
       {"Nothing to judge: no record,", "Judged not good: FAIL,", "Could not be done, or cannot"}) {
    EXPECT_THAT(help.output, Tells(text)) << text;
    EXPECT_THAT(pages, ::testing::HasSubstr(text));
  }
}

TEST(Manual, RefusesToRunWithoutACommand) {
  EXPECT_EQ(run("").exit_code, 2);
  EXPECT_EQ(run("rubbish").exit_code, 2);
  EXPECT_EQ(run("shw x").output, "awbcal: no such command: \"shw\"; did you mean \"show\"?\n");
  EXPECT_EQ(run("help show").output + "\n", run("show --help").output);
  EXPECT_EQ(run("help").output + "\n", run("--help").output);
  EXPECT_EQ(run("--help").exit_code, 0);
  EXPECT_THAT(run("--version").output, ::testing::MatchesRegex("awbcal [0-9.]+( \\([0-9a-f]+\\))?\n"));
}

}  // namespace
