// Carrying out one `picturehost call` or `picturehost run` on a host: the one
// way the command line, its batch mode, the demo and the digests execute a
// call. Execute finds the method or class, converts the arguments, invokes
// and records what the plug-in gave; Deliver prints and saves that as the
// command line does.
#pragma once

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "cli/options.h"
#include "host/host.h"

namespace ph {

// Where `call` found its method.
enum class Owner { Picture, Graphics, Global };

struct Target {
  const MethodInfo* method = nullptr;
  Owner owner = Owner::Global;
};

// Where `call` finds NAME: the Picture extension, else (with --on) the
// graphics extension or a global method that is given the input as %i.
Target FindCallTarget(const Host& host, const std::string& name, size_t count, bool onPicture, bool usesInput);
// The same for the NAME and arguments of a call line.
Target FindCallTarget(const Host& host, const Options& o);

// A method an execution invoked, or assigned through its setter.
struct Invoked {
  std::string owner;  // "Picture", "graphics", "global" or the class
  const MethodInfo* method = nullptr;
  bool setter = false;
};

// What one call or run did. Filled as it goes, so that what was done before
// a failure is still there.
struct Execution {
  // call
  Target target;
  std::vector<std::string> texts;                  // the arguments, the input put in for %i
  Ref picture;                                     // the picture of a Picture or graphics method
  std::vector<Value> arguments;                    // after the call: byref variables as changed, other values as passed
  std::vector<std::vector<uint8_t>> blocksBefore;  // memory blocks passed by value, as they were passed
  Value result;
  // run
  const ClassInfo* cls = nullptr;
  Ref instance;
  struct Step {
    std::string call;  // as given
    const MethodInfo* method;
    Value value;
  };
  std::vector<Step> steps;
  // both
  std::vector<Invoked> invoked;
  double milliseconds = 0;  // spent in the plug-in
};

// A file Deliver wrote: a picture, or the bytes of a memory block or string.
struct Written {
  std::string path;
  Ref picture;
  std::vector<uint8_t> bytes;
};

bool HasProperty(const ClassInfo& c, const std::string& name);
// The integer and double properties of an instance, each with its value as printed.
std::vector<std::pair<std::string, std::string>> NumberProperties(Host& host, const Ref& instance);

// "NAME takes 2 argument(s), not 1:" and the declarations of that name.
std::string WrongCount(const std::vector<MethodInfo>& methods, const std::string& name, size_t count);
// Why a call that gave nil did (the checks the reference states), or what the
// reference says about its nil cases.
std::string NilReason(Host& host, const Execution& e);

// A command-line word as a value of the parameter's type.
Value Convert(Host& host, const Param& p, const std::string& text);
std::string Describe(const Host& host, const Value& v, Type type);

// Carries out `o` (command "call" or "run").
void Execute(Host& host, const Options& o, Execution& e);
// Prints the values of an execution on `out` and writes its --out files (each
// also added to `written` when given). A nil result throws NilResult.
void Deliver(Host& host, const Options& o, const Execution& e, std::ostream& out,
             std::vector<Written>* written = nullptr);
// Execute and Deliver, as `picturehost call` and `run` do for one input.
void Perform(Host& host, const Options& o, std::ostream& out, std::vector<Written>* written = nullptr);

}  // namespace ph
