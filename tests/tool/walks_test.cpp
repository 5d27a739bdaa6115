// Do the walks that the documents print work as printed? Guards against a document that a person follows in vain.

#include <fstream>

#include "tests/support/stand_in_phones.h"

namespace {

using namespace tool;

class Walk : public StandInPhones {
 protected:
  /// A phone that the production line made, connected.
  void connect_demo() const { ASSERT_THAT(run("demo --seed 1 --dir '" + phone_dir() + "'"), Exits(0)); }

  /// Every command of the walk does what is shown below it, in the order of the document; "..." is what was left out.
  void follow(const std::string& document, const std::string& walk) const {
    std::istringstream lines(support::read_text(fs::path(SOURCE_DIR) / "docs" / document).value_or(""));
    std::string line;
    while (std::getline(lines, line) && line != "<!-- walk: " + walk + " -->") {
    }
    std::getline(lines, line);
    ASSERT_EQ(line, "```") << document << ": " << walk;
    std::string printed;
    size_t commands = 0;
    while (std::getline(lines, line) && line != "```") {
      if (line.starts_with("$ ")) {
        printed = in_shell("cd '" + path("") + "' && " + line.substr(2) + " 2>&1").output;
        ++commands;
      } else if (line != "...") {
        EXPECT_THAT("\n" + printed, HasSubstr("\n" + line + "\n")) << document << ": " << walk;
      }
    }
    EXPECT_GT(commands, 1U);
  }
};

TEST_F(Walk, FromAPhoneOnACableToAnExplanation) {
  connect_demo();
  refuse("/dev/block/*");
  follow("real-phone.md", "phone on a cable");
}

TEST_F(Walk, FromAPhoneByHand) {
  connect_demo();
  refuse("/dev/block/*", "0");
  follow("real-phone.md", "by hand");
}

}  // namespace
