// Times the workbook writer against libxlsxwriter (constant memory) and xlwt on the same rows:
//   workbook_bench [PAIRS]                       all of it, each measure in a process of its own
//   workbook_bench ours|xlsxwriter ROWS FILE     one run; prints seconds and peak memory in KiB
//   workbook_bench rows ROWS                     the rows as tab-separated lines, for xlwt
#include <sys/resource.h>
#include <unistd.h>
#include <xlsxwriter.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "workbook/workbook.h"

namespace {

constexpr unsigned full_sheet = 65535;  // below the header
using Row = std::array<std::string, 5>;

// HH:MM:SS:FF of a frame at 25 frames a second.
std::string timecode(unsigned frame) {
  char text[48];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u:%02u", frame / 90000, frame / 1500 % 60,
                frame / 25 % 60, frame % 25);
  return text;
}

// Two times, one of six speakers, a phrase of 60 characters and the path of the movie: three of
// the five texts appear nowhere else.
Row make_row(unsigned number) {
  char phrase[96];
  std::snprintf(phrase, sizeof phrase,
                "%05u and then we went down to the harbour to see the boats.", number);
  return {timecode(50 * number), timecode(50 * number + 37),
          "Speaker " + std::to_string(number % 6 + 1), phrase,
          "/Volumes/Media/Interviews/Day 2/Harbour.mov"};
}

const Row header = {"Start", "End", "Speaker", "Text", "Path"};
constexpr std::array<std::size_t, 5> write_order = {0, 1, 4, 2, 3};

void write_ours(unsigned rows, const char* path) {
  murmurase::workbook::Workbook book(murmurase::system_platform(), path);
  book.add_worksheet();
  const auto bold = book.add_format({.bold = true});
  for (const std::size_t column : write_order) book.write(0, column, header[column], bold);
  for (unsigned number = 0; number < rows; ++number) {
    const Row row = make_row(number);
    for (const std::size_t column : write_order) book.write(number + 1, column, row[column]);
  }
  book.set_column(0, 1, 11);
  book.close();
}

void write_xlsxwriter(unsigned rows, const char* path) {
  lxw_workbook_options options = {};
  options.constant_memory = LXW_TRUE;
  lxw_workbook* book = workbook_new_opt(path, &options);
  lxw_worksheet* sheet = workbook_add_worksheet(book, nullptr);
  lxw_format* bold = workbook_add_format(book);
  format_set_bold(bold);
  worksheet_set_column(sheet, 0, 1, 11, nullptr);
  for (const std::size_t column : write_order) {
    worksheet_write_string(sheet, 0, static_cast<lxw_col_t>(column), header[column].c_str(), bold);
  }
  for (unsigned number = 0; number < rows; ++number) {
    const Row row = make_row(number);
    for (const std::size_t column : write_order) {
      worksheet_write_string(sheet, number + 1, static_cast<lxw_col_t>(column), row[column].c_str(),
                             nullptr);
    }
  }
  workbook_close(book);
}

void print_rows(unsigned rows) {
  const auto print = [](const Row& row) {
    for (const std::string& text : row)
      std::printf("%s%c", text.c_str(), &text == &row[4] ? '\n' : '\t');
  };
  print(header);
  for (unsigned number = 0; number < rows; ++number) print(make_row(number));
}

void run_and_report(void (*write)(unsigned, const char*), unsigned rows, const char* path) {
  const auto start = std::chrono::steady_clock::now();
  write(rows, path);
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
#ifdef __APPLE__
  usage.ru_maxrss /= 1024;
#endif
  std::printf("%.4f %ld\n", time.count(), usage.ru_maxrss);
}

struct Measure {
  double seconds;
  double kibibytes;
};

Measure measure(const std::string& command) {
  Measure result = {};
  std::FILE* output = popen(command.c_str(), "r");
  const bool read =  // NOLINTNEXTLINE(cert-err34-c)
      output != nullptr && std::fscanf(output, "%lf %lf", &result.seconds, &result.kibibytes) == 2;
  if (output == nullptr || pclose(output) != 0 || !read) {
    throw std::runtime_error("this command failed: " + command);
  }
  return result;
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

void compare(const std::string& program, int pairs) {
  const auto directory =
      std::filesystem::temp_directory_path() / ("workbook_bench." + std::to_string(getpid()));
  std::filesystem::create_directory(directory);
  const std::string xls = directory / "ours.xls";
  const std::string rows = std::to_string(full_sheet);
  const std::string half = std::to_string(full_sheet / 2);
  const std::string ours = program + " ours " + rows + " " + xls;
  const std::string ours_half = program + " ours " + half + " " + xls;
  const std::string xlsxwriter = program + " xlsxwriter " + rows + " " + xls + "x";
  const std::string xlwt = program + " rows " + rows + " | " + MURMURASE_PYTHON + " " +
                           MURMURASE_BENCH_DIRECTORY "/workbook_xlwt.py " + xls;

  std::vector<double> seconds;
  std::vector<double> to_xlsxwriter;
  std::vector<double> to_xlwt;
  std::vector<double> to_half;
  std::vector<double> memory;
  for (int pair = 0; pair < pairs; ++pair) {
    to_xlsxwriter.push_back(measure(ours).seconds / measure(xlsxwriter).seconds);
    to_xlwt.push_back(measure(ours).seconds / measure(xlwt).seconds);
    to_half.push_back(measure(ours).seconds / measure(ours_half).seconds);
    const Measure one = measure(ours);
    seconds.push_back(one.seconds);
    memory.push_back(one.kibibytes);
  }
  std::printf("%s rows of five texts, medians of %d pairs\n", rows.c_str(), pairs);
  std::printf("seconds                 %.3f\n", median(seconds));
  std::printf("time / libxlsxwriter    %.3f\n", median(to_xlsxwriter));
  std::printf("time / xlwt             %.3f\n", median(to_xlwt));
  std::printf("time / half the rows    %.2f\n", median(to_half));
  std::printf("peak memory, MiB        %.1f\n", median(memory) / 1024);
  std::printf("file, MB                %.2f\n",
              static_cast<double>(std::filesystem::file_size(xls)) / 1e6);
  std::filesystem::remove_all(directory);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string mode = argc > 1 ? argv[1] : "7";
    const unsigned rows = argc > 2 ? static_cast<unsigned>(std::stoul(argv[2])) : full_sheet;
    if (mode == "rows") {
      print_rows(rows);
    } else if (argc == 4) {
      run_and_report(mode == "ours" ? write_ours : write_xlsxwriter, rows, argv[3]);
    } else {
      compare(argv[0], std::max(1, std::stoi(mode)));
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "workbook_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
