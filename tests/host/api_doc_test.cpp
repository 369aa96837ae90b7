// docs/api.md against the registrations of the built plug-in: every
// registered declaration and property documented under its owner, nothing
// documented that is not registered, and every example line a call that the
// command line runs.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <map>
#include <set>

#include "cli/call.h"
#include "tests/support/host_fixture.h"
#include "tests/support/picturehost_run.h"

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

// Each entry has an example that calls it, and every example runs the way
// the command line runs it (in a scratch directory that sees the source
// tree's tests/ folder for its data files): a nil result is fine, bad input
// is not.
TEST_F(ApiDoc, ExamplesRunAndCallTheirEntries) {
  TempDir dir("api-examples");
  std::filesystem::create_directory_symlink(std::filesystem::path(PICTURE_SOURCE_DIR) / "tests", dir.path() / "tests");
  const std::filesystem::path saved = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  for (const Entry& e : ReadDoc().entries) {
    bool uses = false;
    for (const std::string& x : e.examples) {
      const std::vector<std::string> words = ShellWords(x);
      ph::Execution run;
      std::ostringstream printed;
      try {
        const ph::Options o = ph::ParseOptions({words.begin() + 1, words.end()});
        ph::Execute(host(), o, run);
        ph::Deliver(host(), o, run, printed);
      } catch (const ph::NilResult&) {
      } catch (const std::exception& error) {
        ADD_FAILURE() << "line " << e.line << ": " << x << ": " << error.what();
      }
      for (const ph::Invoked& i : run.invoked) {
        const bool extension = i.owner == "Picture" || i.owner == "graphics" || i.owner == "global";
        uses |= (extension ? i.owner : "class:" + i.owner) == e.key.first && i.method->declaration.text == e.key.second;
      }
    }
    EXPECT_TRUE(uses) << "line " << e.line << ": no example calls " << e.key.second;
  }
  std::filesystem::current_path(saved);
}

}  // namespace
