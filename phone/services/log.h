// The lines that were logged, and the log-mask service's answers.
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

std::vector<LogLine> take_log_lines();
std::vector<std::string> take_mask_questions();
void set_mask_answer(unsigned mask);
void set_log_stream(std::FILE* stream);

/// An attached phone starts with an empty log; a detached one logs nothing.
void open_log();
void close_log();
void keep_log_lines(bool on);

}  // namespace phone

#endif
