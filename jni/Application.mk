# ndk-build settings for libvideohdr.so: 32-bit ARMv7-A with NEON (the target
# the library is written for) and 64-bit ARM.
APP_ABI := armeabi-v7a arm64-v8a
APP_PLATFORM := android-21
APP_STL := c++_static
APP_OPTIM := release
APP_CPPFLAGS := -std=c++17 -fvisibility=hidden
