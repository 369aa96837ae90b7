// The representative calls of `picturehost demo`: each is a command line of
// `picturehost call` or `picturehost run`, without --on and --out, which the
// demo adds. "$SAMPLE" stands for the demo's input picture wherever a
// picture argument or property value is needed, and "$OUT/" for the demo's
// output directory (a file written by an earlier line). Relative file names
// are taken from the working directory, else from the source tree.
#pragma once

#include <string>
#include <vector>

namespace ph {

extern const std::vector<std::vector<std::string>> kDemoCalls;

}  // namespace ph
