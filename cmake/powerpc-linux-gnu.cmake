# The target: 32-bit big-endian PowerPC Linux, built with Debian's cross compiler and tried under
# user-mode emulation. Another toolchain: -DHK_TARGET=powerpc-board-linux-gnu names its prefix, or
# point CMAKE_TOOLCHAIN_FILE at a file of your own.

set(HK_TARGET powerpc-linux-gnu CACHE STRING "Prefix of the cross toolchain's commands")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES HK_TARGET)

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ppc)
set(CMAKE_CXX_COMPILER ${HK_TARGET}-g++)
set(CMAKE_C_COMPILER ${HK_TARGET}-gcc)
set(CMAKE_STRIP ${HK_TARGET}-strip)

# The linker aligns for pages of 64 kB: data made read-only after relocation would leave a hole of up
# to that size in a file of 70 kB.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-z,norelro)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
