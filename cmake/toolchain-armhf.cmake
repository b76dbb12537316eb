# Cross build for the controller: 32-bit ARM, hard-float (arm-linux-gnueabihf),
# with Debian's cross compiler (g++-arm-linux-gnueabihf). The compiler brings
# its own C and C++ libraries; every other library and header comes from
# BMCCERT_SYSROOT, Debian's armhf packages unpacked by scripts/armhf-sysroot.sh.
# Test programs run under qemu-arm (qemu-user) with that sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT BMCCERT_SYSROOT)
  set(BMCCERT_SYSROOT $ENV{BMCCERT_SYSROOT})
endif()
if(NOT IS_DIRECTORY "${BMCCERT_SYSROOT}/usr/lib/arm-linux-gnueabihf")
  message(FATAL_ERROR "BMCCERT_SYSROOT='${BMCCERT_SYSROOT}' is no armhf sysroot: "
    "make one with scripts/armhf-sysroot.sh")
endif()
# try_compile projects read this file again and must see the same sysroot.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES BMCCERT_SYSROOT)

# A caller may add roots of its own (a staging directory bmccert was installed to).
list(APPEND CMAKE_FIND_ROOT_PATH ${BMCCERT_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Multiarch headers (OpenSSL's configuration) and the libraries' own
# dependencies, which the linker resolves but does not link.
set(bmccert_arch_include "-isystem ${BMCCERT_SYSROOT}/usr/include/arm-linux-gnueabihf")
set(CMAKE_C_FLAGS_INIT "${bmccert_arch_include}")
set(CMAKE_CXX_FLAGS_INIT "${bmccert_arch_include}")
set(bmccert_rpath_link
  "-Wl,-rpath-link,${BMCCERT_SYSROOT}/usr/lib/arm-linux-gnueabihf:${BMCCERT_SYSROOT}/lib/arm-linux-gnueabihf")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${bmccert_rpath_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${bmccert_rpath_link}")

# pkg-config must read the sysroot's .pc files, never this machine's.
set(ENV{PKG_CONFIG_LIBDIR}
  "${BMCCERT_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${BMCCERT_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${BMCCERT_SYSROOT}")

find_program(BMCCERT_QEMU_ARM qemu-arm)
if(BMCCERT_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${BMCCERT_QEMU_ARM} -L ${BMCCERT_SYSROOT})
endif()
