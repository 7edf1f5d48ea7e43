#include "service/language/xml_writer.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/service/xml_document.h"

namespace service {
namespace {

std::string Written(std::string_view attribute, std::string_view text) {
    XmlWriter xml;
    xml.Start("A");
    xml.Attribute("b", attribute);
    xml.Start("C");
    xml.Text(text);
    xml.End();
    xml.End();
    return std::string(*xml.Finish());
}

TEST(XmlWriterTest, WritesElementsWithoutDeclarationOrLineEnds) {
    EXPECT_EQ(Written("", ""), "<A b=\"\"><C/></A>");
    EXPECT_EQ(Written("Größe", "Straße"), "<A b=\"Gr&#xF6;&#xDF;e\"><C>Straße</C></A>");
    EXPECT_EQ(Written("a\"b", "1<2 & ]]>"), "<A b=\"a&quot;b\"><C>1&lt;2 &amp; ]]&gt;</C></A>");
}

// All in one text, each alone, and each between characters that are escaped: the writer takes different ways.
TEST(XmlWriterTest, EveryCharacterComesBackOrIsReplacedByTheRule) {
    const auto expect = [](const std::string& given, const std::string& expected) {
        const XmlDocument document(Written(given, given));
        EXPECT_EQ(document.fault(), "");
        EXPECT_TRUE(document.Text("/A/@b") == expected) << testing::PrintToString(given.substr(0, 20));
        EXPECT_TRUE(document.Text("/A/C") == expected) << testing::PrintToString(given.substr(0, 20));
    };
    const Characters all(0, 0x10FFFF);
    expect(all.written, all.read);
    std::u32string edges = U"\u2028\uD7FF\uE000\uFDD0\uFEFF\uFFBE\uFFFD\uFFFE\uFFFF\U0001FFFE\U0010FFFF";
    for (char32_t c = 0; c < 0x100; ++c)
        edges.push_back(c);
    for (const char32_t c : edges) {
        const Characters one(c, c);
        for (const std::string around : {"", "<", " ", "\r", "\n", "x"})
            expect(around + one.written + around, around + one.read + around);
    }
    for (const std::string text : {"\t", "\r\n", "  a  ", "\n\r\n\ra\r", "a\n"})
        expect(text, text);
}

TEST(XmlWriterTest, RefusesATextThatIsTooLongAndStopsCollectingIt) {
    XmlWriter xml(100);
    xml.Start("A");
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(xml.IsFull());
        xml.Text("0123456");
    }
    xml.Text(std::string(1'000'000, 'x'));
    EXPECT_TRUE(xml.IsFull());
    EXPECT_EQ(xml.BytesLeft(), 0U);
    xml.End();
    EXPECT_EQ(xml.Finish().code(), WBEM_E_TOO_MUCH_DATA);

    XmlWriter escaped(100);
    escaped.Start("A");
    escaped.Text(std::string(30, '&'));
    escaped.End();
    EXPECT_EQ(escaped.Finish().code(), WBEM_E_TOO_MUCH_DATA);
}

}  // namespace
}  // namespace service
