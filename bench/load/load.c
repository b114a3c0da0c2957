/* Measures how long it takes to load a library after the libraries it needs. Each of 21 new
 * processes loads all names except the last, then takes the time of the last with all symbols
 * resolved. Prints the shortest time in microseconds.
 *
 *   load LIBRARY... LIBRARY */
#include <dlfcn.h>
#include <stdio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { ROUNDS = 21 };

static long long nanoseconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000000LL + now.tv_nsec;
}

/* Loads the names and writes the time of the last to out; ends the process. */
static void load(char** names, int count, int out) {
  long long took = 0;
  for (int i = 0; i < count; ++i) {
    const long long begin = nanoseconds();
    if (dlopen(names[i], RTLD_NOW | RTLD_GLOBAL) == NULL) {
      fprintf(stderr, "%s\n", dlerror());
      _exit(1);
    }
    took = nanoseconds() - begin;
  }
  _exit(write(out, &took, sizeof took) == (ssize_t)sizeof took ? 0 : 1);
}

int main(int argc, char** argv) {
  long long shortest = 0;
  int ends[2];
  if (argc < 2 || pipe(ends) != 0) return 2;
  for (int round = 0; round < ROUNDS; ++round) {
    long long took = 0;
    int status = 0;
    const pid_t child = fork();
    if (child == 0) load(argv + 1, argc - 1, ends[1]);
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) return 1;
    if (read(ends[0], &took, sizeof took) != (ssize_t)sizeof took) return 1;
    if (round == 0 || took < shortest) shortest = took;
  }
  printf("%lld\n", shortest / 1000);
  return 0;
}
