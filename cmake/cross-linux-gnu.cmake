# Shared body of the cross toolchain files: Debian's cross compilers for
# HW_CROSS_TRIPLE, the target's headers and libraries only, host programs,
# and qemu-user (with the target's C library from the cross packages) to
# run a target program on this host. The tests are host programs: they run
# the ARM hw_start under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)

set(CMAKE_C_COMPILER ${HW_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${HW_CROSS_TRIPLE}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${HW_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR ${HW_CROSS_QEMU} -L /usr/${HW_CROSS_TRIPLE})
