#include "commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <vector>

#include "clip.h"
#include "core/printable.h"
#include "outputs.h"
#include "workbook.h"

namespace host {
namespace {

using murmurase::printable;

void print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Failure(fmt::format("cannot write standard output: {}", std::strerror(errno)));
  }
}

void print_json(const json& data) {
  print(data.dump(2, ' ', false, json::error_handler_t::replace) + '\n');
}

// Runs one command on the movie; a failure names it.
template <typename Command>
void with_movie(const MovieOptions& options, const Command& command) {
  load_module();
  std::string said;
  try {
    Controller controller(options.words);
    read_movie(controller, options, said);
    command(controller);
  } catch (const Failure& failure) {
    throw movie_failure(options.movie, failure, said);
  }
  std::fputs(said.c_str(), stderr);
}

void check_output(const MovieOptions& options, const std::string& output, OutputKind kind,
                  const std::vector<std::string>& more_inputs = {}) {
  if (output == "-") return;
  std::vector<std::string> inputs = inputs_of(options);
  inputs.insert(inputs.end(), more_inputs.begin(), more_inputs.end());
  check_outputs(inputs, {{output, kind}}, options.keep);
}

std::string standard_output_or(const std::string& output) {
  return output == "-" ? "/dev/stdout" : output;
}

std::int64_t whole_rate(double rate) { return std::llround(rate); }

const char* format_name(bool drop_frame) { return drop_frame ? "DF" : "NDF"; }

// The module's label of a time of the movie: a timecode where rate and format are known.
class Labels {
 public:
  explicit Labels(Controller& controller)
      : controller_(controller),
        rate_(controller.get("frame_rate")),
        format_(controller.get("displayformat")),
        first_frame_(controller.get("first_frame")) {}

  std::string label(double seconds) {
    if (rate_.is_null() || format_.is_null()) return text("to_timestamp", {seconds});
    const auto rate = rate_.get<double>();
    const double frames = first_frame_.get<double>() + seconds * rate;
    return text("to_timecode", {frames, json(std::round(rate)), format_});
  }

 private:
  std::string text(const char* operation, std::initializer_list<json> arguments) {
    return to_json(controller_.call(operation, arguments).get()).get<std::string>();
  }

  Controller& controller_;
  json rate_;
  json format_;
  json first_frame_;
};

// Characters, not bytes.
std::size_t width(const std::string& text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

using Row = std::vector<std::string>;

// Columns two blanks apart, the last one ragged.
std::string table(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], width(row[i]));
  }
  std::string text;
  for (const Row& row : rows) {
    for (std::size_t i = 0; i + 1 < widths.size(); ++i) {
      text.append(row[i]).append(widths[i] - width(row[i]) + 2, ' ');
    }
    text.append(row.back()).append("\n");
  }
  return text;
}

std::string phrase_table(Controller& controller) {
  Labels labels(controller);
  std::unordered_map<std::string, std::string> names;
  for (const json& entry : controller.get("speakers_array")) {
    const std::string speaker = entry["Speaker"];
    names.emplace(speaker, entry["Name"].is_null() ? speaker : entry["Name"].get<std::string>());
  }
  std::vector<Row> rows = {{"In", "Out", "Speaker", "Words"}};
  for (const json& phrase : controller.get("words_array")) {
    rows.push_back({labels.label(phrase["time_in"].get<double>()),
                    labels.label(phrase["time_out"].get<double>()),
                    printable(names[phrase["speaker"].get_ref<const std::string&>()]),
                    printable(phrase["words"].get_ref<const std::string&>())});
  }
  return table(rows);
}

// The speakers with how much each says, and how it begins: "Words" and "FirstWords".
json speaker_details(Controller& controller) {
  constexpr std::size_t most_first_words = 8;
  json speakers = controller.get("speakers_array");
  std::unordered_map<std::string, std::size_t> places;
  for (json& entry : speakers) {
    places.emplace(entry["Speaker"], places.size());
    entry["Words"] = 0;
    entry["FirstWords"] = "";
  }
  controller.call("build_words_array", {1});
  for (const json& word : controller.get("words_array")) {
    json& entry = speakers[places.at(word["speaker"])];
    const auto count = entry["Words"].get<std::size_t>();
    entry["Words"] = count + 1;
    if (count >= most_first_words) continue;
    auto& first_words = entry["FirstWords"].get_ref<std::string&>();
    if (count > 0) first_words += ' ';
    first_words += word["words"].get_ref<const std::string&>();
  }
  return speakers;
}

