// What holds of every phone that the tool has opened, whatever it was opened from. Ends the program where it does not.
#ifndef FUZZ_CHECK_PHONE_H
#define FUZZ_CHECK_PHONE_H

#include <algorithm>
#include <vector>

#include "fuzz/require.h"
#include "inspect/backup.h"
#include "inspect/json_form.h"
#include "inspect/verdict.h"
#include "tests/support/sealed.h"

namespace fuzz {

inline std::vector<awbcal::Verdict> verdicts_on(const awbcal::Phone& phone, const awbcal::Modules& modules) {
  for (const awbcal::FoundRecord& record : phone.records) {
    require(record.bytes.size() <= record.spec->size, "a record is no longer than its kind");
  }
  std::vector<awbcal::Verdict> verdicts;
  for (const awbcal::RecordVerdict& each : awbcal::verdicts_of(phone, modules)) {
    verdicts.push_back(each.finding.verdict);
    const bool is_good = verdicts.back() == awbcal::Verdict::good && each.record != nullptr;
    require(!is_good || tool::is_sealed(phone, *each.record), "a good record has its CRC");
  }
  return verdicts;
}

inline bool is_readable(const awbcal::Phone& phone) {
  return std::ranges::none_of(phone.files,
                              [](const awbcal::PhoneFile& file) { return file.content.trouble.has_value(); });
}

/// Shown as JSON, and made of it again.
inline void check_pack(const awbcal::Phone& phone) {
  const awbcal::Json document = awbcal::show_document(phone, true);
  if (!is_readable(phone)) return;
  const awbcal::Packed packed = awbcal::pack_document(document, {});
  auto made = packed.files.begin();
  for (const awbcal::PhoneFile& file : phone.files) {
    if (file.layout == awbcal::Layout::other) continue;
    require(made->path == file.path && made->bytes == file.content.bytes, "a file is packed as it was");
    ++made;
  }
}

/// The good records, kept and read again.
inline void check_backup(const awbcal::Phone& phone, const awbcal::Modules& modules) {
  const awbcal::Backup kept = awbcal::backup_of(phone, modules).backup;
  const awbcal::ReadBackup read = awbcal::read_backup("backup", awbcal::file_of(kept));
  require(read.damaged.empty() && read.backup.records.size() == kept.records.size(),
          "every record that was kept is read");
  for (const awbcal::BackupRecord& record : kept.records) {
    const awbcal::BackupRecord* again = read.backup.find(record.spec->kind, record.camera);
    require(again != nullptr && again->bytes == record.bytes && again->module == record.module,
            "a backup gives back what it took");
  }
}

}  // namespace fuzz

#endif
