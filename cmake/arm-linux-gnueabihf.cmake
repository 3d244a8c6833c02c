# Builds for 32-bit ARM with hardware floating point: cmake --toolchain cmake/arm-linux-gnueabihf.cmake
#
# The compiler and its C library are the distribution's cross packages; third-party libraries come
# from the sysroot that scripts/arm-sysroot.sh fills. BENCHRIG_ARM_SYSROOT names another one, such as
# the root directory of a board. Flags for the board's processor (-mcpu=cortex-a7) go into CXXFLAGS.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

cmake_path(SET BENCHRIG_ARM_SYSROOT_DEFAULT NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../build/arm-sysroot")
set(BENCHRIG_ARM_SYSROOT "${BENCHRIG_ARM_SYSROOT_DEFAULT}" CACHE PATH "Third-party libraries for ARM")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES BENCHRIG_ARM_SYSROOT)

set(CMAKE_FIND_ROOT_PATH "${BENCHRIG_ARM_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(headers "${BENCHRIG_ARM_SYSROOT}/usr/include")
set(libraries "${BENCHRIG_ARM_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
foreach(language IN ITEMS C CXX)
  # Which registers std::array goes by changed with GCC 7; nothing here is older.
  set(CMAKE_${language}_FLAGS_INIT
    "-Wno-psabi -isystem ${headers} -isystem ${headers}/${CMAKE_LIBRARY_ARCHITECTURE}")
endforeach()
foreach(kind IN ITEMS EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-L${libraries} -Wl,-rpath-link,${libraries}")
endforeach()

# Programs of the build (its tests) run under emulation.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L "${BENCHRIG_ARM_SYSROOT}")
