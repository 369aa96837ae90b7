// `picturehost digest`: every listed call (demo/calls.cpp) on its fixed
// inputs, one line per call: the SHA-256 of its exit status, what it printed
// and every file it wrote (a picture as its size and pixels, anything else as
// its bytes), then the status and the call as listed. Two builds of the
// library that agree bit for bit print the same lines.
#pragma once

#include "cli/options.h"
#include "host/host.h"

namespace ph {

int Digest(Host& host, const Options& o);

}  // namespace ph
