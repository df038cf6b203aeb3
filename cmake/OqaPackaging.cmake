# One Debian package with the runtime, the tool and the development files:
#   cpack -G DEB   (in the build folder)
set(CPACK_PACKAGE_NAME ostrevan-oqa-demosaic)
set(CPACK_PACKAGE_VENDOR "Ostrevan")
set(CPACK_PACKAGE_CONTACT "Ostrevan OQA <oqa@ostrevan.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Bayer demosaic library with vector companions, logger and command-line tool")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
# Library dependencies (libtiff, libpng, LibRaw, libstdc++, ...) are read from
# the binaries; the package's own libraries are resolved from the staging
# tree, and an ldconfig trigger refreshes the loader cache on install.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_STRIP_FILES ON)
# The Python package's interpreter and numpy, which shlibdeps cannot see; they
# are merged with what it finds.
get_property(oqa_python_depends GLOBAL PROPERTY OQA_DEBIAN_PYTHON_DEPENDS)
if(oqa_python_depends)
  if(CPACK_DEBIAN_PACKAGE_DEPENDS)
    string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS ", ")
  endif()
  string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS "${oqa_python_depends}")
endif()
include(CPack)
