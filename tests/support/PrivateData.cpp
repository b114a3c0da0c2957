#include "tests/support/PrivateData.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/support/Watchdog.h"

// The compiler's function, in builds with -fprofile-instr-generate only.
extern "C" __attribute__((weak)) int __llvm_profile_write_file();

namespace support {

namespace {

void require(bool ok, const char* what) {
  if (ok) return;
  perror(what);
  _exit(90);
}

void writeText(const char* path, const std::string& text) {
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  require(fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
          path);
  close(fd);
}

// Enters a mount namespace; an ordinary user also enters a user namespace in which this user is
// root.
void enterNamespace() {
  if (geteuid() == 0 && unshare(CLONE_NEWNS) == 0) return;
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  require(unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0, "unshare");
  writeText("/proc/self/setgroups", "deny");
  writeText("/proc/self/uid_map", "0 " + user + " 1");
  writeText("/proc/self/gid_map", "0 " + group + " 1");
}

// Builds a root with the same folders, and an empty /data, on the given empty folder, and moves
// there.
void enterRootWithData(const std::string& top) {
  enterNamespace();
  require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private root");
  const std::string base = std::filesystem::current_path().string();
  require(mount("tmpfs", top.c_str(), "tmpfs", 0, nullptr) == 0, "tmpfs");
  for (const auto& entry : std::filesystem::directory_iterator("/")) {
    const std::string from = entry.path().string();
    const std::string to = top + from;
    if (from == "/data") continue;
    if (entry.is_symlink()) {
      std::filesystem::copy_symlink(entry.path(), to);
    } else if (entry.is_directory()) {
      require(mkdir(to.c_str(), 0755) == 0, to.c_str());
      require(mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, to.c_str());
    }
  }
  require(mkdir((top + "/data").c_str(), 0755) == 0, "data");
  require(chroot(top.c_str()) == 0 && chdir(base.c_str()) == 0, "chroot");
}

void killGroupAndWait(pid_t child) {
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

// Reads until the other end is closed or the deadline has passed. Returns false after the deadline.
bool readAll(int fd, int seconds, std::string* text) {
  const auto until = std::chrono::steady_clock::now() + patienceOf(seconds);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        until - std::chrono::steady_clock::now());
    struct pollfd wait = {fd, POLLIN, 0};
    if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) == 0) return false;
    char piece[65536];
    const ssize_t n = read(fd, piece, sizeof piece);
    if (n <= 0) return true;
    text->append(piece, static_cast<size_t>(n));
  }
}

ChildResult runChild(const std::function<void()>& body, int seconds, const std::string& root) {
  int ends[2];
  fflush(stdout);
  fflush(stderr);
  if (pipe2(ends, O_CLOEXEC) != 0) abort();
  const pid_t child = fork();
  if (child < 0) abort();
  if (child == 0) {
    dup2(ends[1], 2);
    close(ends[0]);
    close(ends[1]);
    if (!root.empty()) enterRootWithData(root);
    body();
    fflush(stderr);
    endChild(0);
  }
  close(ends[1]);
  ChildResult result = {-1, ""};
  const bool ended = readAll(ends[0], seconds, &result.error);
  close(ends[0]);
  if (!ended) {
    killGroupAndWait(child);
    result.error += "\nthe deadline has come\n";
    return result;
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  return result;
}

}  // namespace

void endChild(int code) {
  if (__llvm_profile_write_file != nullptr) __llvm_profile_write_file();
  _exit(code);
}

ChildResult inChild(const std::function<void()>& body, int seconds) {
  return runChild(body, seconds, "");
}

ChildResult inPrivateData(const std::function<void()>& body) {
  char name[] = "/tmp/fluviafs-root-XXXXXX";
  if (mkdtemp(name) == nullptr) abort();
  const ChildResult result = runChild(body, 60, name);
  rmdir(name);
  return result;
}

void writeData(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream file(path, std::ios::binary);
  file << text;
}

}  // namespace support
