// The inside of `picturehost`: option parsing, argument conversion and the
// session that runs one command line against an emulated host. Split over
// cli.cpp (list, call, run), batch.cpp (several input files) and demo.cpp
// (the gallery of every registered method).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/host_state.h"

namespace ph {

// A command whose result is nil: reported, exit status 3.
struct NilResult : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::string command;
  std::vector<std::string> arguments;
  std::optional<std::string> on;  // the picture a call or run works on (one file)
  std::vector<std::string> inputs;  // every --on as given: files or patterns
  std::optional<std::string> out, mask, from, plugin, outDir;
  std::vector<std::string> sets;
  double version = 2007.0;
  std::set<std::string> without;
  bool progress = false;  // --progress: draw the batch progress bar even without a terminal
};

Options ParseOptions(const std::vector<std::string>& words);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::vector<uint8_t>& bytes);
int32_t ParseInteger(const std::string& text);
double ParseDouble(const std::string& text);
uint32_t ParseColor(const std::string& text);
std::string FormatDouble(double d);
std::string FormatColor(uint32_t c);
// "Name" or "Name(a,b,c)".
void SplitCall(const std::string& text, std::string& name, std::vector<std::string>& args);
// True when a --on value is a glob(3) pattern rather than a file name.
bool IsPattern(const std::string& text);

// The stand-in for the input picture in call arguments and --set values of
// `call --on` and `run --on` (and in the demo's own lines).
inline constexpr const char* kInputWord = "%i";

class Cli {
 public:
  explicit Cli(Options options) : o_(std::move(options)) {}

  int Run();

  // --- Shared by call, run, batch and demo -----------------------------------
  Host& host() { return *host_; }
  Value Convert(const Param& p, const std::string& text);
  Ref LoadPicture(const std::string& text);
  std::vector<Value> ConvertAll(const Declaration& d, const std::vector<std::string>& texts,
                                std::vector<Value>& byrefVariables);
  static const MethodInfo& Choose(const std::vector<MethodInfo>& methods, const std::string& owner,
                                  const std::string& name, size_t count);
  // Where `call` finds NAME: the Picture extension, else (with --on) the
  // graphics extension or a global method that is given the input as %i.
  struct Target {
    const MethodInfo* method = nullptr;
    enum class Owner { Picture, Graphics, Global } owner = Owner::Global;
  };
  Target FindCallTarget(const std::string& name, size_t count, bool onPicture, bool usesInput) const;
  std::string Describe(const Value& v, Type type);
  void PrintProperties(const Ref& instance);
  void Emit(const Value& result, const Declaration& d, const std::optional<std::string>& out);
  Value Call(const Options& o);
  void RunClass(const Options& o);
  Ref MakeInstance(const Options& o, const std::string& className);
  void Assign(const Ref& instance, const ClassInfo& c, const std::string& assignment);

  int Batch();  // batch.cpp
  int Demo();   // demo.cpp

 private:
  int Finish(int status);

  Options o_;
  std::unique_ptr<Host> host_;
  std::string sample_ = "sample:320x240";
};

}  // namespace ph
