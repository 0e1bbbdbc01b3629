// liblog's stand-in on hosts other than Android (libvideohdr_log): the lines
// on stderr and the filter expressions of ANDROID_LOG_TAGS, read as logcat
// reads them; a test sink takes every line whatever the filter says.
#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "log_sink.h"

namespace {

// What `write` puts on stderr, with ANDROID_LOG_TAGS set to `tags` (unset
// when null).
template <typename Write>
std::string stderrOf(const char *tags, Write write) {
  if (tags) {
    setenv("ANDROID_LOG_TAGS", tags, 1);
  } else {
    unsetenv("ANDROID_LOG_TAGS");
  }
  std::FILE *capture = std::tmpfile();
  std::fflush(stderr);
  const int saved = dup(STDERR_FILENO);
  dup2(fileno(capture), STDERR_FILENO);
  write();
  std::fflush(stderr);
  dup2(saved, STDERR_FILENO);
  close(saved);
  unsetenv("ANDROID_LOG_TAGS");
  std::string text(static_cast<size_t>(std::ftell(capture)), '\0');
  std::rewind(capture);
  text.resize(std::fread(&text[0], 1, text.size(), capture));
  std::fclose(capture);
  return text;
}

TEST(HostLog, LinesOnStderrWithThePriorityLetter) {
  EXPECT_EQ(stderrOf(nullptr,
                     [] {
                       __android_log_print(ANDROID_LOG_INFO, "VideoHDR", "frame %d, %s", 7, "ok");
                       __android_log_print(ANDROID_LOG_ERROR, "VideoHDR", "refused");
                       __android_log_print(ANDROID_LOG_VERBOSE, "Other", "v");
                     }),
            "I/VideoHDR: frame 7, ok\nE/VideoHDR: refused\nV/Other: v\n");
}

// Which of an information, a warning and an error line under the tag
// VideoHDR get through: "iwe" for all three.
std::string shown(const char *tags) {
  const std::string out = stderrOf(tags, [] {
    __android_log_print(ANDROID_LOG_INFO, "VideoHDR", "i");
    __android_log_print(ANDROID_LOG_WARN, "VideoHDR", "w");
    __android_log_print(ANDROID_LOG_ERROR, "VideoHDR", "e");
  });
  std::string letters;
  for (size_t at = 0; (at = out.find(": ", at)) != std::string::npos; at += 2) {
    letters += out[at + 2];
  }
  return letters;
}

TEST(HostLog, AndroidLogTagsFilterAsLogcatReadsThem) {
  const std::pair<const char *, const char *> cases[] = {
      {nullptr, "iwe"},
      {"", "iwe"},
      {"*:w", "we"},
      {"*:W", "we"},     // letters in either case
      {"*:warn", "we"},  // only the first letter counts
      {"*:5", "we"},     // a digit is the priority itself
      {"*:s", ""},
      {"*:e", "e"},
      {"*", "iwe"},                      // every tag at debug
      {"VideoHDR:e *:s", "e"},           // the tag's own level first
      {"*:s VideoHDR:e", "e"},           // in any order
      {"*:s,VideoHDR", "iwe"},           // commas separate too; a tag alone is verbose
      {"*:s\tVideoHDR:*", "iwe"},        // '*' after a tag: verbose
      {"VideoHDR:e VideoHDR:i", "iwe"},  // the last for a tag wins
      {"videohdr:s", "iwe"},             // tags compare case-sensitively
      {"*:w VideoHDRx:v", "we"},         // another tag
      {"*:q *:s", "iwe"},                // an unknown letter ends the list
      {"*:e VideoHDR: *:s", "e"},        // so does a colon without a letter
      {"*:e :i", "e"},                   // and an expression without a tag
  };
  for (const auto &[tags, letters] : cases) {
    EXPECT_EQ(shown(tags), letters) << (tags ? tags : "(unset)");
  }
}

TEST(HostLog, TheSinkTakesEveryLineWhateverTheFilter) {
  static std::string got;
  got.clear();
  videohdr::setLogSink([](int prio, const char *tag, const char *message) {
    got += std::to_string(prio) + "/" + tag + ": " + message + "\n";
  });
  EXPECT_EQ(stderrOf("*:s", [] { __android_log_print(ANDROID_LOG_INFO, "VideoHDR", "n=%d", 3); }),
            "");
  videohdr::setLogSink(nullptr);
  EXPECT_EQ(got, "4/VideoHDR: n=3\n");
}

}  // namespace
