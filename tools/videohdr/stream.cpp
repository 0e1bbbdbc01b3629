#include "stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tool_error.h"

namespace vhtool {
namespace {

// Big reads and writes: a 1080p frame is 3 MB.
constexpr size_t kStdioBuffer = 1 << 20;

// A file to write, opened without emptying it: created when missing (then
// *created is set), else opened as it is. -1 with errno on failure.
int openForWriting(const std::string &path, bool *created) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  *created = fd >= 0;
  if (fd < 0 && errno == EEXIST) fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  return fd;
}

}  // namespace

Stream::Stream(const std::string &path, bool write) {
  if (path == "-") {
    name_ = write ? "standard output" : "standard input";
    file_ = write ? stdout : stdin;
    started_ = true;
  } else {
    path_ = name_ = path;
    if (write) {
      const int fd = openForWriting(path, &created_);
      file_ = fd >= 0 ? fdopen(fd, "wb") : nullptr;
      if (fd >= 0 && !file_) ::close(fd);
    } else {
      file_ = std::fopen(path.c_str(), "rb");
      started_ = true;
    }
    if (!file_) {
      throw ToolError("cannot open '" + path + "'" + (write ? " for writing" : "") + ": " +
                      std::strerror(errno));
    }
    owned_ = true;
  }
  std::setvbuf(file_, nullptr, _IOFBF, kStdioBuffer);
}

Stream::~Stream() {
  if (owned_ && file_) std::fclose(file_);
  if (created_ && !started_) std::remove(path_.c_str());
}

void Stream::start() {
  if (started_) return;
  started_ = true;
  // Only a regular file has contents to replace; a pipe or a device (such as
  // /dev/null) is written as it is.
  struct stat st;
  const int fd = fileno(file_);
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && ftruncate(fd, 0) != 0) {
    throw ToolError("cannot write " + name_ + ": " + std::strerror(errno));
  }
}

void Stream::put(const void *bytes, size_t count) {
  start();
  if (std::fwrite(bytes, 1, count, file_) == count) return;
  checkError("write");
  throw ToolError("cannot write " + name_);
}

void Stream::checkError(const char *what) const {
  if (std::ferror(file_)) {
    throw ToolError("cannot " + std::string(what) + " " + name_ + ": " + std::strerror(errno));
  }
}

void Stream::close() {
  if (!file_) return;
  start();
  const bool failed = std::fflush(file_) != 0 || std::ferror(file_);
  const int error = errno;
  if (owned_) std::fclose(file_);
  file_ = nullptr;
  if (failed) throw ToolError("cannot write " + name_ + ": " + std::strerror(error));
}

}  // namespace vhtool
