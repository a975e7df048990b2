#pragma once

#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "core/controller.h"
#include "core/error.h"
#include "platform/platform.h"

namespace murmurase::test {

// A platform of answers prepared by the test, and of what was asked of it.
class FakePlatform : public Platform {
 public:
  std::string tool_output;
  int tool_status = 0;
  std::exception_ptr tool_failure;
  std::map<std::string, std::string> files;
  bool files_can_be_written = true;
  std::string marked;  // creator and path of the file whose Finder information was set

  std::vector<std::string> application_support_directories() override { return {}; }
  std::string expand_tilde(const std::string& path) override { return path; }
  bool is_directory(const std::string&) override { return false; }
  void create_directory(const std::string&) override {}
  ToolRun run_xmp_tool(const std::string&, const std::string&) override {
    return {tool_status, buffer(tool_output), tool_failure};
  }
  void end_xmp_tool() noexcept override {}
  ByteBuffer read_file(const std::string& path) override {
    const auto file = files.find(path);
    if (file == files.end()) throw system_error("read", path, ENOENT);
    return buffer(file->second);
  }
  void replace_file(const std::string& path, std::string_view bytes) override {
    if (!files_can_be_written) throw system_error("write", path, ENOSPC);
    files[path] = bytes;
  }
  void replace_own_file(const std::string& path, std::string_view bytes) override {
    replace_file(path, bytes);
  }
  void set_finder_info(const std::string& path, std::string_view creator) override {
    marked = fmt::format("{} {}", creator, path);
  }
  bool open_with(const std::string&, const std::string&) override { return false; }

 private:
  static ByteBuffer buffer(const std::string& bytes) {
    ByteBuffer result;
    bytes.copy(result.room(bytes.size() + 1).data(), bytes.size());
    result.grow(bytes.size());
    return result;
  }
};

class FakeHost : public HostBridge {
 public:
  double slider = 100;

  double wordGroupingSlider_value() override { return slider; }
  void reloadData(HostObject) override {}
};

// A controller without a user interface, with all that it needs.
struct Desk {
  FakePlatform platform;
  FakeHost host;
  Process process{platform, std::nullopt, false};
  Controller controller{process, host};
};

struct Word {
  std::string text;
  std::string start;
  std::string duration;
  std::string speaker;
};

// The form that XMP toolkits write: a packet of these elements.
inline std::string packet(const std::string& properties) {
  return "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
         "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
         " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
         "  <rdf:Description rdf:about=\"\""
         " xmlns:xmpDM=\"http://ns.adobe.com/xmp/1.0/DynamicMedia/\">\n" +
         properties + "  </rdf:Description>\n </rdf:RDF>\n</x:xmpmeta>\n<?xpacket end=\"w\"?>";
}

inline std::string track(const std::string& type, const std::string& time_base,
                         const std::string& markers) {
  return fmt::format(
      "<xmpDM:Tracks><rdf:Bag><rdf:li rdf:parseType=\"Resource\">\n"
      " <xmpDM:trackType>{}</xmpDM:trackType>\n <xmpDM:frameRate>{}</xmpDM:frameRate>\n"
      " <xmpDM:markers><rdf:Seq>\n{} "
      "</rdf:Seq></xmpDM:markers>\n</rdf:li></rdf:Bag></xmpDM:Tracks>\n",
      type, time_base, markers);
}

inline std::string speech(const std::vector<Word>& words, const std::string& time_base = "f1000") {
  std::string markers;
  for (const Word& word : words) {
    markers += fmt::format(
        "  <rdf:li rdf:parseType=\"Resource\">\n   <xmpDM:startTime>{}</xmpDM:startTime>\n"
        "   <xmpDM:duration>{}</xmpDM:duration>\n   <xmpDM:name>{}</xmpDM:name>\n"
        "   <xmpDM:speaker>{}</xmpDM:speaker>\n  </rdf:li>\n",
        word.start, word.duration, word.text, word.speaker);
  }
  return track("Speech", time_base, markers);
}

// The text that the form makes of each number, one after the other.
inline std::string numbered(fmt::format_string<int&> form, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += fmt::format(form, i);
  return text;
}

// A document type whose entity "e10" stands for ten thousand million letters.
inline std::string entity_bomb() {
  std::string type = "<!DOCTYPE a [<!ENTITY e0 'h'>";
  for (int i = 1; i <= 10; ++i) {
    type += fmt::format("<!ENTITY e{} '", i);
    for (int k = 0; k < 10; ++k) type += fmt::format("&e{};", i - 1);
    type += "'>";
  }
  return type + "]>";
}

inline std::string content(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// The kind and message of the error that a call ends in; empty when it ends in none.
template <typename Call>
std::string error_of(const Call& call) {
  try {
    call();
    return "";
  } catch (const Error& error) {
    return fmt::format("{}: {}", static_cast<int>(error.kind()), error.what());
  }
}

inline bool is_error(const std::string& error, ErrorKind kind, const std::string& part) {
  return error.starts_with(fmt::format("{}: ", static_cast<int>(kind))) &&
         error.find(part) != std::string::npos;
}

}  // namespace murmurase::test
