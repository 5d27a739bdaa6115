#include "tests/support/support.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"
#include "common/platform.h"
#include "records/record_layouts.h"

namespace fs = std::filesystem;

// The table of MTD partitions outlives its names and mtd_data_close() drops it on purpose: callers may hold pointers into both.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:mtd_scan_partitions\n";
}

namespace support {

Bytes le32(const Words& words) {
  Bytes bytes;
  for (const uint32_t word : words) {
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<uint8_t>(word >> shift));
  }
  return bytes;
}

Bytes le64(const std::vector<uint64_t>& words) {
  Words halves;
  for (const uint64_t word : words) {
    halves.push_back(static_cast<uint32_t>(word));
    halves.push_back(static_cast<uint32_t>(word >> 32));
  }
  return le32(halves);
}

Bytes sealed32(const Words& words) {
  const Bytes bytes = le32(words);
  Words sealed = words;
  sealed.push_back(bitwise_crc(bytes.data(), bytes.size()));
  return le32(sealed);
}

Bytes sealed64(const std::vector<uint64_t>& words) {
  const Bytes bytes = le64(words);
  std::vector<uint64_t> sealed = words;
  sealed.push_back(bitwise_crc(bytes.data(), bytes.size()));
  return le64(sealed);
}

Bytes pattern(size_t size, uint32_t salt) {
  Bytes bytes(size);
  uint32_t state = salt * 2654435761U + 12345U;
  for (uint8_t& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<uint8_t>(state >> 24);
  }
  return bytes;
}

uint32_t word_at(const Bytes& bytes, size_t offset) {
  uint32_t word = 0;
  for (size_t i = 4; i-- > 0;) word = word << 8 | bytes.at(offset + i);
  return word;
}

std::vector<size_t> record_positions() {
  std::vector<size_t> positions;
  for (const size_t base : {calib::kAreaBase2k, calib::kAreaBase4k}) {
    for (size_t slot = 0; slot < 3; ++slot) {
      for (const size_t in_slot : {calib::kSlotAwb, calib::kSlotFlash, calib::kSlotAec, calib::kSlotDualFlash,
                                   calib::kSlotGyro, calib::kSlotALightAwb}) {
        positions.push_back(base + slot * calib::kSlotSize + in_slot);
      }
    }
    positions.push_back(base + calib::kAreaDualCameraFirstForm);
    positions.push_back(base + calib::kAreaDualCamera);
  }
  return positions;
}

std::optional<Bytes> read_bytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::error_code ignored;
  const auto size = fs::file_size(path, ignored);
  Bytes bytes(ignored ? 0 : size);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<size_t>(file.gcount()));
  return bytes;
}

std::optional<std::string> read_text(const fs::path& path) {
  const auto bytes = read_bytes(path);
  if (!bytes) return std::nullopt;
  return std::string(bytes->begin(), bytes->end());
}

void write_bytes(const fs::path& path, const Bytes& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  ASSERT_TRUE(file.good()) << path;
}

void write_text(const fs::path& path, std::string_view text) {
  write_bytes(path, Bytes(text.begin(), text.end()));
}

int mode_of(const fs::path& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

/// One word for the shell wherever the command names the folder for temporary files, whatever that is called.
static std::string with_quoted_folder(std::string command) {
  const char* folder = std::getenv("TMPDIR");
  if (folder == nullptr || *folder == '\0') return command;
  std::string quoted;
  for (const char* each = folder; *each != '\0'; ++each) {
    const bool is_plain =
        std::isalnum(static_cast<unsigned char>(*each)) != 0 || std::strchr("/._-", *each) != nullptr;
    if (!is_plain) quoted += '\\';
    quoted += *each;
  }
  const size_t length = std::strlen(folder);
  for (size_t at = command.find(folder); at != std::string::npos;
       at = command.find(folder, at + quoted.size()))
    command.replace(at, length, quoted);
  return command;
}

Outcome run_shell(const std::string& command) {
  std::FILE* pipe = popen(with_quoted_folder(command).c_str(), "r");
  std::string output;
  char part[4096];
  for (size_t count; (count = std::fread(part, 1, sizeof part, pipe)) > 0;) output.append(part, count);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, std::move(output)};
}

