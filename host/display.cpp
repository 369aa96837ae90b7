// A display for GDK: the one in DISPLAY, or a private Xvfb started on demand
// and stopped when the process ends.
#include <fcntl.h>
#include <gdk/gdk.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "host/host_state.h"

namespace ph {

namespace {

pid_t gServer = 0;

void StopServer() {
  if (gServer > 0) {
    kill(gServer, SIGTERM);
    waitpid(gServer, nullptr, 0);
    gServer = 0;
  }
}

// The private server's screen: 24 bits deep, or PICTURE_XVFB_DEPTH (8, 15,
// 16, 24 or 30) so that the visuals the library must handle can be tried.
std::string ScreenSpec() {
  const char* depth = std::getenv("PICTURE_XVFB_DEPTH");
  const std::string d = depth ? depth : "";
  const bool known = d == "8" || d == "15" || d == "16" || d == "24" || d == "30";
  return "1024x768x" + (known ? d : std::string("24"));
}

// Starts Xvfb on a free display number, which it reports through a pipe.
bool StartServer(std::string* error) {
  int fds[2];
  if (pipe(fds) != 0) {
    *error = "cannot start Xvfb: no pipe";
    return false;
  }
  const std::string screen = ScreenSpec();
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) {
    *error = "cannot start Xvfb: fork failed";
    return false;
  }
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(1);
    close(fds[0]);
    const std::string fd = std::to_string(fds[1]);
    int devnull = open("/dev/null", O_WRONLY);
    if (devnull >= 0) {
      dup2(devnull, STDOUT_FILENO);
      dup2(devnull, STDERR_FILENO);
    }
    execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", screen.c_str(), "-nolisten", "tcp", "-noreset",
           static_cast<char*>(nullptr));
    _exit(127);
  }
  close(fds[1]);
  std::string number;
  char c;
  while (read(fds[0], &c, 1) == 1 && c != '\n') number += c;
  close(fds[0]);
  if (number.empty()) {
    waitpid(child, nullptr, 0);
    *error = "cannot start Xvfb (is the xvfb package installed?)";
    return false;
  }
  gServer = child;
  std::atexit(StopServer);
  setenv("DISPLAY", (":" + number).c_str(), 1);
  return true;
}

}  // namespace

bool EnsureDisplay(std::string* error) {
  static bool ready = false;
  if (ready) return true;
  const char* display = std::getenv("DISPLAY");
  if ((!display || !*display) && !StartServer(error)) return false;
  if (!gdk_init_check(nullptr, nullptr)) {
    *error = std::string("cannot open the X display ") + (std::getenv("DISPLAY") ? std::getenv("DISPLAY") : "");
    return false;
  }
  ready = true;
  return true;
}

void DiscardEvents() {
  // Taking an event reads every event waiting in the X queue; those that are
  // no window's (NoExpose of a pixmap) are dropped on the way.
  if (!gdk_display_get_default()) return;
  while (GdkEvent* event = gdk_event_get()) gdk_event_free(event);
}

}  // namespace ph
