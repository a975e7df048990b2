#include "export/spreadsheet.h"

#include <fmt/format.h>

#include <string_view>
#include <vector>

#include "core/error.h"
#include "export/time_label.h"
#include "model/speaker_list.h"
#include "model/word_grouping.h"
#include "workbook/biff8.h"
#include "workbook/workbook.h"

namespace murmurase {
namespace {

struct Column {
  std::string_view header;
  std::size_t width;  // characters; 0 for the default
};

// A timecode and a speaker's label fit into the first three.
constexpr Column columns[] = {
    {"Time In", 11}, {"Time Out", 11}, {"Speaker", 10}, {"Transcript", 50}, {"File Path", 0}};

void write_header(workbook::Workbook& book) {
  const workbook::Format bold = book.add_format({.bold = true});
  for (std::size_t i = 0; i < std::size(columns); ++i) book.write(0, i, columns[i].header, bold);
  for (std::size_t i = 0; i < std::size(columns); ++i) {
    if (columns[i].width > 0) book.set_column(i, i, static_cast<double>(columns[i].width));
  }
}

// A path may hold any byte. The cell alone would not tell the user what to rename.
void write_path(workbook::Workbook& book, std::size_t row, const std::string& path) {
  try {
    book.write(row, 4, path);
  } catch (const Error& error) {
    throw Error(error.kind(), fmt::format("the movie's path {} cannot be put into the workbook: {}",
                                          printable(path), error.what()));
  }
}

// Half an hour of one speaker may be more than a cell holds.
void write_words(workbook::Workbook& book, std::size_t row, const std::string& words) {
  try {
    book.write(row, 3, words);
  } catch (const Error& error) {
    const bool several = words.find(' ') != std::string::npos;
    if (words.size() <= workbook::biff8::max_text_units || !several) throw;
    throw Error(error.kind(), fmt::format("{}: group fewer words into each phrase", error.what()));
  }
}

// The time in comes first: it is the cell that the writer refuses in a row too many.
void write_time_in(workbook::Workbook& book, std::size_t row, const std::string& label) {
  try {
    book.write(row, 0, label);
  } catch (const Error& error) {
    throw Error(error.kind(), fmt::format("{}, and so {} phrases under its header: group more "
                                          "words into each phrase",
                                          error.what(), workbook::biff8::max_rows - 1));
  }
}

void write_phrases(workbook::Workbook& book, const Controller& controller) {
  const SpeakerLookup speakers(required(controller.speakers_array, "speakers_array"));
  std::size_t row = 0;
  for (const WordGroup& phrase : required(controller.words_array, "words_array")) {
    ++row;
    write_time_in(book, row, time_label(controller, phrase.time_in));
    book.write(row, 1, time_label(controller, phrase.time_out));
    write_path(book, row, required(controller.mov_file_path, "mov_file_path"));
    book.write(row, 2, display_name(speakers.get(phrase.speaker)));
    write_words(book, row, phrase.words);
  }
}

}  // namespace

void save_to_excel(Controller& controller, std::int64_t grouping, const std::string& path) {
  build_words_array(controller, grouping);
  workbook::Workbook book(controller.process.platform, path);
  book.add_worksheet();
  write_header(book);
  write_phrases(book, controller);
  book.close();
}

}  // namespace murmurase
