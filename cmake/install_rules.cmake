# Install rules: the shared and static libraries, the public headers, a CMake
# package (find_package(videohdr CONFIG) -> videohdr::videohdr and
# videohdr::videohdr_static, with liblog's stand-in videohdr::videohdr_log off
# Android) and videohdr.pc for pkg-config. Headers go into
# include/videohdr/, which is also the include directory users get, so code
# writes #include "videohdr.h" whether it builds against the installed
# library or the source tree.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VIDEOHDR_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR})
set(VIDEOHDR_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/videohdr)
set(VIDEOHDR_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/videohdr)

set_target_properties(videohdr_static PROPERTIES EXPORT_NAME videohdr_static)
# liblog's stand-in goes with the libraries that need it (not on Android).
set(VIDEOHDR_INSTALL_TARGETS videohdr videohdr_static)
if(TARGET videohdr_log)
  list(APPEND VIDEOHDR_INSTALL_TARGETS videohdr_log videohdr_log_static)
endif()
install(TARGETS ${VIDEOHDR_INSTALL_TARGETS}
        EXPORT videohdrTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime
                NAMELINK_COMPONENT Development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
        INCLUDES DESTINATION ${VIDEOHDR_INSTALL_INCLUDEDIR})
install(FILES ${VIDEOHDR_PUBLIC_HEADERS} DESTINATION ${VIDEOHDR_INSTALL_INCLUDEDIR}
        COMPONENT Development)

install(EXPORT videohdrTargets NAMESPACE videohdr:: DESTINATION ${VIDEOHDR_INSTALL_CMAKEDIR}
        COMPONENT Development)
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/videohdrConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/videohdrConfig.cmake INSTALL_DESTINATION ${VIDEOHDR_INSTALL_CMAKEDIR})
# The soname carries the major version (libvideohdr.so.0): a request for 0.1
# accepts any 0.x from 0.1 on, the same promise the soname makes.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/videohdrConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/videohdrConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/videohdrConfigVersion.cmake
        DESTINATION ${VIDEOHDR_INSTALL_CMAKEDIR} COMPONENT Development)

# pkg-config: the install prefix is known only when `cmake --install --prefix`
# runs, so the file finds its prefix from where it lies (${pcfiledir}), which
# also keeps an installed tree relocatable. Static linking (--static) adds
# what the archive needs: liblog (its stand-in libvideohdr_log off Android),
# the math library and the C++ runtime the C++ compiler links by itself but a
# C compiler does not. The shared library finds libvideohdr_log by itself.
file(RELATIVE_PATH VIDEOHDR_PC_UP /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" VIDEOHDR_PC_UP "${VIDEOHDR_PC_UP}")
foreach(dir LIBDIR INCLUDEDIR)
  set(VIDEOHDR_PC_${dir} "\${prefix}/${VIDEOHDR_INSTALL_${dir}}")
  if(IS_ABSOLUTE "${VIDEOHDR_INSTALL_${dir}}")
    set(VIDEOHDR_PC_${dir} "${VIDEOHDR_INSTALL_${dir}}")
  endif()
endforeach()
set(VIDEOHDR_PC_RUNTIME_LIBS ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
if(CMAKE_C_IMPLICIT_LINK_LIBRARIES)
  list(REMOVE_ITEM VIDEOHDR_PC_RUNTIME_LIBS ${CMAKE_C_IMPLICIT_LINK_LIBRARIES})
endif()
set(VIDEOHDR_PC_LOG_LIB log)
if(TARGET videohdr_log_static)
  get_target_property(VIDEOHDR_PC_LOG_LIB videohdr_log_static OUTPUT_NAME)
endif()
set(VIDEOHDR_PC_LIBS_PRIVATE)
foreach(lib IN LISTS VIDEOHDR_PC_LOG_LIB VIDEOHDR_PC_RUNTIME_LIBS VIDEOHDR_LINK_LIBS)
  if(NOT IS_ABSOLUTE "${lib}" AND NOT lib MATCHES "^-")
    set(lib "-l${lib}")
  endif()
  list(APPEND VIDEOHDR_PC_LIBS_PRIVATE "${lib}")
endforeach()
list(REMOVE_DUPLICATES VIDEOHDR_PC_LIBS_PRIVATE)
string(REPLACE ";" " " VIDEOHDR_PC_LIBS_PRIVATE "${VIDEOHDR_PC_LIBS_PRIVATE}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/videohdr.pc.in ${CMAKE_CURRENT_BINARY_DIR}/videohdr.pc
               @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/videohdr.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
