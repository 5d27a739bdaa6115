// Does a board get back the records of the modules that are on it, all of them, and nothing else? Guards against a module
// that is corrected by what was measured for another one, and against a partition that a restore damages.

#include <functional>
#include <map>

#include "inspect/backup.h"
#include "run/restore.h"
#include "tests/support/tool_support.h"

namespace {

using namespace tool;

constexpr std::ptrdiff_t kBase = 0x20000;
constexpr std::ptrdiff_t kAreaEnd = kBase + 0x4000;

class Restore : public ToolTest {
 protected:
  /// The phone that the production line made, and the backup of it.
  void make_old(const std::string& storage = "emmc") const {
    ASSERT_THAT(run("demo --seed 1 --storage " + storage + " --dir " + path("old")), Exits(0));
    ASSERT_THAT(run("backup " + path("old") + " " + path("kept")), Exits(0, Tells("16 records")));
  }

  /// Another board with the old one's modules: no cache file, an area that was never written, and data of others.
  void make_new(const std::string& storage = "emmc", const std::string& dir = "new") const {
    fs::remove_all(path(dir));
    fs::copy(path("old"), path(dir), fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::remove_all(path(dir + "/data/misc/camera"));
    fs::remove_all(path(dir + "/factory"));
    fs::remove_all(path(dir + "/sys"));
    if (storage == "emmc") {
      Bytes image = support::pattern(1024 * 1024);
      std::fill(image.begin() + kBase, image.begin() + kAreaEnd, 0);
      file(dir + device(storage), image);
    } else {
      Bytes chip = support::pattern(2 * 1024 * 1024);
      // The first block is bad, so that the area lies in the third, which is the second good one.
      std::fill_n(chip.begin() + 2 * kBase, kBase, 0xFF);
      file(dir + device(storage), chip);
    }
  }

  static std::string device(const std::string& storage) {
    return storage == "emmc" ? "/dev/block/mmcblk0p6" : "/dev/mtd/mtd3";
  }

  /// The partition's bytes: good blocks in order.
  Bytes partition(const std::string& dir, const std::string& storage) const {
    Bytes bytes = this->bytes(dir + device(storage));
    if (storage == "nand") bytes.erase(bytes.begin(), bytes.begin() + kBase);
    return bytes;
  }

  void set_property(const std::string& dir, const std::string& name, const std::string& value) const {
    std::string properties;
    std::istringstream lines(text(dir + "/properties"));
    for (std::string line; std::getline(lines, line);) {
      if (!line.starts_with(name + "=")) properties += line + "\n";
    }
    text_file(dir + "/properties", properties + (value.empty() ? "" : name + "=" + value + "\n"));
  }

  Outcome restore(const std::string& arguments = "", const std::string& target = "new") const {
    return run("restore " + path("kept") + " " + path(target) + " " + arguments);
  }

  std::map<std::string, std::string> contents(const std::string& dir) const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(path(dir))) {
      if (entry.is_regular_file() && !entry.is_symlink())
        files[entry.path().lexically_relative(path(dir))] = *support::read_text(entry.path());
    }
    return files;
  }
};

TEST_F(Restore, BringsBackWhatWasGoodAndChangesNothingElse) {
  for (const std::string storage : {"emmc", "nand"}) {
    SCOPED_TRACE(storage);
    fs::remove_all(path("old"));
    fs::remove(path("kept"));
    make_old(storage);
    make_new(storage);
    const auto before = contents("new");
    const Bytes blank = partition("new", storage);
    EXPECT_THAT(restore("--dry-run"), Exits(0, Tells("16 to restore, 0 there already, 0 refused; nothing")));
    EXPECT_EQ(contents("new"), before);
    fs::permissions(path("new" + device(storage)), fs::perms::owner_read | fs::perms::owner_write);
    const Outcome restored = restore();
    EXPECT_EQ(support::mode_of(path("new" + device(storage))), 0600);
    EXPECT_THAT(restored, Exits(0, Tells("16 restored, 0 there already, 0 refused")));
    EXPECT_EQ(restored.output.find("of the chip's blocks of 131072 bytes changed: 2\n") != std::string::npos,
              storage == "nand");
    const Bytes was = partition("old", storage);
    const Bytes now = partition("new", storage);
    ASSERT_EQ(now.size(), blank.size());
    size_t brought = 0;
    for (size_t i = 0; i < now.size(); ++i) {
      const bool is_in_area = i >= size_t{kBase} && i < size_t{kAreaEnd};
      if (now[i] == blank[i]) continue;
      ++brought;
      ASSERT_TRUE(is_in_area && now[i] == was[i]) << i;
    }
    EXPECT_GT(brought, 1000U);
    EXPECT_THAT(run("verify " + path("new")), Exits(0, Tells("PASS: 16 good")));
    for (const auto& [name, content] : contents("new")) {
      const bool is_cache =
          name.starts_with("data/misc/camera/") && name.find("lsc_cal") == std::string::npos;
      if (is_cache) {
        EXPECT_EQ(content, text("old/" + name)) << name;
      }
    }
    const auto after = contents("new");
    EXPECT_THAT(restore(), Exits(0, Tells("0 restored, 16 there already, 0 refused")));
    EXPECT_EQ(contents("new"), after);
  }
}

