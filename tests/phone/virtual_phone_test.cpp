// Does the virtual phone answer file calls, properties, the log and the boot export as a phone would?
// Guards against tests of the library that pass or fail because of the phone under it and not because of the
// library.
#include "phone/virtual_phone.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <optional>
#include <thread>

#include "tests/support/support.h"

namespace {

using namespace support;
namespace fs = std::filesystem;
using phone::VirtualPhone;

constexpr const char* kDevice = "/dev/block/mmcblk0p6";
constexpr const char* kByName = "/dev/block/platform/msm_sdcc.1/by-name/mfg";
constexpr const char* kCache = "/data/misc/camera/awb_cal";
constexpr off_t kSize = 256 * 1024;

class VirtualPhoneTest : public testing::Test {
 protected:
  VirtualPhoneTest() : phone(VirtualPhone::create(root / "phone", {.partition_size = kSize, .fill = 0x5A})) {}
  const TemporaryFolder folder;
  const fs::path& root = folder.path();
  std::optional<VirtualPhone> phone;
};

/// Opens, or fails the test.
class Open {
 public:
  explicit Open(const char* path, int flags = O_RDWR) : fd(open(path, flags, 0644)) {
    EXPECT_GE(fd, 0) << path << ": " << strerror(errno);
  }
  ~Open() { close(fd); }
  const int fd;
};

// ---- paths ------------------------------------------------------------------------------------------------

TEST_F(VirtualPhoneTest, RedirectsItsPathsHoweverTheyAreWrittenAndNoOthers) {
  write_text(phone->host_path(kCache), "record");
  for (const char* path : {kCache, "//data//misc/./camera/awb_cal", "/data/misc/camera/x/../awb_cal",
                           "/tmp/../data/misc/camera/awb_cal"}) {
    EXPECT_EQ(access(path, F_OK), 0) << path;
  }
  fs::create_directories(root / "phone/dev/blocked");
  fs::create_directories(root / "phone/data/misc/cameras");
  for (const char* path : {"/dev/blocked", "/data/misc/cameras", "/dev/mtdx", "/proc/emmc2",
                           "/data/misc/camera/../cameras", "data/misc/camera"}) {
    EXPECT_EQ(access(path, F_OK), -1) << path;
  }
  EXPECT_EQ(access("/proc/self/status", R_OK), 0);
}

TEST_F(VirtualPhoneTest, FollowsLinksInsideThePhoneAndReadsThemRaw) {
  char target[64] = {};
  ASSERT_EQ(readlink(kByName, target, sizeof target), 20);
  EXPECT_STREQ(target, kDevice);
  const Open link(kByName);
  ASSERT_EQ(write(link.fd, "linked", 6), 6);
  EXPECT_EQ(read_text(phone->host_path(kDevice))->substr(0, 6), "linked");
  EXPECT_EQ(phone->take_calls().back(), (phone::Call{"write", kDevice}));
  expect_calls(
      {{"a link", [] { return symlink("/dev/block/b", "/dev/block/a"); }, 0},
       {"and one back", [] { return symlink("a", "/dev/block/b"); }, 0},
       {"in circles", [] { return open("/dev/block/a", O_RDONLY); }, -1, ELOOP},
       {"made where a link is", [] { return open("/dev/block/a", O_CREAT | O_EXCL, 0600); }, -1, EEXIST},
       {"a file for a folder", [] { return access("/dev/block/mmcblk0p6/", F_OK); }, -1, ENOTDIR}});
  std::string last = kDevice;
  for (int i = 1; i <= 41; ++i) {
    const std::string next = "/dev/block/link" + std::to_string(i);
    ASSERT_EQ(symlink(last.c_str(), next.c_str()), 0);
    last = next;
  }
  expect_calls({{"through forty links", [] { return access("/dev/block/link40", F_OK); }, 0},
                {"and through one more", [] { return access("/dev/block/link41", F_OK); }, -1, ELOOP}});
}

TEST_F(VirtualPhoneTest, EveryCallOnANameReachesTheFolderAndLeavesErrnoAloneWhenItSucceeds) {
  const fs::path host = phone->host_path("/data/misc/camera");
  struct stat status = {};
  expect_calls({
      {"mkdir", [] { return mkdir("/data/misc/camera/d", 0700); }, 0},
      {"creat", [] { return close(creat("/data/misc/camera/d/f", 0600)); }, 0},
      {"chmod", [] { return chmod("/data/misc/camera/d/f", 0644); }, 0},
      {"truncate", [] { return truncate("/data/misc/camera/d/f", 7); }, 0},
      {"stat on the host", [&] { return stat((host / "d/f").c_str(), &status); }, 0},
      {"mode", [&] { return status.st_mode & 07777; }, 0644},
      {"size", [&] { return status.st_size; }, 7},
      {"rename", [] { return rename("/data/misc/camera/d/f", "/data/misc/camera/g"); }, 0},
      {"lstat", [&] { return lstat("/data/misc/camera/g", &status); }, 0},
      {"rmdir", [] { return rmdir("/data/misc/camera/d"); }, 0},
      {"remove", [] { return remove("/data/misc/camera/g"); }, 0},
      {"opendir", [] { return closedir(opendir("/data/misc/camera")); }, 0},
      {"access to what is gone", [] { return access("/data/misc/camera/g", F_OK); }, -1, ENOENT},
      {"property_set", [] { return property_set("a", "1"); }, 0},
  });
  EXPECT_TRUE(fs::is_empty(host));
}

TEST_F(VirtualPhoneTest, ThreadsOpenAndCloseSideBySide) {
  const auto work = [] {
    for (int i = 0; i < 200; ++i) {
      const Open block(kDevice);
      char bytes[16];
      EXPECT_EQ(pread(block.fd, bytes, sizeof bytes, 0), 16);
    }
  };
  std::thread first(work);
  std::thread second(work);
  first.join();
  second.join();
  EXPECT_EQ(phone->open_descriptors(), 0u);
  EXPECT_EQ(phone->take_calls().size(), 2u * 200 * 3);
}

// ---- the eMMC partition -----------------------------------------------------------------------------------

TEST_F(VirtualPhoneTest, BlockDeviceHasOneSizeAndLooksLikeADevice) {
  const Open block(kDevice, O_RDWR | O_TRUNC | O_CREAT | O_APPEND), read_only(kDevice, O_RDONLY);
  const int fd = block.fd;
  char bytes[100] = "w";
  struct stat status = {};
  uint64_t size = 0;
  expect_calls({
      {"opened at its start", [&] { return lseek64(fd, 0, SEEK_CUR); }, 0},
      {"seek to the end", [&] { return lseek64(fd, 0, SEEK_END); }, kSize},
      {"write at the end", [&] { return write(fd, bytes, 100); }, -1, ENOSPC},
      {"write of nothing", [&] { return write(fd, bytes, 0); }, 0},
      {"read at the end", [&] { return read(fd, bytes, 100); }, 0},
      {"seek back from the end", [&] { return lseek64(fd, -40, SEEK_END); }, kSize - 40},
      {"write across the end", [&] { return write(fd, bytes, 100); }, 40},
      {"where that ended", [&] { return lseek64(fd, 0, SEEK_CUR); }, kSize},
      {"pread across the end", [&] { return pread(fd, bytes, 100, kSize - 60); }, 60},
      {"pwrite across the end", [&] { return pwrite(fd, bytes, 100, kSize - 1); }, 1},
      {"pwrite past the end", [&] { return pwrite(fd, bytes, 100, kSize + 1); }, -1, ENOSPC},
      {"seek to the size", [&] { return lseek64(fd, kSize, SEEK_SET); }, kSize},
      {"seek past the size", [&] { return lseek64(fd, kSize + 1, SEEK_SET); }, -1, EINVAL},
      {"seek before the start", [&] { return lseek64(fd, -1, SEEK_SET); }, -1, EINVAL},
      {"seek the size back", [&] { return lseek64(fd, -kSize, SEEK_END); }, 0},
      {"seek behind the end", [&] { return lseek64(fd, 1, SEEK_END); }, -1, EINVAL},
      {"seek on", [&] { return lseek64(fd, 512, SEEK_CUR); }, 512},
      {"seek back too far", [&] { return lseek64(fd, -513, SEEK_CUR); }, -1, EINVAL},
      {"seek that overflows", [&] { return lseek64(fd, INT64_MAX, SEEK_CUR); }, -1, EINVAL},
      {"seek from nowhere", [&] { return lseek64(fd, 0, 99); }, -1, EINVAL},
      {"ftruncate", [&] { return ftruncate(fd, 5); }, -1, EINVAL},
      {"truncate", [] { return truncate(kDevice, 5); }, -1, EINVAL},
      {"fopen for writing", [] { return fclose(fopen(kDevice, "w")); }, 0},
      {"fstat", [&] { return fstat(fd, &status); }, 0},
      {"its type", [&] { return S_ISBLK(status.st_mode); }, 1},
      {"its size there", [&] { return status.st_size; }, 0},
      {"stat of the link", [] { return fs::is_block_file(kByName); }, 1},
      {"BLKGETSIZE64", [&] { return ioctl(fd, BLKGETSIZE64, &size); }, 0},
      {"its answer", [&] { return static_cast<int64_t>(size); }, kSize},
      {"write without leave", [&] { return write(read_only.fd, "x", 1); }, -1, EBADF},
  });
  EXPECT_EQ(phone->partition().size(), static_cast<size_t>(kSize));
}

TEST_F(VirtualPhoneTest, DuplicatesOfADescriptorKeepTheDevicesRules) {
  const Open block(kDevice);
  for (const int copy : {dup(block.fd), fcntl(block.fd, F_DUPFD, 0), fcntl(block.fd, F_DUPFD_CLOEXEC, 0),
                         dup2(block.fd, 60)}) {
    EXPECT_EQ(lseek(copy, 1 << 30, SEEK_SET), -1);
    EXPECT_EQ(close(copy), 0);
  }
  EXPECT_EQ(phone->open_descriptors(), 1u);
}

// ---- faults and journal -----------------------------------------------------------------------------------

TEST_F(VirtualPhoneTest, AFaultStrikesTheNthMatchingCall) {
  struct {
    Fault fault;
    std::vector<ssize_t> results;
  } const rows[] = {
      {{.call = "write", .nth = 2, .error = ENOSPC}, {8, -1, 8, 8}},
      {{.call = "write", .path = kDevice, .nth = 3, .from_then_on = true}, {8, 8, -1, -1}},
      {{.call = "write", .path = "/dev/block/*", .transfer = 3}, {3, 8, 8, 8}},
      {{.call = "*", .path = kDevice, .nth = 2}, {-1, 8, 8, 8}},  // the open is the first
      {{.call = "write", .path = kCache}, {8, 8, 8, 8}},
      {{.call = "read"}, {8, 8, 8, 8}},
      {{.call = "write", .error = EINTR}, {-1, 8, 8, 8}},
      {{.call = "write", .nth = 2, .power_cut = true}, {8, -1, -1, -1}},
      {{.call = "write", .nth = 2, .transfer = 3, .power_cut = true}, {8, 3, -1, -1}},
  };
  for (const auto& row : rows) {
    phone->clear_faults();
    phone->add_fault(row.fault);
    const Open block(kDevice);
    for (const ssize_t result : row.results) {
      errno = 0;
      EXPECT_EQ(write(block.fd, "abcdefgh", 8), result) << row.fault.call << row.fault.nth;
      EXPECT_EQ(errno, result < 0 ? row.fault.error : 0);
    }
  }
  // The first of two decides; what is short ends a transfer of many pieces.
  phone->clear_faults();
  phone->add_fault({.call = "read", .transfer = 3});
  phone->add_fault({.call = "read"});
  const Open block(kDevice);
  char bytes[16];
  const iovec pieces[] = {{bytes, 8}, {bytes + 8, 8}};
  EXPECT_EQ(readv(block.fd, pieces, 2), 3);
  EXPECT_EQ(phone->struck_faults(), 1u);
}

TEST_F(VirtualPhoneTest, EveryInterceptedCallCanFail) {
  write_text(phone->host_path(kCache), "0123456789");
  const auto use_it_all = [] {
    char bytes[8] = {};
    bool well = access(kCache, F_OK) == 0 && readlink(kByName, bytes, 8) == 8 && chmod(kCache, 0600) == 0;
    if (std::FILE* in = fopen(kCache, "r")) {
      well = fseek(in, 2, SEEK_SET) == 0 && fread(bytes, 1, 4, in) == 4 && fgets(bytes, 3, in) && well;
      well = fclose(in) == 0 && well;
    } else {
      well = false;
    }
    const int fd = open(kDevice, O_RDWR);
    well = lseek(fd, 8, SEEK_SET) == 8 && write(fd, bytes, 8) == 8 && read(fd, bytes, 8) == 8 && well;
    return close(fd) == 0 && well;
  };
  ASSERT_TRUE(use_it_all());
  const unsigned calls = for_every_failing_call(*phone, [&] {
    const bool well = use_it_all();
    EXPECT_EQ(well, phone->struck_faults() == 0);
  });
  EXPECT_EQ(calls, 13u);
  phone->add_fault({.call = "fgets", .error = ENOSPC});
  std::FILE* in = fopen(kCache, "r");
  char line[8];
  expect_calls({{"fgets", [&] { return fgets(line, sizeof line, in) == nullptr ? -1 : 0; }, -1, ENOSPC},
                {"fclose", [&] { return fclose(in); }, 0}});
}

TEST_F(VirtualPhoneTest, FaultsAreReadFromTheFileAndMistakesNamed) {
  const fs::path dir = phone->dir();
  phone.reset();
  std::ofstream(dir / "faults", std::ios::app)
      << "open " << kDevice
      << " 2 ETIMEDOUT\nread * 1+ short=10\nwrite * 2 power_cut=4\nopendir /data/misc/camera/ 1 EIO\n";
  phone.emplace(VirtualPhone::attach(dir));
  const Open block(kDevice);
  char bytes[32];
  EXPECT_EQ(read(block.fd, bytes, 32), 10);
  EXPECT_EQ(open(kDevice, O_RDONLY), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(opendir("/data/misc/camera"), nullptr);
  for (const ssize_t written : {32, 4, -1}) EXPECT_EQ(write(block.fd, bytes, 32), written);
  EXPECT_EQ(access(kDevice, F_OK), -1) << "without power";
  phone->reboot();
  EXPECT_EQ(access(kDevice, F_OK), 0);
  phone.reset();
  for (const char* wrong : {"read", "read * 0 EIO", "read * 1 EWHAT", "read * x EIO", "read * 1 short=-1",
                            "read * 1 EIO again", "read * 1 short=", "nand program 1 1 corrupt",
                            "write * 1 power_cut=-1", "write * 1 power_cut=", "write * 1 power_cuts"}) {
    write_text(dir / "faults", wrong);
    EXPECT_THROW(VirtualPhone::attach(dir), std::runtime_error) << wrong;
  }
}

// ---- properties and log -----------------------------------------------------------------------------------

TEST_F(VirtualPhoneTest, PropertiesLiveInAFileThatKeepsItsCommentsAndCanBeEdited) {
  const fs::path file = phone->dir() / "properties";
  char value[PROPERTY_VALUE_MAX];
  write_text(file, "# mine\n\nro.pagesize=4096\n a.b =1=2\n[d.e]: [ 3]\r\n #f=1\n");
  EXPECT_EQ(property_get("a.b", value, "x"), 3);
  EXPECT_STREQ(value, "1=2");
  EXPECT_EQ(phone->property("d.e"), " 3");
  EXPECT_EQ(phone->property("#f", "none"), "none");
  EXPECT_EQ(property_set("a.b", "7"), 0);
  EXPECT_EQ(property_set("c", "8"), 0);
  EXPECT_EQ(property_set("ro.pagesize", "2048"), -1);
  EXPECT_EQ(read_text(file), "# mine\n\nro.pagesize=4096\na.b=7\n[d.e]: [ 3]\r\n #f=1\nc=8\n");
  write_text(file, "# mine\n\nro.pagesize=4096\na.b=9\nc=8\n");
  EXPECT_EQ(phone->property("a.b"), "9");
  phone->unset_property("c");
  EXPECT_EQ(phone->property("c", "none"), "none");
  // A full disk, as a limit on files.
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit = {};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit full = {4, limit.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  EXPECT_LT(property_set("a.b", "10"), 0);
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(read_text(file), "# mine\n\nro.pagesize=4096\na.b=9\n");
  phone->set_properties({{"a.b", "9"}, {"g h", "1"}, {"i", std::string(92, 'v')}, {"j", "2"}});
  EXPECT_EQ(read_text(file), "# mine\n\nro.pagesize=4096\na.b=9\nj=2\n");
  write_text(file, "a=1\r\na=2\nl=" + std::string(200, 'l') + "\r\n");
  EXPECT_EQ(phone->property("l"), std::string(200, 'l'));
  EXPECT_EQ(__system_property_get("l", value), PROPERTY_VALUE_MAX - 1);
  EXPECT_EQ(property_set("a", "3"), 0);
  EXPECT_EQ(read_text(file), "a=3\nl=" + std::string(200, 'l') + "\r\n");
  for (const char digit : std::string("0123456789")) {
    write_text(file, std::string("a=") + digit);
    EXPECT_EQ(phone->property("a"), std::string(1, digit)) << "however soon after the last change";
  }
}

TEST_F(VirtualPhoneTest, PropertyValuesHaveTheirPlatformsLimits) {
  const std::string longest(PROPERTY_VALUE_MAX - 1, 'v');
  char value[PROPERTY_VALUE_MAX];
  EXPECT_EQ(property_set("long", longest.c_str()), 0);
  EXPECT_EQ(__system_property_get("long", value), 91);
  EXPECT_EQ(value, longest);
  EXPECT_LT(property_set("long", (longest + "v").c_str()), 0);
  EXPECT_LT(property_set("", "v"), 0);
  EXPECT_EQ(property_get("absent", value, "default"), 7);
  EXPECT_STREQ(value, "default");
  EXPECT_EQ(property_get("absent", value, nullptr), 0);
  EXPECT_EQ(__system_property_get("absent", value), 0);
  EXPECT_STREQ(value, "");
  phone->add_fault({.call = "property_set"});
  EXPECT_LT(property_set("long", "short"), 0);
  EXPECT_EQ(phone->property("long"), longest);
}

extern "C" unsigned __qorlog_init_mask(const char* tag, unsigned mask, signed char* byte);

TEST_F(VirtualPhoneTest, LogLinesAreKeptAndPrintedAsLogcatDoes) {
  char* text = nullptr;
  size_t size = 0;
  std::FILE* stream = open_memstream(&text, &size);
  phone->print_log_to(stream);
  errno = 0;
  __android_log_print(ANDROID_LOG_ERROR, "tag", "%d\ntwo\n", 1);
  __android_log_print(ANDROID_LOG_DEBUG, "a_longer_tag", "%s", std::string(2000, 'x').c_str());
  EXPECT_NE(errno, 0) << "the service promises nothing about errno";
  phone->print_log_to(nullptr);
  fclose(stream);
  char pid[16];
  snprintf(pid, sizeof pid, "(%5d): ", getpid());
  EXPECT_EQ(text, std::string("E/tag     ") + pid + "1\nE/tag     " + pid + "two\nD/a_longer_tag" + pid +
                      std::string(1023, 'x') + "\n");
  free(text);
  const auto lines = phone->take_log();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], (LogLine{"tag", ANDROID_LOG_ERROR, "1\ntwo\n"}));
  EXPECT_TRUE(phone->take_log().empty());
  phone->add_fault({.call = "__android_log_print"});
  EXPECT_LT(__android_log_print(ANDROID_LOG_ERROR, "tag", "lost"), 0);
  EXPECT_TRUE(phone->take_log().empty());
}

TEST_F(VirtualPhoneTest, TheMaskServiceReturnsTheMaskAndLeavesTheByte) {
  signed char byte = -128;
  EXPECT_EQ(__qorlog_init_mask("one", ~0u, &byte), ~0u);
  phone->set_log_mask(0x14);
  EXPECT_EQ(__qorlog_init_mask("two", ~0u, &byte), 0x14u);
  EXPECT_EQ(byte, -128);
  errno = 0;
  EXPECT_EQ(__qorlog_init_mask("", 6, &byte), 4u);
  EXPECT_NE(errno, 0) << "the service promises nothing about errno";
  EXPECT_EQ(phone->take_mask_questions(), (Names{"one", "two", ""}));
  phone.reset();
  phone.emplace(VirtualPhone::attach(root / "phone"));
  EXPECT_EQ(__qorlog_init_mask("one", ~0u, &byte), ~0u) << "the mask was the phone's before";
}

// ---- boot -------------------------------------------------------------------------------------------------

TEST_F(VirtualPhoneTest, BootExportsEachCamerasRecordsAtTheKernelsPlaces) {
  struct {
    const char* node;
    size_t slot;
  } const cameras[] = {{"awb_cal", 0}, {"awb_cal_front", 0x1000}, {"awb_cal_sub", 0x2000}};
  struct {
    size_t at, from, size;
  } const records[] = {{0, 0, 32},         {0xE40, 0xE08, 32}, {0xE80, 0xE28, 36},
                       {0xEC8, 0xEC0, 32}, {0xF08, 0xE6C, 48}, {0xF70, 0xEA0, 48}};
  const Bytes bytes = pattern(kSize);
  phone->write_partition(0, bytes.data(), bytes.size());
  write_text(phone->dir() / "factory/lens_shading_front.bin", std::string(4000, 'L'));
  for (const size_t base : {0x20000u, 0x10000u}) {
    phone->set_property("ro.pagesize", base == 0x20000 ? "4096" : "2048");
    phone->reboot();
    for (const auto& camera : cameras) {
      std::string expected(4000, '\0');
      if (camera.slot == 0x1000) expected.replace(64, 3584, 3584, 'L');
      for (const auto& record : records) {
        for (size_t i = 0; i < record.size; ++i) {
          expected[record.at + i] = static_cast<char>(bytes[base + camera.slot + record.from + i]);
        }
      }
      expected.replace(0xF68, 4, "\x01\xCA\x3A\xFF");
      EXPECT_EQ(read_text(std::string("/sys/android_camera_awb_cal/") + camera.node), expected)
          << camera.node;
    }
    const auto from = bytes.begin() + static_cast<ptrdiff_t>(base) + 0x3000;
    EXPECT_EQ(read_text("/sys/android_camera_awb_cal/awb_cal_3D"), std::string(from, from + 4096));
  }
}

TEST_F(VirtualPhoneTest, BootOfAShortPartitionExportsZerosAndInHouseDataOnlyIfThere) {
  phone.reset();
  phone.emplace(VirtualPhone::create(root / "short", {.partition_size = 0x21000, .fill = 0xEE}));
  EXPECT_EQ(read_text("/sys/android_camera_awb_cal/awb_cal")->front(), '\xEE');
  EXPECT_EQ(read_text("/sys/android_camera_awb_cal/awb_cal_3D"), std::string(4096, '\0'));
  EXPECT_EQ(access("/sys/android_camera_awb_cal/awb_cal_InHouse3D", F_OK), -1);
  write_text(phone->dir() / "factory/inhouse_3d.bin", "in house");
  phone->reboot();
  EXPECT_EQ(read_text("/sys/android_camera_awb_cal/awb_cal_InHouse3D"), "in house");
  fs::remove(phone->dir() / "factory/inhouse_3d.bin");
  phone->reboot();
  EXPECT_EQ(access("/sys/android_camera_awb_cal/awb_cal_InHouse3D", F_OK), -1);
}

// ---- phones as folders ------------------------------------------------------------------------------------

TEST_F(VirtualPhoneTest, APhoneIsMadeOnceAndOneIsAttachedAtATime) {
  const fs::path dir = phone->dir();
  EXPECT_THROW(VirtualPhone::create(dir), std::runtime_error);
  EXPECT_THROW(VirtualPhone::attach(dir), std::logic_error);
  EXPECT_THROW(phone->nand(), std::logic_error);
  phone.reset();
  EXPECT_EQ(access("/proc/emmc", F_OK), -1);
  EXPECT_THROW(VirtualPhone::attach(root), std::runtime_error);
  phone.emplace(VirtualPhone::attach(dir));
  EXPECT_THAT(*read_text("/proc/emmc"), testing::HasSubstr("mmcblk0p6: 00040000 00000200 \"mfg\""));
}

}  // namespace
