// What begins as JSON as the document of a backup, with the bytes of records beside it; other bytes as a backup, and as
// what a pull noted in its folder.

#include <cstdlib>

#include "inspect/archive.h"
#include "inspect/backup.h"
#include "inspect/errors.h"
#include "inspect/pull_state.h"

namespace {

/// What is read has its kind's size, whatever the document says.
void read(std::span<const uint8_t> file) {
  try {
    for (const awbcal::BackupRecord& record : awbcal::read_backup("backup", file).backup.records) {
      if (record.bytes.size() != record.spec->size) std::abort();
    }
  } catch (const awbcal::InputError&) {
    // A message is an answer.
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 0 && data[0] == '{') {
    read(awbcal::packed({{.path = "backup.json", .bytes = awbcal::Bytes(data, data + size)},
                         {.path = "records/main/awb.bin", .bytes = awbcal::Bytes(32)},
                         {.path = "records/main/gyro.bin", .bytes = awbcal::Bytes(48)}}));
  } else {
    read({data, size});
  }
  const auto state = awbcal::parse_pull_state({reinterpret_cast<const char*>(data), size});
  // What is written of a state is read as the same one.
  if (state && awbcal::text_of(*awbcal::parse_pull_state(awbcal::text_of(*state))) != awbcal::text_of(*state))
    std::abort();
  return 0;
}
