# Cross build for s390x (64-bit, big-endian): cmake -DCMAKE_TOOLCHAIN_FILE=this
# file; needs g++-s390x-linux-gnu, qemu-user and googletest (scripts/test-cross).
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(cross_triple s390x-linux-gnu)
set(cross_qemu qemu-s390x)
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross.cmake)