std::string shown_name(const json& speaker) {
  return speaker["Name"].is_null() ? "" : printable(speaker["Name"].get_ref<const std::string&>());
}

std::string details_table(const json& speakers) {
  std::vector<Row> rows = {{"Speaker", "Name", "Words", "First words"}};
  bool named = false;
  for (const json& entry : speakers) {
    named = named || !entry["Name"].is_null();
    rows.push_back({printable(entry["Speaker"].get_ref<const std::string&>()), shown_name(entry),
                    entry["Words"].dump(),
                    printable(entry["FirstWords"].get_ref<const std::string&>())});
  }
  if (!named) {
    for (Row& row : rows) row.erase(row.begin() + 1);
  }
  return table(rows);
}

// A line for each: its identifier and, if it has one, its name.
std::string speaker_list(const json& speakers) {
  std::size_t widest = 0;
  for (const json& entry : speakers) {
    widest = std::max(widest, width(printable(entry["Speaker"].get_ref<const std::string&>())));
  }
  std::string lines;
  for (const json& entry : speakers) {
    const std::string speaker = printable(entry["Speaker"].get_ref<const std::string&>());
    lines += speaker;
    if (!entry["Name"].is_null()) {
      lines.append(widest - width(speaker) + 2, ' ').append(shown_name(entry));
    }
    lines += '\n';
  }
  return lines;
}

}  // namespace

void print_speakers(const MovieOptions& options, bool as_json, bool details) {
  with_movie(options, [&](Controller& controller) {
    const json speakers = details ? speaker_details(controller) : controller.get("speakers_array");
    if (as_json) {
      print_json(speakers);
      return;
    }
    print(details ? details_table(speakers) : speaker_list(speakers));
  });
}

void print_phrases(const MovieOptions& options, bool as_json) {
  with_movie(options, [&](Controller& controller) {
    controller.call("build_words_array", {options.words});
    if (!as_json) {
      print(phrase_table(controller));
      return;
    }
    print_json({{"frame_rate", controller.get("frame_rate")},
                {"displayformat", controller.get("displayformat")},
                {"first_frame", controller.get("first_frame")},
                {"speakers", controller.get("speakers_array")},
                {"phrases", controller.get("words_array")}});
  });
}

void write_text(const MovieOptions& options, const std::string& output) {
  check_output(options, output, OutputKind::transcript);
  with_movie(options, [&](Controller& controller) {
    controller.call("save_to_text", {options.words, standard_output_or(output)});
  });
}

void write_excel(const MovieOptions& options, const std::string& output) {
  check_output(options, output, OutputKind::workbook);
  with_movie(options, [&](Controller& controller) {
    write_workbook(controller, options.words, standard_output_or(output));
  });
}

void write_markers(const MovieOptions& options, const std::string& clip, const std::string& output,
                   const std::string& open_with) {
  const std::vector<std::string> inputs = {clip, program_file(open_with)};
  const bool own = output.empty();  // the module's own file
  if (!own) check_output(options, output, OutputKind::marker_clip, inputs);
  load_module(own);
  with_movie(options, [&](Controller& controller) {
    const std::string written = own ? temp_xml_file() : standard_output_or(output);
    std::optional<FolderLock> lock;
    if (own) {
      check_output(options, written, OutputKind::working_clip, inputs);
      lock.emplace(std::filesystem::path(written).parent_path());
    } else {
      controller.set_clip_file(written);
    }
    if (!open_with.empty()) controller.set_open_command(open_with);
    const MarkerExport done = export_markers(controller, clip);
    if (!open_with.empty() && !done.opened) throw not_opened(open_with, written);
    if (own) print(printable(written) + '\n');
    std::fputs(clip_line(done, clip, own ? written : output).c_str(), stderr);
  });
}

void print_label(const json& frames, double rate, bool drop_frame) {
  load_module();
  const Value label =
      Controller().call("to_timecode", {frames, whole_rate(rate), format_name(drop_frame)});
  print(to_json(label.get()).get<std::string>() + '\n');
}

void print_frames(const std::string& label, double rate, bool drop_frame) {
  load_module();
  const Value frames =
      Controller().call("to_frames", {label, whole_rate(rate), format_name(drop_frame)});
  print(to_json(frames.get()).dump() + '\n');
}

void print_clock(const json& seconds) {
  load_module();
  const Value label = Controller().call("to_timestamp", {seconds});
  print(to_json(label.get()).get<std::string>() + '\n');
}

}  // namespace host
