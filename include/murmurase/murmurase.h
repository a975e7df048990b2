/*
 * murmurase.h: the C interface of the loadable module murmurase_algorithm.
 *
 * A host loads the module with dlopen, finds the functions below with dlsym, and then
 *
 *   1. compares murmurase_interface_version() with MURMURASE_INTERFACE_VERSION,
 *   2. calls Init_murmurase_algorithm() once and looks at murmurase_startup_error(),
 *   3. makes a controller with murmurase_controller_new(),
 *   4. sets fields, calls operations, gets fields and results,
 *   5. frees what it owns.
 *
 * A transcript of a movie, in a host without windows, errors left out:
 *
 *   murmurase_host host = {sizeof host, NULL, NULL, NULL};
 *   murmurase_controller* controller;
 *   murmurase_value *tool, *movie, *path, *words;
 *   Init_murmurase_algorithm();
 *   murmurase_set_host_ui_active(false);
 *   murmurase_controller_new(&host, &controller);
 *   murmurase_new_text("/usr/bin/murmurase-xmp", 22, &tool);
 *   murmurase_new_text("take.mov", 8, &movie);
 *   murmurase_new_text("take.txt", 8, &path);
 *   murmurase_new_integer(100, &words);
 *   murmurase_set(controller, "xmpcommand", tool);
 *   murmurase_call(controller, "parse_xmp_from_mov", (const murmurase_value*[]){movie}, 1, NULL);
 *   murmurase_call(controller, "build_speakers_array", NULL, 0, NULL);
 *   murmurase_call(controller, "save_to_text", (const murmurase_value*[]){words, path}, 2, NULL);
 *
 * Conventions, for every function
 *
 *   Errors     A function that can fail returns an error, or NULL when it succeeded. The host owns
 *              the error and frees it with murmurase_error_free(). After an error the function's
 *              result argument is unchanged. No C++ exception and no signal ever comes out of it.
 *   Values     Dynamic values pass as pointers to murmurase_value. The null value is the NULL
 *              pointer, in both directions, and stands for an absent field.
 *   Ownership  An argument stays the host's: what the module keeps of it, it copies. What comes back
 *              through a `murmurase_value**` is the host's to free with murmurase_value_free().
 *              What comes back as a pointer to const belongs to the thing it was asked of, and
 *              lives until that is changed or freed. Every free function accepts NULL.
 *   Text       is UTF-8 with a length in bytes, and may hold any byte. Texts that the module gives
 *              also end in a zero byte that the length does not count. Names of fields, operations
 *              and record keys are zero-terminated.
 *   Misuse     A null handle, a value of the wrong kind or an unknown name is an error, not a crash.
 *   Threads    The module has no locks: call it from one thread at a time, the thread that may
 *              update the host's user interface.
 *   Processes  A copy of the host's process, made by fork(), runs the XMP tool or the program that
 *              opens clips, waits for its end and then ends too. So a host may ignore SIGCHLD or
 *              wait for all its children; it may find that process among them.
 */
#ifndef MURMURASE_MURMURASE_H
#define MURMURASE_MURMURASE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__) || defined(__clang__)
#define MURMURASE_API __attribute__((visibility("default")))
#define MURMURASE_CHECKED __attribute__((visibility("default"), warn_unused_result))
#else
#define MURMURASE_API
#define MURMURASE_CHECKED
#endif

/* The interface that this header describes; grows when a host built for an older one would break. */
#define MURMURASE_INTERFACE_VERSION 1

/* The interface version that the loaded module was built with. May be called before start-up. */
MURMURASE_API int murmurase_interface_version(void);

/* The module's release, such as "0.1.0". The module owns the text; it lives as long as the module. */
MURMURASE_API const char* murmurase_version(void);

/* ---- Errors ---------------------------------------------------------------------------------- */

typedef enum murmurase_error_kind {
  MURMURASE_ERROR_ARGUMENT = 1, /* wrong number of arguments, a null handle, an unusable value */
  MURMURASE_ERROR_NAME = 2,     /* no operation, field, key or host call of that name */
  MURMURASE_ERROR_TYPE = 3,     /* a value of the wrong kind */
  MURMURASE_ERROR_ZERO_DIVISION = 4,
  MURMURASE_ERROR_RANGE = 5, /* a number too large, infinite or not a number; a full sheet */
  MURMURASE_ERROR_MISSING_VALUE = 6, /* a field, speaker or element that is needed and absent */
  MURMURASE_ERROR_XML = 7,
  MURMURASE_ERROR_SYSTEM = 8, /* the operating system refused; see murmurase_error_number() */
  MURMURASE_ERROR_HOST = 9,   /* one of the host's own callbacks failed */
  MURMURASE_ERROR_MEMORY = 10,
  MURMURASE_ERROR_INTERNAL = 11 /* a fault of the module itself */
} murmurase_error_kind;

