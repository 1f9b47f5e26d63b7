# Cross build for the board's 64-bit ARM userland with Debian's
# cross compilers (g++-aarch64-linux-gnu):
#   cmake -S . -B build-aarch64 -DHW_TESTS=OFF \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
# The tests are host programs: they run the ARM hw_start under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(HW_CROSS_TRIPLE aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${HW_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${HW_CROSS_TRIPLE}-g++)

# Headers and libraries of the target only; programs of the host.
set(CMAKE_FIND_ROOT_PATH /usr/${HW_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# How to run a target program on this host (qemu-user, with the target's
# C library from the cross packages).
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L /usr/${HW_CROSS_TRIPLE})
