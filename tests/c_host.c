/* A host in C11, which knows the public header alone: the whole road through it, then its misuse.
 * tests/installed builds it once more against an installed copy. */
#define _XOPEN_SOURCE 700
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "murmurase/murmurase.h"

/* clang-format off */
#define FUNCTIONS(F) \
  F(call) F(clip_fault) F(controller_free) F(controller_new) F(document_repair) F(error_free)            \
  F(error_get_kind)                                                                       \
  F(error_message) F(error_number) F(get) F(get_boolean) F(get_host_object) F(get_integer) \
  F(get_real) F(get_text) F(interface_version) F(list_append) F(list_get) F(list_set)      \
  F(new_boolean) F(new_host_object) F(new_integer) F(new_list) F(new_real) F(new_record)   \
  F(new_text) F(record_get) F(record_key) F(record_set) F(set) F(set_host_ui_active)       \
  F(set_clip_file) F(set_open_command)                                                     \
  F(size) F(startup_error) F(temp_xml_file) F(value_copy) F(value_free) F(value_kind) F(version)
/* clang-format on */

static struct {
#define DECLARE(name) __typeof__(&murmurase_##name) name;
  FUNCTIONS(DECLARE)
} m;

static int failures = 0;

#define EXPECT(condition)                                                   \
  do {                                                                      \
    if (!(condition)) {                                                     \
      fprintf(stderr, "line %d: %s does not hold\n", __LINE__, #condition); \
      ++failures;                                                           \
    }                                                                       \
  } while (0)

/* Whether the call succeeded; frees its error after telling it. */
static bool succeeded(murmurase_error* error) {
  if (error == NULL) return true;
  fprintf(stderr, "error %d: %s\n", (int)m.error_get_kind(error), m.error_message(error));
  m.error_free(error);
  return false;
}

/* The kind of the error that a call ends in, 0 for none; frees it. */
static int kind(murmurase_error* error) {
  const int result = error == NULL ? 0 : (int)m.error_get_kind(error);
  if (error != NULL) EXPECT(strlen(m.error_message(error)) > 0);
  m.error_free(error);
  return result;
}

static murmurase_value* text(const char* bytes) {
  murmurase_value* value = NULL;
  EXPECT(succeeded(m.new_text(bytes, strlen(bytes), &value)));
  return value;
}

static murmurase_value* integer(int64_t number) {
  murmurase_value* value = NULL;
  EXPECT(succeeded(m.new_integer(number, &value)));
  return value;
}

/* Calls with values that are freed here. */
static murmurase_error* call(murmurase_controller* controller, const char* operation, size_t count,
                             murmurase_value* first, murmurase_value* second,
                             murmurase_value** result) {
  const murmurase_value* arguments[2];
  arguments[0] = first;
  arguments[1] = second;
  murmurase_error* error = m.call(controller, operation, arguments, count, result);
  m.value_free(first);
  m.value_free(second);
  return error;
}

static murmurase_error* set(murmurase_controller* controller, const char* field,
                            murmurase_value* value) {
  murmurase_error* error = m.set(controller, field, value);
  m.value_free(value);
  return error;
}

static int reloads = 0;
static bool reload_succeeds = true;

static bool slider(void* context, double* value) {
  (void)context;
  *value = 3;
  return true;
}

static bool reload(void* context, void* table) {
  EXPECT(table == context);
  ++reloads;
  return reload_succeeds;
}

static bool is_text(const murmurase_value* value, const char* expected) {
  const char* bytes = NULL;
  size_t length = 0;
  return succeeded(m.get_text(value, &bytes, &length)) && length == strlen(expected) &&
         strcmp(bytes, expected) == 0;
}

static void road(murmurase_controller* controller, const char* data, void* table) {
  char path[4096];
  murmurase_value* value = NULL;
  snprintf(path, sizeof path, "%s/print_packet", data);
  EXPECT(succeeded(set(controller, "xmpcommand", text(path))));
  EXPECT(succeeded(m.new_host_object(table, &value)));
  EXPECT(succeeded(set(controller, "speakersTableView", value)));

  snprintf(path, sizeof path, "%s/interview.xmp", data);
  EXPECT(succeeded(call(controller, "parse_xmp_from_mov", 1, text(path), NULL, &value)));
  EXPECT(m.size(value) == 1);
  const murmurase_value* item = NULL;
  EXPECT(succeeded(m.list_get(value, 0, &item)));
  EXPECT(m.value_kind(item) == MURMURASE_XML_ELEMENT);
  m.value_free(value);
  EXPECT(succeeded(call(controller, "build_speakers_array", 0, NULL, NULL, NULL)));

  /* Name the second speaker. */
  murmurase_value* speakers = NULL;
  murmurase_value* entry = NULL;
  EXPECT(succeeded(m.get(controller, "speakers_array", &speakers)));
  EXPECT(m.size(speakers) == 2);
  EXPECT(succeeded(m.list_get(speakers, 1, &item)));
  EXPECT(strcmp(m.record_key(item, 1), "Name") == 0);
  EXPECT(m.record_key(item, 2) == NULL);
  EXPECT(succeeded(m.value_copy(item, &entry)));
  value = text("Anna");
  EXPECT(succeeded(m.record_set(entry, "Name", value)));
  EXPECT(succeeded(m.list_set(speakers, 1, entry)));
  EXPECT(succeeded(m.set(controller, "speakers_array", speakers)));
  m.value_free(value);
  m.value_free(entry);
  m.value_free(speakers);

  EXPECT(succeeded(call(controller, "save_to_text", 2, integer(3), text("c_host.txt"), &value)));
  EXPECT(value == NULL);
  EXPECT(reloads == 1);
  EXPECT(succeeded(m.get(controller, "text_to_save", &value)));
  EXPECT(is_text(value,
                 "  SPEAKER 1\n[01:00:00:00] Hello and welcome\n[01:00:01:06] to the\n\n"
                 "  ANNA\n[01:00:02:15] Thanks Bob\n"));
  m.value_free(value);
  remove("c_host.txt");

  double real = 0;
  EXPECT(succeeded(m.get(controller, "words_array", &value)));
  EXPECT(succeeded(m.list_get(value, 2, &item)));
  EXPECT(succeeded(m.record_get(item, "time_in", &item)));
  EXPECT(succeeded(m.get_real(item, &real)) && real == 2.6);
  m.value_free(value);

  /* The element keeps its document alive when the controller has let go of it. */
  EXPECT(succeeded(m.get(controller, "transcription_xml", &value)));
  EXPECT(succeeded(m.set(controller, "transcription_xml", NULL)));
  EXPECT(succeeded(m.set(controller, "transcription_xml", value)));
  EXPECT(succeeded(call(controller, "build_words_array", 1, integer(100), NULL, NULL)));
  m.value_free(value);

  reload_succeeds = false;
  EXPECT(kind(call(controller, "build_words_array", 1, integer(3), NULL, NULL)) ==
         MURMURASE_ERROR_HOST);
  m.set_host_ui_active(false);
  murmurase_error* error = call(controller, "save_to_text", 2, integer(3), text("/none/x"), NULL);
  EXPECT(m.error_number(error) == 2);
  EXPECT(kind(error) == MURMURASE_ERROR_SYSTEM);
}

static void clip_road(murmurase_controller* controller) {
  FILE* file = fopen("c_host.xml", "w");
  if (file == NULL) abort();
  fputs(
      "<xmeml version='5'>\n<clip><name>R & D</name>\n<rate><timebase>25</timebase></rate>"
      "<updatebehavior/></clip>\n</xmeml>\n",
      file);
  fclose(file);
  murmurase_value* clip = NULL;
  murmurase_value* value = NULL;
  const murmurase_value* item = NULL;
  EXPECT(succeeded(call(controller, "parse_xml_file", 1, text("c_host.xml"), NULL, &clip)));
  remove("c_host.xml");
  EXPECT(m.size(clip) == 2);
  EXPECT(succeeded(m.list_get(clip, 1, &item)));
  EXPECT(is_text(item, "xmeml"));
  EXPECT(succeeded(m.list_get(clip, 0, &item)));
  EXPECT(succeeded(m.set(controller, "clip_xml", item)));

  /* What is known of the repair goes where the document goes. */
  murmurase_value* document = NULL;
  murmurase_repair repair = MURMURASE_REPAIR_NONE;
  int64_t number = 0;
  EXPECT(succeeded(m.get(controller, "clip_xml", &document)));
  EXPECT(succeeded(m.document_repair(document, &repair, &value)));
  EXPECT(repair == MURMURASE_REPAIR_LINES);
  EXPECT(m.size(value) == 1);
  EXPECT(succeeded(m.list_get(value, 0, &item)));
  EXPECT(succeeded(m.get_integer(item, &number)) && number == 2);
  EXPECT(succeeded(m.document_repair(document, &repair, NULL)));
  EXPECT(kind(m.document_repair(document, NULL, NULL)) == MURMURASE_ERROR_ARGUMENT);
  EXPECT(kind(m.document_repair(value, &repair, NULL)) == MURMURASE_ERROR_TYPE);
  m.value_free(document);
  m.value_free(value);
  m.value_free(clip);

  const char* const commands[] = {"true", "false", NULL};
  for (int i = 0; i < 3; ++i) {
    bool opened = false;
    EXPECT(succeeded(m.set_open_command(controller, commands[i])));
    EXPECT(succeeded(m.set_clip_file(controller, i == 1 ? "/dev/null" : NULL)));
    EXPECT(succeeded(call(controller, "create_clip_with_markers", 0, NULL, NULL, &value)));
    EXPECT(succeeded(m.get_boolean(value, &opened)) && opened == (i == 0));
    m.value_free(value);
  }
}

static void misuse(murmurase_controller* controller) {
  murmurase_value* list = NULL;
  murmurase_value* record = NULL;
  murmurase_value* value = NULL;
  const murmurase_value* item = NULL;
  const char* bytes = NULL;
  double real = 0;
  bool boolean = false;
  void* object = NULL;
  EXPECT(succeeded(m.new_list(&list)));
  EXPECT(succeeded(m.new_record(&record)));
  EXPECT(succeeded(m.new_boolean(true, &value)));

  EXPECT(kind(m.controller_new(NULL, &controller)) == MURMURASE_ERROR_ARGUMENT);
  EXPECT(kind(m.controller_new(&(const murmurase_host){0}, &controller)) ==
         MURMURASE_ERROR_ARGUMENT);
  EXPECT(kind(m.get(NULL, "in", &value)) == MURMURASE_ERROR_ARGUMENT);
  EXPECT(kind(m.get(controller, "in", NULL)) == MURMURASE_ERROR_ARGUMENT);
  EXPECT(kind(m.set(controller, "in", value)) == MURMURASE_ERROR_TYPE);
  EXPECT(kind(m.call(NULL, "to_frames", NULL, 0, NULL)) == MURMURASE_ERROR_ARGUMENT);
  EXPECT(kind(m.call(controller, "to_frames", NULL, 2, NULL)) == MURMURASE_ERROR_ARGUMENT);
  EXPECT(kind(m.new_text(NULL, 1, &value)) == MURMURASE_ERROR_ARGUMENT);
  EXPECT(kind(m.new_real(1, NULL)) == MURMURASE_ERROR_ARGUMENT);
  EXPECT(kind(m.new_text("x", SIZE_MAX / 2 + 1, &value)) == MURMURASE_ERROR_MEMORY);
  EXPECT(kind(m.get_boolean(value, NULL)) == MURMURASE_ERROR_ARGUMENT);
  EXPECT(kind(m.get_real(value, &real)) == MURMURASE_ERROR_TYPE);
  EXPECT(kind(m.get_text(value, &bytes, NULL)) == MURMURASE_ERROR_TYPE);
  EXPECT(kind(m.get_host_object(record, &object)) == MURMURASE_ERROR_TYPE);
  EXPECT(kind(m.list_get(list, 0, &item)) == MURMURASE_ERROR_RANGE);
  EXPECT(kind(m.list_get(record, 0, &item)) == MURMURASE_ERROR_TYPE);
  EXPECT(kind(m.list_set(list, 0, value)) == MURMURASE_ERROR_RANGE);
  EXPECT(kind(m.list_append(list, list)) == MURMURASE_ERROR_TYPE);
  EXPECT(kind(m.record_set(record, "k", record)) == MURMURASE_ERROR_TYPE);
  EXPECT(kind(m.record_get(record, "k", &item)) == MURMURASE_ERROR_NAME);
  EXPECT(m.size(NULL) == 0);
  EXPECT(m.value_kind(NULL) == MURMURASE_NULL);

  /* A null inside a container is NULL; the arguments of a failed call changed nothing. */
  EXPECT(succeeded(m.list_append(list, NULL)));
  item = value;
  EXPECT(succeeded(m.list_get(list, 0, &item)));
  EXPECT(item == NULL);
  EXPECT(succeeded(m.get_boolean(value, &boolean)) && boolean);
  m.value_free(list);
  m.value_free(record);
  m.value_free(value);
  m.value_free(NULL);
  m.controller_free(NULL);
  m.error_free(NULL);
}

int main(int count, char** arguments) {
  void* module = count == 3 ? dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL) : NULL;
  if (module == NULL) {
    fprintf(stderr, "usage: c_host MODULE DATA; %s\n", dlerror());
    return 2;
  }
  void (*start)(void) = NULL;
#define FIND(name) *(void**)(&m.name) = dlsym(module, "murmurase_" #name);
  FUNCTIONS(FIND)
  *(void**)(&start) = dlsym(module, "Init_murmurase_algorithm");
  EXPECT(m.interface_version() == MURMURASE_INTERFACE_VERSION);
  EXPECT(strlen(m.version()) > 0);

  int table = 0;
  const murmurase_host host = {sizeof host, &table, slider, reload};
  const murmurase_host silent = {offsetof(murmurase_host, reloadData), NULL, NULL, NULL};
  murmurase_controller* controller = NULL;
  EXPECT(succeeded(m.controller_new(&host, &controller)));
  EXPECT(kind(m.call(controller, "to_timestamp", NULL, 0, NULL)) == MURMURASE_ERROR_NAME);
  char folder[] = "/tmp/c_host-XXXXXX";
  EXPECT(mkdtemp(folder) != NULL && chdir(folder) == 0);
  setenv("XDG_DATA_HOME", folder, 1);
  start();
  EXPECT(m.startup_error() == NULL);
  road(controller, arguments[2], &table);
  clip_road(controller);
  misuse(controller);
  m.controller_free(controller);

  /* A second start-up fails, and leaves the operations; a host may lack a callback until it counts. */
  const char* const file = m.temp_xml_file();
  start();
  EXPECT(m.error_get_kind(m.startup_error()) == MURMURASE_ERROR_TYPE);
  EXPECT(file != NULL && m.temp_xml_file() == file);
  EXPECT(succeeded(m.controller_new(&silent, &controller)));
  murmurase_value* value = NULL;
  m.set_host_ui_active(true);
  EXPECT(kind(call(controller, "build_words_array", 1, integer(3), NULL, NULL)) ==
         MURMURASE_ERROR_MISSING_VALUE);
  EXPECT(succeeded(m.new_host_object(NULL, &value)));
  EXPECT(succeeded(set(controller, "speakersTableView", value)));
  EXPECT(kind(call(controller, "build_words_array", 1, integer(3), NULL, NULL)) ==
         MURMURASE_ERROR_NAME);
  m.controller_free(controller);
  remove("Fernwork/Parlenda.xml");
  remove("Fernwork");
  rmdir(folder);
  if (failures == 0) puts("c_host: all held");
  return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