typedef struct murmurase_error murmurase_error;

/* The kind; MURMURASE_ERROR_ARGUMENT for NULL. */
MURMURASE_API murmurase_error_kind murmurase_error_get_kind(const murmurase_error* error);

/* One line of UTF-8 that says what failed and on what. Never NULL. Lives as long as the error. */
MURMURASE_API const char* murmurase_error_message(const murmurase_error* error);

/* The system's error number (errno) for MURMURASE_ERROR_SYSTEM, 0 for every other kind. */
MURMURASE_API int murmurase_error_number(const murmurase_error* error);

MURMURASE_API void murmurase_error_free(murmurase_error* error);

/* ---- Start-up -------------------------------------------------------------------------------- */

/*
 * The module's entry point. Prepares the working folder "Fernwork" in the user's Application Support
 * directory (~/Library/Application Support/Fernwork on macOS, ~/.local/share/Fernwork elsewhere) and
 * installs the operations. To be called once, before any controller calls an operation.
 *
 * A call after one that succeeded prepares the working folder again, installs to_timecode, to_timestamp
 * and to_frames again, and ends in a type error (in a system error if the folder cannot be made). The
 * other operations stay in place, and murmurase_temp_xml_file() gives the same pointer. After a first
 * call that failed, the module cannot be used in this process: each further call fails for the same
 * reason, which its error repeats.
 *
 * Application Support is the system's own on macOS; elsewhere $XDG_DATA_HOME when that is an absolute
 * path, else ~/.local/share; it is made when it is missing. Without any such directory (no $HOME, or
 * nothing can be made there) start-up succeeds, and only the export that writes into the working
 * folder fails. Start-up fails when the working folder cannot be made in a directory that is there.
 */
MURMURASE_API void Init_murmurase_algorithm(void);

/*
 * Why the last start-up failed, or NULL when it succeeded or has not been called. After a failed
 * first start-up the module has no operations. The module owns the error, which lives until the next
 * start-up.
 */
MURMURASE_API const murmurase_error* murmurase_startup_error(void);

/*
 * TEMP_XML_FILE: the path of the file that create_clip_with_markers writes unless the host chooses
 * another, set once by the first start-up; NULL when there is no Application Support directory. The
 * module owns the text; it lives as long as the module.
 */
MURMURASE_API const char* murmurase_temp_xml_file(void);

/* ---- Values ---------------------------------------------------------------------------------- */

typedef enum murmurase_kind {
  MURMURASE_NULL = 0,
  MURMURASE_BOOLEAN = 1,
  MURMURASE_INTEGER = 2, /* 64 bits, signed */
  MURMURASE_REAL = 3,    /* double */
  MURMURASE_TEXT = 4,
  MURMURASE_LIST = 5,   /* of anything but lists */
  MURMURASE_RECORD = 6, /* keys to values that are neither lists nor records; keeps its order */
  MURMURASE_XML_DOCUMENT = 7, /* a handle: copies refer to the same document and keep it alive */
  MURMURASE_XML_ELEMENT = 8,  /* a handle that keeps its document alive */
  MURMURASE_HOST_OBJECT = 9   /* a pointer of the host's, never followed by the module */
} murmurase_kind;

typedef struct murmurase_value murmurase_value;

/* Make a value. Errors: memory; argument when `result`, or text of a length above 0, is NULL. */
MURMURASE_CHECKED murmurase_error* murmurase_new_boolean(bool boolean, murmurase_value** result);
MURMURASE_CHECKED murmurase_error* murmurase_new_integer(int64_t integer, murmurase_value** result);
MURMURASE_CHECKED murmurase_error* murmurase_new_real(double real, murmurase_value** result);
MURMURASE_CHECKED murmurase_error* murmurase_new_text(const char* text, size_t length,
                                                      murmurase_value** result);
MURMURASE_CHECKED murmurase_error* murmurase_new_host_object(void* object,
                                                             murmurase_value** result);
