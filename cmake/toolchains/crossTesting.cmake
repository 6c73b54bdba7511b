# Included right after project(pal2ntsc) by the cross toolchains
# (linux-cross.cmake): what the test suites need to build and run for
# another machine.
#
# GoogleTest built from the sources Debian's googletest package ships, with
# the project's own compiler, when PAL2NTSC_GTEST_SOURCE names them. The
# tests' find_package(GTest) then finds these targets (GTest::gtest,
# GTest::gtest_main) through a package file that only says they are there.
set(PAL2NTSC_GTEST_SOURCE /usr/src/googletest CACHE PATH
  "GoogleTest sources to build with the project; empty: an installed GoogleTest")
if(PAL2NTSC_GTEST_SOURCE)
  if(NOT EXISTS ${PAL2NTSC_GTEST_SOURCE}/CMakeLists.txt)
    message(FATAL_ERROR "No GoogleTest sources in ${PAL2NTSC_GTEST_SOURCE} (package googletest)")
  endif()
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(${PAL2NTSC_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  file(WRITE ${CMAKE_BINARY_DIR}/googletest-package/GTestConfig.cmake
    "# GTest::gtest and GTest::gtest_main are built from source in this build.\n")
  set(GTest_DIR ${CMAKE_BINARY_DIR}/googletest-package CACHE PATH "GoogleTest package file" FORCE)
endif()

# Every test program runs under the emulator with qemuGuest.c preloaded,
# which starts the programs the tests start under the emulator as well.
if(CMAKE_CROSSCOMPILING_EMULATOR)
  add_library(pal2ntsc_qemu_guest SHARED EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/qemuGuest.c)
  target_link_libraries(pal2ntsc_qemu_guest PRIVATE ${CMAKE_DL_LIBS})
  set_target_properties(pal2ntsc_qemu_guest PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
  list(GET CMAKE_CROSSCOMPILING_EMULATOR 0 qemu)
  find_program(PAL2NTSC_QEMU_PATH ${qemu} REQUIRED)
  list(GET CMAKE_CROSSCOMPILING_EMULATOR 2 qemu_prefix)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${PAL2NTSC_QEMU_PATH} -L ${qemu_prefix}
    -E LD_PRELOAD=${CMAKE_BINARY_DIR}/lib/libpal2ntsc_qemu_guest.so
    -E PAL2NTSC_QEMU=${PAL2NTSC_QEMU_PATH} -E PAL2NTSC_QEMU_PREFIX=${qemu_prefix})
endif()
