#include "readers/clip_reader.h"

#include <gtest/gtest.h>

#include "readers/line_repair.h"
#include "support.h"
#include "xml/edit.h"

namespace murmurase::test {
namespace {

std::string repaired(std::string_view line) {
  std::string text;
  append_repaired_line(text, line);
  return text;
}

using namespace std::string_view_literals;

TEST(LineRepair, Cases) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"plain <a b=\"c\">\t\r", "plain <a b=\"c\">\t\r"},
      {"a & b&&amp;&lt;&am;", "a &amp; b&amp;&amp;&amp;lt;&amp;am;"},
      {"\x01\x08\x0B\x0C\x0E\x1F\x7F|\0|"sv, "||"},
      {"\xC3\xA9 \xED\x9F\xBF \xF0\x90\x80\x80", "\xC3\xA9 \xED\x9F\xBF \xF0\x90\x80\x80"},
      {"a\xF8wxyzb\xFBwxyzc\xFCvwxyzd\xFDvwxyze", "abcde"},  // five and six bytes announced
      {"caf\xE9 au lait", "cafu lait"},                      // takes two bytes with it
      {"\xE9& x", "mp; x"},                                  // it takes bytes of the escape
      {"end\xFC\x61\x62\xC3", "end"},                        // announces more than there is
      // Overlong forms, halves of pairs, and numbers past the last character are left out.
      {"a\xC1\xBF\xE0\x9F\xBF\xED\xA0\x80\xF0\x8F\xBF\xBF\xF4\x90\x80\x80z", "az"},
      {"\xC2\x80\xE0\xA0\x80\xEE\x80\x80\xF4\x8F\xBF\xBF",
       "\xC2\x80\xE0\xA0\x80\xEE\x80\x80\xF4\x8F\xBF\xBF"},
  };
  for (const auto& [line, expected] : cases) {
    EXPECT_EQ(repaired(line), expected);
    EXPECT_EQ(repaired(expected), expected);  // a repaired line stays as it is
  }
}

std::string shown(const ClipRepair& repair) {
  constexpr const char* names[] = {"none", "lines", "all"};
  std::string text = names[repair.extent];
  for (const std::int64_t line : repair.repaired_lines) text += fmt::format(" {}", line);
  return text;
}

struct Read {
  ClipFile clip;
  std::string repair;
  std::string written;
};

Read read(const std::string& bytes) {
  Desk desk;
  desk.platform.files["a.xml"] = bytes;
  Read result;
  result.clip = parse_xml_file(desk.controller, "a.xml");
  result.repair = shown(repair_of(result.clip.document));
  result.written = xml::serialize(result.clip.document, "a.xml").bytes;
  EXPECT_EQ(desk.platform.files["a.xml"], bytes);
  return result;
}

TEST(ClipReader, Roads) {
  const std::tuple<std::string_view, const char*, const char*> cases[] = {
      {"<xmeml>\r\n<a>x\r\ny</a>\r\n</xmeml>", "none", "<xmeml>\n  <a>x\ny</a>\n</xmeml>\n"},
      // One repair: blanks between elements stay, line feeds go, other lines keep their escapes.
      {"<xmeml>\n <a>x\ny</a>\n <b>&lt;</b>\n <c>R & D</c>\n</xmeml>\n", "lines 5",
       "<xmeml> <a>xy</a> <b>&lt;</b> <c>R &amp; D</c></xmeml>\n"},
      {"<xmeml>\r\n<a>&</a>\r\n</xmeml>", "lines 2", "<xmeml>\n<a>&amp;</a>\n</xmeml>\n"},
      {"<xmeml>\n<a>& & &</a>\n<b>\x01</b></xmeml>", "lines 2 3",
       "<xmeml>\n  <a>&amp; &amp; &amp;</a>\n  <b/>\n</xmeml>\n"},
      // The parser reports wrong bytes once: the second line of them takes the second repair.
      {"<xmeml>\n<a>\xE9 |&lt;</a>\n<b>\xE9 |&lt;</b><c>&lt;</c>\n</xmeml>", "all",
       "<xmeml>\n  <a>&amp;lt;</a>\n  <b>&amp;lt;</b>\n  <c>&amp;lt;</c>\n</xmeml>\n"},
      // What no repair helps is passed over, and the document ends where the file does.
      {"<xmeml>\n<a>x", "all", "<xmeml>\n  <a>x</a>\n</xmeml>\n"},
      {"<xmeml>\n<a></b>x</xmeml>\n\n", "all", "<xmeml><a/>x</xmeml>\n"},
      {"<xmeml xmlns:x='a:b c'>\n<a>x</a></xmeml>", "all",
       "<xmeml xmlns:x=\"a:b c\">\n  <a>x</a>\n</xmeml>\n"},
      {"<xmeml>\n<a>x\0y</a></xmeml>"sv, "lines 2", "<xmeml>\n  <a>xy</a>\n</xmeml>\n"},
  };
  for (const auto& [bytes, repair, written] : cases) {
    const Read clip = read(std::string(bytes));
    EXPECT_EQ(clip.repair, repair) << printable(bytes);
    EXPECT_EQ(clip.written, std::string("<?xml version=\"1.0\"?>\n") + written);
    EXPECT_EQ(clip.clip.name, "xmeml");
  }
}

