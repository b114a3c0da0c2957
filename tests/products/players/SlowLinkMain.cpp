// A long, slow link as a program.
//
// Prints the port of 127.0.0.1 that leads to PORT. At the end of standard input it prints the
// connections and bytes that came down. A number on standard input is its rate from then on.
#include <cstdio>
#include <cstdlib>

#include "tests/support/CommandLine.h"
#include "tests/support/SlowLink.h"

int main(int argc, char** argv) {
  int port = 0;
  int roundTrip = 0;
  long long rate = 0;
  support::CommandLine line("A long, slow link to a server of this machine.");
  line.option("PORT", &port, "Port of the server on 127.0.0.1").required();
  line.option("ROUND-TRIP", &roundTrip, "Milliseconds").required();
  line.option("RATE", &rate, "Bytes per second; 0: unlimited").withDefault();
  line.parseOrExit(argc, argv);
  support::SlowLink link(port, roundTrip, rate);
  printf("%d\n", link.port());
  fflush(stdout);
  char rateText[64];
  while (fgets(rateText, sizeof rateText, stdin) != nullptr) link.setRate(atoll(rateText));
  printf("%d %lld\n", link.connectionCount(), link.bytesDown());
  return 0;
}