TEST_F(Restore, OfAnImageIsThePartitionsPartAlone) {
  make_old();
  Bytes image(0x30000);
  file("new.img", image);
  EXPECT_THAT(restore("", "new.img"),
              Exits(2, Tells("where the record area begins is not known: give --base")));
  EXPECT_THAT(restore("--base 4k", "new.img"),
              Exits(1, Tells("which module is fitted is not known: give --fuse")));
  const std::string fuse = " --fuse main=574995807,585863760,1937953255,90298373";
  EXPECT_THAT(
      restore("--base 4k" + fuse, "new.img"),
      Exits(1, Tells("main camera, lens-shading record: an image of the partition has no place for it"),
            Tells("5 restored")));
  Bytes expected(0x30000);
  const Bytes old = bytes("old/dev/block/mmcblk0p6");
  for (const auto& [at, size] :
       {std::pair<std::ptrdiff_t, std::ptrdiff_t>{0, 32}, {0xE08, 32 + 36}, {0xE6C, 48}, {0xEA0, 48}})
    std::copy_n(old.begin() + kBase + at, size, expected.begin() + kBase + at);
  EXPECT_EQ(bytes("new.img"), expected);
}

TEST_F(Restore, RefusesByNameWhatDoesNotBelong) {
  make_old();
  const struct {
    const char* what;
    std::function<void()> change;
    const char* arguments;
    int exit_code;
    const char* text;
  } rows[] = {
      {"a foreign module", [&] { set_property("new", "qor.camera.sensor.main_fuse3", "7"); }, "", 1,
       "refused: main camera, AWB record: of another module: its fuse ID is 2245bd5f 22eb9250 7382d1e7 0561d805, "
       "and fitted is 2245bd5f 22eb9250 00000007 0561d805"},
      {"another one of the pair", [&] { set_property("new", "qor.camera.sensor.sub_fuse1", "7"); }, "", 1,
       "refused: dual-camera record: of another pair: the sub camera's module is another one"},
      {"a newer good one",
       [&] {
         file("new/data/misc/camera/aec_cal", aec({574995807, 585863760, 1937953255, 90298373}));
       },
       "", 1,
       "refused: main camera, AEC record: another good one of this module is there: --force replaces it"},
      {"and all the same",
       [&] {
         file("new/data/misc/camera/aec_cal", aec({574995807, 585863760, 1937953255, 90298373}));
       },
       "--force", 0, "16 restored"},
      {"only the area",
       [&] {
         text_file("new/pulled",
                   "# What awbcal pull could read of a phone\nfinished\narea\tdev/block/mmcblk0p6\t\n");
       },
       "", 2, "only the record area was pulled: pull it with --whole"},
      {"not whole",
       [&] { text_file("new/pulled", "# What awbcal pull could read of a phone\nunfinished\n"); }, "", 2,
       "not whole: run awbcal pull again"},
      {"no partition", [&] { fs::remove(path("new/dev/block/mmcblk0p6")); }, "", 2,
       "the partition is missing"},
      {"an area elsewhere",
       [&] {
         Bytes image = bytes("old/dev/block/mmcblk0p6");
         image.erase(image.begin(), image.begin() + 0x10000);
         file("new/dev/block/mmcblk0p6", image);
       },
       "", 2, "the record area is not where the phone looks for it"},
  };
  for (const auto& [what, change, arguments, exit_code, text] : rows) {
    SCOPED_TRACE(what);
    make_new();
    change();
    const auto before = contents("new");
    EXPECT_THAT(restore(arguments), Exits(exit_code, Tells(text)));
    if (exit_code == 2) {
      EXPECT_EQ(contents("new"), before);
    }
  }
  make_new();
  support::run_shell("cd " + path("") + " && tar czf new.tar.gz new");
  EXPECT_THAT(restore("", "new.tar.gz"), Exits(2, Tells("nothing is written to it")));
}

