// docs/api.md against the registrations of the built plug-in: every
// registered declaration and property documented under its owner, nothing
// documented that is not registered, and every example line a call that the
// command line can make.
#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "tests/support/host_fixture.h"

namespace {

struct Entry {
  std::string owner;  // "Picture", "graphics", "global" or "class:NAME"
  std::string declaration;
  bool assignable = false;
  int line = 0;
  std::vector<std::string> examples;
};

struct Doc {
  std::vector<Entry> entries;
  std::map<std::string, std::set<std::string>> properties;  // owner -> "Name as Type"
  std::vector<std::pair<int, std::string>> examples;        // line number, text
  std::vector<std::string> problems;
};

std::string Between(const std::string& line, size_t from) {
  const size_t open = line.find('`', from);
  const size_t close = open == std::string::npos ? open : line.find('`', open + 1);
  return close == std::string::npos ? "" : line.substr(open + 1, close - open - 1);
}

Doc ReadDoc() {
  Doc doc;
  std::ifstream in(std::string(PICTURE_SOURCE_DIR) + "/docs/api.md");
  std::string line, owner;
  int number = 0;
  Entry* current = nullptr;
  while (std::getline(in, line)) {
    ++number;
    if (line.rfind("## ", 0) == 0) {
      const std::string heading = line.substr(3);
      owner = heading == "Picture methods"    ? "Picture"
              : heading == "graphics methods" ? "graphics"
              : heading == "Global methods"   ? "global"
              : heading.rfind("Class ", 0) == 0 ? "class:" + heading.substr(6)
                                                : "";
      current = nullptr;
    } else if (line.rfind("### ", 0) == 0) {
      current = nullptr;
    } else if (line.rfind("#### ", 0) == 0) {
      Entry e;
      e.owner = owner;
      e.declaration = Between(line, 0);
      e.assignable = line.find("*(assignable)*") != std::string::npos;
      e.line = number;
      if (owner.empty()) doc.problems.push_back("line " + std::to_string(number) + ": an entry outside the API sections");
      doc.entries.push_back(e);
      current = &doc.entries.back();
    } else if (line.rfind("- `", 0) == 0 && owner.rfind("class:", 0) == 0) {
      doc.properties[owner].insert(Between(line, 0));
    } else if (line.rfind("    picturehost ", 0) == 0) {
      doc.examples.emplace_back(number, line.substr(4));
      if (current) current->examples.push_back(line.substr(4));
    }
  }
  return doc;
}

// The registrations of the plug-in, by owner as the document names them.
struct Registered {
  std::map<std::pair<std::string, std::string>, bool> declarations;  // (owner, text) -> has a setter
  std::map<std::string, std::set<std::string>> properties;
};

Registered FromHost(ph::Host& host) {
  Registered r;
  for (const ph::ClassInfo& c : host.Classes()) {
    const std::string owner = c.extension ? c.name : "class:" + c.name;
    for (const ph::MethodInfo& m : c.methods) r.declarations[{owner, m.declaration.text}] = m.setter != nullptr;
    for (const ph::PropertyInfo& p : c.properties) r.properties[owner].insert(p.name + " as " + p.type);
  }
  for (const ph::MethodInfo& m : host.GlobalMethods()) r.declarations[{"global", m.declaration.text}] = false;
  return r;
}

class ApiDoc : public HostTest {};

TEST_F(ApiDoc, EveryRegisteredDeclarationIsDocumentedUnderItsOwner) {
  const Doc doc = ReadDoc();
  ASSERT_GT(doc.entries.size(), 50u) << "docs/api.md was not read";
  const Registered registered = FromHost(host());
  std::map<std::pair<std::string, std::string>, const Entry*> documented;
  for (const Entry& e : doc.entries) documented[{e.owner, e.declaration}] = &e;
  for (const auto& [key, setter] : registered.declarations) {
    const auto it = documented.find(key);
    if (it == documented.end()) {
      ADD_FAILURE() << key.first << ": \"" << key.second << "\" is not documented";
      continue;
    }
    EXPECT_EQ(it->second->assignable, setter) << "line " << it->second->line << ": \"" << key.second << "\" "
                                              << (setter ? "has a setter" : "has no setter");
  }
}

TEST_F(ApiDoc, DocumentsNothingThatIsNotRegistered) {
  const Doc doc = ReadDoc();
  for (const std::string& p : doc.problems) ADD_FAILURE() << p;
  const Registered registered = FromHost(host());
  std::set<std::pair<std::string, std::string>> seen;
  for (const Entry& e : doc.entries) {
    EXPECT_TRUE(registered.declarations.count({e.owner, e.declaration}))
        << "line " << e.line << ": \"" << e.declaration << "\" is no registered declaration of " << e.owner;
    EXPECT_TRUE(seen.insert({e.owner, e.declaration}).second) << "line " << e.line << ": documented twice";
  }
}

TEST_F(ApiDoc, PropertiesMatchTheClasses) {
  const Doc doc = ReadDoc();
  const Registered registered = FromHost(host());
  for (const auto& [owner, names] : registered.properties) {
    if (owner.rfind("class:", 0) != 0) continue;
    const auto it = doc.properties.find(owner);
    EXPECT_EQ(it == doc.properties.end() ? std::set<std::string>{} : it->second, names) << owner;
  }
  for (const auto& [owner, names] : doc.properties) {
    EXPECT_TRUE(registered.properties.count(owner) || names.empty()) << owner << " is no registered class";
  }
}

// --- Example lines ---------------------------------------------------------

std::vector<std::string> ShellWords(const std::string& text) {
  std::vector<std::string> words;
  std::string word;
  bool inWord = false, quoted = false;
  for (char c : text) {
    if (quoted) {
      if (c == '\'') {
        quoted = false;
      } else {
        word += c;
      }
    } else if (c == '\'') {
      quoted = inWord = true;
    } else if (c == ' ') {
      if (inWord) words.push_back(word);
      word.clear();
      inWord = false;
    } else {
      word += c;
      inWord = true;
    }
  }
  if (inWord) words.push_back(word);
  return words;
}

// "Name(a,b)" -> name and the number of arguments.
std::pair<std::string, size_t> CallShape(const std::string& text) {
  const size_t open = text.find('(');
  if (open == std::string::npos) return {text, 0};
  const std::string inside = text.substr(open + 1, text.size() - open - 2);
  return {text.substr(0, open), inside.empty() ? 0 : static_cast<size_t>(std::count(inside.begin(), inside.end(), ',')) + 1};
}

const ph::MethodInfo* Find(const std::vector<ph::MethodInfo>& methods, const std::string& name, size_t count) {
  for (const ph::MethodInfo& m : methods) {
    if (m.declaration.name == name && m.declaration.params.size() == count) return &m;
  }
  return nullptr;
}

// Why the example cannot run as written, or "" when it can.
std::string CheckExample(ph::Host& host, const std::vector<std::string>& words) {
  if (words.size() < 3 || words[0] != "picturehost") return "not a picturehost line";
  std::map<std::string, std::string> options;
  std::vector<std::string> sets, positional;
  for (size_t i = 2; i < words.size(); ++i) {
    if (words[i].rfind("--", 0) == 0) {
      if (i + 1 >= words.size()) return words[i] + " without a value";
      if (words[i] == "--set") {
        sets.push_back(words[++i]);
      } else {
        options[words[i]] = words[i + 1];
        ++i;
      }
    } else {
      positional.push_back(words[i]);
    }
  }
  if (positional.empty()) return "no method or class";
  if (words[1] == "call") {
    const size_t count = positional.size() - 1;
    if (!options.count("--on")) {
      return Find(host.GlobalMethods(), positional[0], count) ? "" : "no global " + positional[0] + " with that many arguments";
    }
    for (const char* owner : {"Picture", "graphics"}) {
      const ph::ClassInfo* c = host.FindClass(owner);
      if (c && Find(c->methods, positional[0], count)) return "";
    }
    return "no Picture or graphics method " + positional[0] + " with that many arguments";
  }
  if (words[1] != "run") return "neither call nor run";
  const ph::ClassInfo* c = host.FindClass(positional[0]);
  if (!c || c->extension) return "no class " + positional[0];
  if (options.count("--from")) {
    const auto [name, count] = CallShape(options["--from"]);
    const ph::MethodInfo* m = Find(host.GlobalMethods(), name, count);
    if (!m || m->declaration.resultName != c->name) return "no factory " + options["--from"] + " of " + c->name;
  }
  for (const std::string& s : sets) {
    const std::string target = s.substr(0, s.find('=', s.find(')') == std::string::npos ? 0 : s.find(')')));
    const auto [name, count] = CallShape(target);
    bool found = false;
    for (const ph::PropertyInfo& p : c->properties) found |= count == 0 && p.name == name;
    const ph::MethodInfo* m = Find(c->methods, name, count);
    if (!found && !(m && m->setter)) return "nothing assignable named " + target;
  }
  for (size_t i = 1; i < positional.size(); ++i) {
    const auto [name, count] = CallShape(positional[i]);
    if (!Find(c->methods, name, count)) return "no method " + positional[i] + " of " + c->name;
  }
  return "";
}

TEST_F(ApiDoc, ExamplesAreCallsTheCommandLineCanMake) {
  const Doc doc = ReadDoc();
  ASSERT_GT(doc.examples.size(), 50u);
  for (const auto& [line, text] : doc.examples) {
    const std::string problem = CheckExample(host(), ShellWords(text));
    EXPECT_EQ(problem, "") << "line " << line << ": " << text;
  }
}

TEST_F(ApiDoc, EveryEntryHasAnExampleThatUsesIt) {
  for (const Entry& e : ReadDoc().entries) {
    const std::string name = e.declaration.substr(0, e.declaration.find_first_of("( "));
    bool uses = false;
    for (const std::string& x : e.examples) {
      for (const std::string& w : ShellWords(x)) uses |= w == name || w.rfind(name + "(", 0) == 0;
    }
    EXPECT_TRUE(uses) << "line " << e.line << ": no example calls " << name;
  }
}

}  // namespace
