# The phone's build: 32-bit ARM with Debian's cross compiler, against the armhf
# sysroot that tools/arm-sysroot unpacks, run under qemu-user on the host.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

get_filename_component(FT_ARM_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/arm/sysroot" ABSOLUTE)
set(FT_ARM_LIBDIRS ${FT_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf ${FT_ARM_SYSROOT}/lib/arm-linux-gnueabihf)

set(CMAKE_FIND_ROOT_PATH ${FT_ARM_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

string(REPLACE ";" ":" FT_ARM_LIBPATH "${FT_ARM_LIBDIRS}")
set(FT_ARM_INCLUDES "-isystem ${FT_ARM_SYSROOT}/usr/include -isystem ${FT_ARM_SYSROOT}/usr/include/arm-linux-gnueabihf")
# 64-bit file offsets: under qemu-user the host's 64-bit directory offsets would
# otherwise end a 32-bit readdir() with EOVERFLOW.
set(CMAKE_C_FLAGS_INIT "${FT_ARM_INCLUDES} -D_FILE_OFFSET_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "${FT_ARM_INCLUDES} -D_FILE_OFFSET_BITS=64")
set(FT_ARM_LINK "-L${FT_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf -L${FT_ARM_SYSROOT}/lib/arm-linux-gnueabihf -Wl,-rpath-link,${FT_ARM_LIBPATH}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${FT_ARM_LINK}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${FT_ARM_LINK}")

# Tests built here run under qemu-user with the cross C library and the sysroot.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=${FT_ARM_LIBPATH})