std::string console_of(const std::function<void()>& call) {
  std::fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  std::FILE* file = std::tmpfile();
  dup2(fileno(file), STDOUT_FILENO);
  call();
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  std::string text(static_cast<size_t>(std::ftell(file) < 0 ? 0 : lseek(fileno(file), 0, SEEK_END)), '\0');
  std::rewind(file);
  text.resize(std::fread(text.data(), 1, text.size(), file));
  std::fclose(file);
  return text;
}

std::string replaced(std::string text, std::string_view place, std::string_view by) {
  for (size_t at = 0; (at = text.find(place, at)) != text.npos; at += by.size())
    text.replace(at, place.size(), by);
  return text;
}

std::string printf_text(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char text[2048];
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

void expect_calls(const std::vector<CallRow>& rows) {
  constexpr int kNothingSetsThis = 4711;
  for (const CallRow& row : rows) {
    errno = kNothingSetsThis;
    EXPECT_EQ(row.call(), row.result) << row.what;
    EXPECT_EQ(errno, row.error != 0 ? row.error : kNothingSetsThis) << row.what;
  }
}

void fit_module(phone::VirtualPhone& phone, const std::string& camera, const uint32_t (&words)[4]) {
  std::map<std::string, std::string> properties;
  for (int i = 0; i < 4; ++i) {
    properties["qor.camera.sensor." + camera + "_fuse" + std::to_string(i + 1)] = std::to_string(words[i]);
  }
  phone.set_properties(properties);
}

PhoneTest::PhoneTest(const phone::Options& options) : umask_(umask(022)) {
  phone_.emplace(phone::VirtualPhone::create(folder_.path() / "phone", options));
  reset_library_state();
  phone_->unset_property("mfg.calibration.status");
  phone_->unset_property("mfg.awb.calibration.trigger");
  phone_->take_log();
  phone_->take_calls();
}

PhoneTest::~PhoneTest() {
  umask(umask_);
  EXPECT_EQ(phone_->open_descriptors(), 0U) << "a descriptor was left open";
}

void PhoneTest::put(std::string_view phone_path, const Bytes& bytes) {
  write_bytes(host(phone_path), bytes);
}

std::optional<Bytes> PhoneTest::get(std::string_view phone_path) {
  return read_bytes(host(phone_path));
}

Names PhoneTest::camera_files() {
  Names names;
  for (const auto& entry : fs::directory_iterator(host("/data/misc/camera"))) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

Log PhoneTest::log_of(const std::function<void()>& call, std::string_view tag) {
  phone_->take_log();
  errno = 0;
  call();
  error = errno;
  Log log = phone_->take_log();
  std::erase_if(log, [tag](const LogLine& line) { return !tag.empty() && line.tag != tag; });
  return log;
}

Bytes PhoneTest::fill_partition(size_t size) {
  Bytes image = pattern(size);
  phone_->write_partition(0, image.data(), image.size());
  return image;
}

void PhoneTest::expect_partition_write(uint64_t offset, const Bytes& expected,
                                       const std::function<void()>& call) {
  Bytes wanted = phone_->partition();
  ASSERT_LE(offset + expected.size(), wanted.size());
  std::copy(expected.begin(), expected.end(), wanted.begin() + static_cast<std::ptrdiff_t>(offset));
  call();
  const Bytes now = phone_->partition();
  ASSERT_EQ(now.size(), wanted.size());
  const auto differs = std::mismatch(now.begin(), now.end(), wanted.begin());
  EXPECT_TRUE(differs.first == now.end())
      << "first wrong byte at 0x" << std::hex << (differs.first - now.begin());
}

void reset_library_state() {
  const float zeros[3] = {};
  set_sensor_selection(0);
  awb_calibration_set_GS(zeros, zeros);
  awb_calibration_set_parm(1024, 0);
  property_set("mfg.calibration.status", "3");
  property_set("mfg.awb.calibration.trigger", "0");
  check_and_init_awb_calibration();
  check_awb_calibration_trigger();
  property_set("mfg.calibration.status", "0");
  check_and_init_awb_calibration();
  awb_calibration_set_parm(1024, 0);
  awb_set_camid(0);
  aec_reset_status();
}

}  // namespace support

void phone::PrintTo(const LogLine& line, std::ostream* stream) {
  *stream << "VDIWEF"[line.priority >= 2 && line.priority <= 7 ? line.priority - 2 : 5] << '/' << line.tag
          << ": \"" << line.text << '"';
}
