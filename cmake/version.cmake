# Writes OUTPUT, a header with the version and, in a checkout, the commit. Run with every build, and written only
# when it has changed.
set(commit "")
find_package(Git QUIET)
if(GIT_FOUND AND EXISTS ${SOURCE_DIR}/.git)
  execute_process(COMMAND ${GIT_EXECUTABLE} -C ${SOURCE_DIR} rev-parse --short=12 HEAD
    OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
set(text "#define AWBCAL_VERSION \"${VERSION}\"\n#define AWBCAL_COMMIT \"${commit}\"\n")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} old)
endif()
if(NOT "${old}" STREQUAL "${text}")
  file(WRITE ${OUTPUT} "${text}")
endif()
