// fluvia-mount: sources as the read-only files of a folder, with FUSE.
#define FUSE_USE_VERSION 32

#include <fuse.h>
#include <fuse_lowlevel.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "../HttpCommandLine.h"
#include "../Screen.h"
#include "../Source.h"
#include "MountedFiles.h"

namespace {

enum { kExitOk = 0, kExitSource = 1, kExitUsage = 2, kExitMount = 4 };

struct Mount {
  tools::MountedFiles files;
  tools::Screen screen{"fluvia-mount"};
  std::string folder;
  timespec since{};
};

Mount& mounted() { return *static_cast<Mount*>(fuse_get_context()->private_data); }

tools::MountedFiles::File* fileAt(const char* path) { return mounted().files.find(path + 1); }

int getAttributes(const char* path, struct stat* status, struct fuse_file_info*) {
  *status = {};
  status->st_uid = getuid();
  status->st_gid = getgid();
  status->st_mtim = status->st_ctim = status->st_atim = mounted().since;
  if (strcmp(path, "/") == 0) {
    status->st_mode = S_IFDIR | 0555;
    status->st_nlink = 2;
    return 0;
  }
  const tools::MountedFiles::File* file = fileAt(path);
  if (file == nullptr) return -ENOENT;
  status->st_mode = S_IFREG | 0444;
  status->st_nlink = 1;
  status->st_size = std::max(0LL, file->size);
  status->st_blocks = (status->st_size + 511) / 512;
  return 0;
}

int readFolder(const char* path, void* buffer, fuse_fill_dir_t fill, off_t, struct fuse_file_info*,
               enum fuse_readdir_flags) {
  if (strcmp(path, "/") != 0) return -ENOTDIR;
  const auto add = [&](const char* name) {
    return fill(buffer, name, nullptr, 0, static_cast<enum fuse_fill_dir_flags>(0)) == 0;
  };
  if (!add(".") || !add("..")) return 0;
  for (const auto& file : mounted().files.files()) {
    if (!add(file->name.c_str())) break;
  }
  return 0;
}

// A file that cannot seek is read from beginning to end and bypasses the kernel's cache.
int openFile(const char* path, struct fuse_file_info* info) {
  tools::MountedFiles::File* file = fileAt(path);
  if (file == nullptr) return -ENOENT;
  if ((info->flags & O_ACCMODE) != O_RDONLY) return -EROFS;
  int problem = 0;
  tools::MountedFiles::Reading* reading = mounted().files.begin(file, &problem);
  if (reading == nullptr) return -problem;
  info->fh = reinterpret_cast<uint64_t>(reading);
  if (file->seekable) {
    info->keep_cache = 1;
  } else {
    info->direct_io = 1;
    info->nonseekable = 1;
  }
  return 0;
}

tools::MountedFiles::Reading* readingOf(const struct fuse_file_info* info) {
  // FUSE keeps a number of ours beside each open file; open() made it of this pointer.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<tools::MountedFiles::Reading*>(info->fh);
}

int releaseFile(const char* path, struct fuse_file_info* info) {
  mounted().files.end(fileAt(path), readingOf(info));
  return 0;
}

int readFile(const char* path, char* buffer, size_t size, off_t offset,
             struct fuse_file_info* info) {
  return mounted().files.read(*fileAt(path), readingOf(info), buffer, size, offset);
}

void* begin(struct fuse_conn_info* connection, struct fuse_config*) {
  // The kernel does not report that a program was killed in an asynchronous direct read.
  connection->want &= ~static_cast<unsigned int>(FUSE_CAP_ASYNC_DIO);
  mounted().screen.fail(std::to_string(mounted().files.files().size()) + " files in " +
                        mounted().folder + "; end with Ctrl-C or fusermount3 -u");
  return &mounted();
}

// The ends of the program: signals, and the unmounting of the folder. The session ends when its
// threads have returned, so reads that wait for a server are aborted. A thread does that, because a
// signal handler must not.
class Signals {
 public:
  Signals(struct fuse* fuse, tools::MountedFiles* files) : files_(files) {
    fuse_ = fuse;
    // The signals are for the main thread, which they wake.
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    struct sigaction action = {};
    action.sa_handler = arrived;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
  }
  ~Signals() {
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
    tell();
    thread_.join();
    close(event_);
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

 private:
  static void arrived(int) {
    const int before = errno;
    fuse_exit(fuse_);
    tell();
    errno = before;
  }
  static void tell() { eventfd_write(event_, 1); }
  // Also runs when the folder is unmounted, which the kernel's end of the device reports. Reads
  // that still wait then are the kernel's read-ahead.
  void run() {
    struct pollfd watched[2] = {{event_, POLLIN, 0},
                                {fuse_session_fd(fuse_get_session(fuse_)), 0, 0}};
    while (poll(watched, 2, -1) < 0 && errno == EINTR) {
    }
    files_->abort();
  }

  static int event_;
  static struct fuse* fuse_;
  tools::MountedFiles* files_;
  std::thread thread_;
};

int Signals::event_ = eventfd(0, EFD_CLOEXEC);
struct fuse* Signals::fuse_ = nullptr;

int serve(Mount* mount) {
  struct fuse_operations operations = {};
  operations.getattr = getAttributes;
  operations.readdir = readFolder;
  operations.open = openFile;
  operations.read = readFile;
  operations.release = releaseFile;
  operations.init = begin;
  char program[] = "fluvia-mount";
  char option[] = "-oro,fsname=fluvia,subtype=fluvia";
  char* words[] = {program, option, nullptr};
  struct fuse_args arguments = FUSE_ARGS_INIT(2, words);
  struct fuse* fuse = fuse_new(&arguments, &operations, sizeof operations, mount);
  fuse_opt_free_args(&arguments);
  if (fuse == nullptr) return kExitMount;
  int result = kExitMount;
  if (fuse_mount(fuse, mount->folder.c_str()) == 0) {
    struct fuse_loop_config config = {};
    config.clone_fd = 0;
    config.max_idle_threads = 4;
    {
      const Signals signals(fuse, &mount->files);
      result = fuse_loop_mt(fuse, &config) < 0 ? kExitMount : kExitOk;
    }
    fuse_unmount(fuse);
  }
  fuse_destroy(fuse);
  return result;
}

int fail(const Mount& mount, int code, const std::string& text) {
  mount.screen.fail(text);
  return code;
}

int run(const std::vector<std::string>& sources, const std::string& folder, const std::string& log,
        int reopen, const tools::HttpOptions& http) {
  Mount mount;
  std::string error;
  mount.folder = folder;
  clock_gettime(CLOCK_REALTIME, &mount.since);
  if (!mount.screen.redirect(log, &error)) return fail(mount, kExitUsage, error);
  tools::forceHttpOptions(&http, &mount.screen);
  // A killed program waits for the reply to its read.
  mount.files.bearOutages(
      reopen, [&mount](const std::string& text) { mount.screen.fail(text); },
      [] { return fuse_interrupted() != 0; });
  for (const std::string& source : sources) {
    if (!mount.files.add(source, &error)) return fail(mount, kExitSource, error);
  }
  const int result = serve(&mount);
  if (result == kExitMount) {
    return fail(mount, result,
                "cannot mount on " + folder + "; is it an empty folder, and /dev/fuse there?");
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Shows files and HTTP resources, read through libfluviafs, as files of a folder.",
               "fluvia-mount");
  app.set_version_flag("--version", "fluvia-mount " FLUVIA_VERSION);
  app.footer(
      "The last argument is the folder, those before it are sources: paths or http:// or https://\n"
      "URLs. Stays in the foreground until Ctrl-C or fusermount3 -u. Exit codes: 0 ended by "
      "those,\n"
      "1 a source cannot be read, 2 wrong usage, 4 cannot mount.");
  std::vector<std::string> names;
  std::string log;
  int reopen = FLUVIA_OUTAGE_SECONDS;
  tools::HttpOptions http;
  app.add_option("SRC... DIR", names, "Sources, and the folder to show them in")
      ->required()
      ->expected(2, 255);
  app.add_option("--log", log, "Write the library's log lines to FILE")->type_name("FILE");
  app.add_option("--reopen", reopen,
                 "Bear an outage of a server N seconds, 0 for not at all; default 60")
      ->check(CLI::Range(0, 1000000))
      ->type_name("N");
  tools::addHttpOptions(app, &http);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& answer) {
    return tools::exitAfterParsing(app, answer, argc, argv) == 0 ? kExitOk : kExitUsage;
  }
  const std::string folder = names.back();
  names.pop_back();
  return run(names, folder, log, reopen, http);
}
