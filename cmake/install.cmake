# What `cmake --install` lays down, and the Debian package.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/awb_calibration)
set(phone_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/awb_calibration_phone)

install(TARGETS awb_calibration EXPORT awb_calibration LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/awb_calibration DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h)

# From a pkg-config file up to the prefix, so that the tree may be put anywhere.
file(RELATIVE_PATH prefix_from_pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})

function(install_pkg_config name)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
install_pkg_config(awb_calibration)

# Preloaded or linked as one shared library, and in parts for C++ programs that drive the phone themselves.
set(installed_targets awb_calibration)
if(TARGET virtual_phone)
  set(phone_targets virtual_phone phone_headers phone_properties_file phone_core phone_log_service phone_mask_service
    phone_malloc phone_linked_without_services phone_linked_without_mask phone_linked phone_malloc_faults)
  list(APPEND installed_targets ${phone_targets})
  install(TARGETS ${phone_targets}
    EXPORT awb_calibration
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}/awb_calibration_phone)
  install(FILES phone/virtual_phone.h phone/virtual_phone_c.h DESTINATION ${phone_include_dir}/phone)
  install(DIRECTORY phone/include/ DESTINATION ${phone_include_dir} FILES_MATCHING PATTERN *.h)
  install_pkg_config(awb_calibration_virtual_phone)
endif()

install(EXPORT awb_calibration NAMESPACE awb_calibration:: DESTINATION ${package_dir})
configure_package_config_file(cmake/awb_calibrationConfig.cmake.in awb_calibrationConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(awb_calibrationConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/awb_calibrationConfig.cmake ${CMAKE_BINARY_DIR}/awb_calibrationConfigVersion.cmake
  DESTINATION ${package_dir})

# The pages lie as they do in the tree, with what they link to beside them.
set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/libawb-calibration-dev)
file(RELATIVE_PATH include_from_doc ${CMAKE_INSTALL_PREFIX}/${doc_dir} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
install(FILES man/libawb_calibration.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7)
install(FILES LICENSE DESTINATION ${doc_dir} RENAME copyright)
install(DIRECTORY docs DESTINATION ${doc_dir} FILES_MATCHING PATTERN *.md
  PATTERN architecture.md EXCLUDE PATTERN completion EXCLUDE PATTERN pictures EXCLUDE)
install(DIRECTORY examples DESTINATION ${doc_dir})
install(FILES Android.bp DESTINATION ${doc_dir})
install(FILES cmake/android.cmake DESTINATION ${doc_dir}/cmake)
install(FILES records/record_layouts.h DESTINATION ${doc_dir}/records)
install(CODE "file(CREATE_LINK ${include_from_doc} \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${doc_dir}/include SYMBOLIC)")
if(TARGET awbcal)
  list(APPEND installed_targets awbcal)
  install(TARGETS awbcal RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  file(GLOB tool_pages man/awbcal*.1)
  install(FILES ${tool_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES docs/completion/awbcal.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME awbcal)
  install(FILES docs/awbcal.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/awbcal)
  install(DIRECTORY sql DESTINATION ${CMAKE_INSTALL_DATADIR}/awbcal)
  # It runs from wherever the tree was put, not from the system's folders alone.
  file(RELATIVE_PATH lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(awbcal PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
endif()

# What an installation needs and no more: no test, no benchmark.
add_custom_target(installed DEPENDS ${installed_targets})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libawb-calibration-dev)
set(CPACK_PACKAGE_CONTACT "libawb_calibration developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "camera module calibration of a phone, with a virtual phone to run it on")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # The platform's functions are in no package: the virtual phone, in the next file, has them.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
endif()
include(CPack)
