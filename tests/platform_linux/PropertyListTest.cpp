#include "platform/linux/preferences/PropertyList.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "platform/linux/preferences/PropertyListCheck.h"

namespace vexil {
namespace {

std::string List(const std::string& entries) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + entries +
           "</dict></plist>\n";
}
std::string Entry(const std::string& value) {
    return "<key>K</key>" + value;
}

std::optional<PropertyList> Read(const std::string& content) {
    std::string problem;
    std::optional<PropertyList> list = PropertyList::Read(content, problem);
    EXPECT_EQ(list.has_value(), problem.empty()) << problem;
    return list;
}
PropertyRef ReadValue(const std::string& value) {
    const std::optional<PropertyList> list = Read(List(Entry(value)));
    return list ? list->Find("K") : nullptr;
}

std::string Nested(const std::string& open, const std::string& innermost, const std::string& close,
                   int levels) {
    std::string before;
    std::string after;
    for (int i = 0; i < levels; ++i) {
        before += open;
        after += close;
    }
    return before + innermost + after;
}

// A binary list from its objects; reference and offset sizes of one byte.
std::string Binary(const std::vector<std::string>& objects, unsigned root = 0) {
    std::string list = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
        table += static_cast<char>(list.size());
        list += object;
    }
    const auto tableAt = static_cast<char>(list.size());
    list +=
        table + std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + static_cast<char>(objects.size());
    list += std::string(7, '\0') + static_cast<char>(root) + std::string(7, '\0') + tableAt;
    return list;
}

TEST(PropertyListTest, ValuesOfKnownTypesAreRead) {
    EXPECT_TRUE(SameProperty(ReadValue("<integer>-7</integer>"), MakePropertyNumber(-7)));
    EXPECT_TRUE(SameProperty(ReadValue("<integer> 0x1F </integer>"), MakePropertyNumber(31)));
    EXPECT_TRUE(SameProperty(ReadValue("<true/>"), MakePropertyBoolean(true)));
    EXPECT_TRUE(SameProperty(ReadValue("<data> AP8B </data>"), MakePropertyData("\x00\xFF\x01", 3)));
    EXPECT_TRUE(SameProperty(ReadValue("<string>a&amp;&#x42;<![CDATA[<c>]]></string>"),
                             MakePropertyString("a&B<c>")));
    EXPECT_TRUE(SameProperty(ReadValue("<dict/>"), MakePropertyDictionary({})));
}

TEST(PropertyListTest, WhatSurroundsTheRootIsPassedOver) {
    EXPECT_TRUE(
        Read("\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8'?><!-- <dict> --><?pi <dict>?>"
             "<!DOCTYPE plist [ <!ELEMENT plist (dict)> ]><!-- a --><plist version='1.0'>"
             "<!-- <dict><dict> --><dict></dict></plist> <!-- after -->\n"));
}

TEST(PropertyListTest, TheDocumentTypeEndsWhereItEnds) {
    std::string problem;
    EXPECT_TRUE(CheckXmlPropertyList(
        "<!DOCTYPE plist \">\" [ <!ENTITY a '>]'> <!-- ]> --> ]><plist><dict/></plist>", problem))
        << problem;
    EXPECT_FALSE(CheckXmlPropertyList("<!DOCTYPE plist [ <!ENTITY a 'b'> ><plist><dict/></plist>", problem));
}

TEST(PropertyListTest, MalformedNumbersDataAndDatesAreRefused) {
    for (const char* value :
         {"<integer>12x</integer>", "<integer></integer>", "<integer>--1</integer>", "<integer>1.5</integer>",
          "<integer>18446744073709551616</integer>", "<integer>-9223372036854775809</integer>",
          "<real>x</real>", "<real>1,5</real>", "<real></real>", "<data>A</data>", "<data>AB=C</data>",
          "<data>A-==</data>", "<date>yesterday</date>", "<integer><true/></integer>", "<unknown/>"}) {
        std::string problem;
        EXPECT_FALSE(CheckXmlPropertyList(List(Entry(value)), problem)) << value;
        EXPECT_NE(problem, "") << value;
    }
}

