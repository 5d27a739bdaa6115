// Every result check of the library for every camera.
#ifndef DEMO_RESULT_CHECKS_H
#define DEMO_RESULT_CHECKS_H

#include "phone/virtual_phone.h"
#include "text/terminal.h"

namespace awbcal {

/// A row per check and camera: the answer, the record words of its log lines, and why a bad answer is no
/// fault.
void show_result_checks(phone::VirtualPhone& phone, Terminal& terminal);

}  // namespace awbcal

#endif
