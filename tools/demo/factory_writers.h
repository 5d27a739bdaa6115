// What the factory tool measures itself and stores through the library's writers.
#ifndef DEMO_FACTORY_WRITERS_H
#define DEMO_FACTORY_WRITERS_H

#include "phone/virtual_phone.h"
#include "run/sensor_model.h"
#include "text/terminal.h"

namespace awbcal {

/// Flash and dual-flash records of the main camera, the screen flash of the front camera.
void write_flash_records(phone::VirtualPhone& phone, Terminal& terminal, ConsoleCapture& console);

/// Lens-shading images: the library has no writer for them. They reach the kernel's export with a reboot, and
/// the cache files hold that export.
void write_lens_shading(phone::VirtualPhone& phone, Terminal& terminal);

/// Gyro records of the main and the front camera, both forms of the dual-camera record.
void write_gyro_and_dual_camera(phone::VirtualPhone& phone, Terminal& terminal, ConsoleCapture& console,
                                Noise& noise);

}  // namespace awbcal

#endif
