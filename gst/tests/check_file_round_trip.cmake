# The demo clip through the element in a file pipeline, compared byte for byte
# with what the tool made of the same clip, the element given and giving
# FORMAT (NV12 or I420):
#   videohdr demo --frames 8                          input.y4m, the tool's output.y4m
#   input.y4m  -> FORMAT -> ELEMENT -> FORMAT -> NV12   element.nv12
#   output.y4m -> FORMAT -> NV12                        tool.nv12
# Y4M is read without y4mdec (gst-plugins-bad): past its header line a Y4M
# file is frames of a "FRAME\n" line followed by the I420 planes, which
# rawvideoparse takes with the planes 6 bytes into each frame. videoconvert
# only interleaves the chroma planes into NV12, as the tool's reader does (and
# passes I420 on as it is). The element packs I420's chroma U first, as the
# tool's reader does too.
# Run by CTest as:
#   cmake -DLAUNCH=gst-launch-1.0 -DTOOL=videohdr -DELEMENT=videohdr -DFORMAT=NV12 \
#         -DWORK_DIR=... -P this-file
# with GST_PLUGIN_PATH at the plugin.
cmake_minimum_required(VERSION 3.16)
foreach(var LAUNCH TOOL ELEMENT FORMAT WORK_DIR)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "check_file_round_trip.cmake: ${var} is not set")
  endif()
endforeach()
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${step} failed (${result}):\n${ARGN}\n${out}${err}")
  endif()
endfunction()

set(frames 8)
run("the demo" ${TOOL} demo --frames ${frames} --out ${WORK_DIR})

# The frames of a Y4M file as NV12, through `filters` (a gst-launch pipeline
# piece) into `nv12`; `nv12_frame_bytes` is set to the size of one.
function(y4m_to_nv12 y4m filters nv12)
  file(STRINGS ${y4m} header LIMIT_COUNT 1)
  if(NOT header MATCHES "^YUV4MPEG2 .*W([0-9]+) H([0-9]+)")
    message(FATAL_ERROR "${y4m}: not a Y4M file")
  endif()
  set(w ${CMAKE_MATCH_1})
  set(h ${CMAKE_MATCH_2})
  string(LENGTH "${header}" header_bytes)
  math(EXPR first_frame_byte "${header_bytes} + 2")  # tail counts from 1; the newline
  execute_process(COMMAND tail -c +${first_frame_byte} ${y4m} OUTPUT_FILE ${nv12}.frames
                  RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "cannot read the frames of ${y4m}")
  endif()
  math(EXPR u "6 + ${w} * ${h}")
  math(EXPR v "${u} + ${w} * ${h} / 4")
  math(EXPR frame_bytes "${v} + ${w} * ${h} / 4")
  separate_arguments(filters UNIX_COMMAND "${filters}")
  run("the pipeline from ${y4m}" ${LAUNCH} -q filesrc location=${nv12}.frames
      ! rawvideoparse format=i420 width=${w} height=${h} frame-size=${frame_bytes}
        plane-offsets=<6,${u},${v}> ! videoconvert ! video/x-raw,format=${FORMAT} ${filters}
      ! videoconvert ! video/x-raw,format=NV12 ! filesink location=${nv12})
  math(EXPR nv12_frame_bytes "${w} * ${h} * 3 / 2")
  set(nv12_frame_bytes ${nv12_frame_bytes} PARENT_SCOPE)
endfunction()

y4m_to_nv12(${WORK_DIR}/input.y4m "! ${ELEMENT} ! video/x-raw,format=${FORMAT}"
            ${WORK_DIR}/element.nv12)
y4m_to_nv12(${WORK_DIR}/output.y4m "" ${WORK_DIR}/tool.nv12)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK_DIR}/element.nv12
                        ${WORK_DIR}/tool.nv12 RESULT_VARIABLE differ)
if(differ)
  message(FATAL_ERROR "the frames of ${ELEMENT} differ from the tool's")
endif()
file(SIZE ${WORK_DIR}/tool.nv12 bytes)
math(EXPR clip_bytes "${frames} * ${nv12_frame_bytes}")
if(NOT bytes EQUAL clip_bytes)
  message(FATAL_ERROR "${bytes} bytes of frames, not the ${clip_bytes} of ${frames} frames")
endif()
message(STATUS "${ELEMENT}: the same ${frames} frames as the tool (${FORMAT})")
