# Toolchain file of the device: 32-bit little-endian MIPS, against the sysroot that `./dev target` unpacks. With AP_BOX
# (the box of this machine's own build) the tests run under user emulation inside boxes; without, just emulated.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE mipsel-linux-gnu)

cmake_path(SET repository NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/..")
set(AP_SYSROOT "${repository}build/target/sysroot" CACHE PATH "The device's headers and libraries")
set(AP_BOX "" CACHE FILEPATH "The apbox of this machine's own build, in which emulated tests run")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES AP_SYSROOT AP_BOX)
set(CMAKE_SYSROOT "${AP_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

set(CMAKE_CROSSCOMPILING_EMULATOR sh "${repository}tools/target/emulate" "${CMAKE_SYSROOT}")
if(AP_BOX)
    list(PREPEND CMAKE_CROSSCOMPILING_EMULATOR "${AP_BOX}" run --)
endif()
