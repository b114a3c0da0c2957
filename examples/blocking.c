/* Copies a file or URL to standard output with blocking reads:
 *
 *   blocking SRC >COPY
 */
#include <fluviafs.h>
#include <stdio.h>

int main(int argc, char** argv) {
  static char buffer[65536];
  unsigned int got = 0;
  int handle = 0;
  int result = FVFR_OK;

  if (argc != 2) {
    fprintf(stderr, "usage: blocking SRC\n");
    return 2;
  }
  if (x_fluvia_file_open(argv[1], &handle) != FVFR_OK) {
    fprintf(stderr, "%s: not an absolute path or an http(s) URL\n", argv[1]);
    return 1;
  }
  /* A missing file shows here, not at open. */
  fprintf(stderr, "%lld bytes\n", x_fluvia_file_size(handle));

  while ((result = x_fluvia_file_read(handle, buffer, sizeof buffer, &got)) == FVFR_OK) {
    if (fwrite(buffer, 1, got, stdout) != got) {
      perror("standard output");
      break;
    }
  }
  x_fluvia_file_close(handle);
  if (result != FVFR_END_OF_FILE || fflush(stdout) != 0) {
    fprintf(stderr, "%s: gave up, result %d\n", argv[1], result);
    return 1;
  }
  return 0;
}