MURMURASE_CHECKED murmurase_error* murmurase_new_list(murmurase_value** result);
MURMURASE_CHECKED murmurase_error* murmurase_new_record(murmurase_value** result);

/* A copy of any value, NULL included. */
MURMURASE_CHECKED murmurase_error* murmurase_value_copy(const murmurase_value* value,
                                                        murmurase_value** result);
MURMURASE_API void murmurase_value_free(murmurase_value* value);

MURMURASE_API murmurase_kind murmurase_value_kind(const murmurase_value* value);

/* Read a value of just that kind (a real may also be read from an integer). Errors: type. */
MURMURASE_CHECKED murmurase_error* murmurase_get_boolean(const murmurase_value* value,
                                                         bool* result);
MURMURASE_CHECKED murmurase_error* murmurase_get_integer(const murmurase_value* value,
                                                         int64_t* result);
MURMURASE_CHECKED murmurase_error* murmurase_get_real(const murmurase_value* value, double* result);
MURMURASE_CHECKED murmurase_error* murmurase_get_text(const murmurase_value* value,
                                                      const char** text, size_t* length);
MURMURASE_CHECKED murmurase_error* murmurase_get_host_object(const murmurase_value* value,
                                                             void** result);

/* The number of items of a list or entries of a record; 0 for every other value. */
MURMURASE_API size_t murmurase_size(const murmurase_value* value);

/* Item `index`, counted from 0. Errors: type; range for an index not below the size. */
MURMURASE_CHECKED murmurase_error* murmurase_list_get(const murmurase_value* list, size_t index,
                                                      const murmurase_value** item);
MURMURASE_CHECKED murmurase_error* murmurase_list_set(murmurase_value* list, size_t index,
                                                      const murmurase_value* item);
MURMURASE_CHECKED murmurase_error* murmurase_list_append(murmurase_value* list,
                                                         const murmurase_value* item);

/* The value of `key`. Errors: type; name for a key that the record has not. */
MURMURASE_CHECKED murmurase_error* murmurase_record_get(const murmurase_value* record,
                                                        const char* key,
                                                        const murmurase_value** item);
/* Replaces the value of `key`, or adds the key at the end. */
MURMURASE_CHECKED murmurase_error* murmurase_record_set(murmurase_value* record, const char* key,
                                                        const murmurase_value* item);
/* The key of entry `index`, counted from 0; NULL for no record or an index not below the size. */
MURMURASE_API const char* murmurase_record_key(const murmurase_value* record, size_t index);

/* How far the text of a clip file was repaired in memory before it could be parsed. */
typedef enum murmurase_repair {
  MURMURASE_REPAIR_NONE = 0,  /* not at all */
  MURMURASE_REPAIR_LINES = 1, /* some lines */
  MURMURASE_REPAIR_ALL = 2    /* every line; problems may be left, and parts of the clip missing */
} murmurase_repair;

/*
 * Tells of a document that parse_xml_file gave how far its file was repaired. `lines` becomes a list of
 * the repaired lines' numbers, integers from 1, ascending: empty but for MURMURASE_REPAIR_LINES, and
 * then too when no line of the file could be told to be at fault; it may be NULL when not wanted. A
 * document without any such history, as the working copy of an export, was not repaired.
 * Errors: type for a value that is no document; argument for a null `repair`.
 */
MURMURASE_CHECKED murmurase_error* murmurase_document_repair(const murmurase_value* document,
                                                             murmurase_repair* repair,
                                                             murmurase_value** lines);

/* ---- Controllers ----------------------------------------------------------------------------- */

/*
 * What a host provides. The module copies the structure; `context` is handed back unchanged. Each
 * callback returns true on success; false ends the operation with an error of kind
 * MURMURASE_ERROR_HOST. A callback that is NULL is an error of kind MURMURASE_ERROR_NAME once an
 * operation needs it. A callback may get and set fields of the controller; it must not free it.
 */
typedef struct murmurase_host {
  size_t size; /* sizeof(murmurase_host): a host that is built today still loads a later module */
  void* context;
  /* Gives the word-grouping value: the largest number of words in a phrase, a whole number from 1;
   * 100 means no limit. */
  bool (*wordGroupingSlider_value)(void* context, double* value);
  /* Redisplays the speakers table; `table` is the host object in the field speakersTableView. */
  bool (*reloadData)(void* context, void* table);
} murmurase_host;

typedef struct murmurase_controller murmurase_controller;

