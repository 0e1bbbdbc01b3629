/*
 * liblog's __android_log_print for hosts other than Android: libvideohdr_log,
 * which libvideohdr links there as it links liblog on Android. The library
 * itself reads no environment and keeps no configuration; what a desktop user
 * controls is here, the way liblog does it on a host: ANDROID_LOG_TAGS holds
 * logcat's filter expressions ("*:w" hides information lines, "VideoHDR:e *:s"
 * keeps only the library's errors). A program that defines
 * __android_log_print itself gets the lines instead: its definition comes
 * first in the dynamic symbol lookup, and a static link then leaves this
 * object out of the archive.
 */
#include <android/log.h>
#include <ctype.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "log_sink.h"

static VideoHdrLogSink g_sink;

void videohdr_log_set_sink(VideoHdrLogSink sink) { g_sink = sink; }

/* A filter's priority character as logcat reads it: digits are priorities
 * (8 and 9 verbose), '*' the default of the expression's tag, anything else
 * unknown, which rejects the expression. */
static int filter_priority(char c) {
  if (c >= '0' && c <= '9') return c - '0' >= ANDROID_LOG_SILENT ? ANDROID_LOG_VERBOSE : c - '0';
  switch (tolower((unsigned char)c)) {
    case 'v':
      return ANDROID_LOG_VERBOSE;
    case 'd':
      return ANDROID_LOG_DEBUG;
    case 'i':
      return ANDROID_LOG_INFO;
    case 'w':
      return ANDROID_LOG_WARN;
    case 'e':
      return ANDROID_LOG_ERROR;
    case 'f':
      return ANDROID_LOG_FATAL;
    case 's':
      return ANDROID_LOG_SILENT;
    case '*':
      return ANDROID_LOG_DEFAULT;
    default:
      return ANDROID_LOG_UNKNOWN;
  }
}

/* The least priority shown for `tag` under logcat's filter expressions
 * `filters` ("tag:p" separated by spaces, tabs or commas), as liblog reads them:
 * "*" sets the level of every tag without an expression of its own (debug
 * when no letter follows), a tag without a letter means verbose, tags compare
 * case-sensitively, the last expression for a tag wins, and the list ends at
 * an expression liblog rejects. Without filters everything is shown. */
static int least_priority(const char *filters, const char *tag) {
  int every_tag = ANDROID_LOG_VERBOSE;
  int own_tag = ANDROID_LOG_UNKNOWN;
  const size_t tag_length = strlen(tag);
  for (const char *p = filters ? filters : ""; *p;) {
    const size_t length = strcspn(p, " \t,");
    size_t name_length = strcspn(p, ":");
    if (name_length > length) name_length = length; /* no colon: the tag alone */
    const char *expression = p;
    p += length + (p[length] != '\0');
    if (length == 0) continue;
    if (name_length == 0) break;
    int priority = ANDROID_LOG_DEFAULT;
    if (name_length < length) {
      priority = filter_priority(expression[name_length + 1]);
      if (priority == ANDROID_LOG_UNKNOWN) break;
    }
    if (name_length == 1 && expression[0] == '*') {
      every_tag = priority == ANDROID_LOG_DEFAULT ? ANDROID_LOG_DEBUG : priority;
    } else if (name_length == tag_length && strncmp(expression, tag, tag_length) == 0) {
      own_tag = priority == ANDROID_LOG_DEFAULT ? ANDROID_LOG_VERBOSE : priority;
    }
  }
  return own_tag != ANDROID_LOG_UNKNOWN ? own_tag : every_tag;
}

static char priority_letter(int prio) {
  return prio >= ANDROID_LOG_VERBOSE && prio <= ANDROID_LOG_FATAL
             ? "VDIWEF"[prio - ANDROID_LOG_VERBOSE]
             : '?';
}

int __android_log_print(int prio, const char *tag, const char *fmt, ...) {
  if (!tag) tag = "";
  /* Read at every line, not once: the library's two lines per frame cost
   * nothing next to the frame, and no state is kept. */
  if (!g_sink && prio < least_priority(getenv("ANDROID_LOG_TAGS"), tag)) return -EPERM;
  char message[1024];
  va_list args;
  va_start(args, fmt);
  const int n = vsnprintf(message, sizeof message, fmt, args);
  va_end(args);
  if (g_sink) {
    g_sink(prio, tag, message);
  } else {
    fprintf(stderr, "%c/%s: %s\n", priority_letter(prio), tag, message);
  }
  return n;
}
