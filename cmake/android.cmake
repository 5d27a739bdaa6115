# The library outside the platform's tree, with the NDK's toolchain file.
#
# The NDK has <android/log.h> and <sys/system_properties.h>, but neither <cutils/properties.h> nor libcutils:
# the declarations are those of phone/include, and a stand-in with the two functions' names is linked, so that
# the library asks the phone for its own libcutils.so.
add_library(cutils_stand_in SHARED cmake/cutils_stand_in.c)
set_target_properties(cutils_stand_in PROPERTIES OUTPUT_NAME cutils
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/stand_in)
target_compile_options(cutils_stand_in PRIVATE -idirafter ${PROJECT_SOURCE_DIR}/phone/include)

target_link_libraries(awb_calibration PRIVATE $<TARGET_FILE:cutils_stand_in> log)
add_dependencies(awb_calibration cutils_stand_in)
# It is not ours to install, and the phone finds its own by name.
set_target_properties(awb_calibration PROPERTIES SKIP_BUILD_RPATH ON)
