# `cpack -G DEB` in the build folder makes a Debian package of what
# `cmake --install` installs (tests, benchmarks and the test corpus are never
# installed). Its run-time dependencies come from the binaries themselves
# (dpkg-shlibdeps), except Qt's platform plugins, which Qt loads at run time.
set(PLOTVIK_PACKAGE_MAINTAINER "Plotvik maintainers <plotvik@norvex.example>"
    CACHE STRING "Maintainer named in the Debian package and its changelog")

# The documents every Debian package carries, in the folder named for the
# package: copyright and changelog (compressed, without a time stamp).
set(deb_doc ${CMAKE_BINARY_DIR}/debian-doc)
file(MAKE_DIRECTORY ${deb_doc})
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in ${deb_doc}/changelog @ONLY)
add_custom_command(OUTPUT ${deb_doc}/changelog.gz
  COMMAND ${GZIP} -9nc ${deb_doc}/changelog > ${deb_doc}/changelog.gz
  DEPENDS ${deb_doc}/changelog)
add_custom_target(debian_changelog ALL DEPENDS ${deb_doc}/changelog.gz)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${deb_doc}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/plotvik)
# lintian takes the demo firmware for misplaced host binaries; it says why not.
install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME plotvik)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME plotvik)
set(CPACK_PACKAGE_VENDOR Norvex)
set(CPACK_PACKAGE_CONTACT ${PLOTVIK_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "watch the variables of a running microcontroller program live")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "Plotvik reads the DWARF debug information of a firmware's ELF file into a
tree of the program's global and static variables, lets the user choose some,
samples them through a debug probe while the target runs, and shows them as
curves in a graph and as numbers in a watch table. Sampling by the probe at a
fixed period (BSQ) or by the firmware through a channel in its RAM (QTX), a
level trigger, and CSV and raw exports are provided.
.
The package includes plotvik-cli, the same from the command line, a probe
library that simulates a Cortex-M4 target running real firmware or reaches
real boards through a GDB server (OpenOCD, QEMU and others), and demo
projects.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS qt6-qpa-plugins)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
include(CPack)
