# 32-bit ARM with Debian's cross compiler; programs run under qemu-user. The sysroot is the one that
# `./dev arm` fills; QUARVEL_SYSROOT names it, in the environment or as a cache variable.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

if(NOT QUARVEL_SYSROOT)
  set(QUARVEL_SYSROOT "$ENV{QUARVEL_SYSROOT}" CACHE PATH "Debian armhf tree with Qt 5 and GoogleTest" FORCE)
endif()
# Without this an empty name would have the host's /usr looked through.
if(NOT QUARVEL_SYSROOT OR NOT IS_DIRECTORY "${QUARVEL_SYSROOT}/usr/include")
  message(FATAL_ERROR "QUARVEL_SYSROOT '${QUARVEL_SYSROOT}' is no sysroot: run ./dev arm, which makes one")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QUARVEL_SYSROOT)

set(CMAKE_SYSROOT "${QUARVEL_SYSROOT}")
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi") # GCC 7 changed how some arguments are passed; nothing here is that old
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-arm;-L;${QUARVEL_SYSROOT}")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${QUARVEL_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${QUARVEL_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${QUARVEL_SYSROOT}/usr/share/pkgconfig")

# Shared libraries of shared libraries, which the linker looks up by itself.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${QUARVEL_SYSROOT}/usr/lib/arm-linux-gnueabihf -Wl,-rpath-link,${QUARVEL_SYSROOT}/lib/arm-linux-gnueabihf")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
