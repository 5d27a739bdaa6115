/** @file export.h  What the shared library exports. */
#ifndef AWB_CALIBRATION_EXPORT_H
#define AWB_CALIBRATION_EXPORT_H

/** Marks what the shared library exports; everything else in it is hidden. */
#define AWB_CALIBRATION_API __attribute__((visibility("default")))

#endif