/* A controller with every field absent. Errors: memory; argument for a null pointer, or without a size. */
MURMURASE_CHECKED murmurase_error* murmurase_controller_new(const murmurase_host* host,
                                                            murmurase_controller** result);
MURMURASE_API void murmurase_controller_free(murmurase_controller* controller);

/*
 * Get or set one field of the controller's state. Getting gives a copy (of XML, a handle to the same
 * document) or NULL when the field is absent; setting NULL makes it absent. Changing a list, such as
 * the "Name"s of speakers_array, is getting it, changing the copy and setting it.
 *
 *   field              kind                  meaning
 *   xmpcommand         text                  path of the XMP tool, or a name to be found in $PATH; a
 *                                            dash at the start is always a path's
 *   mov_file_path      text                  path of the movie
 *   frame_rate         real                  frames per second, such as 29.97
 *   displayformat      text                  "DF" (drop-frame) or "NDF" (non-drop-frame)
 *   first_frame        real                  frame count of the movie's start timecode
 *   transcription_xml  XML element           the element of the "Speech" track
 *   speakers_array     list of records       "Speaker": text, "Name": text, null or left out
 *   words_array        list of records       "time_in", "time_out": real, seconds, the start
 *                                            and end of its first word; "words", "speaker": text
 *   clip_xml           XML document          the clip as read
 *   clip_xml_clone     XML document          the working copy of a clip export
 *   text_to_save       text                  the last text transcript
 *   in                 integer               frame position of the last marker
 *   speakersTableView  host object           the host's speakers table
 *
 * Errors: name for an unknown field, type for a value that the field does not take.
 */
MURMURASE_CHECKED murmurase_error* murmurase_get(const murmurase_controller* controller,
                                                 const char* field, murmurase_value** result);
MURMURASE_CHECKED murmurase_error* murmurase_set(murmurase_controller* controller,
                                                 const char* field, const murmurase_value* value);

/*
 * Has the controller call one of the operations on itself. An operation is private to the controller
 * that it is called on: it has no other entry, and no symbol of the module names it. After an error
 * the fields keep what was written before it.
 *
 *   to_timecode(frames, rate, displayformat)      text: the timecode label (SMPTE ST 12-1). frames: a
 *                                                 frame count, whole or real, from 0; rate: labels per
 *                                                 second, a whole number from 1; "DF" or "NDF". A whole
 *                                                 number keeps all its digits, a real one is rounded
 *   to_timestamp(seconds)                         text: hours, minutes and seconds joined by ":"; seconds
 *                                                 as frames above
 *   to_frames(timecode, rate[, displayformat])    integer: the label's frame count; "NDF" by default. Range
 *                                                 error if 64 bits cannot hold the count
 *   parse_xml_file(path)                          list of the clip file's document and the name of its
 *                                                 first top-level node, "xmeml"; a malformed file is
 *                                                 repaired in memory, see murmurase_document_repair()
 *   parse_xmp_from_mov(movie_path)                has the XMP tool print the movie's packet and reads
 *                                                 it; list of the track-type elements, null when the
 *                                                 tool failed. Sets frame_rate, displayformat,
 *                                                 first_frame, transcription_xml, which is absent after a
 *                                                 failed read
 *   build_speakers_array()                        sets speakers_array; the list when a speaker
 *                                                 recurs, else null
 *   build_words_array(grouping)                   sets words_array; null. grouping: words in a phrase,
 *                                                 a whole number from 1, 100 for no limit
 *   save_to_text(grouping, path)                  writes the text transcript; null
 *   save_to_excel(grouping, path)                 writes an Excel 97-2003 workbook, a row a phrase; null,
 *                                                 which is what closing the workbook gives. "Time Out"
 *                                                 is the end of the phrase's first word
 *   create_clip_with_markers()                    adds the phrases to a copy of clip_xml as markers,
 *                                                 writes it to the file Parlenda.xml in the working
 *                                                 folder, see murmurase_set_clip_file(), and has it
 *                                                 opened, see murmurase_set_open_command(); boolean:
 *                                                 whether the opening was accepted. Sets words_array,
 *                                                 in. A marker ends one frame before its phrase begins,
 *                                                 and starts where the phrase before it starts
 *
 * What they need of the fields, beside their arguments; only the host sets xmpcommand, mov_file_path,
 * clip_xml (the first item that parse_xml_file gives) and speakersTableView:
 *
 *   parse_xmp_from_mov        xmpcommand
 *   build_speakers_array      transcription_xml; to be called again after each movie that is read
 *   build_words_array         transcription_xml, speakers_array; unless murmurase_set_host_ui_active(false)
 *                             was called, speakersTableView and the host's reloadData
 *   save_to_text              what build_words_array needs, which each of these three calls first
 *   save_to_excel             the same, and mov_file_path
 *   create_clip_with_markers  the same but mov_file_path, clip_xml and the host's wordGroupingSlider_value
 *
 * A file that is there is replaced by a whole new one with the same owner, group, permissions and access
 * list, and with its other extended attributes as far as the system lets it. If a new file cannot have
 * these, or the folder takes none, the old one is written in place, if it can be; only then can SIGKILL, a
 * loss of power or a failing disk lose the old bytes. A symbolic link at a path that the host gives is
 * followed; at the module's own file it is replaced.
 *
 * Limits against hostile inputs, beyond which an operation ends in an error that names the limit: 512
 * MiB for a clip file, for its repaired text, for what the XMP tool prints and for what its entities
 * stand for; 10 million elements, attributes and other parts of a packet, 6 million of a clip; 10 MB for
 * a text of a clip or a field of a packet; 256 levels of nesting; 500,000 different names; 26,000
 * attributes or namespaces of one element, and 1,000 million comparisons of these with one another; 1
 * MiB for a document type, with 10,000 declared attributes and 1,000 default values; 65,535 phrases in a
 * workbook, 1 million in a clip.
 *
 * `arguments` may be NULL when `count` is 0. `result` may be NULL when the result is not wanted.
 * Errors: name for an unknown operation (every one before start-up); argument, "wrong number of
 * arguments (%d for %d)", checked before all else; type; and what the operation itself fails with.
 */
