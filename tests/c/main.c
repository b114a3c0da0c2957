/* With header.c, a program that uses every function of the library, in any standard. */
#include <fluviafs.h>
#include <stdio.h>

int main(void) {
  int handle = 0;
  if (x_fluvia_file_open("ftp://a", &handle) != FVFR_FAILED ||
      c_fluvia_file_open("ftp://a", &handle) != FVFR_FAILED) {
    fprintf(stderr, "a name that is no path and no address was opened\n");
    return 1;
  }
  return 0;
}
