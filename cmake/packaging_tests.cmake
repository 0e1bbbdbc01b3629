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
  add_test(NAME page_alignment
           COMMAND ${CMAKE_COMMAND} -DREADELF=${CMAKE_READELF} -DLIBRARY=$<TARGET_FILE:videohdr>
                   -DMIN_ALIGN=${VIDEOHDR_MAX_PAGE_SIZE}
                   -P ${PROJECT_SOURCE_DIR}/cmake/check_page_alignment.cmake)
endif()
