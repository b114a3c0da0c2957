// A long, slow link as a program.
//
//   slow-link PORT ROUND-TRIP-MS [BYTES-PER-SECOND]
//
// Prints the port of 127.0.0.1 that leads to PORT, and at the end of standard input the connections
// and bytes that came down. A number on standard input is its rate from then on.
#include <cstdio>
#include <cstdlib>

#include "tests/support/SlowLink.h"

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: slow-link PORT ROUND-TRIP-MS [BYTES-PER-SECOND]\n");
    return 2;
  }
  support::SlowLink link(atoi(argv[1]), atoi(argv[2]), argc > 3 ? atoll(argv[3]) : 0);
  printf("%d\n", link.port());
  fflush(stdout);
  char line[64];
  while (fgets(line, sizeof line, stdin) != nullptr) link.setRate(atoll(line));
  printf("%d %lld\n", link.connectionCount(), link.bytesDown());
  return 0;
}
