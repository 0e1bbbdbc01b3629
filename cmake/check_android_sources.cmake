# Fails when jni/Android.mk (ndk-build) and CMakeLists.txt compile different
# library sources. Run as:
#   cmake -DSOURCES="jni/a.cpp|jni/b.cpp" -DANDROID_MK=path/jni/Android.mk -P this-file
# SOURCES are relative to the project root; Android.mk names them relative to
# jni/ (those outside it, such as planes/, with a leading ../).
if(NOT DEFINED SOURCES OR NOT DEFINED ANDROID_MK)
  message(FATAL_ERROR "usage: cmake -DSOURCES=a|b -DANDROID_MK=file -P check_android_sources.cmake")
endif()

string(REPLACE "|" ";" cmake_sources "${SOURCES}")
set(expected)
foreach(src IN LISTS cmake_sources)
  if(src MATCHES "^jni/")
    string(REGEX REPLACE "^jni/" "" src "${src}")
  else()
    set(src "../${src}")
  endif()
  list(APPEND expected "${src}")
endforeach()

file(READ "${ANDROID_MK}" makefile)
# Join continued lines, keep the videohdr module (from its LOCAL_MODULE line to
# the include that builds it), then gather every LOCAL_SRC_FILES assignment
# (:=, = or +=) in it.
string(REGEX REPLACE "\\\\\n" " " makefile "${makefile}")
string(REGEX MATCH "LOCAL_MODULE[ \t]*:?=[ \t]*videohdr[ \t]*\n.*" makefile "${makefile}")
string(FIND "${makefile}" "include $(BUILD_" module_end)
string(SUBSTRING "${makefile}" 0 ${module_end} makefile)
string(REGEX MATCHALL "LOCAL_SRC_FILES[ \t]*[:+]?=[^\n]*" assignments "${makefile}")
set(listed)
foreach(line IN LISTS assignments)
  string(REGEX REPLACE "^LOCAL_SRC_FILES[ \t]*[:+]?=" "" line "${line}")
  string(STRIP "${line}" line)
  string(REGEX REPLACE "[ \t]+" ";" words "${line}")
  list(APPEND listed ${words})
endforeach()

set(only_cmake ${expected})
if(listed)
  list(REMOVE_ITEM only_cmake ${listed})
endif()
set(only_mk ${listed})
if(expected)
  list(REMOVE_ITEM only_mk ${expected})
endif()
list(LENGTH listed listed_count)
list(REMOVE_DUPLICATES listed)
list(LENGTH listed unique_count)

if(only_cmake OR only_mk OR NOT listed_count EQUAL unique_count)
  message(FATAL_ERROR "jni/Android.mk and CMakeLists.txt list different library sources:\n"
                      "  only in CMakeLists.txt: ${only_cmake}\n"
                      "  only in jni/Android.mk: ${only_mk}\n"
                      "  (Android.mk names ${listed_count} files, ${unique_count} distinct)")
endif()
list(LENGTH expected count)
message(STATUS "jni/Android.mk and CMakeLists.txt agree on ${count} library sources")
