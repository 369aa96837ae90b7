// docs/api.md against the registrations of the built plug-in: every
// registered declaration and property documented under its owner, nothing
// documented that is not registered, and every example line a call that the
// command line can make.
#include <algorithm>
#include <fstream>
#include <map>
#include <set>

#include "tests/support/host_fixture.h"

namespace {

using Key = std::pair<std::string, std::string>;  // owner ("Picture", "graphics", "global", "class:NAME"), text

struct Entry { Key key; bool assignable = false; int line = 0; std::vector<std::string> examples; };

struct Doc {
  std::vector<Entry> entries;
  std::map<std::string, std::set<std::string>> properties;  // owner -> "Name as Type"
  std::vector<std::string> problems;
};

std::string Quoted(const std::string& line) {
  const size_t open = line.find('`'), close = open == std::string::npos ? open : line.find('`', open + 1);
  return close == std::string::npos ? "" : line.substr(open + 1, close - open - 1);
}

// Sections "## Picture methods", "## graphics methods", "## Global methods"
// and "## Class NAME"; entries "#### `declaration`", properties "- `Name as
// Type`" in class sections, examples indented "    picturehost ..." lines.
Doc ReadDoc() {
  Doc doc;
  std::ifstream in(std::string(PICTURE_SOURCE_DIR) + "/docs/api.md");
  const std::map<std::string, std::string> owners = {
      {"Picture methods", "Picture"}, {"graphics methods", "graphics"}, {"Global methods", "global"}};
  std::string line, owner;
  for (int number = 1; std::getline(in, line); ++number) {
    const std::string where = "line " + std::to_string(number) + ": ";
    if (line.rfind("## ", 0) == 0) {
      const std::string heading = line.substr(3);
      owner = owners.count(heading) ? owners.at(heading) : heading.rfind("Class ", 0) == 0 ? "class:" + heading.substr(6) : "";
    } else if (line.rfind("#### ", 0) == 0) {
      if (owner.empty()) doc.problems.push_back(where + "an entry outside the API sections");
      doc.entries.push_back({{owner, Quoted(line)}, line.find("*(assignable)*") != std::string::npos, number, {}});
    } else if (line.rfind("- `", 0) == 0 && owner.rfind("class:", 0) == 0) {
      doc.properties[owner].insert(Quoted(line));
    } else if (line.rfind("    picturehost ", 0) == 0) {
      if (doc.entries.empty()) doc.problems.push_back(where + "an example before any entry");
      else doc.entries.back().examples.push_back(line.substr(4));
    }
  }
  return doc;
}

class ApiDoc : public HostTest {};

TEST_F(ApiDoc, DocumentsExactlyTheRegisteredDeclarationsAndProperties) {
  std::map<Key, bool> declarations;  // -> has a setter
  std::map<std::string, std::set<std::string>> properties;
  for (const ph::ClassInfo& c : host().Classes()) {
    const std::string owner = c.extension ? c.name : "class:" + c.name;
    for (const ph::MethodInfo& m : c.methods) declarations[{owner, m.declaration.text}] = m.setter != nullptr;
    for (const ph::PropertyInfo& p : c.properties) properties[owner].insert(p.name + " as " + p.type);
  }
  for (const ph::MethodInfo& m : host().GlobalMethods()) declarations[{"global", m.declaration.text}] = false;

  const Doc doc = ReadDoc();
  ASSERT_GT(doc.entries.size(), 50u) << "docs/api.md was not read";
  for (const std::string& p : doc.problems) ADD_FAILURE() << p;
  std::map<Key, const Entry*> documented;
  for (const Entry& e : doc.entries) {
    EXPECT_TRUE(declarations.count(e.key)) << "line " << e.line << ": \"" << e.key.second
                                           << "\" is no registered declaration of " << e.key.first;
    EXPECT_TRUE(documented.emplace(e.key, &e).second) << "line " << e.line << ": documented twice";
  }
  for (const auto& [key, setter] : declarations) {
    const auto it = documented.find(key);
    if (it == documented.end()) ADD_FAILURE() << key.first << ": \"" << key.second << "\" is not documented";
    else EXPECT_EQ(it->second->assignable, setter) << "line " << it->second->line << ": \"" << key.second << "\" setter";
  }
  EXPECT_EQ(doc.properties, properties);  // the extensions have none
}

// --- Example lines ---------------------------------------------------------

// Words split at spaces outside single quotes, the quotes removed.
std::vector<std::string> ShellWords(const std::string& text) {
  std::vector<std::string> words;
  bool quoted = false, inWord = false;
  for (char c : text) {
    if (c == ' ' && !quoted) {
      inWord = false;
      continue;
    }
    if (!inWord) words.emplace_back();
    inWord = true;
    if (c == '\'') quoted = !quoted;
    else words.back() += c;
  }
  return words;
}

// "Name(a,b)" -> name and the number of arguments.
std::pair<std::string, size_t> CallShape(const std::string& text) {
  const size_t open = text.find('(');
  if (open == std::string::npos) return {text, 0};
  const std::string inside = text.substr(open + 1, text.size() - open - 2);
  return {text.substr(0, open), inside.empty() ? 0 : size_t(std::count(inside.begin(), inside.end(), ',')) + 1};
}

const ph::MethodInfo* Find(const std::vector<ph::MethodInfo>& methods, const std::string& name, size_t count) {
  for (const ph::MethodInfo& m : methods)
    if (m.declaration.name == name && m.declaration.params.size() == count) return &m;
  return nullptr;
}

// Why the example cannot run as written, or "" when it can.
std::string CheckExample(ph::Host& host, const std::vector<std::string>& words) {
  if (words.size() < 3 || words[0] != "picturehost") return "not a picturehost line";
  std::map<std::string, std::string> options;
  std::vector<std::string> sets, positional;
  for (size_t i = 2; i < words.size(); ++i) {
    if (words[i].rfind("--", 0) != 0) positional.push_back(words[i]);
    else if (i + 1 >= words.size()) return words[i] + " without a value";
    else if (words[i] == "--set") sets.push_back(words[++i]);
    else options[words[i]] = words[i + 1], ++i;
  }
  if (positional.empty()) return "no method or class";
  if (words[1] == "call") {
    const size_t count = positional.size() - 1;
    if (!options.count("--on")) return Find(host.GlobalMethods(), positional[0], count) ? "" : "no such global";
    for (const char* owner : {"Picture", "graphics"})
      if (Find(host.FindClass(owner)->methods, positional[0], count)) return "";
    return "no such Picture or graphics method";
  }
  const ph::ClassInfo* c = words[1] == "run" ? host.FindClass(positional[0]) : nullptr;
  if (!c || c->extension) return "no class " + positional[0];
  if (options.count("--from")) {
    const auto [name, count] = CallShape(options["--from"]);
    const ph::MethodInfo* m = Find(host.GlobalMethods(), name, count);
    if (!m || m->declaration.resultName != c->name) return "no factory " + options["--from"] + " of " + c->name;
  }
  for (const std::string& s : sets) {
    const size_t close = s.find(')');
    const auto [name, count] = CallShape(s.substr(0, s.find('=', close == std::string::npos ? 0 : close)));
    const bool property = count == 0 && std::any_of(c->properties.begin(), c->properties.end(),
                                                    [&](const ph::PropertyInfo& p) { return p.name == name; });
    const ph::MethodInfo* m = Find(c->methods, name, count);
    if (!property && !(m && m->setter)) return "nothing assignable named " + s;
  }
  for (size_t i = 1; i < positional.size(); ++i) {
    const auto [name, count] = CallShape(positional[i]);
    if (!Find(c->methods, name, count)) return "no method " + positional[i] + " of " + c->name;
  }
  return "";
}

// Each entry has an example that uses it, and every example is a call the
// command line can make.
TEST_F(ApiDoc, ExamplesAreCallsTheCommandLineCanMake) {
  for (const Entry& e : ReadDoc().entries) {
    const std::string name = e.key.second.substr(0, e.key.second.find_first_of("( "));
    bool uses = false;
    for (const std::string& x : e.examples) {
      const std::vector<std::string> words = ShellWords(x);
      EXPECT_EQ(CheckExample(host(), words), "") << "line " << e.line << ": " << x;
      for (const std::string& w : words) uses |= w == name || w.rfind(name + "(", 0) == 0;
    }
    EXPECT_TRUE(uses) << "line " << e.line << ": no example calls " << name;
  }
}

}  // namespace
