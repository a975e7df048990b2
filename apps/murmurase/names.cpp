#include "names.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "core/printable.h"
#include "core/utf8.h"
#include "input_file.h"

namespace host {
namespace {

using murmurase::printable;

std::string text_of_file(const std::string& path) {
  constexpr std::size_t most_bytes = std::size_t{16} << 20;
  std::string text;
  const InputFile file(path);
  const int error = file.is_open() ? file.read_all(text, most_bytes) : errno;
  if (error == 0 && !text.empty()) return text;
  throw Failure(fmt::format("cannot read the names file {}: {}; check the path", printable(path),
                            error == 0       ? "it is empty"
                            : error == EFBIG ? "it is larger than 16 MiB"
                                             : std::strerror(error)),
                true);
}

Failure unusable(const std::string& path, std::string_view why) {
  return Failure(
      fmt::format("the names file {} cannot be used: {}; write lines like Speaker 1=Anna, "
                  "or fill in the \"Name\"s of what 'murmurase speakers --json' prints",
                  printable(path), why),
      true);
}

Names names_of_json(const std::string& text, const std::string& path) {
  nlohmann::json entries;  // its objects are searched faster than those of the ordered kind
  try {
    entries = json::parse(text);
  } catch (const json::exception& problem) {
    // "[json.exception.parse_error.101] parse error at line 3, column 5: ..."
    const std::string_view words = problem.what();
    throw unusable(path, printable(words.substr(words.find(']') + 2)));
  }
  const auto usable = [](const auto& entry) {
    return entry.is_object() && entry.contains("Speaker") && entry["Speaker"].is_string() &&
           entry.contains("Name") && (entry["Name"].is_string() || entry["Name"].is_null());
  };
  if (!entries.is_array() || !std::ranges::all_of(entries, usable)) {
    throw unusable(path, R"(it is not a list of "Speaker"s and "Name"s)");
  }
  Names names;
  for (const auto& entry : entries) {
    if (entry["Name"].is_string()) names.push_back({entry["Speaker"], entry["Name"]});
  }
  return names;
}

// Without blanks, and the carriage return of some editors, at both ends.
std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = murmurase::utf8_character(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

Names names_of_lines(std::string_view text, const std::string& path) {
  if (!is_utf8(text)) throw unusable(path, "it is not UTF-8 text");
  Names names;
  for (int number = 1; !text.empty(); ++number) {
    const std::size_t length = std::min(text.find('\n'), text.size());
    const std::string_view line = trimmed(text.substr(0, length));
    text.remove_prefix(std::min(length + 1, text.size()));
    if (line.empty()) continue;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      throw unusable(path, fmt::format("line {}, \"{}\", is not of the form ID=NAME", number,
                                       printable(line.substr(0, 80))));
    }
    const std::string_view name = trimmed(line.substr(equals + 1));
    if (!name.empty())
      names.push_back({std::string(trimmed(line.substr(0, equals))), std::string(name)});
  }
  return names;
}

std::string known_speakers(const json& speakers) {
  constexpr std::size_t most_shown = 20;
  std::string text;
  for (std::size_t i = 0; i < std::min(speakers.size(), most_shown); ++i) {
    const auto& speaker = speakers[i]["Speaker"].get_ref<const std::string&>();
    text += fmt::format("{}\"{}\"", i == 0 ? "" : ", ", printable(speaker));
  }
  if (speakers.size() > most_shown)
    text += fmt::format(" and {} more", speakers.size() - most_shown);
  return text.empty() ? "none" : text;
}

}  // namespace

Names read_names(const std::string& path) {
  std::string text = text_of_file(path);
  if (text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);  // a byte-order mark
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  const bool is_json = start != std::string::npos && (text[start] == '[' || text[start] == '{');
  return is_json ? names_of_json(text, path) : names_of_lines(text, path);
}

SpeakerName name_of(const std::string& text) {
  const std::size_t equals = text.find('=');
  return {text.substr(0, equals), text.substr(equals + 1)};
}

void name_speakers(Controller& controller, const Names& known, const Names& required) {
  if (known.empty() && required.empty()) return;
  json speakers = controller.get("speakers_array");
  std::unordered_map<std::string, std::size_t> positions;
  for (std::size_t i = 0; i < speakers.size(); ++i) {
    positions.emplace(speakers[i]["Speaker"].get<std::string>(), i);
  }
  for (const auto& [speaker, name] : known) {
    const auto position = positions.find(speaker);
    if (position != positions.end()) speakers[position->second]["Name"] = name;
  }
  for (const auto& [speaker, name] : required) {
    const auto position = positions.find(speaker);
    if (position == positions.end()) {
      throw Failure(fmt::format("it has no speaker \"{}\" to name; its speakers are {}",
                                printable(speaker), known_speakers(speakers)));
    }
    speakers[position->second]["Name"] = name;
  }
  controller.set("speakers_array", speakers);
}

}  // namespace host
