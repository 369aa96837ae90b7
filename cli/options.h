// The words of a `picturehost` command line: options, values and files.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/host_state.h"

namespace ph {

// A command whose result is nil: reported, exit status 3.
struct NilResult : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::vector<std::string> words;  // the command line as given
  std::string command;
  std::vector<std::string> arguments;
  std::optional<std::string> on;    // the picture a call or run works on (one file)
  std::vector<std::string> inputs;  // every --on as given: files or patterns
  std::optional<std::string> out, mask, from, plugin, outDir;
  std::vector<std::string> sets;
  double version = 2007.0;
  std::set<std::string> without;
  bool progress = false;  // --progress: draw the batch progress bar even without a terminal
  bool help = false;      // --help, -h
  bool showVersion = false;
  bool force = false;                              // --force, -f: an output may replace the input
  bool skipExisting = false;                       // --skip-existing: a batch leaves results that exist alone
  bool json = false;                               // --json: values as one JSON object per input
  int32_t jobs = 1;                                // -j N: files processed at once in a batch
  int32_t quality = -1;                            // --quality N: JPEG quality 1..100 (-1: the saver's own)
  std::optional<std::pair<int32_t, int32_t>> fit;  // --fit WxH
  std::vector<std::string> gets;                   // --get NAME: properties `run` prints
};

// Every option with its short form, value and help line, for the parser, the
// help text and the shell completion.
struct OptionInfo {
  const char* name;
  char shortName;
  const char* value;  // null: a flag
  const char* help;
};
const std::vector<OptionInfo>& AllOptions();

Options ParseOptions(const std::vector<std::string>& words);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::vector<uint8_t>& bytes);
int32_t ParseInteger(const std::string& text);
double ParseDouble(const std::string& text);
uint32_t ParseColor(const std::string& text);
bool ParseBoolean(const std::string& text);
std::string FormatDouble(double d);
std::string FormatColor(uint32_t c);
// "Name" or "Name(a,b,c)".
void SplitCall(const std::string& text, std::string& name, std::vector<std::string>& args);
// True when a --on value is a glob(3) pattern rather than a file name.
bool IsPattern(const std::string& text);

// The stand-in for the input picture in call arguments and --set values of
// `call --on` and `run --on`.
inline constexpr const char* kInputWord = "%i";

}  // namespace ph
