// Is what the tool says of any input so, whatever was done to it? Guards against an untruth in a place where
// people act on it, a PASS without a good record, a crash, a hang, and a message that does not name its file.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>

#include "inspect/errors.h"
#include "inspect/json_form.h"
#include "inspect/open_phone.h"
#include "inspect/redaction.h"
#include "run/verification.h"
#include "tests/support/sealed.h"
#include "tests/support/tool_support.h"

namespace {

using namespace tool;

/// A chip's pages with their out-of-band bytes; its first block is bad.
Bytes raw_nand(const Bytes& image) {
  Bytes chip(64 * (2048 + 64), 0x00);
  for (size_t at = 0; at < image.size(); at += 2048) {
    chip.insert(chip.end(), &image[at], &image[at] + 2048);
    chip.insert(chip.end(), 64, 0xFF);
  }
  return chip;
}

Bytes turned(Bytes bytes, size_t unit) {
  for (size_t at = 0; at < bytes.size(); at += unit) std::reverse(&bytes[at], &bytes[at] + unit);
  return bytes;
}

/// One block of 32 bytes, stored as it is.
Bytes zstd_of(const Bytes& record) {
  Bytes packed = {0x28, 0xB5, 0x2F, 0xFD, 0x20, 0x20, 0x01, 0x01, 0x00};
  std::ranges::copy(record, std::back_inserter(packed));
  return packed;
}

struct Untruth {
  const char* prepare;  ///< by the shell, beside a phone, an image and the like
  const char* command;
  int exit_code;
  const char* says;
  const char* never_says = "\033";
};

class Mutation : public ToolTest {
 protected:
  void SetUp() override {
    phone();
    Bytes image(0x30000);
    put(image, 0x20000, awb());
    file("mfg.img", image);
    file("chip", raw_nand(image));
    Bytes cut = raw_nand(image);
    cut.resize(cut.size() - 100);
    file("chip_cut", cut);
    file("words", turned(image, 4));
    file("half_words", turned(image, 2));
    file("area", Bytes(image.begin() + 0x20000, image.begin() + 0x24000));
    put(image, 0x10000, awb());
    file("both", image);
    file("noise", support::pattern(0x30000));
    file("awb_cal.zst", zstd_of(awb()));
    file("bad/data/misc/camera/awb_cal", damaged(awb(4099, 800, 600, {1, 2, 3, 4}), 5));
    fs::copy(path("phone/getprop.txt"), path("bad/getprop.txt"));
    file("mixed/data/misc/camera/aec_cal", damaged(aec({1, 2, 3, 4}), 5));
    file("mixed/data/misc/camera/awb_cal", awb());
    in_folder("chmod a+rwx .");
  }

