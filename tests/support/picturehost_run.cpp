#include "tests/support/picturehost_run.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/support/host_fixture.h"

namespace fs = std::filesystem;

namespace {

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

}  // namespace

std::string Slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

Outcome Picturehost(const std::vector<std::string>& words, const std::string& directory) {
  static std::atomic<int> counter{0};
  const fs::path err = fs::temp_directory_path() /
                       ("picturehost-err-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
  std::string command = Quote(PICTUREHOST_PATH) + " --plugin " + Quote(PluginPath());
  for (const std::string& w : words) command += " " + Quote(w);
  // Fontconfig, which draws the demo's labels, keeps caches for the life of
  // the process; a sanitizer build run without the project's suppressions
  // would report them as leaks.
  if (!std::getenv("LSAN_OPTIONS")) {
    command = "LSAN_OPTIONS=suppressions=" + Quote(std::string(PICTURE_SOURCE_DIR) + "/tools/lsan.supp") + " " + command;
  }
  if (!directory.empty()) command = "cd " + Quote(directory) + " && " + command;
  command += " 2>" + Quote(err.string());
  Outcome run;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return run;
  char buffer[4096];
  while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) run.out.append(buffer, n);
  const int status = pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.err = Slurp(err);
  fs::remove(err);
  return run;
}

TempDir::TempDir(const std::string& name) {
  static std::atomic<int> counter{0};
  path_ = fs::temp_directory_path() / (name + "-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
  fs::remove_all(path_);
  fs::create_directories(path_);
}

TempDir::~TempDir() {
  std::error_code ec;
  fs::remove_all(path_, ec);
}
