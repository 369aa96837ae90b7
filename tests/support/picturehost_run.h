// Runs the picturehost program as a user does, with the plug-in under test.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

struct Outcome { int status = -1; std::string out, err; };

// picturehost WORDS..., with standard output and standard error kept apart;
// `directory` is the working directory (empty: the test's own).
Outcome Picturehost(const std::vector<std::string>& words, const std::string& directory = "");

std::string Slurp(const std::filesystem::path& path);

// A fresh directory under the system's temporary directory, removed by its
// destructor.
class TempDir {
 public:
  explicit TempDir(const std::string& name);
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};