MURMURASE_CHECKED murmurase_error* murmurase_call(murmurase_controller* controller,
                                                  const char* operation,
                                                  const murmurase_value* const* arguments,
                                                  size_t count, murmurase_value** result);

/*
 * What is wrong with the clip that the controller's last successful create_clip_with_markers wrote, in
 * one line of UTF-8; NULL when it is well-formed XML with namespaces (XML 1.0, Namespaces in XML 1.0),
 * and before the first. A clip file that no repair could make well-formed is written as far as it was
 * read: other programs may refuse it, so a host should show its user the place. `line`, which may be
 * NULL, becomes the line of the written file at which a reader finds the fault, from 1, or 0 when
 * there is no such line; it stays as it was when the result is NULL. The text lives until the
 * controller's next create_clip_with_markers.
 */
MURMURASE_API const char* murmurase_clip_fault(const murmurase_controller* controller,
                                               int64_t* line);

/*
 * How the XMP tool of the controller's last parse_xmp_from_mov ended, as waitpid() reports it: why the
 * tool failed when the operation gave null. 0 before the first.
 */
MURMURASE_API int murmurase_tool_status(const murmurase_controller* controller);

/*
 * Asks the XMP tool that parse_xmp_from_mov now waits for to end, by SIGTERM; does nothing when none
 * runs. The module waits for a tool without end: this is for a host that does not want to, and for one
 * that is ended itself. It alone may be called from a signal handler, and from any thread.
 */
MURMURASE_API void murmurase_end_tool(void);

/*
 * Whether the operations run inside the host's windows, for all controllers of the process; true
 * until set. Only then is reloadData called, and speakersTableView needed.
 */
MURMURASE_API void murmurase_set_host_ui_active(bool active);

/*
 * The program that opens the clips that the controller writes: a path, or a name to be found in $PATH. It is run with the file's path as its one argument, without a shell, its standard
 * output discarded, and waited for; the opening is accepted when it ends with status 0. NULL, as until
 * the first call: none, and no opening is accepted. Errors: memory.
 */
MURMURASE_CHECKED murmurase_error* murmurase_set_open_command(murmurase_controller* controller,
                                                              const char* command);

/*
 * The file that the controller's create_clip_with_markers writes in place of TEMP_XML_FILE; written as the files of the other exports are: links are followed, devices and pipes
 * written straight. A path that is not absolute is one from the folder that the process is in when the
 * clip is written. NULL, as until the first call: TEMP_XML_FILE. Errors: memory.
 */
MURMURASE_CHECKED murmurase_error* murmurase_set_clip_file(murmurase_controller* controller,
                                                           const char* path);

#ifdef __cplusplus
}
#endif

#endif
