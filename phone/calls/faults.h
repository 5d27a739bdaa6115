// The journal of intercepted calls and the faults that strike them: VirtualPhone's add_fault() and take_calls()
// are here.
#ifndef PHONE_CALLS_FAULTS_H
#define PHONE_CALLS_FAULTS_H

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "phone/virtual_phone.h"

namespace phone {

/// What the faults make of a call: nothing, a failure with errno `error`, or a transfer of at most `transfer`
/// bytes.
struct CallEffect {
  int error = 0;
  long transfer = -1;
};

/// A file call is about to be made: enters it in the journal and asks the faults.
CallEffect effect_on_file_call(std::string_view call, std::string_view path,
                               const char* journal_name = nullptr);

/// The phone's power, which a fault of a call or of the NAND chip may cut.
void cut_power();
void power_on();

/// A call that is no file call ("property_get", "malloc", ...): not in the journal, and never struck by "*".
CallEffect effect_on_service_call(std::string_view call, std::string_view subject);

/// A plain flag for __atomic_load_n(): malloc() reads it before the sanitizers can check a function of ours.
extern bool any_fault_armed;

/// On for an attached phone; off for one that is never asked for its calls.
void keep_journal(bool on);

struct FaultFile {
  std::vector<Fault> calls;
  std::vector<NandFault> nand;
};

/// Nothing if there is no such file. Throws std::runtime_error that names the line it cannot read.
FaultFile read_fault_file(const std::filesystem::path& file);

extern const std::string_view kFaultFileHelp;

}  // namespace phone

#endif
