# Fails unless every LOAD segment of an ELF file is aligned to at least
# MIN_ALIGN bytes, so that it loads on systems with pages that large (Android
# with 16 KB pages refuses a library laid out for 4 KB). Run as:
#   cmake -DREADELF=readelf -DLIBRARY=libvideohdr.so -DMIN_ALIGN=16384 -P this-file
# READELF is the binutils readelf for the library's target (the cross one for ARM).
cmake_minimum_required(VERSION 3.16)
if(NOT DEFINED READELF OR NOT DEFINED LIBRARY OR NOT DEFINED MIN_ALIGN)
  message(FATAL_ERROR "usage: cmake -DREADELF=readelf -DLIBRARY=lib.so -DMIN_ALIGN=n -P check_page_alignment.cmake")
endif()

execute_process(COMMAND "${READELF}" -lW "${LIBRARY}" OUTPUT_VARIABLE headers
                RESULT_VARIABLE result ERROR_VARIABLE error)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${READELF} -lW ${LIBRARY} failed: ${error}")
endif()
# readelf -lW: Type Offset VirtAddr PhysAddr FileSiz MemSiz Flg Align; the
# alignment is the last field.
string(REGEX MATCHALL "\n[ \t]*LOAD[^\n]*" segments "${headers}")
if(NOT segments)
  message(FATAL_ERROR "${LIBRARY} has no LOAD segments:\n${headers}")
endif()
set(too_small)
foreach(segment IN LISTS segments)
  string(REGEX REPLACE ".*[ \t](0x[0-9a-fA-F]+)[ \t]*$" "\\1" align "${segment}")
  math(EXPR align "${align}")
  if(align LESS MIN_ALIGN)
    string(STRIP "${segment}" segment)
    string(APPEND too_small "\n  ${segment}")
  endif()
endforeach()
if(too_small)
  message(FATAL_ERROR "${LIBRARY}: LOAD segments aligned below ${MIN_ALIGN} bytes:${too_small}")
endif()
list(LENGTH segments count)
message(STATUS "${LIBRARY}: all ${count} LOAD segments aligned to at least ${MIN_ALIGN} bytes")
