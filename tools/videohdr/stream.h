// A file or standard input or output, read or written through stdio, with
// the tool's rules for outputs: nothing emptied before it is written.
#ifndef VIDEOHDR_TOOL_STREAM_H
#define VIDEOHDR_TOOL_STREAM_H

#include <cstdio>
#include <string>

namespace vhtool {

// A stdio stream that is closed on destruction unless it is stdin or stdout.
// A file opened for writing is created when missing but not emptied before
// its first bytes (start): a command opens every output before it writes to
// any, so that one that cannot be opened leaves the others as they were. A
// file this stream created and never started is removed again.
class Stream {
 public:
  Stream(const std::string &path, bool write);
  ~Stream();
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;
  FILE *file() const { return file_; }
  const std::string &name() const { return name_; }
  // Throws ToolError when the stream saw an error; `what` is "read" or "write".
  void checkError(const char *what) const;
  // Empties a regular file opened for writing; once, before its first bytes.
  void start();
  // Starts, then writes; throws ToolError.
  void put(const void *bytes, size_t count);
  // Flushes and closes, reporting a failure.
  void close();

 private:
  std::string path_;
  std::string name_;
  FILE *file_ = nullptr;
  bool owned_ = false;
  bool created_ = false;
  bool started_ = false;
};

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_STREAM_H
