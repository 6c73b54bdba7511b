# The Debian package, made by CPack from the install rules: "cpack -G DEB"
# in the build folder gives pal2ntsc_VERSION-1_ARCH.deb. Its dependencies
# are what dpkg-shlibdeps (package dpkg-dev) finds the programs linked with.
set(PAL2NTSC_MAINTAINER "pal2ntsc maintainers <maintainers@users.noreply.c-seed-19d64218.example>"
  CACHE STRING "Maintainer field of the Debian package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pal2ntsc)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "pal2ntsc developers")
set(CPACK_PACKAGE_CONTACT "${PAL2NTSC_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "PAL to NTSC standards conversion for a raw clip store")
set(CPACK_PACKAGE_DESCRIPTION
  "pal2ntsc converts 720x576 PAL clips of YUV 4:2:2 frames, kept in clip files
of a raw store (a big-endian header, then raw frames in block-aligned slots),
into NTSC clips of 486 lines, field by field, and can write a reduced 24-bit
RGB copy of every converted frame. It streams whole clips with direct I/O,
gives bit-exact pictures and never writes to its input.

vclip, its companion, shows what a clip file holds, makes PAL test clips,
imports raw UYVY frames and YUV4MPEG2 streams, and exports clips as
YUV4MPEG2 streams and frames as PNG, PPM or BMP pictures.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${PAL2NTSC_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Only the binary package; the source is the repository.
set(CPACK_SOURCE_GENERATOR "")
include(CPack)
