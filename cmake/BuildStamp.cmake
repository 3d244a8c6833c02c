# Writes the header that fixes the build stamp when SOURCE_DATE_EPOCH asks for a reproducible build,
# and an empty one otherwise: the compiler's own date and time are then the stamp. Run at build time:
#   cmake -DOUTPUT=FILE -P BuildStamp.cmake
set(text "")
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  # string(TIMESTAMP) takes its moment from SOURCE_DATE_EPOCH. The compiler pads the day with a blank.
  string(TIMESTAMP month "%b" UTC)
  string(TIMESTAMP day "%d" UTC)
  string(TIMESTAMP year "%Y" UTC)
  string(TIMESTAMP time "%H:%M:%S" UTC)
  string(REGEX REPLACE "^0" " " day "${day}")
  set(text "#define BENCHRIG_BUILD_DATE \"${month} ${day} ${year}\"\n#define BENCHRIG_BUILD_TIME \"${time}\"\n")
endif()
file(WRITE "${OUTPUT}" "${text}")
