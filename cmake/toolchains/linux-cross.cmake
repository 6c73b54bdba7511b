# The common part of the cross toolchains: Debian's cross compilers for the
# triple the including file names (cross_triple), the target's libraries
# from /usr/<triple>, and qemu-user (cross_qemu) to run what is built. The
# including file sets CMAKE_SYSTEM_PROCESSOR, cross_triple and cross_qemu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${cross_triple}-gcc)
set(CMAKE_CXX_COMPILER ${cross_triple}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${cross_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test programs (and GoogleTest's listing of their tests) run under the
# emulator with the target's own C library; no binfmt registration needed.
set(CMAKE_CROSSCOMPILING_EMULATOR ${cross_qemu} -L /usr/${cross_triple})

# The host has no benchmark library or fuzzer runtime for the target.
set(PAL2NTSC_BENCH OFF CACHE BOOL "Build the benchmarks")
set(PAL2NTSC_FUZZ OFF CACHE BOOL "Build the libFuzzer targets")

# GoogleTest is built from source with the cross compiler (crossTesting.cmake).
set(CMAKE_PROJECT_pal2ntsc_INCLUDE ${CMAKE_CURRENT_LIST_DIR}/crossTesting.cmake)
