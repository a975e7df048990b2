/* Preloaded into murmurase: fails the allocation to which FAILING_ALLOCATION counts, those of libxml2 and the
 * C library included, and the system call for a file that FAILING_CALL names. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* old, size_t size);

/* What the variable says, but nothing for the tools that murmurase starts. */
static const char* failing(const char* variable) {
  const char* value = getenv(variable);
  return value != NULL && strcmp(program_invocation_short_name, "murmurase") == 0 ? value : "";
}

static int refused(void) {
  static long left = -1;
  if (left < 0) left = atol(failing("FAILING_ALLOCATION"));
  if (left == 0 || --left > 0) return 0;
  errno = ENOMEM;
  return 1;
}

void* malloc(size_t size) { return refused() ? NULL : __libc_malloc(size); }
void* calloc(size_t count, size_t size) { return refused() ? NULL : __libc_calloc(count, size); }
void* realloc(void* old, size_t size) { return refused() ? NULL : __libc_realloc(old, size); }

#define CALL(name, parameters, arguments)                                              \
  int name parameters {                                                                \
    int(*original) parameters = (int(*) parameters)dlsym(RTLD_NEXT, #name);            \
    if (strcmp(failing("FAILING_CALL"), #name) != 0) return original arguments;        \
    if (strcmp(#name, "close") == 0) original arguments; /* It closes all the same. */ \
    errno = EIO;                                                                       \
    return -1;                                                                         \
  }
CALL(fsync, (int file), (file))
CALL(close, (int file), (file))
CALL(fchmod, (int file, mode_t mode), (file, mode))
CALL(rename, (const char* from, const char* to), (from, to))
