# ndk-build: libvideohdr.so for the camera app (see jni/Application.mk), and
# libvideohdr_jni.so, the JNI glue of the Java binding (java/).
# Keep the videohdr module's LOCAL_SRC_FILES equal to VIDEOHDR_SOURCES in
# CMakeLists.txt; a host test (android_mk_sources) fails when the two differ.
LOCAL_PATH := $(call my-dir)

include $(CLEAR_VARS)
LOCAL_MODULE := videohdr
LOCAL_SRC_FILES := \
    video_hdr.cpp \
    byte_copy.cpp \
    kernels.cpp \
    alignment_op/tarn_hdr_mtbalign.cpp \
    alignment_op/thresh_bitmap.cpp \
    alignment_op/bitmap_pyramid.cpp \
    alignment_op/shift_data.cpp \
    alignment_op/shift_search.cpp \
    alignment_op/scan_data.cpp \
    alignment_op/hist_matching.cpp \
    alignment_op/xor_two_result.cpp \
    alignment_op/back.cpp \
    alignment_op/sobel.cpp \
    alignment_op/bitmap_ops_sse41.cpp \
    alignment_op/score_ops_sse41.cpp \
    alignment_op/bitmap_ops_avx2.cpp \
    alignment_op/score_ops_avx2.cpp \
    fusion/fusion_context.cpp \
    fusion/exposure_fusion.cpp \
    fusion/exposure_fusion_sse41.cpp \
    fusion/exposure_fusion_avx2.cpp \
    fusion/filter7x7.cpp \
    fusion/scale2x.cpp \
    fusion/chroma_uv.cpp \
    fusion/plane_ops_sse41.cpp \
    fusion/plane_ops_avx2.cpp \
    ../planes/plane_layout.cpp \
    ../planes/plane_copy.cpp \
    ../planes/videohdr_planes.cpp
LOCAL_C_INCLUDES := $(LOCAL_PATH)
LOCAL_EXPORT_C_INCLUDES := $(LOCAL_PATH) $(LOCAL_PATH)/../planes
# NEON on armeabi-v7a (always present on arm64-v8a). No fused multiply-add
# contraction, so that every processor rounds the tone curves alike.
LOCAL_ARM_NEON := true
LOCAL_CFLAGS := -Wall -Wextra -ffp-contract=off
LOCAL_CPPFLAGS := -std=c++17 -fvisibility=hidden -fvisibility-inlines-hidden
LOCAL_LDLIBS := -llog -lm
# Exports exactly the public calls (videohdr.map, shared with CMakeLists.txt),
# whatever APP_STL links in; laid out for 16 KB pages even when an app builds
# this module under its own Application.mk.
LOCAL_LDFLAGS := -Wl,--version-script=$(LOCAL_PATH)/videohdr.map -Wl,-z,max-page-size=16384
include $(BUILD_SHARED_LIBRARY)

# The glue links the shared library rather than a second copy of it: an app
# that calls the library from both Java and C++ carries it once, and the
# Java class loads libvideohdr.so before libvideohdr_jni.so.
include $(CLEAR_VARS)
LOCAL_MODULE := videohdr_jni
LOCAL_SRC_FILES := ../java/jni/videohdr_jni.cpp
LOCAL_SHARED_LIBRARIES := videohdr
LOCAL_CFLAGS := -Wall -Wextra
LOCAL_CPPFLAGS := -std=c++17 -fvisibility=hidden -fvisibility-inlines-hidden
# Devices with 16 KB pages refuse libraries laid out for 4 KB pages only.
LOCAL_LDFLAGS := -Wl,-z,max-page-size=16384
include $(BUILD_SHARED_LIBRARY)
