// What the log and the log-mask service do when a program calls them; VirtualPhone's take_log() and its
// neighbours are here as well.
#ifndef PHONE_SERVICES_LOG_H
#define PHONE_SERVICES_LOG_H

#include <cerrno>
#include <string>
#include <vector>

#include "phone/virtual_phone.h"

namespace phone {

/// What errno is after a call of either service: nobody promises that they leave it alone, and no other call on
/// the phone fails with this value.
inline constexpr int kForeignErrno = EXFULL;

/// False if a fault loses the line.
bool record_log_line(int priority, const char* tag, const char* text);
unsigned answer_mask_question(const char* tag);

/// An attached phone starts with an empty log; a detached one logs nothing.
void open_log();
void close_log();
void keep_log_lines(bool on);

}  // namespace phone

#endif
