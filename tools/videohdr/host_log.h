// The library logs through Android's liblog. On the desktop this tool supplies
// that one call, so the library's two lines per frame go to stderr only when
// asked for (--log) and the tool's own output stays readable.
#ifndef VIDEOHDR_TOOL_HOST_LOG_H
#define VIDEOHDR_TOOL_HOST_LOG_H

namespace vhtool {
void echoLibraryLog(bool on);
}

#endif  // VIDEOHDR_TOOL_HOST_LOG_H
