#include "phone/devices/mtd_device.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>

#include "phone/calls/real.h"
#include "phone/devices/nand_chip.h"
#include "phone/devices/nand_state.h"

namespace phone {
namespace {

constinit Chip* inserted = nullptr;

/// Runs `use` on the chip; its errno value becomes the call's failure, and success leaves errno alone.
template <typename Use>
ssize_t with_chip(ssize_t result, Use&& use) {
  int error = 0;
  {
    const ErrnoKeeper keeper;
    const NandLock lock(nand_mutex);
    try {
      error = inserted == nullptr ? EIO : use(*inserted);
    } catch (const std::exception&) {
      error = EIO;
    }
  }
  if (error == 0) return result;
  errno = error;
  return -1;
}

bool open_for(int fd, int other_mode) {
  return (real::fcntl(fd, F_GETFL) & O_ACCMODE) != other_mode;
}

/// A read or write: `move(chip, from where, how much of it is in the chip)` does it, and the position
/// follows.
template <typename Move>
ssize_t transfer(int fd, size_t size, const off_t* offset, int refused_mode, Move&& move) {
  const NandLock lock(nand_mutex);
  const off_t at = offset != nullptr ? *offset : real::lseek(fd, 0, SEEK_CUR);
  size_t part = 0;
  const ssize_t result = with_chip(0, [&](Chip& chip) {
    if (!open_for(fd, refused_mode)) return EBADF;
    if (at < 0) return EINVAL;
    const auto from = static_cast<uint64_t>(at);
    part = std::min<size_t>(size, chip.size() - std::min(chip.size(), from));
    return move(chip, from, part);
  });
  if (result < 0) return result;
  if (offset == nullptr) real::lseek(fd, at + static_cast<off_t>(part), SEEK_SET);
  return static_cast<ssize_t>(part);
}

int erase_range(Chip& chip, int fd, uint64_t start, uint64_t length) {
  return open_for(fd, O_RDONLY) ? chip.erase(start, length) : EPERM;
}

template <typename Request>
Request argument_of(const void* argument) {
  Request request;
  std::memcpy(&request, argument, sizeof request);
  return request;
}

int give_info(const Chip& chip, void* argument) {
  mtd_info_user info = {};
  info.type = MTD_NANDFLASH;
  info.flags = MTD_CAP_NANDFLASH;
  info.size = static_cast<uint32_t>(chip.size());
  info.erasesize = chip.geometry().erase_size;
  info.writesize = chip.page_size();
  info.oobsize = chip.page_size() / 32;
  std::memcpy(argument, &info, sizeof info);
  return 0;
}

int give_region(const Chip& chip, void* argument) {
  auto region = argument_of<region_info_user>(argument);
  if (region.regionindex != 0) return EINVAL;
  region.offset = 0;
  region.erasesize = chip.geometry().erase_size;
  region.numblocks = chip.geometry().blocks;
  std::memcpy(argument, &region, sizeof region);
  return 0;
}

int answer(Chip& chip, int fd, unsigned long request, void* argument, bool& bad) {
  switch (request) {
    case MEMGETINFO:
      return give_info(chip, argument);
    case MEMGETREGIONCOUNT: {
      const int one = 1;
      std::memcpy(argument, &one, sizeof one);
      return 0;
    }
    case MEMGETREGIONINFO:
      return give_region(chip, argument);
    case MEMERASE: {
      const auto range = argument_of<erase_info_user>(argument);
      return erase_range(chip, fd, range.start, range.length);
    }
    case MEMERASE64: {
      const auto range = argument_of<erase_info_user64>(argument);
      return erase_range(chip, fd, range.start, range.length);
    }
    case MEMGETBADBLOCK:
      return chip.ask_bad(argument_of<int64_t>(argument), bad);
    case MEMSETBADBLOCK:
      return open_for(fd, O_RDONLY) ? chip.mark_bad_at(argument_of<int64_t>(argument)) : EPERM;
    case ECCGETSTATS: {
      mtd_ecc_stats stats = {};
      const int error = chip.ecc_stats(stats);
      if (error == 0) std::memcpy(argument, &stats, sizeof stats);
      return error;
    }
    default:
      return ENOTTY;
  }
}

}  // namespace

std::unique_ptr<Nand> open_nand(const std::filesystem::path& dir) {
  return has_nand(dir) ? std::make_unique<Chip>(dir) : nullptr;
}

void insert_nand(Nand* nand) {
  const NandLock lock(nand_mutex);
  inserted = static_cast<Chip*>(nand);
}

bool is_nand_path(const std::string& phone_path) {
  const NandLock lock(nand_mutex);
  return inserted != nullptr && phone_path == nand_device_name(inserted->geometry());
}

const char* nand_request_name(unsigned long request) {
  switch (request) {
    case MEMGETINFO:
      return "ioctl MEMGETINFO";
    case MEMGETREGIONCOUNT:
      return "ioctl MEMGETREGIONCOUNT";
    case MEMGETREGIONINFO:
      return "ioctl MEMGETREGIONINFO";
    case MEMERASE:
      return "ioctl MEMERASE";
    case MEMERASE64:
      return "ioctl MEMERASE64";
    case MEMGETBADBLOCK:
      return "ioctl MEMGETBADBLOCK";
    case MEMSETBADBLOCK:
      return "ioctl MEMSETBADBLOCK";
    case ECCGETSTATS:
      return "ioctl ECCGETSTATS";
    default:
      return nullptr;
  }
}

ssize_t nand_read(int fd, void* buffer, size_t size, const off_t* offset) {
  return transfer(fd, size, offset, O_WRONLY, [&](Chip& chip, uint64_t at, size_t part) {
    return chip.read(at, static_cast<uint8_t*>(buffer), part);
  });
}

ssize_t nand_write(int fd, const void* buffer, size_t size, const off_t* offset) {
  return transfer(fd, size, offset, O_RDONLY, [&](Chip& chip, uint64_t at, size_t part) {
    if (at >= chip.size()) return ENOSPC;
    if (part == 0) return 0;
    return chip.program(at, static_cast<const uint8_t*>(buffer), part);
  });
}

int nand_ioctl(int fd, unsigned long request, void* argument) {
  bool bad = false;
  const ssize_t result = with_chip(
      0, [&](Chip& chip) { return argument == nullptr ? EFAULT : answer(chip, fd, request, argument, bad); });
  return result == 0 && bad ? 1 : static_cast<int>(result);
}

}  // namespace phone
