// The kernel's MTD character device over the NAND chip.
#ifndef PHONE_DEVICES_MTD_DEVICE_H
#define PHONE_DEVICES_MTD_DEVICE_H

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>

#include "phone/virtual_phone.h"

namespace phone {

/// Null if the phone in `dir` has no NAND chip. Throws std::runtime_error if its files are damaged.
std::unique_ptr<Nand> open_nand(const std::filesystem::path& dir);

/// The chip that descriptors of NodeKind::nand are open on; null: none.
void insert_nand(Nand* nand);

/// Results and errno as of the calls with these names. `offset` null: at the file position, which moves.
ssize_t nand_read(int fd, void* buffer, size_t size, const off_t* offset);
ssize_t nand_write(int fd, const void* buffer, size_t size, const off_t* offset);
int nand_ioctl(int fd, unsigned long request, void* argument);

/// "ioctl MEMERASE" and the like; null for a request of another kind.
const char* nand_request_name(unsigned long request);

bool is_nand_path(const std::string& phone_path);

}  // namespace phone

#endif
