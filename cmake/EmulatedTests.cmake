# The tests of a build for ARM, run on this machine. Its programs are emulated one by one; what starts
# and watches them (pytest, vboard's launcher, a shell) is this machine's own. For that a second build
# makes the launcher and the interposer for this machine, and a folder brings both together:
#
#   emulated/bin        vboard of this machine, set up for ARM programs; the ARM programs
#   emulated/lib, tests, CMakeCache.txt     of the ARM build
#   preload/lib/ARCHITECTURE/libvboard.so   an interposer for each kind of program
#
# BENCHRIG_TEST_BUILD and BENCHRIG_TEST_ENVIRONMENT tell the tests about it.

include(ExternalProject)

list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
list(GET CMAKE_CROSSCOMPILING_EMULATOR 0 emulator_name)
find_program(BENCHRIG_EMULATOR_PROGRAM ${emulator_name} REQUIRED DOC "Runs the programs of this build")
string(REPLACE "${emulator_name} " "${BENCHRIG_EMULATOR_PROGRAM} " emulator "${emulator}")

find_program(BENCHRIG_HOST_CXX NAMES g++ clang++ REQUIRED DOC "The compiler for this machine's own programs")
execute_process(COMMAND "${BENCHRIG_HOST_CXX}" -print-multiarch OUTPUT_VARIABLE host OUTPUT_STRIP_TRAILING_WHITESPACE)

ExternalProject_Add(host_vboard
  SOURCE_DIR "${CMAKE_SOURCE_DIR}"
  BINARY_DIR "${CMAKE_BINARY_DIR}/host"
  PREFIX "${CMAKE_BINARY_DIR}/host-build"
  CMAKE_ARGS -DCMAKE_BUILD_TYPE=Release -DBENCHRIG_TESTS=OFF "-DBENCHRIG_WERROR=${BENCHRIG_WERROR}"
             "-DCMAKE_CXX_COMPILER=${BENCHRIG_HOST_CXX}"
             # Given, so that CXXFLAGS for the board's processor does not count here.
             -DCMAKE_CXX_FLAGS= -DCMAKE_C_FLAGS= -DCMAKE_EXE_LINKER_FLAGS= -DCMAKE_SHARED_LINKER_FLAGS=
  BUILD_COMMAND "${CMAKE_COMMAND}" --build <BINARY_DIR> --target vboard vboard_interposer
  BUILD_ALWAYS ON
  INSTALL_COMMAND "")

set(preload "${CMAKE_BINARY_DIR}/preload")
set(BENCHRIG_TEST_BUILD "${CMAKE_BINARY_DIR}/emulated")
file(MAKE_DIRECTORY "${preload}/lib/${host}" "${preload}/lib/${CMAKE_LIBRARY_ARCHITECTURE}" "${BENCHRIG_TEST_BUILD}/bin")
file(CREATE_LINK "${CMAKE_BINARY_DIR}/host/lib/libvboard.so" "${preload}/lib/${host}/libvboard.so" SYMBOLIC)
file(CREATE_LINK "${CMAKE_BINARY_DIR}/lib/libvboard.so" "${preload}/lib/${CMAKE_LIBRARY_ARCHITECTURE}/libvboard.so" SYMBOLIC)
foreach(name IN ITEMS bin/benchrig lib tests CMakeCache.txt)
  file(CREATE_LINK "${CMAKE_BINARY_DIR}/${name}" "${BENCHRIG_TEST_BUILD}/${name}" SYMBOLIC)
endforeach()
# Where the value holds $LIB, it is the loader's.
file(CONFIGURE OUTPUT "${BENCHRIG_TEST_BUILD}/bin/vboard" NEWLINE_STYLE UNIX @ONLY CONTENT [[#!/bin/sh
export VBOARD_PRELOAD='@preload@/$LIB/libvboard.so'
export VBOARD_EMULATOR='@BENCHRIG_EMULATOR_PROGRAM@'
export VBOARD_SYSROOT='@BENCHRIG_ARM_SYSROOT@'
exec '@CMAKE_BINARY_DIR@/host/bin/vboard' "$@"
]])
file(CHMOD "${BENCHRIG_TEST_BUILD}/bin/vboard"
  PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(BENCHRIG_TEST_ENVIRONMENT "BENCHRIG_EMULATOR=${emulator}" "BENCHRIG_SYSROOT=${BENCHRIG_ARM_SYSROOT}")
