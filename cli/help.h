// The help of `picturehost`: the reference page (docs/api.md, compiled in)
// read entry by entry, the help texts of the commands, near-miss
// suggestions, and the manual page made from the same texts.
#pragma once

#include <string>
#include <vector>

#include "host/host.h"

namespace ph {

// One entry of the reference: a registered declaration and the lines under
// its heading up to the next heading.
struct ReferenceEntry {
  std::string owner;        // "Picture", "graphics", "global" or the class
  std::string declaration;  // as registered
  bool assignable = false;
  std::vector<std::string> body;
};

// A class section: its heading name and the lines before its first entry.
struct ReferenceClass {
  std::string name;
  std::vector<std::string> intro;
};

const std::vector<ReferenceEntry>& ReferenceEntries();
const std::vector<ReferenceClass>& ReferenceClasses();
// The entries of a method name (any case; several for overloads).
std::vector<const ReferenceEntry*> FindEntries(const std::string& name);
// The first sentence of an entry: what the method does.
std::string Summary(const ReferenceEntry& e);
// The sentences of an entry that say when it gives nil, false or -1.
std::string FailureSentences(const ReferenceEntry& e);

// Text for a terminal.
std::string TopHelp();
std::string CommandHelp(const std::string& command);  // empty for no command of that name
std::string EntryHelp(const ReferenceEntry& e);
std::string ClassHelp(const ReferenceClass& c);
// `help NAME`: a command, a method (every overload) or a class; empty when
// NAME is none of them.
std::string HelpFor(const std::string& name);
std::string ManPage();
// The commands, options, methods and classes, one a line, for the shell completion.
std::vector<std::string> CompletionWords();

// Up to three names of `candidates` close to `name`, as "; did you mean A, B?"
// (empty when none is close).
std::string DidYouMean(const std::string& name, const std::vector<std::string>& candidates);
// Every name a command line can call: methods, global methods, classes.
std::vector<std::string> CallableNames(const Host& host);

extern const char kPicturehostVersion[];

}  // namespace ph
