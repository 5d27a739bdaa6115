// A virtual phone in a temporary folder of its own, for the library to run on; gone at the end of the scope.
#ifndef RUN_SCRATCH_PHONE_H
#define RUN_SCRATCH_PHONE_H

#include <optional>

#include "inspect/decode.h"
#include "inspect/verdict.h"
#include "phone/temporary_folder.h"
#include "phone/virtual_phone.h"
#include "run/guarded_folder.h"

namespace awbcal {

class ScratchPhone {
 public:
  explicit ScratchPhone(const phone::Options& options = {});

  phone::VirtualPhone& phone() { return *phone_; }

  /// No cache file, and exports of nothing but zeros.
  void clear_records();
  void put(std::string_view phone_path, std::span<const uint8_t> bytes);
  /// The file's bytes from `offset` on are replaced.
  void overlay(std::string_view phone_path, size_t offset, std::span<const uint8_t> bytes);
  void fit(calib::Camera camera, const calib::FuseWords& module);

 private:
  GuardedFolder folder_{phone::temporary_parent(), "phone"};
  std::optional<phone::VirtualPhone> phone_;
};

}  // namespace awbcal

#endif
