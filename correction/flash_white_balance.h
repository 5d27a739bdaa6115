// The flash step of Correct_Reference_Points_qorModule().
#ifndef CORRECTION_FLASH_WHITE_BALANCE_H
#define CORRECTION_FLASH_WHITE_BALANCE_H

#include "records/judgement.h"

namespace calib {

/// Corrects the flash gains and the CCT/LED table of the tuning from the selected camera's dual-flash record,
/// and fills the two pairs of ratios where the camera has a screen flash, or on the front camera's refusal.
/// `module` is the module's fuse ID as the AWB record left it.
void correct_flash_white_balance(float* awb_tuning, float* flash_ratio_first, float* flash_ratio_second,
                                 const FuseWords& module);

}  // namespace calib

#endif
