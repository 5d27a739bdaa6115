// Does a program that links the platform's packaged log find the library's lines there, and not at the phone?
// Guards against a virtual phone whose log cannot be left out.
#include <awb_calibration/records.h>
#include <phone/virtual_phone.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  auto phone = phone::VirtualPhone::create(argv[1]);
  awb_read_fuseid(4711);
  const size_t kept = phone.take_log().size();
  std::printf("%zu lines at the phone\n", kept);
  return kept == 0 ? 0 : 1;
}
