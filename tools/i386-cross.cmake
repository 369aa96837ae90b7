# Toolchain for building the 32-bit x86 library, host and tests with Debian's
# i686 cross compilers (native programs of this machine) against the Debian
# i386 root of tools/i386-root.sh as the system root. The programs it builds
# run inside that root, where the kernel runs them natively or, on a machine
# that cannot run 32-bit programs, through the user-mode emulator.
#
#   cmake -S . -B build32 -DCMAKE_TOOLCHAIN_FILE=tools/i386-cross.cmake \
#         -DPICTURE_I386_ROOT=/var/cache/picture-i386-root
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)

if(NOT PICTURE_I386_ROOT)
  set(PICTURE_I386_ROOT "$ENV{PICTURE_I386_ROOT}")
endif()
if(NOT PICTURE_I386_ROOT)
  set(PICTURE_I386_ROOT /var/cache/picture-i386-root)
endif()
# Try-compile projects read the toolchain file again and need the root too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PICTURE_I386_ROOT)

set(CMAKE_SYSROOT "${PICTURE_I386_ROOT}")
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)

# Libraries, headers and package files come from the root only; programs
# (pkg-config, the emulator) from this machine.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${PICTURE_I386_ROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${PICTURE_I386_ROOT}/usr/lib/i386-linux-gnu/pkgconfig:${PICTURE_I386_ROOT}/usr/share/pkgconfig")

# The programs it builds run only inside the root, so the test programs list
# their tests when CTest runs there, not at build time on this machine.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
