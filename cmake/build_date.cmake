# cmake -DSOURCE=... -DOUTPUT=... -P build_date.cmake: writes the header with the date that the banner shows. One commit
# shows one date wherever and whenever it is built: SOURCE_DATE_EPOCH, else the commit's date, else that of the archive
# `git archive` made, else now. In UTC.
set(archived "$Format:%ct$")
set(epoch "$ENV{SOURCE_DATE_EPOCH}")
if(NOT epoch MATCHES "^[0-9]+$")
  set(epoch "")
  # Unpacked inside another repository, the sources have no commit of their own there.
  execute_process(COMMAND git -C "${SOURCE}" rev-parse --show-prefix
    OUTPUT_VARIABLE prefix RESULT_VARIABLE status ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(status EQUAL 0 AND prefix STREQUAL "")
    execute_process(COMMAND git -C "${SOURCE}" log -1 --format=%ct
      OUTPUT_VARIABLE epoch ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  endif()
endif()
if(epoch STREQUAL "" AND archived MATCHES "^[0-9]+$")
  set(epoch "${archived}")
endif()
if(epoch STREQUAL "")
  string(TIMESTAMP epoch "%s" UTC)
endif()

# TIMESTAMP takes the moment from this variable. Its names of months are the locale's.
set(ENV{SOURCE_DATE_EPOCH} "${epoch}")
string(TIMESTAMP date "%m;%d;%Y;%H:%M:%S" UTC)
list(GET date 0 month)
list(GET date 1 day)
list(GET date 2 year)
list(GET date 3 time)
math(EXPR month "${month} - 1")
set(names Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec)
list(GET names ${month} month)
string(REGEX REPLACE "^0" " " day "${day}")

set(text "// Made by build_date.cmake: the sources are of ${epoch}.\n#pragma once\n\n")
string(APPEND text "#define BUILD_DATE \"${month} ${day} ${year}\"\n#define BUILD_TIME \"${time}\"\n")
set(old "")
if(EXISTS "${OUTPUT}")
  file(READ "${OUTPUT}" old)
endif()
# An unchanged date compiles nothing again.
if(NOT text STREQUAL old)
  file(WRITE "${OUTPUT}" "${text}")
endif()
