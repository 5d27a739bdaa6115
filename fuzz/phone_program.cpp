#include "fuzz/phone_program.h"

#include <algorithm>
#include <cerrno>

#include "awb_calibration/records.h"
#include "storage/proc_mtd.h"
#include "tests/support/bitwise_crc.h"

namespace fuzz {

namespace {

constexpr size_t kMostCalls = 4;
constexpr size_t kMostFaults = 4;

// ---- records ----------------------------------------------------------------------------------------------

struct RecordKind {
  size_t size;
  size_t export_offset;
  RecordForm form;
};
constexpr RecordKind kKinds[] = {
    {32, 0, {.width = 4, .fuse = 12, .crc = 28, .covered = 28}},            // AWB
    {64, 0, {.width = 8, .fuse = 24, .crc = 56, .covered = 28}},            // AWB as its check sees it
    {32, 3784, {.width = 4, .fuse = 12, .crc = 28, .covered = 28}},         // A light
    {32, 3648, {.width = 4, .fuse = 12, .crc = 28, .covered = 28}},         // flash
    {64, 3648, {.width = 8, .fuse = 24, .crc = 56, .covered = 28}},         // flash as its check sees it
    {48, 3848, {.width = 4, .fuse = 28, .crc = 44, .covered = 44}},         // dual flash
    {96, 3848, {.width = 8, .fuse = 56, .crc = 88, .covered = 44}},         // the same as the check sees it
    {36, 3712, {.width = 4, .fuse = 16, .crc = 32, .covered = 32}},         // AEC
    {48, 3952, {.width = 8, .fuse = 8, .crc = 40, .covered = 40}},          // gyro
    {3584, 64, {.width = 8, .fuse = 8, .crc = 3576, .covered = 3576}},      // lens shading
    {3584, 64, {.width = 8, .fuse = 8, .crc = 3576, .covered = 3556}},      // the same as the check sees it
    {1667, 512, {.width = 4, .fuse = 1647, .crc = 1663, .covered = 1663}},  // dual camera
};
constexpr uint32_t kValidWords[] = {3099, 2099, 1099, 99, 4099, 3098, 0, 0xFFFFFFFF};

void put_field(uint8_t* at, size_t width, uint64_t value) {
  memcpy(at, &value, width);
}

Fuse chosen_fuse(uint8_t choice) {
  Fuse fuse = fuse_of(choice / 8 % 4 == 3 ? 0 : program_camera());
  if (choice % 8 == 1) fuse = {};
  if (choice % 8 == 2) fuse[0] = 0;
  if (choice % 8 == 3) fuse[3] ^= 1;
  if (choice % 8 == 4) {
    for (uint64_t& word : fuse) word = static_cast<uint64_t>(int64_t{static_cast<int32_t>(word)});
  }
  return fuse;
}

/// A record with bytes of the input, sealed; the file holds as much of it as has room.
void put_record(File& file, Input& input) {
  static uint8_t record[4608];
  const RecordKind& kind = kKinds[input.byte() % std::size(kKinds)];
  const uint8_t place = input.byte();
  size_t at = place == 0 ? 0 : place == 1 ? kind.export_offset : 16 * place;
  if (&file == &files().back()) at += 0x10000 + 0x100 * (place & 0xF0U);
  memset(record, 0, kind.size);
  const uint32_t from = input.word32(), step = input.word16();
  for (size_t i = kind.form.width; i + 4 <= kind.form.crc; i += 4) {
    put_field(record + i, 4, from + i / 4 * step);
  }
  put_field(record, kind.form.width, kValidWords[input.byte() % std::size(kValidWords)]);
  const Fuse fuse = chosen_fuse(input.byte());
  for (size_t i = 0; i < 4; ++i)
    put_field(record + kind.form.fuse + i * kind.form.width, kind.form.width, fuse[i]);
  put_field(record + kind.form.crc, kind.form.width, crc_of(record, kind.form.covered));
  if (at >= file.size) return;
  const size_t size = std::min(kind.size, file.size - at);
  memcpy(file.bytes + at, record, size);
  if (&file == &files().back()) partition_changed(at, at + size);
}

// ---- the other steps --------------------------------------------------------------------------------------

void put_bytes(File& file, Input& input) {
  const size_t at = input.word16() * (&file == &files().back() ? 4 : 1);
  for (size_t i = at, end = at + input.byte(); i < end && i < file.size; ++i) file.bytes[i] = input.byte();
  if (&file == &files().back() && at < file.size) partition_changed(at, std::min(file.size, at + 255));
}

File& create_file(Input& input) {
  File& file = files()[input.byte() % files().size()];
  create(file, input.word16());
  const uint8_t fill = input.byte();
  if (&file != &files().back()) memset(file.bytes, fill, file.size);
  return file;
}

Property& set_property(Input& input) {
  Property& property = properties()[input.byte() % properties().size()];
  const size_t size = input.byte() % sizeof property.value;
  for (size_t i = 0; i < size; ++i) property.value[i] = static_cast<char>(input.byte());
  property.value[size] = '\0';
  property.exists = true;
  return property;
}

/// A fuse ID in all of a camera's properties.
void fit_module(Input& input) {
  const size_t camera = input.byte() % 3;
  const uint32_t word = input.word32();
  for (uint32_t i = 0; i < 4; ++i) {
    Property& property = properties()[4 * camera + i];
    property.exists = true;
    snprintf(property.value, sizeof property.value, "%d", static_cast<int32_t>(word * (i + 1)));
  }
}

void append(File& file, const char* text) {
  if (!file.exists) create(file, 0);
  const size_t size = std::min(strlen(text), file.room - file.size);
  memcpy(file.bytes + file.size, text, size);
  file.size += size;
}

/// A line of one of the kernel's tables, or a link.
void add_line(Input& input) {
  static constexpr const char* kNames[] = {"mfg", "mfg2", "boot", ""};
  const uint8_t kind = input.byte();
  const char* name = kNames[kind / 4 % 4];
  char line[160];
  if (kind % 4 == 0) {
    snprintf(line, sizeof line, "mmcblk0p%u: %08x 00000200 \"%s\"\n", input.byte(), input.word16(), name);
    append(file_at("/proc/emmc"), line);
  } else if (kind % 4 == 3) {
    append(file_at("/dev/block/platform/msm_sdcc.3/by-name/mfg"), "/dev/block/mmcblk0p6");
  } else {
    const uint32_t number = input.byte(), size = input.word32();
    snprintf(line, sizeof line, "mtd%u: %08x %08x \"%s\"\n", number, size,
             phone.chip.erase_size > 0 ? phone.chip.erase_size : 0x800, name);
    append(file_at("/proc/mtd"), line);
  }
}

void insert_chip(Input& input) {
  phone.chip = {.erase_size = 0x800U << input.byte() % 7,
                .bad = input.word32(),
                .not_askable = input.word32(),
                .unreadable = input.word32(),
                .ecc_failing = input.word32(),
                .has_ecc_counters = input.byte() % 8 != 7};
}

constinit CallFault faults[kMostFaults]{};

void add_fault(Input& input) {
  static constexpr int kErrors[] = {0, 4 /*EINTR*/, 5 /*EIO*/, 12 /*ENOMEM*/, 13 /*EACCES*/};
  const size_t count = phone.faults.size() % kMostFaults;
  const unsigned nth = 1 + input.byte();
  const uint8_t kind = input.byte();
  faults[count] = {.nth = nth, .error = kErrors[kind % std::size(kErrors)], .transfer = size_t{4} * kind};
  phone.faults = {faults, count + 1};
}

/// Changes the phone; `file` is the one that was made last.
void change(uint8_t step, File*& file, Input& input) {
  switch (step % 8) {
    case 0:
      file = &create_file(input);
      break;
    case 1:
      put_bytes(*file, input);
      break;
    case 2:
      put_record(*file, input);
      break;
    case 3:
      set_property(input);
      break;
    case 4:
      fit_module(input);
      break;
    case 5:
      add_line(input);
      break;
    case 6:
      add_fault(input);
      break;
    default:
      insert_chip(input);
      break;
  }
}

// ---- the passes -------------------------------------------------------------------------------------------

constinit int32_t camera = 0;
constinit uint8_t fill = 0;
constexpr uint8_t kFirstFill = 0xA5;

[[gnu::noinline]] void leave_on_stack(uint8_t byte) {
  volatile uint8_t remains[16 * 1024];
  memset(const_cast<uint8_t*>(remains), byte, sizeof remains);
  // Not removed as a store that nobody reads.
  asm volatile("" : : "r"(remains) : "memory");
}

void reset_library() {
  constexpr float kUnset[3] = {};
  sensor_detect(0);
  awb_calibration_set_GS(kUnset, kUnset);
  sensor_detect(camera);
}

void make_calls(std::span<const Call> calls, void (*perform)(const Call&, Transcript&), Transcript& said) {
  said.clear();
  reset_library();
  begin_pass();
  for (const Call& call : calls) {
    leave_on_stack(fill);
    errno = 0;
    said.add(call.function);
    perform(call, said);
    require(open_descriptors() == 0, "every descriptor is closed");
    require(phone.written == 0, "nothing is written");
  }
  said.add(log_text().data(), log_text().size());
}

/// A table may name any size of a block, and any number of blocks: the library takes as much memory and looks at as many.
/// A fuzzer has less of both.
bool asks_for_too_much() {
  const File& table = file_at("/proc/mtd");
  char text[512] = {};
  if (table.exists) memcpy(text, table.bytes, std::min(table.size, sizeof text - 1));
  char* cursor = text;
  for (calib::mtd::ProcMtdEntry entry{}; calib::mtd::next_entry(&cursor, &entry);) {
    if (entry.erase_size > 0x20000 || entry.size / std::max(entry.erase_size, 1U) > 64) return true;
  }
  return false;
}

}  // namespace

uint8_t pass_fill() {
  return fill;
}

bool is_to_be_compared(unsigned struck) {
  return fill == kFirstFill && phone.struck == struck;
}

int32_t program_camera() {
  return camera == 0 || camera == 1 ? camera : 2;
}

std::span<const Call> build_phone(std::span<const uint8_t> bytes) {
  static Call calls[kMostCalls];
  Input input(bytes);
  new_phone();
  camera = static_cast<int8_t>(input.byte());
  phone.log_mask = input.byte() | 0x10U;
  size_t count = 0;
  File* file = &files().front();
  while (!input.is_at_end() && count < kMostCalls) {
    const uint8_t step = input.byte();
    if (step >= 0x80) {
      calls[count++] = {.function = static_cast<uint8_t>(step & 0x7F),
                        .argument = {input.byte(), input.byte(), input.byte(), input.byte()}};
    } else if (step >= 0x40) {
      phone.has_block_device = true;
    } else {
      change(step, file, input);
    }
  }
  return {calls, count};
}

void run_program(std::span<const uint8_t> bytes, void (*perform)(const Call&, Transcript&)) {
  static Transcript first, second;
  const std::span<const Call> calls = build_phone(bytes);
  if (asks_for_too_much()) return;
  phone.is_on = true;
  fill = kFirstFill;
  make_calls(calls, perform, first);
  fill = 0x3C;
  make_calls(calls, perform, second);
  phone.is_on = false;
  if (!(first == second))
    fprintf(stderr, "first: %s\nthen: %s\n", first.text().c_str(), second.text().c_str());
  require(first == second, "the same calls say the same");
}

// ---- buffers ----------------------------------------------------------------------------------------------

namespace {

uint8_t* guarded_memory() {
  static auto* memory = static_cast<uint8_t*>(malloc(Guarded::kMost));
  return memory;
}

}  // namespace

Guarded::Guarded(size_t size, uint8_t filling)
    : bytes_(guarded_memory() + kMost - std::min(size, kMost)), size_(std::min(size, kMost)) {
  memset(guarded_memory() + kMost - std::min(size_ + 64, kMost), filling, std::min(size_ + 64, kMost));
}

void Guarded::check() const {
  require_filled(bytes_ - std::min<size_t>(64, kMost - size_), bytes_,
                 "nothing is written before the buffer");
}

void require_filled(const uint8_t* from, const uint8_t* to, const char* what) {
  // Each byte is the fill when the first is, and each is like the one before.
  const auto size = static_cast<size_t>(to - from);
  require(size == 0 || (*from == fill && memcmp(from, from + 1, size - 1) == 0), what);
}

// ---- a second opinion on records --------------------------------------------------------------------------

Fuse fuse_of(int32_t of) {
  Fuse fuse{};
  for (size_t i = 0; i < 4; ++i) {
    const Property& property = properties()[4 * static_cast<size_t>(of) + i];
    if (property.exists) fuse[i] = static_cast<uint32_t>(strtoll(property.value, nullptr, 10));
  }
  return fuse;
}

uint32_t crc_of(const void* data, size_t size) {
  static const std::array<uint32_t, 256> table = [] {
    std::array<uint32_t, 256> made{};
    for (size_t i = 0; i < made.size(); ++i) {
      const auto byte = static_cast<uint8_t>(i);
      made[i] = support::bitwise_crc(&byte, 1);
    }
    return made;
  }();
  const auto* bytes = static_cast<const uint8_t*>(data);
  uint32_t crc = 0;
  for (size_t i = 0; i < size; ++i) crc = crc >> 8 ^ table[(crc ^ bytes[i]) & 0xFF];
  return crc;
}

uint64_t field(const uint8_t* bytes, size_t width) {
  uint64_t value = 0;
  memcpy(&value, bytes, width);
  return value;
}

SecondOpinion judged(const uint8_t* record, const RecordForm& form, const Fuse& module) {
  SecondOpinion opinion{.crc_good = crc_of(record, form.covered) == field(record + form.crc, form.width),
                        .valid_word = field(record, form.width),
                        .binding = Binding::other,
                        .fuse = {},
                        .module = module};
  for (size_t i = 0; i < 4; ++i) opinion.fuse[i] = field(record + form.fuse + i * form.width, form.width);
  if (form.zero_first_matches && opinion.fuse[0] == 0) opinion.module[0] = 0;
  if (opinion.fuse == Fuse{}) opinion.binding = Binding::none;
  if (opinion.fuse == opinion.module) opinion.binding = Binding::module;
  return opinion;
}

const Source& source_of(const char* cache, const char* node, size_t offset, size_t length,
                        size_t cache_offset) {
  static Source source;
  const File& cached = file_at(cache);
  source.is_cache = cached.exists;
  source.file = cached.exists ? &cached : node != nullptr && file_at(node).exists ? &file_at(node) : nullptr;
  source.count = 0;
  memset(source.bytes, 0, std::min(length, sizeof source.bytes));
  if (source.file == nullptr) return source;
  // An image has 4000 bytes, whatever follows them.
  const bool is_image = !source.is_cache || cache_offset > 0;
  const size_t from = source.is_cache ? cache_offset : offset;
  const size_t held = is_image ? std::min<size_t>(source.file->size, 4000) : source.file->size;
  source.count = std::min(length, held - std::min(held, from));
  memcpy(source.bytes, source.file->bytes + from, source.count);
  return source;
}

const char* of_camera(const char* main, const char* front, const char* sub) {
  return program_camera() == 0 ? main : program_camera() == 1 ? front : sub;
}

const char* kernel_export() {
  return of_camera("/sys/android_camera_awb_cal/awb_cal", "/sys/android_camera_awb_cal/awb_cal_front",
                   "/sys/android_camera_awb_cal/awb_cal_sub");
}

Fuse fitted_module() {
  return fuse_of(program_camera());
}

}  // namespace fuzz
