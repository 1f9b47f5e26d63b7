# Cross build for the board's 32-bit ARM hard-float userland
# (g++-arm-linux-gnueabihf):
#   cmake -S . -B build-armhf \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake
set(CMAKE_SYSTEM_PROCESSOR arm)
set(HW_CROSS_TRIPLE arm-linux-gnueabihf)
set(HW_CROSS_QEMU qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/cross-linux-gnu.cmake)
