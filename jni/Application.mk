# ndk-build settings for libvideohdr.so: 64-bit ARM first (what the app store
# requires and current devices run), 32-bit ARMv7-A with NEON (the target the
# library is written for, older devices), and x86_64 (emulators, Chromebooks:
# the SSE4.1 or AVX2 instance the processor runs, chosen at run time, same
# results).
APP_ABI := arm64-v8a armeabi-v7a x86_64
APP_PLATFORM := android-21
APP_STL := c++_static
APP_OPTIM := release
APP_CPPFLAGS := -std=c++17 -fvisibility=hidden
# Every shared library built here is laid out for 16 KB pages, on every ABI:
# devices with 16 KB pages refuse libraries aligned for 4 KB. NDK r27 and
# later do this for APP_SUPPORT_FLEXIBLE_PAGE_SIZES; the linker flag covers
# older NDKs.
APP_SUPPORT_FLEXIBLE_PAGE_SIZES := true
APP_LDFLAGS := -Wl,-z,max-page-size=16384
