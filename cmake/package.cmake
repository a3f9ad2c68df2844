# A Debian package by `cpack`, for the processor that was built for.

set(HK_PACKAGE_CONTACT "hk_stress maintainers <hk-stress@localhost>"
    CACHE STRING "Name and address of who answers for the package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME hk-stress)
set(CPACK_PACKAGE_CONTACT "${HK_PACKAGE_CONTACT}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "hardware stress test of the controller board")
set(CPACK_PACKAGE_DESCRIPTION
    "Exercises the serial ports, field I/O modules, SPI memories, files, DRAM
and front panel of a controller board for as long as it is let, and writes
the errors that it counts to the system log. hk_ctl shows, releases and stops its runs.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/compress_manuals.cmake)

# What runs on a workstation is a package of its own.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Unspecified)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_NAME hk-stress)
set(CPACK_COMPONENT_UNSPECIFIED_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
if(HK_SIMULATOR)
  list(APPEND CPACK_COMPONENTS_ALL tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME hk-stress-tools)
  set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "hk_results judges boards by the results lists in their logs, with a page of
plots for each run. hk_board is a simulated board to try the stress test on;
it releases held tests with hk_ctl of the package hk-stress.")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS hk-stress)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS qemu-user)
endif()
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE powerpc)
  if(NOT HK_STATIC) # no package database of the target to ask; 2.34 brought 64-bit time
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1")
  endif()
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON) # needs dpkg-shlibdeps of dpkg-dev
endif()
include(CPack)
