# Cross build for the board's 64-bit ARM userland (g++-aarch64-linux-gnu):
#   cmake -S . -B build-aarch64 \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(HW_CROSS_TRIPLE aarch64-linux-gnu)
set(HW_CROSS_QEMU qemu-aarch64-static)
include(${CMAKE_CURRENT_LIST_DIR}/cross-linux-gnu.cmake)
