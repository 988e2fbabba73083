# Cross build for AArch64 Linux with Debian's g++-aarch64-linux-gnu; binaries
# (tests) run under qemu-aarch64 with the cross toolchain's sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(PB_AARCH64_SYSROOT /usr/aarch64-linux-gnu CACHE PATH "Target runtime root for qemu")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${PB_AARCH64_SYSROOT})
set(CMAKE_FIND_ROOT_PATH ${PB_AARCH64_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Debian multiarch: arm64 development packages (libpng-dev:arm64 and the like)
# install under /usr/lib/aarch64-linux-gnu; search there too when it exists.
if(EXISTS /usr/lib/aarch64-linux-gnu)
  set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
  list(APPEND CMAKE_FIND_ROOT_PATH /)
  set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
endif()
