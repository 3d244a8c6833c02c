# Compiler settings that the three products share, and the options of a build.

option(BENCHRIG_TESTS "Build the tests" ON)
option(BENCHRIG_WERROR "Treat warnings as errors" ON)
set(BENCHRIG_SANITIZE "" CACHE STRING "Sanitizers of all programs and libraries, such as address,undefined")
option(BENCHRIG_COVERAGE "Instrument the toolbox and librigcore for gcov" OFF)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "-Og -g")

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER "${CCACHE}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE}")
endif()

# benchrig_dialect: the language and the warnings of everything written here.
# benchrig_instrumented: sanitizers and coverage, for the toolbox, librigcore and the unit tests.
# vboard_instrumented: sanitizers for the virtual board. The interposer is also loaded into programs
# that were built without sanitizers. The thread sanitizer's run time must be part of the program from
# its start, and clang offers none of its run times to a library: then the virtual board stays plain.
add_library(benchrig_dialect INTERFACE)
target_compile_options(benchrig_dialect INTERFACE
  -fno-exceptions -fno-rtti -ffp-contract=off
  -fno-asynchronous-unwind-tables
  -ffunction-sections -fdata-sections -fvisibility=hidden
  -Wall -Wextra -Wconversion -Wshadow)
# Words at odd addresses are read byte by byte: the board's processor may not read them at once.
target_compile_options(benchrig_dialect INTERFACE
  $<IF:$<CXX_COMPILER_ID:GNU>,-Wcast-align=strict,-Wcast-align>)
if(BENCHRIG_WERROR)
  target_compile_options(benchrig_dialect INTERFACE -Werror)
endif()
# 64-bit file offsets on every build: physical addresses from 2 GiB on are offsets of a mapping.
target_compile_definitions(benchrig_dialect INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_include_directories(benchrig_dialect INTERFACE "${CMAKE_SOURCE_DIR}" "${CMAKE_SOURCE_DIR}/include" "${CMAKE_SOURCE_DIR}/src")

add_library(benchrig_instrumented INTERFACE)
add_library(vboard_instrumented INTERFACE)
if(BENCHRIG_SANITIZE)
  set(instrumented benchrig_instrumented)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT BENCHRIG_SANITIZE MATCHES "thread")
    list(APPEND instrumented vboard_instrumented)
  endif()
  foreach(target IN LISTS instrumented)
    target_compile_options(${target} INTERFACE -fsanitize=${BENCHRIG_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} INTERFACE -fsanitize=${BENCHRIG_SANITIZE})
  endforeach()
endif()
if(BENCHRIG_COVERAGE)
  target_compile_options(benchrig_instrumented INTERFACE --coverage)
  target_link_options(benchrig_instrumented INTERFACE --coverage)
endif()
