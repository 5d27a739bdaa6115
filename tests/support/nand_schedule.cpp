#include "tests/support/nand_schedule.h"

#include <unistd.h>

#include <cstdlib>

#include "phone/calls/faults.h"

namespace support {

ModelledChip::ModelledChip(const phone::NandGeometry& geometry)
    : geometry_(geometry),
      phone_(phone::VirtualPhone::create(folder_.path() / "phone",
                                         {.storage = phone::Storage::nand, .nand = geometry_})) {
  phone_.set_log_mask(0);
  phone::keep_journal(false);
  nand().save_at_detach();
  mtd_open(&state_, "mfg");
}

void ModelledChip::start(const std::vector<Bytes>& contents) {
  phone_.clear_faults();
  nand().clear_faults();
  std::vector<NandModel::Block> blocks;
  for (uint32_t i = 0; i < geometry_.blocks; ++i) {
    nand().set_block_bytes(i, contents[i]);
    blocks.push_back({contents[i], nand().is_bad(i)});
  }
  model_.emplace(blocks);
}

bool ModelledChip::read(size_t offset, size_t length) {
  const auto expected = model_->read(offset, length);
  Bytes bytes(length + 1, 0xA5);
  const bool done =
      mtd_read(&state_, static_cast<int64_t>(offset), static_cast<int64_t>(length), bytes.data()) == 0;
  const bool is_too_long = bytes.back() != 0xA5;
  bytes.pop_back();
  return !is_too_long && agrees(expected, done, bytes);
}

bool ModelledChip::write(size_t offset, const Bytes& bytes) {
  const bool expected = model_->write(offset, bytes);
  return expected == (mtd_write(&state_, static_cast<int64_t>(offset), static_cast<int64_t>(bytes.size()),
                                bytes.data()) == 0);
}

ChipUnderTest::ChipUnderTest(Choices& choices, const phone::NandGeometry& geometry)
    : ModelledChip(geometry), choices_(choices), entry_(*mtd_find_partition_by_name("mfg")) {
  erase_size = geometry_.erase_size;
}

void ChipUnderTest::fill() {
  std::vector<Bytes> contents;
  for (uint32_t i = 0; i < geometry_.blocks; ++i) {
    const unsigned kind = choices_.up_to(9);
    contents.push_back(kind < 2 ? Bytes(block(), kind == 0 ? 0x00 : 0xFF)
                                : pattern(block(), choices_.up_to(1000)));
  }
  start(contents);
}

/// A fault of the chip, of a call, or a block that goes bad.
void ChipUnderTest::break_something() {
  static constexpr std::pair<Op, Effect> kinds[] = {
      {Op::erase, Effect::fail},         {Op::program, Effect::fail},      {Op::program, Effect::corrupt},
      {Op::read, Effect::fail},          {Op::read, Effect::corrupt},      {Op::read, Effect::ecc_failed},
      {Op::read, Effect::ecc_corrected}, {Op::ask_bad, Effect::fail},      {Op::ecc_stats, Effect::fail},
      {Op::erase, Effect::power_cut},    {Op::program, Effect::power_cut},
  };
  const unsigned kind = choices_.up_to(static_cast<unsigned>(std::size(kinds)) + 6);
  const auto block_number = choices_.up_to(geometry_.blocks - 1);
  if (kind < std::size(kinds)) {
    const auto [op, effect] = kinds[kind];
    const bool any_block = op == Op::ecc_stats || choices_.one_in(4);
    const NandFault fault{.op = op,
                          .effect = effect,
                          .block = any_block ? -1 : static_cast<int64_t>(block_number),
                          .nth = 1 + choices_.up_to(any_block ? 11 : 3),
                          .from_then_on = choices_.one_in(2)};
    add_fault(fault);
  } else if (kind == std::size(kinds) && choices_.one_in(10)) {
    went_bad_ = true;
    nand().mark_bad(block_number);
    model_->mark_bad(block_number);
  } else {
    static constexpr const char* kCalls[] = {"read", "write", "ioctl"};
    phone::Fault fault{.call = kCalls[choices_.up_to(2)],
                       .path = kMtdPath,
                       .nth = 1 + choices_.up_to(7),
                       .from_then_on = choices_.one_in(8),
                       .error = choices_.one_in(2) ? EINTR : EIO};
    if (fault.call != "ioctl" && choices_.one_in(2)) fault.transfer = static_cast<long>(extent(1));
    // Signals come to an end: a call that one interrupts is made again.
    if (fault.error == EINTR && fault.transfer < 0) fault.from_then_on = false;
    phone_.add_fault(fault);
    model_->add_fault(fault);
  }
}

// ---- what is done to a chip ------------------------------------------------------------------------------

bool ChipUnderTest::read_somewhere() {
  const size_t offset = extent(geometry_.blocks);
  return read(offset, 1 + extent(3));
}

bool ChipUnderTest::write_somewhere() {
  const size_t offset = extent(geometry_.blocks);
  return write(offset, some_bytes(1 + extent(3)));
}

bool ChipUnderTest::read_stream() {
  mtd_read_context* stream = mtd_read_partition(&entry_);
  if ((stream != nullptr) != model_->is_powered()) return false;
  if (stream == nullptr) return true;
  NandModel::Stream place;
  bool is_right = true, goes_on = true;
  for (unsigned left = 1 + choices_.up_to(3); left > 0 && is_right && goes_on; --left) {
    Bytes bytes(extent(2));
    bytes.reserve(1);
    const auto expected = model_->take(place, bytes.size());
    const auto count = static_cast<int64_t>(bytes.size());
    goes_on = mtd_read_data(stream, bytes.data(), count) == count;
    is_right = agrees(expected, goes_on, bytes);
  }
  mtd_read_close(stream);
  return is_right;
}

bool ChipUnderTest::write_stream() {
  mtd_write_context* stream = mtd_write_partition(&entry_);
  if ((stream != nullptr) != model_->is_powered()) return false;
  if (stream == nullptr) return true;
  NandModel::Stream place;
  for (unsigned left = 1 + choices_.up_to(3); left > 0; --left) {
    const Bytes bytes = some_bytes(1 + extent(2));
    const bool expected = model_->append(place, bytes);
    const auto count = static_cast<int64_t>(bytes.size());
    is_over_ = !expected;
    bool is_right = expected == (mtd_write_data(stream, bytes.data(), count) == count);
    if (!is_over_ && choices_.one_in(4)) {
      const int blocks = static_cast<int>(choices_.up_to(3)) - 1;
      const int64_t position = model_->erase_next(place, blocks);
      is_over_ = position < 0;
      is_right = is_right && mtd_erase_blocks(stream, blocks) == position;
    }
    if (!is_right || is_over_) {
      is_right = is_right && chip_is_as_modelled();
      mtd_write_close(stream);
      return is_right;
    }
  }
  const bool expected = model_->flush(place) && model_->is_powered();
  return expected == (mtd_write_close(stream) == 0);
}

bool ChipUnderTest::read_device() {
  const int fd = mtd_open_partition_device(&entry_);
  if ((fd >= 0) != model_->is_powered()) return false;
  if (fd < 0) return true;
  uint32_t size = 1 + static_cast<uint32_t>(choices_.up_to(geometry_.blocks * geometry_.erase_size - 1));
  const auto expected = model_->read_device(size);
  void* bytes = nullptr;
  const bool done = mtd_read_partition_data(fd, &size, &bytes) == 0;
  const auto* first = static_cast<const uint8_t*>(bytes);
  const bool is_right = agrees(expected, done, done ? Bytes(first, first + size) : Bytes());
  free(bytes);
  close(fd);
  return is_right;
}

bool ChipUnderTest::write_device() {
  const int fd = mtd_open_partition_device(&entry_);
  if ((fd >= 0) != model_->is_powered()) return false;
  if (fd < 0) return true;
  const Bytes bytes = some_bytes((1 + choices_.up_to(geometry_.blocks - 1)) * block());
  const bool expected = model_->write_device(bytes);
  const bool done = mtd_write_partition_data(fd, static_cast<uint32_t>(bytes.size()), bytes.data()) == 0;
  close(fd);
  return expected == done;
}

std::string ChipUnderTest::run_schedule() {
  using Work = bool (ChipUnderTest::*)();
  static constexpr std::pair<const char*, Work> kWorks[] = {
      {"write", &ChipUnderTest::write_somewhere},    {"write", &ChipUnderTest::write_somewhere},
      {"read", &ChipUnderTest::read_somewhere},      {"write stream", &ChipUnderTest::write_stream},
      {"read stream", &ChipUnderTest::read_stream},  {"read device", &ChipUnderTest::read_device},
      {"write device", &ChipUnderTest::write_device}};
  fill();
  is_over_ = false;
  std::string story;
  for (unsigned left = 1 + choices_.up_to(2); left > 0 && !is_over_; --left) {
    for (unsigned faults = choices_.up_to(2); faults > 0; --faults) break_something();
    const auto [name, work] = kWorks[choices_.up_to(std::size(kWorks) - 1)];
    story += (story.empty() ? "" : ", ") + std::string(name);
    if (!(this->*work)()) return story + ": another answer than the model's";
    if (!is_over_ && !chip_is_as_modelled()) return story + ": another chip than the model's";
  }
  return phone_.open_descriptors() == 1 ? "" : story + ": a descriptor is left open";
}

}  // namespace support
