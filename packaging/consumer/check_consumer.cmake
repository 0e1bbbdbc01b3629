# Installs an in-tree build into a fresh prefix and builds the consumer
# program against it the ways users do, then requires every build to print
# what the in-tree build of the same program printed:
#   find_package   the consumer's CMake project with CMAKE_PREFIX_PATH=<prefix>
#   pkg-config     cc consumer.c $(pkg-config --cflags --libs videohdr)
#   pkg-config     the same with -static and --static (the archive alone)
#                  each of them also with its own __android_log_print, which
#                  must take the library's lines from liblog's stand-in; and
#                  the stand-in's lines filtered by ANDROID_LOG_TAGS
#   add_subdirectory  the consumer's CMake project over the source tree; the
#                  embedded videohdr must leave its tests, tools and install
#                  rules off.
#   Java           Consumer.java compiled against <prefix>/share/java and run
#                  with java.library.path=<prefix>/lib alone: the C program's
#                  "planes" lines (when JAVA and JAVAC are given).
# Run by CTest as:
#   cmake -DBUILD_DIR=... -DSOURCE_DIR=... -DWORK_DIR=... -DEXPECTED_PROGRAM=...
#         -DLIBDIR=lib -DGENERATOR=Ninja -DC_COMPILER=cc -DCXX_COMPILER=c++
#         [-DJAVA=java -DJAVAC=javac -DDATADIR=share] -P this-file
# pkg-config is looked up here, not when the build is configured, so that
# builds which never run the test do not need it.
cmake_minimum_required(VERSION 3.16)
foreach(var BUILD_DIR SOURCE_DIR WORK_DIR EXPECTED_PROGRAM LIBDIR GENERATOR C_COMPILER
            CXX_COMPILER)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "check_consumer.cmake: ${var} is not set")
  endif()
endforeach()
find_program(PKG_CONFIG pkg-config)
if(NOT PKG_CONFIG)
  message(FATAL_ERROR "pkg-config not found (Debian: apt-get install pkg-config)")
endif()
set(consumer_dir ${CMAKE_CURRENT_LIST_DIR})
set(prefix ${WORK_DIR}/prefix)
set(c_flags -std=c99 -pedantic -Wall -Wextra -Werror)

