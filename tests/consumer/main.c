/* Loads the module named by the first argument and prints one timecode label. */
#include <dlfcn.h>
#include <murmurase/murmurase.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void* module;

static void stop(const char* what) {
  fprintf(stderr, "consumer: %s\n", what);
  exit(1);
}

/* Sets the function pointer at `function`. */
static void find(const char* name, void* function) {
  void* const symbol = dlsym(module, name);
  if (symbol == NULL) stop(dlerror());
  memcpy(function, &symbol, sizeof symbol);
}

/* The interface's declarations are the types of the pointers. */
#define FIND(name)            \
  __typeof__(&name) p_##name; \
  find(#name, &p_##name)

#define CHECK(call)                                            \
  do {                                                         \
    murmurase_error* const error = (call);                     \
    if (error != NULL) stop(p_murmurase_error_message(error)); \
  } while (0)

int main(int count, char** arguments) {
  if (count != 2) stop("usage: consumer MODULE");
  module = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  if (module == NULL) stop(dlerror());
  FIND(murmurase_interface_version);
  FIND(Init_murmurase_algorithm);
  FIND(murmurase_startup_error);
  FIND(murmurase_error_message);
  FIND(murmurase_controller_new);
  FIND(murmurase_controller_free);
  FIND(murmurase_new_integer);
  FIND(murmurase_new_text);
  FIND(murmurase_get_text);
  FIND(murmurase_value_free);
  FIND(murmurase_call);

  if (p_murmurase_interface_version() != MURMURASE_INTERFACE_VERSION) {
    stop("the module was built with another interface version");
  }
  p_Init_murmurase_algorithm();
  if (p_murmurase_startup_error() != NULL) {
    stop(p_murmurase_error_message(p_murmurase_startup_error()));
  }

  const murmurase_host host = {0};
  murmurase_controller* controller = NULL;
  CHECK(p_murmurase_controller_new(&host, &controller));
  murmurase_value* values[3] = {NULL};
  CHECK(p_murmurase_new_integer(107892, &values[0]));
  CHECK(p_murmurase_new_integer(30, &values[1]));
  CHECK(p_murmurase_new_text("DF", 2, &values[2]));
  const murmurase_value* const given[] = {values[0], values[1], values[2]};
  murmurase_value* result = NULL;
  CHECK(p_murmurase_call(controller, "to_timecode", given, 3, &result));
  const char* label = NULL;
  size_t length = 0;
  CHECK(p_murmurase_get_text(result, &label, &length));
  printf("%.*s\n", (int)length, label);

  p_murmurase_value_free(result);
  for (size_t i = 0; i < 3; ++i) p_murmurase_value_free(values[i]);
  p_murmurase_controller_free(controller);
  return 0;
}
