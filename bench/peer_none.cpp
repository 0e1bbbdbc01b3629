// The build found no OpenCV photo module: no peer to compare with.
#include "peer.h"

namespace videohdr_bench {

PeerFunction peerBenchmark() { return nullptr; }
const char *peerName() { return "none"; }

}  // namespace videohdr_bench
