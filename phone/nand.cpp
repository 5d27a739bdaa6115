#include "phone/nand.h"

#include <cerrno>

namespace phone {

void create_nand(const std::filesystem::path&, const NandGeometry&) {}
std::unique_ptr<Nand> open_nand(const std::filesystem::path&) {
  return nullptr;
}
void insert_nand(Nand*) {}
ssize_t nand_read(int, void*, size_t, const off_t*) {
  return -1;
}
ssize_t nand_write(int, const void*, size_t, const off_t*) {
  return -1;
}
int nand_ioctl(int, unsigned long, void*) {
  return -1;
}
bool nand_powered() {
  return true;
}
bool is_nand_path(const std::string&) {
  return false;
}

}  // namespace phone