// Well-formed, but the library takes each of them for another value without a word.
TEST(PropertyListTest, NumbersDataAndDatesThatWouldBeReadAsOthersAreRefused) {
    for (const char* value :
         {"<integer>010</integer>", "<integer>08</integer>", "<integer>-010</integer>",
          "<integer>&#53;</integer>", "<real>&#49;.5</real>", "<data>QU&#74;D</data>",
          "<data>QU<!-- x -->JD</data>", "<date>201&#50;-01-01T00:00:00Z</date>",
          "<date>2012<!-- x -->-01-01T00:00:00Z</date>", "<date>2012-00-10T00:00:00Z</date>",
          "<date>2012-13-10T00:00:00Z</date>", "<date>2012-01-00T00:00:00Z</date>",
          "<date>2012-04-31T00:00:00Z</date>", "<date>2011-02-29T00:00:00Z</date>",
          "<date>1900-02-29T00:00:00Z</date>", "<date>2012-12-31T24:00:00Z</date>",
          "<date>2012-12-31T23:60:00Z</date>", "<date>2012-12-31T23:59:60Z</date>"}) {
        std::string problem;
        EXPECT_FALSE(CheckXmlPropertyList(List(Entry(value)), problem)) << value;
    }
}

TEST(PropertyListTest, TheirNeighboursAreRead) {
    EXPECT_TRUE(SameProperty(ReadValue("<integer>0</integer>"), MakePropertyNumber(0)));
    EXPECT_TRUE(SameProperty(ReadValue("<integer>-0x0A</integer>"), MakePropertyNumber(-10)));
    EXPECT_TRUE(SameProperty(ReadValue("<integer>\r\n5\r\n</integer>"), MakePropertyNumber(5)));
    EXPECT_TRUE(SameProperty(ReadValue("<data>\r\nQU\r\nJD\r\n</data>"), MakePropertyData("ABC", 3)));
    for (const char* value : {"<date>2012-02-29T23:59:59Z</date>", "<date>2000-02-29T00:00:00Z</date>",
                              "<date>2012-12-31T00:00:00Z</date>"}) {
        std::string problem;
        EXPECT_TRUE(CheckXmlPropertyList(List(Entry(value)), problem)) << value << problem;
    }
}

TEST(PropertyListTest, BrokenStructureIsRefused) {
    for (const std::string& text :
         {std::string(),
          std::string(" "),
          std::string("not a list"),
          List("<key>K</key>"),
          List("<true/>"),
          List("<key>K</key><true>"),
          List("<key>K</key><string>a</integer>"),
          List("x<key>K</key><true/>"),
          std::string("<plist/>"),
          std::string("<plist><array></array></plist>"),
          List("") + "x",
          List("") + List(""),
          List(Entry("<string>&unknown;</string>")),
          List(Entry("<string>&#0;</string>")),
          List(Entry("<string>&#xD800;</string>")),
          List(Entry("<string>a\x01</string>")),
          List(Entry("<string>\xFF</string>")),
          List(Entry("<string>") + std::string(1, '\0') + "</string>"),
          std::string("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><plist><dict></dict></plist>"),
          std::string(
              "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><dict><key>&a;</key><true/></dict></plist>")}) {
        std::string problem;
        EXPECT_FALSE(CheckXmlPropertyList(text, problem)) << text;
    }
}

TEST(PropertyListTest, EveryTruncationOfAnXmlListIsRefused) {
    const std::string whole =
        List("<key>A</key><string>a&amp;b<![CDATA[c]]><!-- d --></string><key>B</key><array><true/></array>");
    const std::size_t end = whole.rfind('\n');  // without its last line end it is whole
    for (std::size_t length = 0; length < end; ++length) {
        std::string problem;
        EXPECT_FALSE(CheckXmlPropertyList(whole.substr(0, length), problem)) << whole.substr(0, length);
    }
}

