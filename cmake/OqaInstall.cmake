# Install rules for everything the project ships, plus the CMake package,
# the pkg-config file and the Debian package settings. Included once, at the
# end of the top-level CMakeLists.txt, when every target already exists; each
# part is optional, so every rule is guarded by its target.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(OQA_PACKAGE_NAME ostrevan_oqa_demosaic)
set(OQA_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/${OQA_PACKAGE_NAME})

install(FILES ${PROJECT_SOURCE_DIR}/include/ostrevan_oqa_demosaic.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development)

if(TARGET ostrevan_oqa_demosaic)
  install(TARGETS ostrevan_oqa_demosaic EXPORT ostrevan_oqa_demosaic_targets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime
                  NAMELINK_COMPONENT Development
          INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endif()

# The companions and the logger are opened by their unversioned file names,
# so those names (not just a development symlink) belong to the runtime, in
# the same folder as the main library.
install(TARGETS ${OQA_RUNTIME_MODULES}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Runtime)

if(TARGET oqa-demosaic)
  install(TARGETS oqa-demosaic RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime)
endif()

if(TARGET ostrevan_oqa_demosaic)
  install(EXPORT ostrevan_oqa_demosaic_targets
          NAMESPACE ostrevan_oqa_demosaic::
          FILE ostrevan_oqa_demosaicTargets.cmake
          DESTINATION ${OQA_CMAKE_PACKAGE_DIR} COMPONENT Development)
  configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/ostrevan_oqa_demosaicConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/ostrevan_oqa_demosaicConfig.cmake
    INSTALL_DESTINATION ${OQA_CMAKE_PACKAGE_DIR}
    PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR)
  write_basic_package_version_file(
    ${CMAKE_CURRENT_BINARY_DIR}/ostrevan_oqa_demosaicConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ostrevan_oqa_demosaicConfig.cmake
                ${CMAKE_CURRENT_BINARY_DIR}/ostrevan_oqa_demosaicConfigVersion.cmake
          DESTINATION ${OQA_CMAKE_PACKAGE_DIR} COMPONENT Development)

  # The prefix is worked out from the .pc file's own place, so the same file
  # serves a prefix install and the Debian package.
  file(RELATIVE_PATH OQA_PC_TO_PREFIX
       ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" OQA_PC_TO_PREFIX "${OQA_PC_TO_PREFIX}")
  configure_file(${CMAKE_CURRENT_LIST_DIR}/ostrevan_oqa_demosaic.pc.in
                 ${CMAKE_CURRENT_BINARY_DIR}/ostrevan_oqa_demosaic.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ostrevan_oqa_demosaic.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
endif()

include(${CMAKE_CURRENT_LIST_DIR}/OqaPackaging.cmake)
