# videohdr_tool_io: the tool's frame streams (Y4M and raw readers and writers,
# frame layouts, the geometry check), without the program around them, so
# that the tool and its fuzz target (fuzz/fuzz_tool_input.cpp) compile the
# same sources. Needs nothing but the library's headers. Included from
# tools/videohdr/CMakeLists.txt and fuzz/CMakeLists.txt.
if(TARGET videohdr_tool_io)
  return()
endif()
add_library(
  videohdr_tool_io STATIC
  ${CMAKE_CURRENT_LIST_DIR}/frame_io.cpp ${CMAKE_CURRENT_LIST_DIR}/frame_layout.cpp
  ${CMAKE_CURRENT_LIST_DIR}/geometry.cpp ${CMAKE_CURRENT_LIST_DIR}/stream.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tool_error.cpp ${CMAKE_CURRENT_LIST_DIR}/y4m.cpp)
target_include_directories(videohdr_tool_io PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(videohdr_tool_io PUBLIC videohdr_static)
