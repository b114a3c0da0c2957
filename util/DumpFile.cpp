#include "util/DumpFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "util/Log.h"

namespace util {

namespace {
const char kPathFile[] = "/data/vendor/3rd_rw/fluviafs/fluviafs_usb_path.txt";
const char kOtherPathFile[] = "/data/fluviafs/fluviafs_usb_path.txt";
}  // namespace

Relaxed<long> DumpFile::num(0);

DumpFile::DumpFile() : enabled(false), path() {}

void DumpFile::read_usb_path() {
  memset(path, 0, sizeof path);
  int fd = open(kPathFile, O_RDONLY | O_CLOEXEC);
  if (fd < 0) fd = open(kOtherPathFile, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  const ssize_t got = read(fd, path, sizeof path);
  close(fd);
  enabled = got > 0;
  if (enabled) FLUVIA_LOG(-4, "read fluviafs_usb_path.txt success");
}

void DumpFile::read_to_file(long long offset, unsigned char* data, unsigned int length) {
  if (!enabled) return;
  const long id = ++num;
  char full[280] = {};
  // A path of 200 bytes has no terminator.
  snprintf(full, sizeof full, "%.200s/QV_id%ld_%lld_%lld.dat", path, id, offset, offset + length);
  char name[200];
  memset(name, 0, sizeof name);
  memcpy(name, full, sizeof name - 1);  // a longer name is cut
  dump_read_to_file(name, data, length);
}

void DumpFile::dump_read_to_file(char* fileName, unsigned char* data, unsigned int length) {
  const int fd = open(fileName, O_WRONLY | O_CREAT | O_CLOEXEC, 0777);
  if (fd < 0) {
    FLUVIA_LOG(-4, "open %s fail", fileName);
    return;
  }
  const bool written = write(fd, data, length) >= 0;
  if (!written) FLUVIA_LOG(-4, "write %s fail", fileName);
  close(fd);
  if (written) FLUVIA_LOG(-4, "FluviaFile readed=%d, id:%ld", static_cast<int>(length), getid());
}

}  // namespace util