# Runs a command; stops with its output when it fails. The output is left in
# `output`, the standard error in `errors`.
function(run step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${step} failed (${result}):\n${ARGN}\n${out}${err}")
  endif()
  set(output "${out}" PARENT_SCOPE)
  set(errors "${err}" PARENT_SCOPE)
endfunction()

function(expect_same_output way)
  run("running the ${way} build" ${ARGN})
  if(NOT output STREQUAL expected)
    message(FATAL_ERROR "the ${way} build differs from the in-tree build:\n"
                        "in-tree:\n${expected}${way}:\n${output}")
  endif()
  message(STATUS "${way}: same output as the in-tree build")
  set(errors "${errors}" PARENT_SCOPE)
endfunction()

# Stops unless the last run's standard error starts with `first_line`
# (a regular expression), or is empty when that is "".
function(expect_log way first_line)
  if((first_line STREQUAL "" AND NOT errors STREQUAL "")
     OR NOT errors MATCHES "^${first_line}")
    message(FATAL_ERROR "${way}: the log lines on stderr are not as expected "
                        "(${first_line}):\n${errors}")
  endif()
endfunction()

function(build_cmake_consumer way)
  run("configuring the ${way} consumer" ${CMAKE_COMMAND} -S ${consumer_dir} -B ${WORK_DIR}/${way}
      -G ${GENERATOR} -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
      ${ARGN})
  run("building the ${way} consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/${way})
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
run("the in-tree program" ${EXPECTED_PROGRAM})
set(expected "${output}")
run("installing" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

build_cmake_consumer(find_package -DCMAKE_PREFIX_PATH=${prefix})
expect_same_output(find_package ${WORK_DIR}/find_package/consumer)

# PKG_CONFIG_LIBDIR replaces the default search path: only the fresh install counts.
set(pkg_env ${CMAKE_COMMAND} -E env PKG_CONFIG_LIBDIR=${prefix}/${LIBDIR}/pkgconfig)
foreach(linking shared static)
  set(pkg_args --cflags --libs)
  set(link_args)
  if(linking STREQUAL static)
    set(pkg_args --static --cflags --libs)
    set(link_args -static)
  endif()
  run("pkg-config ${pkg_args} videohdr" ${pkg_env} ${PKG_CONFIG} ${pkg_args} videohdr)
  separate_arguments(pkg_flags UNIX_COMMAND "${output}")
  foreach(log stand-in own)
    set(way "pkg-config (${linking}, ${log} log)")
    set(program ${WORK_DIR}/pkg-config-${linking}-${log})
    set(defines)
    if(log STREQUAL own)
      set(defines -DCONSUMER_OWN_LOG)
    endif()
    run("building the ${way} consumer" ${C_COMPILER} ${c_flags} ${defines}
        ${consumer_dir}/consumer.c ${link_args} ${pkg_flags} -o ${program})
    set(env ${CMAKE_COMMAND} -E env --unset=ANDROID_LOG_TAGS LD_LIBRARY_PATH=${prefix}/${LIBDIR})
    expect_same_output("${way}" ${env} ${program})
    if(log STREQUAL own)
      expect_log("${way}" "consumer's own log, 4 VideoHDR: TQ0530 V_HDR Process 0\\.\\.\\., 80\n")
      continue()
    endif()
    expect_log("${way}" "I/VideoHDR: TQ0530 V_HDR Process 0\\.\\.\\., 80\n")
    foreach(tags "*:w" "VideoHDR:e *:s")
      expect_same_output("${way}, ANDROID_LOG_TAGS=${tags}" ${env} "ANDROID_LOG_TAGS=${tags}"
                         ${program})
      expect_log("${way}, ANDROID_LOG_TAGS=${tags}" "")
    endforeach()
  endforeach()
endforeach()

build_cmake_consumer(add_subdirectory -DVIDEOHDR_SOURCE_DIR=${SOURCE_DIR})
file(STRINGS ${WORK_DIR}/add_subdirectory/CMakeCache.txt switched_on
     REGEX "^VIDEOHDR_(BUILD_TESTS|BUILD_TOOLS|INSTALL):BOOL=ON")
if(switched_on)
  message(FATAL_ERROR "embedded with add_subdirectory, videohdr turns on: ${switched_on}")
endif()
expect_same_output(add_subdirectory ${WORK_DIR}/add_subdirectory/consumer)

# A desktop Java program against the installed tree, as the README tells it.
if(DEFINED JAVA)
  set(jar ${prefix}/${DATADIR}/java/videohdr.jar)
  run("compiling the Java consumer" ${JAVAC} -Xlint:all -Werror -cp ${jar}
      -d ${WORK_DIR}/java ${consumer_dir}/Consumer.java)
  string(REGEX MATCHALL "planes [^\n]*\n" planes_lines "${expected}")
  string(REPLACE ";" "" expected "${planes_lines}")
  set(env ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH --unset=ANDROID_LOG_TAGS)
  set(java ${JAVA} -Djava.library.path=${prefix}/${LIBDIR} -cp ${jar}:${WORK_DIR}/java Consumer)
  expect_same_output(Java ${env} ${java})
  # The instance that never took a frame closed without a line of its own.
  expect_log(Java "I/VideoHDR: TQ0530 V_HDR Process 0\\.\\.\\., 80\n")
  expect_same_output("Java, ANDROID_LOG_TAGS=*:w" ${env} "ANDROID_LOG_TAGS=*:w" ${java})
  expect_log("Java, ANDROID_LOG_TAGS=*:w" "")
endif()