TEST_F(Restore, RefusesADamagedBackup) {
  make_old();
  make_new();
  const std::string kept = text("kept");
  const size_t aec = kept.find(text("old/data/misc/camera/aec_cal"));
  const std::string damaged_aec = std::string(kept).replace(aec + 5, 1, "x");
  const struct {
    std::string file;
    int exit_code;
    const char* text;
  } rows[] = {
      {damaged_aec, 1, "refused: main camera, AEC record: damaged: not the digest that it had"},
      {support::replaced(kept, "\"awbcal_backup\": 1", "\"awbcal_backup\": 2"), 2,
       "a backup of version 2, this awbcal reads 1"},
      {support::replaced(kept, "\"kind\": \"aec\"", "\"kind\": \"acc\""), 2, "no such kind: \"acc\""},
      {kept.substr(0, kept.size() / 2), 2, "damaged archive"},
      {"no archive", 2, "no backup of awbcal: not an archive"},
  };
  for (const auto& [content, exit_code, text] : rows) {
    text_file("kept", content);
    EXPECT_THAT(restore(), Exits(exit_code, Tells(text)));
  }
}

// Whatever bit of the file is another one, no record has other bytes or another place than it had.
TEST_F(Restore, TakesNoRecordForAnother) {
  make_old();
  const Bytes good = bytes("kept");
  const awbcal::Backup whole = awbcal::read_backup("kept", good).backup;
  ASSERT_EQ(whole.records.size(), 16U);
  size_t refused = 0;
  for (size_t i = 0; i < good.size() * 8; i += 181) {
    Bytes flipped = good;
    flipped[i / 8] ^= static_cast<uint8_t>(1U << i % 8);
    try {
      const awbcal::ReadBackup read = awbcal::read_backup("kept", flipped);
      refused += read.damaged.size();
      for (const awbcal::BackupRecord& record : read.backup.records) {
        const awbcal::BackupRecord* original = whole.find(record.spec->kind, record.camera);
        ASSERT_TRUE(original != nullptr && original->bytes == record.bytes) << i;
      }
    } catch (const awbcal::InputError&) {
      ++refused;
    }
  }
  EXPECT_GT(refused, 200U);
}

TEST_F(Restore, InterruptedIsCompletedByAnotherOne) {
  for (const std::string storage : {"emmc", "nand"}) {
    fs::remove_all(path("old"));
    fs::remove(path("kept"));
    make_old(storage);
    make_new(storage, "whole");
    ASSERT_THAT(restore("", "whole"), Exits(0));
    make_new(storage);
    const awbcal::Backup backup = awbcal::read_backup("kept", bytes("kept")).backup;
    const awbcal::RestorePlan plan = awbcal::plan_restore(backup, {.target = path("new")});
    ASSERT_GT(plan.files.size(), 10U);
    for (size_t written = 0; written <= plan.files.size(); written += 2) {
      SCOPED_TRACE(storage + ", files written: " + std::to_string(written));
      make_new(storage);
      awbcal::RestorePlan part = plan;
      part.files.resize(written);
      awbcal::apply(part, path("new"));
      EXPECT_THAT(restore(), Exits(0));
      EXPECT_EQ(contents("new"), contents("whole"));
    }
    // At any moment, a file on its way among them.
    for (int i = 1; i <= 6; ++i) {
      make_new(storage);
      support::run_shell("timeout -s KILL 0.0" + std::to_string(i) + " " AWBCAL " restore " + path("kept") +
                         " " + path("new") + " >/dev/null 2>&1");
      EXPECT_THAT(restore(), Exits(0));
      auto now = contents("new");
      std::erase_if(now,
                    [](const auto& entry) { return entry.first.find("/.awbcal-") != std::string::npos; });
      EXPECT_EQ(now, contents("whole"));
    }
  }
}

}  // namespace
