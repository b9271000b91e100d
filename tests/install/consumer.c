/* A host that knows the installed files alone; it is valid C and C++. */
#include <stdio.h>
#include <tolvenra/tolvenra.h>

typedef void (*any_function)(void);

int main(void) {
  /* Linked, not called: the runs have tests of their own. */
  volatile any_function runs[2] = {(any_function)&runlca, (any_function)&runlta};
  const int32_t version[3] = {4, 3, 2};
  uint8_t mismatch = 7;
  tolvenra_progress progress = {0};
  progress.size = (int32_t)sizeof progress;
  checkversion(version, &mismatch);
  if (mismatch != 0) printf("the library has another interface version\n");
  return mismatch != 0 || progress.size < 64 || runs[0] == runs[1];
}
