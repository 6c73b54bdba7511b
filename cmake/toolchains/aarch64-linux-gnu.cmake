# Cross build for AArch64 (64-bit ARM, little-endian, NEON): cmake
# -DCMAKE_TOOLCHAIN_FILE=this file; needs g++-aarch64-linux-gnu, qemu-user
# and googletest (scripts/test-cross).
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(cross_triple aarch64-linux-gnu)
set(cross_qemu qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross.cmake)