TEST(PropertyListTest, DepthUpToTheLimitIsReadAndNoMore) {
    for (const bool array : {true, false}) {
        const std::string open = array ? "<array>" : "<dict><key>K</key>";
        const std::string close = array ? "</array>" : "</dict>";
        std::string problem;
        EXPECT_TRUE(Read(List(Entry(Nested(open, "<true/>", close, 63)))));
        EXPECT_FALSE(CheckXmlPropertyList(List(Entry(Nested(open, "<true/>", close, 64))), problem));
        EXPECT_FALSE(CheckXmlPropertyList(List(Entry(Nested(open, "<true/>", close, 50000))), problem));
    }
}

TEST(PropertyListTest, TagsInCommentsAndSectionsDoNotCountAsDepth) {
    const std::string tags = Nested("<dict>", "", "", 200);
    EXPECT_TRUE(Read(
        List("<!--" + tags + "--><?pi " + tags + "?><key>K</key><string><![CDATA[" + tags + "]]></string>")));
}

TEST(PropertyListTest, ABinaryListIsRead) {
    const std::optional<PropertyList> list = Read(
        Binary({"\xD3\x01\x02\x03\x04\x05\x06", "QA", "QB", "QC", "\x10\x07", "\x09", "\x5F\x10\x02hi"}));
    ASSERT_TRUE(list);
    EXPECT_TRUE(SameProperty(list->Find("A"), MakePropertyNumber(7)));
    EXPECT_TRUE(SameProperty(list->Find("B"), MakePropertyBoolean(true)));
    EXPECT_TRUE(SameProperty(list->Find("C"), MakePropertyString("hi")));
}

TEST(PropertyListTest, ABinaryNullIsKeptAsAnUnknownValue) {
    const std::optional<PropertyList> list = Read(Binary({"\xD1\x01\x02", "QA", std::string(1, '\0')}));
    ASSERT_TRUE(list);
    ASSERT_NE(list->Find("A"), nullptr);
    EXPECT_EQ(list->Find("A")->Type(), PropertyType::Opaque);
}

TEST(PropertyListTest, BinaryListsThatLeadOutOfTheFileAreRefused) {
    std::string problem;
    const std::string good = Binary({"\xD1\x01\x02", "QA", "\x09"});
    ASSERT_TRUE(CheckBinaryPropertyList(good, problem)) << problem;
    for (std::size_t length = 0; length < good.size(); ++length) {
        EXPECT_FALSE(CheckBinaryPropertyList(good.substr(0, length), problem)) << length;
    }
    EXPECT_FALSE(CheckBinaryPropertyList(Binary({"\xD1\x01\x09", "QA"}), problem))
        << "reference to no object";
    EXPECT_FALSE(CheckBinaryPropertyList(
        Binary({"\xD1\x01\x02", "_\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF", "\x09"}), problem))
        << "count past the end";
    EXPECT_FALSE(CheckBinaryPropertyList(Binary({"\xD1\x01\x02", "\x10\x01", "\x09"}), problem))
        << "number as key";
    EXPECT_FALSE(CheckBinaryPropertyList(Binary({"\xA1\x01", "\x09"}), problem)) << "root";
}

TEST(PropertyListTest, ACyclicBinaryListIsRefused) {
    std::string problem;
    EXPECT_FALSE(CheckBinaryPropertyList(Binary({std::string("\xD1\x01\x00", 3), "QA"}), problem));
    EXPECT_EQ(problem, "nested too deeply");
}

TEST(PropertyListTest, ABinaryListThatExpandsWithoutEndIsRefused) {
    // 30 arrays, each of two references to the next: 2^30 values.
    std::vector<std::string> objects = {"\xD1\x01\x02", "QA"};
    for (char next = 3; next < 33; ++next) {
        objects.push_back(std::string("\xA2") + next + next);
    }
    objects.push_back("\x09");
    std::string problem;
    EXPECT_FALSE(CheckBinaryPropertyList(Binary(objects), problem));
    EXPECT_EQ(problem, "too large");
}

