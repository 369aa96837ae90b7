// Batch mode of `picturehost call` and `picturehost run`: the same command
// over several input pictures (batch.cpp).
#pragma once

#include "cli/options.h"
#include "host/host.h"

namespace ph {

int Batch(Host& host, const Options& o);

}  // namespace ph
