#include "Base/PropertyList.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace molvane {
namespace {

using namespace std::string_literals;

std::string xml(const std::string& body) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
)" + body +
         "\n</plist>\n";
}

/// A binary property list of `objects`, the first of which is the root; references take one byte, offsets
/// two.
std::string binary(const std::vector<std::string>& objects) {
  std::string document = "bplist00";
  std::string offsets;
  for (const std::string& object : objects) {
    offsets += {static_cast<char>(document.size() >> 8U), static_cast<char>(document.size())};
    document += object;
  }
  const std::size_t table = document.size();
  document += offsets + "\0\0\0\0\0\0\2\1"s;
  for (const std::size_t field : {objects.size(), std::size_t{0}, table}) {
    for (unsigned shift = 64; shift > 0; shift -= 8) document += static_cast<char>(field >> (shift - 8));
  }
  return document;
}

template <typename T>
std::optional<T> parsed(const std::string& document) {
  const std::optional<PropertyList> list = parsePropertyList(document);
  const T* value = list ? list->as<T>() : nullptr;
  return value == nullptr ? std::nullopt : std::optional<T>(*value);
}

TEST(PropertyList, XmlOfEveryType) {
  const auto list = parsePropertyList(xml(R"(<!-- c --><dict>
    <key>text</key><string>a &amp; <![CDATA[<b>]]>&#xE9;</string> <key>empty</key><string/>
    <key>numbers</key><array><integer> -5 </integer><integer>0x1F</integer><integer>18446744073709551615</integer>
      <real>-1.5e3</real></array>
    <key>flags</key><array><true/><false></false></array>
    <key>date</key><date>2001-01-01T00:00:01Z</date>
    <key>data</key><data>
      AAH/
      QQ==</data>
  </dict>)"));
  ASSERT_TRUE(list);
  EXPECT_EQ(*list->find("text")->as<std::string>(), "a & <b>é");
  EXPECT_EQ(*list->find("empty")->as<std::string>(), "");
  EXPECT_EQ(
      *list->find("numbers")->as<PropertyList::Array>(),
      (PropertyList::Array{PropertyList(std::int64_t{-5}), PropertyList(std::int64_t{31}),
                           PropertyList(std::numeric_limits<std::uint64_t>::max()), PropertyList(-1500.0)}));
  EXPECT_EQ(*list->find("flags")->as<PropertyList::Array>(),
            (PropertyList::Array{PropertyList(true), PropertyList(false)}));
  EXPECT_EQ(list->find("date")->as<Date>()->secondsSinceReference, 1);
  EXPECT_EQ(list->find("data")->as<PropertyList::Data>()->bytes, "\0\1\xFF\x41"s);
  EXPECT_EQ(list->find("nothing"), nullptr);
  EXPECT_EQ(list->find("text")->find("x"), nullptr);
}

TEST(PropertyList, BinaryOfEveryType) {
  EXPECT_EQ(parsed<bool>(binary({"\x09"})), true);
  EXPECT_EQ(parsed<std::int64_t>(binary({"\x10\xFF"})), 255);
  EXPECT_EQ(parsed<std::int64_t>(binary({"\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE"})), -2);
  EXPECT_EQ(parsed<std::uint64_t>(binary({"\x14" + std::string(8, '\0') + std::string(8, '\xFF')})),
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(parsed<double>(binary({"\x22\x3F\xC0\0\0"s})), 1.5);
  EXPECT_EQ(parsed<double>(binary({"\x23\x3F\xF8\0\0\0\0\0\0"s})), 1.5);
  EXPECT_EQ(parsed<Date>(binary({"\x33\x3F\xF8\0\0\0\0\0\0"s})), Date{1.5});
  EXPECT_EQ(parsed<std::string>(binary({"\x53"s + "a\0b"s})), "a\0b"s) << "a NUL does not cut a text";
  EXPECT_EQ(parsed<std::string>(binary({"\x63\0\xE9\xD8\x3D\xDE\0"s})), "é😀");
  EXPECT_EQ(parsed<std::string>(binary({"\x5F\x10\x10" + std::string(16, 'x')})), std::string(16, 'x'));
  EXPECT_EQ(parsed<PropertyList::Data>(binary({"\x42\0\xFF"s}))->bytes, "\0\xFF"s);
  const auto dictionary =
      parsePropertyList(binary({"\xD2\1\2\3\4"s, "\x51k"s, "\x51l"s, "\xA2\2\2"s, "\x08"s}));
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(*dictionary->find("k"),
            PropertyList(PropertyList::Array{PropertyList("l"s), PropertyList("l"s)}));
  EXPECT_EQ(*dictionary->find("l"), PropertyList(false));
}

TEST(PropertyList, OfARepeatedKeyTheLastCounts) {
  const auto fromXml = parsePropertyList(
      xml("<dict><key>k</key><true/><key>a</key><true/><key>k</key><string>last</string></dict>"));
  const auto fromBinary = parsePropertyList(binary({"\xD3\1\2\1\3\3\4"s, "\x51k"s,
                                                    "\x51"
                                                    "a"s,
                                                    "\x09"s, "\x54last"s}));
  ASSERT_TRUE(fromXml && fromBinary);
  EXPECT_EQ(*fromXml->find("k")->as<std::string>(), "last");
  EXPECT_EQ(*fromXml, *fromBinary);
}

TEST(PropertyList, MalformedXmlIsRefused) {
  for (const char* body : {"",
                           "<true/><true/>",
                           "<html/>",
                           "<TRUE/>",
                           "<true>x</true>",
                           "text",
                           "<string><true/></string>",
                           "<dict><key>k</key></dict>",
                           "<dict><true/></dict>",
                           "<dict><key>a</key><key>b</key><true/></dict>",
                           "<array><key>k</key></array>",
                           "<array>text<true/></array>",
                           "<array><true/>",
                           "<key>k</key>",
                           "<plist/>",
                           "<integer></integer>",
                           "<integer>1 2</integer>",
                           "<integer>+-1</integer>",
                           "<integer>0x-1</integer>",
                           "<integer>18446744073709551616</integer>",
                           "<real>1.5x</real>",
                           "<real/>",
                           "<date>2001-01-01</date>",
                           "<data>A</data>",
                           "<data>AA=A</data>",
                           "<data>A!==</data>",
                           "<string>&#0;</string>",
                           "<string>&nbsp;</string>",
                           "<string>\x01</string>",
                           "<string>\xFF</string>",
                           "<p:true xmlns:p='u'/>"}) {
    EXPECT_FALSE(parsePropertyList(xml(body))) << body;
  }
  const std::string good = xml("<string>x</string>");
  ASSERT_TRUE(parsePropertyList(good));
  for (const std::string& bad : {"x" + good, "warning: slow\n" + good, "<true/>"s, ""s}) {
    EXPECT_FALSE(parsePropertyList(bad)) << bad;
  }
  // A tool's last words come after the list that it has written.
  for (const std::string& tail :
       {"x"s, "tool: <warning> & \xFF\0\n"s, good, "<!--"s, "<plist>"s, "</plist>"s}) {
    EXPECT_EQ(parsed<std::string>(good + tail), "x") << tail;
    EXPECT_FALSE(parsePropertyList(xml("<string>x</string><true/>") + tail)) << tail;
  }
}

TEST(PropertyList, DocumentsCannotDefineEntities) {
  EXPECT_FALSE(parsePropertyList("<!DOCTYPE plist [<!ENTITY e 'x'>]><plist><string>&e;</string></plist>"));
  EXPECT_FALSE(parsePropertyList(
      "<!DOCTYPE plist [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><plist><string>&e;</string></plist>"));
}

TEST(PropertyList, MalformedBinaryIsRefused) {
  const std::vector<std::vector<std::string>> documents = {
      {"\xA1\0"s},                                    // an array in itself
      {"\xD1\1\0"s, "\x51k"s},                        // a dictionary in itself
      {"\xD1\0\0"s},                                  // a dictionary as its own key
      {"\xD1\1\1"s, "\x09"s},                         // a key that is no text
      {"\xA1\7"s},                                    // no such object
      {"\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s},  // a length beyond everything
      {"\xAF\x12\x7F\xFF\xFF\xFF"s},
      {"\x55"
       "abc"s},              // cut off by the table
      {"\x51\xE9"s},         // no ASCII
      {"\x62\xD8\x3D\0x"s},  // half a surrogate pair
      {"\x61\xD8\x3D"s},
      {"\x33\x7F\xF8\0\0\0\0\0\0"s},  // not a date
      {"\x33\x42\x50\0\0\0\0\0\0"s},  // beyond the year 9999
      {"\0"s},
      {"\x0F"s},
      {"\x15"s + std::string(32, 'x')},
      {"\x70"s},
      {"\xC0"s},
      {"\xF0"s},
      {}};
  for (const auto& objects : documents) {
    EXPECT_FALSE(parsePropertyList(binary(objects))) << testing::PrintToString(objects);
  }
}

TEST(PropertyList, NoPartOfADocumentIsADocument) {
  const std::string documents[] = {xml("<dict><key>k</key><string>x</string></dict>"),
                                   binary({"\xD1\1\2"s, "\x51k"s, "\x51x"s})};
  for (const std::string& whole : documents) {
    ASSERT_TRUE(parsePropertyList(whole));
    const std::size_t end = whole.find_last_not_of('\n') + 1;
    for (std::size_t size = 0; size < end; ++size)
      EXPECT_FALSE(parsePropertyList(whole.substr(0, size))) << size;
    for (std::size_t at = 0; at < end; ++at) {
      for (unsigned bit = 1; bit < 256; bit <<= 1U) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(static_cast<unsigned char>(damaged[at]) ^ bit);
        (void)parsePropertyList(damaged);  // The sanitizers look on.
      }
    }
  }
}

TEST(PropertyList, WhatExpandsWithoutEndIsRefused) {
  std::vector<std::string> doubling;
  for (char next = 1; next <= 40; ++next) doubling.push_back("\xA2"s + next + next);
  doubling.push_back("\x09"s);
  EXPECT_FALSE(parsePropertyList(binary(doubling)));

  // Ten thousand references to one text of twenty thousand characters.
  EXPECT_FALSE(parsePropertyList(
      binary({"\xAF\x11\x27\x10" + std::string(10000, '\1'), "\x5F\x11\x4E\x20" + std::string(20000, 'x')})));
}

TEST(PropertyList, DepthIsBounded) {
  const auto nested = [](std::size_t depth) {
    std::string body;
    for (std::size_t i = 0; i < depth; ++i) body += "<array>";
    for (std::size_t i = 0; i < depth; ++i) body += "</array>";
    return xml(body);
  };
  EXPECT_TRUE(parsePropertyList(nested(kMaximumPropertyListDepth)));
  EXPECT_FALSE(parsePropertyList(nested(kMaximumPropertyListDepth + 1)));
  EXPECT_FALSE(parsePropertyList(nested(400'000)));

  const auto chain = [](std::size_t depth) {
    std::vector<std::string> arrays;
    for (std::size_t next = 1; next < depth; ++next) arrays.push_back("\xA1"s + static_cast<char>(next));
    arrays.push_back("\xA0"s);
    return binary(arrays);
  };
  EXPECT_TRUE(parsePropertyList(chain(kMaximumPropertyListDepth)));
  EXPECT_FALSE(parsePropertyList(chain(kMaximumPropertyListDepth + 1)));
}

TEST(PropertyList, SizeIsBounded) {
  const std::string padding(kMaximumPropertyListSize, ' ');
  EXPECT_FALSE(parsePropertyList(xml("<true/>") + padding));
}

TEST(PropertyList, AnArrayIsReadElementByElement) {
  std::vector<PropertyList> elements;
  const auto read = [&](const std::string& document) {
    elements.clear();
    return readPropertyListArray(document, [&](PropertyList one) { elements.push_back(std::move(one)); });
  };
  const std::string nested =
      "<array><array><string>a</string></array><dict><key>k</key><array/></dict></array>";
  EXPECT_TRUE(read(xml(nested)));
  EXPECT_EQ(parsed<PropertyList::Array>(xml(nested)), elements);
  EXPECT_TRUE(read(binary({"\xA2\1\2"s, "\x51\x61", "\x09"})));
  EXPECT_EQ(elements, (PropertyList::Array{PropertyList("a"s), PropertyList(true)}));
  EXPECT_TRUE(read(xml("<array/>")));
  EXPECT_TRUE(elements.empty());

  EXPECT_FALSE(read(xml("<dict><key>k</key><array><true/></array></dict>")));
  EXPECT_TRUE(elements.empty()) << "an array that is not at the top stays whole";
  EXPECT_FALSE(read(xml("<array><true/>")));
  EXPECT_FALSE(readPropertyListArray(
      xml("<array/>"), [](const PropertyList&) {}, 100));

  struct Enough {};
  EXPECT_THROW((void)readPropertyListArray(xml(nested), [](const PropertyList&) { throw Enough(); }), Enough);
}

}  // namespace
}  // namespace molvane
