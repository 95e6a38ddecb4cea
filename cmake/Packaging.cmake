# The Debian package: `cpack -G DEB` in a build folder configured with the /usr prefix (the
# release preset), so the paths compiled into the programs are the ones the package installs.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vantrelo)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Corvin")
set(CPACK_PACKAGE_CONTACT "Vantrelo maintainers <support@vantrelo.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Disk utility that makes NTFS disks writable")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "Vantrelo lives in the system tray and lists every mounted volume. When an external NTFS "
  "volume shows up read-only, its privileged helper mounts it again read/write through NTFS-3G "
  "for the person at the session. It also ejects, renames, repairs and erases disks.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
if(NOT CMAKE_INSTALL_PREFIX STREQUAL CPACK_PACKAGING_INSTALL_PREFIX)
  message(STATUS "CMAKE_INSTALL_PREFIX is ${CMAKE_INSTALL_PREFIX}: a Debian package built here "
    "would look for its helper outside ${CPACK_PACKAGING_INSTALL_PREFIX}")
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${VANTRELO_VENDOR_SITE})
# Libraries (Qt 6, libmount, libblkid, libudev) come from dpkg-shlibdeps; the tools the helper
# runs and the services it talks to are named here, and so is the Qt SVG plugin package: every
# image is an SVG read through that plugin, which no linked library pulls in.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "ntfs-3g, polkitd, udisks2, dbus, eject, libqt6svg6")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "xdg-utils")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/cmake/debian/postinst
  ${PROJECT_SOURCE_DIR}/cmake/debian/prerm
  ${PROJECT_SOURCE_DIR}/cmake/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
