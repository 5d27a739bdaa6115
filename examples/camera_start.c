/* A camera is calibrated as on the production line and then started, on the virtual phone in a folder. */
#include <awb_calibration/correction.h>
#include <awb_calibration/factory.h>
#include <cutils/properties.h>
#include <phone/virtual_phone_c.h>
#include <stdio.h>

static float tuning[48592 / sizeof(float)]; /* the camera stack's; here all but one reference point is 0 */

int main(int argc, char** argv) {
  const float golden_rg[3] = {0.60F, 0.60F, 0.60F}, golden_bg[3] = {0.50F, 0.50F, 0.50F};
  if (virtual_phone_open(argc > 1 ? argv[1] : "phone") != 0) return 1;
  property_set("qor.camera.sensor.main_fuse1", "4711"); /* the fitted module */

  awb_calibration_set_GS(golden_rg,
                         golden_bg); /* factory: 20 % around the golden sample, in light source 3 */
  awb_calibration_set_parm(20, 3);
  awb_enable_calibration();
  for (int frame = 1; frame <= 11; ++frame) QOR_AWB_Calibration_write_to_flash(645, 490);

  tuning[12] = 0.60F; /* field: the first reference point, R/G and B/G at bytes 48 and 52 */
  tuning[13] = 0.50F;
  sensor_detect(0);
  QOR_AWB_Calibration_Reference_Points_Correction(tuning);
  printf("reference point %.4f %.4f\n", (double)tuning[12], (double)tuning[13]);
  return 0;
}
