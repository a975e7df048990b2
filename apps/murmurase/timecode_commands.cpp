#include "timecode_commands.h"

#include <fmt/format.h>

#include <locale>
#include <sstream>
#include <string_view>

#include "commands.h"

namespace host {
namespace {

// One to four fields of digits, as labels have them: the module itself takes any text for a label.
bool is_label(std::string_view text) {
  int fields = 1;
  bool after_digit = false;
  for (const char c : text) {
    const bool digit = c >= '0' && c <= '9';
    const bool separator = c == ':' || c == ';' || c == '.';
    if (!digit && !(separator && after_digit)) return false;
    if (separator) ++fields;
    after_digit = digit;
  }
  return after_digit && fields <= 4;
}

// CLI11's own reading takes a decimal comma where the locale has one.
template <typename Number>
bool is_number(const std::string& text, Number& number) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  return stream >> number && stream.peek() == std::istringstream::traits_type::eof();
}

double number_of(const char* option, const std::string& text) {
  double number = 0;
  if (!is_number(text, number)) {
    throw CLI::ValidationError(fmt::format("{}: {} is not a number", option, text));
  }
  return number;
}

// A double would not keep all digits of a whole number.
json exact_number_of(const char* option, const std::string& text) {
  std::int64_t whole = 0;
  return is_number(text, whole) ? json(whole) : json(number_of(option, text));
}

}  // namespace

void add_timecode(CLI::App& app, TimecodeOptions& options) {
  CLI::App* timecode = app.add_subcommand("timecode", "Convert between frames, labels and times");
  timecode->require_subcommand(1);
  timecode->footer(
      "Examples:\n"
      "  murmurase timecode label 107892 --rate 29.97 --drop-frame\n"
      "  murmurase timecode frames '01:00:00;00' --rate 29.97 --drop-frame\n"
      "  murmurase timecode clock 3725.4");
  const auto add = [&](const char* name, const char* about, const char* example) {
    CLI::App* command = timecode->add_subcommand(name, about);
    command->footer(fmt::format("Example:\n  murmurase timecode {} {}", name, example));
    return command;
  };
  const auto add_rate = [&](CLI::App* command) {
    command
        ->add_option_function<std::string>(
            "--rate",
            [&options](const std::string& text) {
              options.rate = number_of("--rate", text);
              if (options.rate < 0.5 || options.rate > 1e6) {
                throw CLI::ValidationError("--rate: " + text + " is not from 0.5 to 1000000");
              }
            },
            "Frames per second, such as 25 or 29.97; labels count\nit rounded to a whole number")
        ->type_name("R")
        ->required();
    command->add_flag("--drop-frame", options.drop_frame,
                      "Count drop-frame: labels are skipped at the start of\nmost minutes");
  };
  CLI::App* label =
      add("label", "The timecode label of a frame count", "107892 --rate 29.97 --drop-frame");
  const auto add_number = [&](CLI::App* command, const char* name, const char* about) {
    command
        ->add_option_function<std::string>(
            name,
            [&options, name](const std::string& text) {
              options.number = text;
              if (number_of(name, text) < 0) {
                throw CLI::ValidationError(fmt::format("{}: {} is below 0", name, text));
              }
            },
            about)
        ->required()
        ->type_name("");
  };
  add_number(label, "FRAMES", "A frame count, from 0");
  add_rate(label);
  label->callback([&] {
    print_label(exact_number_of("FRAMES", options.number), options.rate, options.drop_frame);
  });
  CLI::App* frames = add("frames", "The frame count of a timecode label",
                         "'01:00:00;00' --rate 29.97 --drop-frame");
  frames->add_option("LABEL", options.label, "A timecode label, such as 01:00:00:00")
      ->required()
      ->type_name("")
      ->check([](const std::string& text) {
        return is_label(text) ? "" : "'" + text + "' is no timecode label, such as 01:00:00:00";
      });
  add_rate(frames);
  frames->callback([&] { print_frames(options.label, options.rate, options.drop_frame); });
  CLI::App* clock = add("clock", "The clock label of a time in seconds", "3725.4");
  add_number(clock, "SECONDS", "A time, from 0");
  clock->callback([&] { print_clock(exact_number_of("SECONDS", options.number)); });
}

}  // namespace host
