#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "support.h"

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <dlfcn.h>
#endif

int checks_made = 0, checks_failed = 0;

int expect(int good, const char* format, ...) {
  ++checks_made;
  if (!good) {
    va_list rest;
    ++checks_failed;
    printf("FAILED: ");
    va_start(rest, format);
    vprintf(format, rest);
    va_end(rest);
    printf("\n");
  }
  return good;
}

typedef void (*any_function)(void);

static any_function find(const library* lib, const char* name) {
  any_function found = NULL;
#if defined(_WIN32)
  found = (any_function)GetProcAddress((HMODULE)lib->handle, name);
#else
  void* address = dlsym(lib->handle, name);
  memcpy(&found, &address, sizeof found);
#endif
  if (found == NULL) {
    printf("FAILED: the library has no %s\n", name);
    exit(2);
  }
  return found;
}

library load_library(const char* path) {
  library lib;
#if defined(_WIN32)
  lib.handle = (void*)LoadLibraryA(path);
  if (lib.handle == NULL) printf("LoadLibrary: error %lu\n", (unsigned long)GetLastError());
#else
  lib.handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (lib.handle == NULL) printf("%s\n", dlerror());
#endif
  if (lib.handle == NULL) {
    printf("FAILED: cannot load %s\n", path);
    exit(2);
  }
  lib.check = (check_call)find(&lib, "checkversion");
  lib.lca = (lca_call)find(&lib, "runlca");
  lib.lca_wide = (lca_wide_call)find(&lib, "runlca");
  lib.lta = (lta_call)find(&lib, "runlta");
  return lib;
}

void unload_library(library* lib) {
#if defined(_WIN32)
  expect(FreeLibrary((HMODULE)lib->handle) != 0, "FreeLibrary");
#else
  expect(dlclose(lib->handle) == 0, "dlclose");
#endif
  memset(lib, 0, sizeof *lib);
}
