/*
 * The part of Android's <android/log.h> that videohdr uses, for hosts without
 * liblog. libvideohdr_log defines __android_log_print there (see
 * log/android_log.c); on Android the NDK's header and liblog take its place.
 */
#ifndef VIDEOHDR_HOST_ANDROID_LOG_H
#define VIDEOHDR_HOST_ANDROID_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* liblog's priorities, with its values. */
typedef enum android_LogPriority {
  ANDROID_LOG_UNKNOWN = 0,
  ANDROID_LOG_DEFAULT,
  ANDROID_LOG_VERBOSE,
  ANDROID_LOG_DEBUG,
  ANDROID_LOG_INFO,
  ANDROID_LOG_WARN,
  ANDROID_LOG_ERROR,
  ANDROID_LOG_FATAL,
  ANDROID_LOG_SILENT,
} android_LogPriority;

/* Default visibility, also where it is only referenced: the library's
 * objects are compiled with hidden visibility, and an application's own
 * definition must be able to take the place of the stand-in. */
__attribute__((visibility("default"), format(printf, 3, 4))) int __android_log_print(
    int prio, const char *tag, const char *fmt, ...);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VIDEOHDR_HOST_ANDROID_LOG_H */
