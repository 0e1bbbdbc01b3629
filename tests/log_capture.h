// Captures the library's log lines for the duration of a scope.
#ifndef VIDEOHDR_TESTS_LOG_CAPTURE_H
#define VIDEOHDR_TESTS_LOG_CAPTURE_H

#include <string>
#include <vector>

#include "log_sink.h"

struct LogLine {
  int priority;
  std::string tag;
  std::string message;
};

class LogCapture {
 public:
  LogCapture() {
    lines_().clear();
    videohdr::setLogSink(&LogCapture::record);
  }
  ~LogCapture() { videohdr::setLogSink(nullptr); }
  const std::vector<LogLine> &lines() const { return lines_(); }
  std::vector<std::string> messages() const {
    std::vector<std::string> m;
    for (const auto &l : lines_()) m.push_back(l.message);
    return m;
  }

 private:
  static std::vector<LogLine> &lines_() {
    static std::vector<LogLine> lines;
    return lines;
  }
  static void record(int priority, const char *tag, const char *message) {
    lines_().push_back({priority, tag, message});
  }
};

#endif  // VIDEOHDR_TESTS_LOG_CAPTURE_H