TEST(PropertyListTest, BinaryTextsThatCannotBeKeptAreRefused) {
    std::string problem;
    EXPECT_FALSE(CheckBinaryPropertyList(Binary({"\xD1\x01\x02", "QA", std::string("Sa\0b", 4)}), problem));
    EXPECT_FALSE(CheckBinaryPropertyList(Binary({"\xD1\x01\x02", "QA", "a\xD8\x3C"}), problem))
        << "half a pair";
}

TEST(PropertyListTest, MutatedListsNeverDoMoreThanBeRefused) {
    const std::string xml =
        List("<key>A</key><string>a&amp;b</string><key>B</key><array><real>1.5</real></array>");
    const std::string binary = Binary(
        {"\xD3\x01\x02\x03\x04\x05\x06", "QA", "QB", "QC", "\x10\x07", std::string(1, '\0'), "\xA1\x04"});
    std::mt19937 random(7);
    for (int round = 0; round < 6000; ++round) {
        std::string bytes = round % 2 == 0 ? xml : binary;
        for (auto changes = 1 + random() % 3; changes > 0; --changes) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        std::string problem;
        const std::optional<PropertyList> list = PropertyList::Read(bytes, problem);
        // What is read can be written, unless that is refused with a reason.
        if (list && !list->Prepare({{"Z", MakePropertyNumber(1)}}, problem)) {
            EXPECT_NE(problem, "");
        }
    }
}

TEST(PropertyListTest, UnknownValuesAreWrittenBackBetweenKnownOnes) {
    const std::string unknown =
        "<key>D</key><date>1600-01-01T00:00:00Z</date><key>R</key><real>0.1</real>"
        "<key>B</key><integer>18446744073709551615</integer><key>L</key><array><dict><key>x</key>"
        "<date>9999-12-31T23:59:59Z</date></dict></array><key>U</key><dict><key>CF$UID</key><integer>3</"
        "integer></dict>";
    const std::optional<PropertyList> list = Read(List(unknown + "<key>T</key><dict>" + unknown + "</dict>"));
    ASSERT_TRUE(list);
    PropertyDictionary changed = *list->Find("T")->As<PropertyDictionary>();
    changed["new"] = MakePropertyNumber(1);
    std::string problem;
    const auto written = list->Prepare({{"T", MakePropertyDictionary(changed)}}, problem);
    ASSERT_TRUE(written) << problem;
    const std::optional<PropertyList> back = Read(written->xml);
    ASSERT_TRUE(back);
    for (const char* key : {"D", "R", "B", "L", "U"}) {
        EXPECT_TRUE(SameProperty(back->Find(key), list->Find(key))) << key;
        EXPECT_TRUE(SameProperty(back->Find("T")->As<PropertyDictionary>()->at(key), list->Find(key))) << key;
    }
    EXPECT_NE(written->xml.find("18446744073709551615"), std::string::npos);
    EXPECT_NE(written->xml.find("1600-01-01T00:00:00Z"), std::string::npos);
}

TEST(PropertyListTest, ATextThatNeedsAFormOfItsOwnIsNotDirect) {
    const PropertyList empty;
    std::string problem;
    const auto written = empty.Prepare(
        {{"Own\xFF", MakePropertyString("a\rb")}, {"Plain", MakePropertyString("ab")}}, problem);
    ASSERT_TRUE(written) << problem;
    PropertyList changed;
    changed.Apply(*written);
    for (const PropertyList& list : {changed, *Read(written->xml)}) {
        ASSERT_NE(list.Find("Own\xFF"), nullptr);
        EXPECT_EQ(list.Find("Own\xFF")->As<PropertyString>()->text, "a\rb");
        EXPECT_FALSE(list.Find("Own\xFF")->As<PropertyString>()->direct);
        EXPECT_TRUE(list.Find("Plain")->As<PropertyString>()->direct);
    }
}

