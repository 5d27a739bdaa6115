// A copy of a phone's partition for the library to write on, by the rules of the phone's storage.
#ifndef RUN_WRITER_PHONE_H
#define RUN_WRITER_PHONE_H

#include <optional>
#include <string>
#include <vector>

#include "inspect/phone.h"
#include "phone/virtual_phone.h"
#include "run/guarded_folder.h"

namespace awbcal {

class WriterPhone {
 public:
  /// Of a phone that has a partition whose record area is where the page size places it.
  explicit WriterPhone(const Phone& phone);

  /// Through the library's record area, and read back through it. Throws std::runtime_error when the bytes are not
  /// there afterwards, or any other byte of the partition is another one.
  void write(uint32_t offset_in_area, const Bytes& bytes);

  /// What became of the partition's file.
  OutputFile file() const;

 private:
  std::string device_;  ///< in the copy's folder
  std::string file_;    ///< of the original
  bool is_nand_;
  uint64_t base_;
  GuardedFolder folder_;
  std::optional<phone::VirtualPhone> phone_;
};

}  // namespace awbcal

#endif
