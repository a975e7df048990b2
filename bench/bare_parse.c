// The least that any program does which reads a packet with libxml2: read the file, build the tree,
// free it.

#include <libxml/parser.h>
#include <stdio.h>
#include <stdlib.h>

static char* read_file(const char* path, long* size) {
  FILE* file = fopen(path, "rb");
  if (file == NULL) return NULL;
  char* bytes = NULL;
  if (fseek(file, 0, SEEK_END) == 0 && (*size = ftell(file)) > 0) {
    rewind(file);
    bytes = malloc((size_t)*size);
    if (bytes != NULL && fread(bytes, 1, (size_t)*size, file) != (size_t)*size) {
      free(bytes);
      bytes = NULL;
    }
  }
  fclose(file);
  return bytes;
}

int main(int count, char** arguments) {
  long size = 0;
  char* bytes = count == 2 ? read_file(arguments[1], &size) : NULL;
  if (bytes == NULL) {
    fprintf(stderr, "bare_parse: give it one readable file\n");
    return 1;
  }
  xmlDocPtr document =
      xmlReadMemory(bytes, (int)size, NULL, NULL, XML_PARSE_RECOVER | XML_PARSE_NONET);
  const int status = document != NULL ? 0 : 1;
  xmlFreeDoc(document);
  free(bytes);
  return status;
}
