# Fails unless the shared library's dynamic symbol table, the export list and
# the public headers name the same calls: every VIDEOHDR_API declaration is
# exported and listed, and nothing else is. Run as:
#   cmake -DNM=nm -DLIBRARY=libvideohdr.so -DMAP=jni/videohdr.map
#         -DHEADERS="jni/a.h|planes/b.h" -P this-file
# NM is the binutils nm for the library's target (the cross one for ARM).
cmake_minimum_required(VERSION 3.16)
if(NOT DEFINED NM OR NOT DEFINED LIBRARY OR NOT DEFINED MAP OR NOT DEFINED HEADERS)
  message(FATAL_ERROR "usage: cmake -DNM=nm -DLIBRARY=lib.so -DMAP=file -DHEADERS=a|b -P check_exports.cmake")
endif()

# Drops /* */ and // comments, so that names in prose never count.
function(strip_comments var text)
  while(TRUE)
    string(FIND "${text}" "/*" open)
    if(open EQUAL -1)
      break()
    endif()
    string(SUBSTRING "${text}" 0 ${open} head)
    string(SUBSTRING "${text}" ${open} -1 rest)
    string(FIND "${rest}" "*/" close)
    if(close EQUAL -1)
      message(FATAL_ERROR "unterminated comment")
    endif()
    math(EXPR close "${close} + 2")
    string(SUBSTRING "${rest}" ${close} -1 rest)
    set(text "${head} ${rest}")
  endwhile()
  string(REGEX REPLACE "//[^\n]*" "" text "${text}")
  set(${var} "${text}" PARENT_SCOPE)
endfunction()

# The calls the headers declare: the identifier right before the parameter
# list of each VIDEOHDR_API declaration (the macro's own definition is a
# preprocessor line and is dropped first).
set(declared)
string(REPLACE "|" ";" header_files "${HEADERS}")
foreach(header IN LISTS header_files)
  file(READ "${header}" text)
  strip_comments(text "${text}")
  string(REGEX REPLACE "\\\\\n" " " text "${text}")
  string(REGEX REPLACE "(^|\n)[ \t]*#[^\n]*" "\\1" text "${text}")
  string(REGEX MATCHALL "VIDEOHDR_API[^;(]*\\(" declarations "${text}")
  foreach(declaration IN LISTS declarations)
    string(REGEX REPLACE ".*[^A-Za-z0-9_]([A-Za-z_][A-Za-z0-9_]*)[ \t\r\n]*\\($" "\\1" name
                         "${declaration}")
    list(APPEND declared ${name})
  endforeach()
endforeach()
if(NOT declared)
  message(FATAL_ERROR "no VIDEOHDR_API declarations found in ${HEADERS}")
endif()

# The names of the export list's global: section.
file(READ "${MAP}" text)
strip_comments(text "${text}")
if(NOT text MATCHES "global:(.*)local:")
  message(FATAL_ERROR "${MAP}: no global: ... local: sections")
endif()
string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_]*" listed "${CMAKE_MATCH_1}")

# Every defined dynamic symbol, data as well as code; symbol versions
# (name@@VERSION), where a linker adds them, are not part of the name.
execute_process(COMMAND "${NM}" -D --defined-only "${LIBRARY}" OUTPUT_VARIABLE nm_out
                RESULT_VARIABLE nm_result ERROR_VARIABLE nm_err)
if(NOT nm_result EQUAL 0)
  message(FATAL_ERROR "${NM} -D --defined-only ${LIBRARY} failed: ${nm_err}")
endif()
string(REGEX MATCHALL "[^\n]+" nm_lines "${nm_out}")
set(exported)
foreach(line IN LISTS nm_lines)
  string(REGEX REPLACE "^.* ([^ @]+)(@.*)?$" "\\1" name "${line}")
  list(APPEND exported ${name})
endforeach()

# Appends to `problems` the names in list `have` that list `want` lacks.
function(compare have want)
  set(missing ${${have}})
  if(${want})
    list(REMOVE_ITEM missing ${${want}})
  endif()
  if(missing)
    string(REPLACE ";" " " missing "${missing}")
    set(problems "${problems}\n  ${have} but not ${want}: ${missing}" PARENT_SCOPE)
  endif()
endfunction()

set(problems)
compare(exported declared)
compare(declared exported)
compare(listed declared)
compare(declared listed)
if(problems)
  message(FATAL_ERROR "${LIBRARY}, ${MAP} and the public headers disagree:${problems}")
endif()
list(REMOVE_DUPLICATES declared)
list(LENGTH declared declared_count)
message(STATUS "${LIBRARY} exports exactly the ${declared_count} declared calls")
