#ifndef FLUVIAFS_UTIL_DUMPFILE_H_
#define FLUVIAFS_UTIL_DUMPFILE_H_

#include "util/Relaxed.h"

namespace util {

// Field diagnosis: copies all data that readers take into files, one file per read, in the
// directory that a small path file names. Without that path file nothing is written.
//
// Threads:   read_usb_path once at the start; read_to_file by one reader at a time. All dumps of
//            the process share the counter.
// Ownership: none.
class DumpFile {
 public:
  DumpFile();

  // Reads the directory from "/data/vendor/3rd_rw/fluviafs/fluviafs_usb_path.txt", else from
  // "/data/fluviafs/fluviafs_usb_path.txt": the file's text as it is, at most 200 bytes.
  void read_usb_path();
  // Writes length bytes that begin at stream offset to a file "QV_id<count>_<offset>_<end>.dat",
  // end exclusive. Failures are logged and otherwise ignored.
  void read_to_file(long long offset, unsigned char* data, unsigned int length);
  void dump_read_to_file(char* fileName, unsigned char* data, unsigned int length);
  // Number of dump files that the process has written.
  long getid() const { return num; }

 private:
  bool enabled;
  char path[200];  // not terminated if all 200 bytes are used

  static Relaxed<long> num;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_DUMPFILE_H_