  Outcome in_folder(const std::string& command) const {
    return {support::run_shell("cd " + path("") + " && " + command + " 2>&1")};
  }
  void expect(const Untruth& row, const std::string& as = "") const {
    const Outcome answer =
        in_folder(std::string(row.prepare) + " true && timeout 5 " + as + " " AWBCAL " " + row.command);
    EXPECT_THAT(answer, Exits(row.exit_code, Tells(row.says), Not(HasSubstr(row.never_says))))
        << row.prepare << row.command;
  }
};

constexpr const char* kAwb = "main camera, AWB record\n";

const Untruth kUntruths[] = {
    // What is packed, shifted, padded or turned round.
    {"gzip mfg.img &&", "show mfg.img.gz", 0, kAwb, "empty archive"},
    {"xz mfg.img &&", "show mfg.img.xz", 0, kAwb},
    {"", "show awb_cal.zst", 0, kAwb},
    {"tar cJf a phone &&", "show a", 0, kAwb},
    {"python3 -m zipfile -c a phone &&", "show a", 0, kAwb},
    {"gzip mfg.img && head -c 50 mfg.img.gz >a &&", "show a", 2, "awbcal: a: damaged or empty archive\n"},
    {"head -c 65M /dev/zero | gzip -1 >a &&", "show a", 2, "a: unpacks to more than 64 MiB a file"},
    {"truncate -s 60M 1 2 3 4 5 && for i in 1 2 3 4 5; do echo >>$i; done && tar cSzf a 1 2 3 4 5 &&",
     "show a", 2, "or 256 MiB in all"},
    {"mkdir evil && mv phone/data/misc/camera/aec_cal evil && tar cPf a --transform s,^evil,phone/../../evil, phone evil &&",
     "show a", 0, "cache: evil/aec_cal", "../"},
    {"", "show chip", 0,
     "chip: raw NAND: pages of 2048 bytes, the 64 out-of-band bytes after each left out, 1 bad"},
    {"", "show chip_cut", 0, kAwb},
    {"", "show words", 0, "words: the four bytes of every word in reverse order: turned round"},
    {"", "show half_words", 0, "half_words: the two bytes of every half-word in reverse order: turned round"},
    {"", "show area", 0, "area: the record area alone"},
    {"head -c 4096 area >slot &&", "show slot", 0, "slot: one camera's slot of the record area"},
    {"(head -c 131072 /dev/zero; cat mfg.img) >a &&", "show a", 0,
     "a: records 0x20000 later than expected: one bad block before them"},
    {"", "show both", 2,
     "both: records fit more than one reading: record area at 0x20000; record area at 0x10000"},
    {"", "show noise", 0, "noise: no calibration found", "partition"},
    {"head -c 1M /dev/zero >a &&", "verify a", 3, "a: no calibration found", "PASS"},
    {"", "verify noise", 3, "no calibration found", "PASS"},
    {"", "explain main mixed", 0, "White balance corrected: the AWB record was used, which is good"},
    // Several that claim one place.
    {"mkdir phone/b && cp bad/data/misc/camera/* phone/b &&", "verify phone", 0,
     "b/awb_cal: not taken: data/misc/camera/awb_cal is at the phone's own place"},
    {"cp both phone/mfg.bin && cp mfg.img phone &&", "show phone", 2,
     "mfg.img and mfg.bin: both may be the partition, and differ"},
    {"", "show mfg.img both", 2, "both are given as the same part of one phone, and differ"},
    // What waits, leads elsewhere or has no end.
    {"mkdir phone/proc && mkfifo phone/proc/emmc &&", "verify phone", 2,
     "not known: proc/emmc: not a regular file", "partition: absent"},
    {"mkdir phone/proc && mkfifo phone/proc/mtd phone/nand &&", "show phone", 2, "not known: proc/mtd",
     "partition: absent"},
    {"cd phone/data/misc/camera && mv awb_cal real && ln -s real awb_cal && cd - >a &&", "verify phone", 0,
     "2 good"},
    {"mv phone/data other && ln -s ../other phone/data && mkdir phone/factory &&", "verify phone", 2,
     "not known: data: a link that leads out of the folder", "absent:"},
    {"ln -s /etc/passwd phone/data/misc/camera/flash_cal &&", "verify phone", 2,
     "flash_cal: a link to /etc/passwd, which is not in the folder", "root"},
    {"ln -s \"$(printf '\\033]0;\\a')\" phone/data/misc/camera/flash_cal &&", "show phone", 2,
     "\\x1b]0;\\x07"},
    {"", "show \"$(printf '\\033[2J')\"", 2, "awbcal: \\x1b[2J: no such file"},
    {"mkdir -p phone/1/2/3/4/5/6/7/8/9/10/11/12/13/14 &&", "show phone", 2, "phone: not a phone's files"},
    {"mkdir -p 1/2/3/4/5/6/7/8/9/10/11/12/13/14 && tar cf a 1 &&", "show a", 2, "a: not a phone's files"},
    {"head -c 100000 /dev/zero | tr '\\0' '[' >a &&", "pack a", 2,
     "awbcal: a: nested deeper than 64 levels\n"},
    {"python3 -c \"print('{\\\"awbcal_json\\\":1,\\\"command\\\":\\\"show\\\",\\\"files\\\":['+','.join(['{\\\"path\\\":"
     "\\\"f\\\",\\\"size\\\":67108864,\\\"rest\\\":[]}']*200)+']}')\" >a &&",
     "pack a", 2, "awbcal: a: more than 4096 files or 256 MiB\n"},
    {"", "show /dev/zero", 2, "awbcal: /dev/zero: cannot be read: larger than 64 MiB\n"},
    {"cd phone/data/misc/camera && rm aec_cal && mkdir aec_cal && cd - >a &&", "verify phone", 2,
     "unreadable               main camera, AEC record data/misc/camera/aec_cal rule record.readable: expected a "
     "file that can be read, found is a folder",
     "absent: main camera: aec"},
    {"cd phone/data/misc/camera && rm aec_cal && mkdir aec_cal && cd - >a &&", "redact phone --output out", 2,
     "left out: data/misc/camera/aec_cal: unreadable: is a folder"},
    {"cd phone/data/misc/camera && rm * && mkdir aec_cal && cd - >a &&", "backup phone out", 2,
     "unreadable: data/misc/camera/aec_cal: is a folder\nnothing to keep"},
    // What is replaced, marked and left.
    {"mkfifo out &&", "redact mfg.img --force --output out", 2,
     "out: neither a regular file nor a folder made by"},
    {"ln -s mfg.img out &&", "redact phone --force --output out", 2,
     "out: neither a regular file nor a folder"},
    {"mkdir out &&", "redact phone --force --output out", 2, "out: neither a regular file nor a folder"},
    {"", "show bad", 0, "\nmain camera, AWB record: bad CRC, unknown version, wrong module\n"},
    {"echo >phone/logcat.txt &&", "redact --check phone", 1,
     "left out: logcat.txt: not decoded: may hold anything"},
    {"echo 'ro.serialno=X1234567' >phone/build.prop &&", "redact --check phone", 1,
     "replaced: build.prop: ro.serialno"},
    {"echo 'ro.pagesize=2048' >phone/build.prop &&", "verify phone", 2,
     "phone: getprop.txt: ro.pagesize is 4096, and 2048"},
};

TEST_F(Mutation, NoUntruthIsTold) {
  const fs::path home = path("");
  for (const Untruth& row : kUntruths) {
    expect(row);
    for (const auto& entry : fs::directory_iterator(home)) fs::remove_all(entry);
    SetUp();
  }
}

TEST_F(Mutation, UnreadableIsNotAbsent) {
  const std::string as =
      geteuid() == 0 ? "env -u TMPDIR setpriv --reuid=65534 --regid=65534 --clear-groups" : std::string();
  if (in_folder(as + " " AWBCAL " --version").exit_code != 0)
    GTEST_SKIP() << "no other user can run the tool";
  Bytes behind(calib::kExportSize);
  put(behind, calib::kExportAwb, awb());
  file("phone/sys/android_camera_awb_cal/awb_cal", behind);
  in_folder("chmod -R a+rX .");
  const Untruth rows[] = {
      {"chmod 0 phone/data/misc/camera/awb_cal &&", "verify phone", 2, "awb_cal: Permission denied",
       "absent: main camera: awb"},
      {"", "diff phone phone", 2, "no difference in what can be read"},
      {"", "show phone", 2, "awb_cal: is unreadable: Permission denied"},
      {"chmod 644 phone/data/misc/camera &&", "show phone", 2, "aec_cal: Permission denied",
       "0 records found"},
      {"chmod 0 phone/data/misc/camera &&", "verify phone", 2, "data/misc/camera: cannot be read", "absent"},
      {"", "verify phone", 2, "\nunreadable: main camera: awb,", "\ngood"},
      {"", "explain main phone", 2, "export      taken unless an earlier source is there; good"},
      {"chmod 0 phone/getprop.txt &&", "verify bad phone/getprop.txt", 2,
       "getprop.txt: cannot be read: Permission"},
      {"chmod 0 phone &&", "verify phone", 2, "awbcal: phone: cannot be read: Permission denied\n"},
  };
  for (const Untruth& row : rows) expect(row, as);
  in_folder("chmod 755 phone phone/data/misc/camera");
}

// ---- by seed ----------------------------------------------------------------------------------------------

Bytes mutated(Bytes bytes, std::mt19937& random) {
  const auto below = [&](size_t end) { return random() % std::max<size_t>(end, 1); };
  for (size_t i = 0; i <= below(4) && !bytes.empty(); ++i) {
    const size_t at = below(bytes.size());
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    const auto last = first + static_cast<std::ptrdiff_t>(below(std::min<size_t>(bytes.size() - at, 5000)));
    switch (below(6)) {
      case 0:
        bytes[at] ^= static_cast<uint8_t>(1U << below(8));
        break;
      case 1:
        std::fill(first, last, static_cast<uint8_t>(below(2) * 0xFF));
        break;
      case 2:
        bytes.erase(first, last);
        break;
      case 3:
        bytes.insert(first, below(3000), static_cast<uint8_t>(random()));
        break;
      case 4:
        bytes.resize(at);
        break;
      default:
        std::generate(first, last, [&] { return static_cast<uint8_t>(random()); });
    }
  }
  return bytes;
}

void expect_pass_of_good_records(const awbcal::Phone& phone) {
  const awbcal::Verification verification = awbcal::verify(phone, {.asks_library = false});
  size_t good = 0;
  for (const awbcal::VerifiedRecord& verified : verification.records) {
    if (!verified.is_good() || verified.verdict.record == nullptr) continue;
    ++good;
    EXPECT_TRUE(is_sealed(phone, *verified.verdict.record)) << verified.verdict.spec->name;
  }
  EXPECT_TRUE(verification.outcome() != awbcal::Outcome::pass || good > 0);
}

/// Everything that is done with an input; false when it was refused with a message.
bool is_answered(const std::string& path) {
  try {
    awbcal::Phone phone = awbcal::open_phone_of({.paths = {path}});
    expect_pass_of_good_records(phone);
    awbcal::traces_in(phone);
    awbcal::redact(phone);
    return true;
  } catch (const awbcal::InputError& error) {
    EXPECT_THAT(error.what(), ::testing::HasSubstr(path));
    return false;
  }
}

TEST_F(Mutation, AnySeedOfDamageIsAnsweredInTime) {
  in_folder("tar cf phone.tar phone && tar czf phone.tgz phone && python3 -m zipfile -c phone.zip phone");
  std::mt19937 random(20);
  int answered = 0;
  for (const char* name : {"phone/data/misc/camera/awb_cal", "phone/getprop.txt", "phone.tar", "phone.tgz",
                           "phone.zip", "mfg.img", "chip", "area"}) {
    const Bytes original = bytes(name);
    for (int i = 0; i < 70; ++i) {
      const std::string input = file(std::string(name) == "area" ? "x" : name, mutated(original, random));
      const auto start = std::chrono::steady_clock::now();
      answered += is_answered(std::string(name).starts_with("phone/") ? path("phone") : input) ? 1 : 0;
      EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << name << i;
    }
    file(name, original);
  }
  EXPECT_GT(answered, 200);
}

TEST_F(Mutation, EveryLengthOfEveryKindIsPackedAsItWas) {
  for (const char* kind : {"awb", "aec", "gyro", "dual_flash", "lens_shading", "dual_camera", "export",
                           "dual_camera_first_form", "partition", "node", "dual_camera_payload"}) {
    for (size_t size = 0; size < 4100; size += size < 100 ? 3 : 97) {
      const Bytes original = support::pattern(size);
      const awbcal::Phone phone = awbcal::phone_of_bytes("x", original, {.as = kind});
      EXPECT_EQ(awbcal::pack_document(awbcal::show_document(phone, true), {}).files.at(0).bytes, original)
          << kind;
    }
  }
}

}  // namespace
