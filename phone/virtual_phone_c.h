/** @file virtual_phone_c.h
 *  The virtual phone for programs in C: link libvirtual_phone.so, before or beside the calibration library.
 *
 *  The phone's properties are set with property_set() of <cutils/properties.h>, except "ro." ones, which are
 *  lines of the file `properties` in the phone's folder. With the environment variable VIRTUAL_PHONE_LOG set
 *  to "stderr" the log is printed there. All else that the phone can do, faults and NAND among it, is in the
 *  C++ interface, phone/virtual_phone.h.
 */
#ifndef PHONE_VIRTUAL_PHONE_C_H
#define PHONE_VIRTUAL_PHONE_C_H

#ifdef __cplusplus
extern "C" {
#endif

/** Attaches the phone in folder `dir` to this process for good; where there is none, an eMMC phone with 4 KiB
 *  pages is made first. From then on the phone's paths lead into the folder, and the log and the properties
 * are the phone's. A phone that $VIRTUAL_PHONE has attached already is in the way of another.
 *  @param dir the folder; one that does not exist is created
 *  @return 0; -1 when there is no such phone to be had, with the reason on standard error, and nothing is
 *  attached then */
__attribute__((visibility("default"))) int virtual_phone_open(const char* dir);

#ifdef __cplusplus
}
#endif

#endif
