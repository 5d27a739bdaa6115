/** @file export.h  What the shared library exports. */
#ifndef AWB_CALIBRATION_EXPORT_H
#define AWB_CALIBRATION_EXPORT_H

#define AWB_CALIBRATION_API __attribute__((visibility("default")))

#endif
