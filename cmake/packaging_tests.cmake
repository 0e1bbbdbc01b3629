# Tests of the library as users get it. The export and page-alignment checks
# only read the built file, so they run on the build host in cross builds too,
# with the target's binutils (CMAKE_NM, CMAKE_READELF: arm-linux-gnueabihf-nm
# and so on).
set(VIDEOHDR_HEADER_PATHS ${VIDEOHDR_PUBLIC_HEADERS})
list(TRANSFORM VIDEOHDR_HEADER_PATHS PREPEND ${PROJECT_SOURCE_DIR}/)
string(REPLACE ";" "|" VIDEOHDR_HEADER_PATHS "${VIDEOHDR_HEADER_PATHS}")

if(VIDEOHDR_EXPORT_MAP)
  set(check_exports ${CMAKE_COMMAND} -DNM=${CMAKE_NM} -DLIBRARY=$<TARGET_FILE:videohdr>
                    -DMAP=${VIDEOHDR_EXPORT_MAP})
  set(check_exports_script -P ${PROJECT_SOURCE_DIR}/cmake/check_exports.cmake)
  add_test(NAME exports
           COMMAND ${check_exports} -DHEADERS=${VIDEOHDR_HEADER_PATHS} ${check_exports_script})
  # The check itself must notice a difference: a header declaring one call more.
  set(extra_header ${PROJECT_BINARY_DIR}/one_call_more.h)
  file(WRITE ${extra_header} "VIDEOHDR_API int32_t videohdr_not_built(void);\n")
  add_test(NAME exports_mismatch
           COMMAND ${check_exports} -DHEADERS=${VIDEOHDR_HEADER_PATHS}|${extra_header}
                   ${check_exports_script})
  set_tests_properties(exports_mismatch PROPERTIES PASS_REGULAR_EXPRESSION
                                                   "declared but not exported: videohdr_not_built")
endif()

if(VIDEOHDR_MAX_PAGE_SIZE)
  foreach(library videohdr videohdr_log videohdr_jni)
    if(TARGET ${library})
      add_test(NAME page_alignment_${library}
               COMMAND ${CMAKE_COMMAND} -DREADELF=${CMAKE_READELF}
                       -DLIBRARY=$<TARGET_FILE:${library}> -DMIN_ALIGN=${VIDEOHDR_MAX_PAGE_SIZE}
                       -P ${PROJECT_SOURCE_DIR}/cmake/check_page_alignment.cmake)
    endif()
  endforeach()
endif()

# Install, then build and run a user's program against the result: host builds
# only (the program runs), and not with the sanitizers, whose runtime must be
# linked into the program itself.
if(VIDEOHDR_INSTALL AND NOT CMAKE_CROSSCOMPILING AND NOT VIDEOHDR_SANITIZE)
  add_executable(videohdr_consumer packaging/consumer/consumer.c)
  target_link_libraries(videohdr_consumer PRIVATE videohdr)
  # The installed jar and JNI library too, when the binding is built.
  set(java_consumer)
  if(TARGET videohdr_java)
    set(java_consumer -DJAVA=${Java_JAVA_EXECUTABLE} -DJAVAC=${Java_JAVAC_EXECUTABLE}
                      -DDATADIR=${CMAKE_INSTALL_DATADIR})
  endif()
  add_test(NAME consumer
           COMMAND ${CMAKE_COMMAND} -DBUILD_DIR=${PROJECT_BINARY_DIR}
                   -DSOURCE_DIR=${PROJECT_SOURCE_DIR} -DWORK_DIR=${PROJECT_BINARY_DIR}/consumer
                   -DEXPECTED_PROGRAM=$<TARGET_FILE:videohdr_consumer>
                   -DLIBDIR=${CMAKE_INSTALL_LIBDIR} -DGENERATOR=${CMAKE_GENERATOR}
                   -DC_COMPILER=${CMAKE_C_COMPILER} -DCXX_COMPILER=${CMAKE_CXX_COMPILER}
                   ${java_consumer} -P ${PROJECT_SOURCE_DIR}/packaging/consumer/check_consumer.cmake)
endif()
