// The good records of a phone, each with the module that it was measured for, in a file of their own: an archive of the
// records' bytes and a document that says what they are. docs/service.md describes it.
#ifndef INSPECT_BACKUP_H
#define INSPECT_BACKUP_H

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "inspect/phone.h"

namespace awbcal {

/// Of the document; another one is refused.
inline constexpr int kBackupVersion = 1;

struct BackupRecord {
  const RecordSpec* spec;
  std::optional<calib::Camera> camera;  ///< none: of the whole phone
  calib::FuseWords module;              ///< that it was measured for
  std::set<Source> sources = {};        ///< where the phone had these bytes
  Bytes bytes = {};

  bool was_on_partition() const {
    return sources.contains(Source::kernel_export) || sources.contains(Source::partition);
  }
};

struct Backup {
  Modules modules = {};  ///< that were fitted, where that was known
  std::vector<BackupRecord> records = {};

  const BackupRecord* find(RecordKind kind, std::optional<calib::Camera> camera) const;
};

/// "main camera, AWB record", and why it is not what it should be.
struct LeftOut {
  std::string title;
  std::string reason;
};

struct BackupOfPhone {
  Backup backup;
  std::vector<LeftOut> left_out;  ///< records that are there, and not good
};

BackupOfPhone backup_of(const Phone& phone, const Modules& modules);

/// The archive.
Bytes file_of(const Backup& backup);

struct ReadBackup {
  Backup backup;
  std::vector<LeftOut> damaged;
};

/// Throws InputError for what is no backup, or none that this version can read.
ReadBackup read_backup(const std::string& name, std::span<const uint8_t> file);

}  // namespace awbcal

#endif
