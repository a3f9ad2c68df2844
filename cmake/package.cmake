# A Debian package by `cpack`, for the processor that was built for.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME hk-stress)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "hardware stress test of the controller board")
set(CPACK_PACKAGE_DESCRIPTION
    "Exercises the serial ports, field I/O modules, SPI memories, files, DRAM and front panel
of a controller board for as long as it is let, and counts every fault. On a host the
package also holds a simulated board to try it on.")
set(CPACK_PACKAGE_CONTACT "hk_stress maintainers <hk-stress@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_STRIP_FILES ON)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE powerpc)
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON) # needs dpkg-shlibdeps of dpkg-dev
endif()
include(CPack)