TEST(ClipReader, LinesFarDown) {
  std::string bytes = "<xmeml>\n";
  for (int line = 2; line < 200000; ++line) {
    bytes += line == 65535 || line == 65536 || line == 150000 ? "<a>R & D</a>\n" : "<a>&lt;</a>\n";
  }
  const Read clip = read(bytes + "</xmeml>\n");
  EXPECT_EQ(clip.repair, "lines 65535 65536 150000");
  EXPECT_EQ(clip.written.find("&amp;lt;"), std::string::npos);
}

TEST(ClipReader, WhatIsWrittenKeepsAllOfTheClip) {
  const char* const clips[] = {
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<!DOCTYPE xmeml>\n<!--c-->\n"
      "<?pi p?>\n<xmeml v=\"&quot;&#10;\"><a>t<b/>&#13;</a><![CDATA[<&]]></xmeml>\n<!--end-->\n",
      "<?xml version=\"1.0\"?>\n<!DOCTYPE xmeml SYSTEM \"none.dtd\" [\n<!ENTITY e \"text\">\n"
      "<!ENTITY file SYSTEM \"/etc/hostname\">\n<!ATTLIST xmeml version CDATA \"5\">\n]>\n"
      "<xmeml a=\"&e;\">&e;&file;</xmeml>\n",
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<xmeml>caf\xE9 &#8364;</xmeml>\n",
      "<?xml version=\"1.0\" encoding=\"US-ASCII\"?>\n<xmeml>caf&#233;</xmeml>\n",
      "<?xml version=\"1.0\" encoding=\"Shift_JIS\"?>\n<xmeml>\x93\xFA\x96{ &#233;</xmeml>\n",
  };
  for (const char* clip : clips) {
    const Read again = read(clip);
    EXPECT_EQ(again.repair, "none");
    EXPECT_EQ(again.written, clip);
  }
  std::string wide = "\xFE\xFF";
  for (const char c : "<?xml version=\"1.0\" encoding=\"UTF-16\"?>\n<xmeml>x</xmeml>\n"sv)
    wide += {'\0', c};
  EXPECT_EQ(xml::serialize(read(read(wide).written).clip.document, "").bytes, read(wide).written);
}

TEST(ClipReader, TheNameIsThatOfTheFirstNode) {
  const std::pair<const char*, const char*> cases[] = {{"<!DOCTYPE other><xmeml/>", "other"},
                                                       {"<!-- c --><xmeml/>", "comment"},
                                                       {"<?target x?><xmeml/>", "target"},
                                                       {"<!-- only -->", "comment"}};
  Desk desk;
  for (const auto& [bytes, name] : cases) {
    desk.platform.files["a.xml"] = bytes;
    EXPECT_EQ(parse_xml_file(desk.controller, "a.xml").name, name);
  }
}

TEST(ClipReader, Failures) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "empty"},
      {"\n\n", "empty"},
      {std::string("\0\0\0\1", 4), "empty"},
      {"\xFF\xD8\xFF\xE0\x10JFIF", "'<' not found"},
      {"<?xml version='1.0' encoding='none-such'?><a/>", "none-such"},
      {numbered("<a{}>", 1000), "nested too deep"},
      {"<a " + numbered("a{}='' ", 60'000) + "/>", "too many attributes"},
      {"<!DOCTYPE a [" + numbered("<!ATTLIST a b{} CDATA ''>", 2'000) + "]><a/>",
       "declares too many attributes"},
      {"<a>\n<" + std::string(60000, 'b') + "/></a>", "a name in it is too long"},
      {"<a>\n<!--" + std::string(11000000, 'c') + "--></a>", "longer than 10 MB"},
      {"<a>\n" + std::string(11000000, 'c') + "</a>", "longer than 10 MB"},
  };
  Desk desk;
  for (const auto& [bytes, reason] : cases) {
    desk.platform.files["my\nclip.xml"] = bytes;
    testing::internal::CaptureStderr();
    const std::string error = error_of([&] { parse_xml_file(desk.controller, "my\nclip.xml"); });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(is_error(error, ErrorKind::xml, reason)) << error;
    EXPECT_TRUE(is_error(error, ErrorKind::xml, "the clip my\\nclip.xml ")) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
  EXPECT_TRUE(is_error(error_of([&] { parse_xml_file(desk.controller, "none"); }),
                       ErrorKind::system, "read none"));
}

}  // namespace
}  // namespace murmurase::test
