// What the log and the log-mask service do when a program calls them; VirtualPhone's take_log() and its
// neighbours are here as well.
#ifndef PHONE_SERVICES_LOG_H
#define PHONE_SERVICES_LOG_H

#include <cstdio>
#include <string>
#include <vector>

#include "phone/virtual_phone.h"

namespace phone {

/// False if a fault loses the line.
bool record_log_line(int priority, const char* tag, const char* text);
unsigned answer_mask_question(const char* tag);

/// An attached phone starts with an empty log; a detached one logs nothing.
void open_log();
void close_log();
void keep_log_lines(bool on);

}  // namespace phone

#endif
