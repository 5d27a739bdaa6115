// A virtual phone in a temporary folder of its own, for the library to run on; gone at the end of the scope.
#ifndef RUN_SCRATCH_PHONE_H
#define RUN_SCRATCH_PHONE_H

#include <filesystem>
#include <optional>

#include "inspect/decode.h"
#include "inspect/verdict.h"
#include "phone/virtual_phone.h"

namespace awbcal {

class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

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
  TemporaryFolder folder_;
  std::optional<phone::VirtualPhone> phone_;
};

}  // namespace awbcal

#endif
