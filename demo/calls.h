// The representative calls: `picturehost call` and `picturehost run` command
// lines on fixed synthetic inputs. `picturehost digest` runs every one of
// them; `picturehost demo` runs those marked shown, on its own input picture.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ph {

// Words of a listed call may hold these placeholders:
//   OUT     the file of the call's --out
//   @NAME   the --out file of the call labelled NAME, or the input file NAME
//   %i      the --on picture (as on the command line)
// and ALLCOLOURS is spread into the 256 calls Col(0) ... Col(255).
struct ListedCall {
  std::string label;     // names the call's --out file for later calls
  bool shown = false;    // one of the demo's calls
  bool address = false;  // prints a host address, which differs from run to run
  std::string text;      // the line as listed
  std::vector<std::string> words;
};

const std::vector<ListedCall>& ListedCalls();

// The input files that listed calls name: each name with its bytes.
std::vector<std::pair<std::string, std::vector<uint8_t>>> ListedInputs();

}  // namespace ph