TEST(PropertyListTest, ACarriageReturnOfAnotherProgramIsNotLost) {
    const auto list = Read(List(Entry("<string>a&#13;b</string>")));
    std::string problem;
    const auto written = list->Prepare({{"Z", MakePropertyNumber(1)}}, problem);
    ASSERT_TRUE(written);
    EXPECT_EQ(Read(written->xml)->Find("K")->As<PropertyString>()->text, "a\rb");
}

TEST(PropertyListTest, AListThatCouldNotBeReadBackIsNotWritten) {
    const PropertyList empty;
    std::string problem;
    const auto large = std::make_shared<const PropertyValue>(PropertyValue::Content(PropertyData(1U << 20U)));
    EXPECT_FALSE(empty.Prepare({{"A", large}}, problem));
    EXPECT_EQ(problem, "too large");
    PropertyRef deep = MakePropertyNumber(1);
    for (int i = 0; i < 63; ++i) {
        deep = MakePropertyDictionary({{"K", deep}});
    }
    EXPECT_TRUE(empty.Prepare({{"A", deep}}, problem)) << problem;
    EXPECT_FALSE(empty.Prepare({{"A", MakePropertyDictionary({{"K", deep}})}}, problem));
}

TEST(PropertyListTest, AListOfTheLargestSizeIsWrittenAndReadBack) {
    const PropertyList empty;
    std::string problem;
    const auto prepareText = [&](std::size_t length) {
        const PropertyString text{std::string(length, 'x')};
        return empty.Prepare({{"A", std::make_shared<const PropertyValue>(PropertyValue::Content(text))}},
                             problem);
    };
    const std::size_t around = prepareText(0)->xml.size();
    const auto largest = prepareText((1U << 20U) - around);
    ASSERT_TRUE(largest) << problem;
    EXPECT_EQ(largest->xml.size(), 1U << 20U);
    EXPECT_TRUE(Read(largest->xml));
    EXPECT_FALSE(prepareText((1U << 20U) - around + 1));
    EXPECT_EQ(problem, "too large");
}

TEST(PropertyListTest, AnUnknownValueThatWouldGetTooDeepIsNotWritten) {
    const auto list = Read(List(Entry(Nested("<array>", "<true/>", "</array>", 63))));
    ASSERT_TRUE(list);
    std::string problem;
    EXPECT_FALSE(list->Prepare({{"A", MakePropertyDictionary({{"K", list->Find("K")}})}}, problem));
}

TEST(PropertyListTest, ADateOfAnEarlyYearSurvivesAChangeOfAnotherKey) {
    const std::optional<PropertyList> list = Read(List(Entry("<date>0020-01-02T00:00:00Z</date>")));
    ASSERT_TRUE(list);
    std::string problem;
    const auto change = list->Prepare({{"other", MakePropertyNumber(1)}}, problem);
    ASSERT_TRUE(change);
    EXPECT_NE(change->xml.find("<date>0020-01-02T00:00:00Z</date>"), std::string::npos);
    EXPECT_TRUE(Read(change->xml));
}

TEST(PropertyListTest, WhatIsNotANumberIsReadTheSameFromEveryBitPattern) {
    const std::string dictionary = "\xD1\x01\x02";
    const std::string key = "QK";
    const std::optional<PropertyList> list =
        Read(Binary({dictionary, key, "\x23\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01"}));
    ASSERT_TRUE(list);
    std::string problem;
    const auto change = list->Prepare({{"other", MakePropertyNumber(1)}}, problem);
    ASSERT_TRUE(change);
    const std::optional<PropertyList> again = Read(change->xml);
    ASSERT_TRUE(again);
    EXPECT_TRUE(SameProperty(again->Find("K"), list->Find("K")));
}

}  // namespace
}  // namespace vexil
