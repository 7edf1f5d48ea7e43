#include "service/language/xml_writer.h"

#include <string>
#include <vector>

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
    const Characters all(0, 0x10FFFF);
    const XmlDocument document(Written(all.written, all.written));
    ASSERT_EQ(document.fault(), "");
    EXPECT_TRUE(document.Text("/A/@b") == all.read);
    EXPECT_TRUE(document.Text("/A/C") == all.read);

    std::vector<char32_t> edges;
    for (char32_t c = 0; c < 0x100; ++c)
        edges.push_back(c);
    for (const char32_t c : {0x2028, 0xD7FF, 0xE000, 0xFDD0, 0xFEFF, 0xFFBE, 0xFFFD, 0xFFFE, 0xFFFF, 0x1FFFE,
                             0x1FFFF, 0x10FFFF}) {
        edges.push_back(c);
    }
    for (const char32_t c : edges) {
        const Characters one(c, c);
        for (const std::string around : {"", "<", " ", "\r", "\n", "x"}) {
            const std::string given = around + one.written + around;
            const std::string expected = around + one.read + around;
            const XmlDocument parsed(Written(given, given));
            EXPECT_EQ(parsed.fault(), "") << "U+" << std::hex << static_cast<uint32_t>(c);
            EXPECT_EQ(parsed.Text("/A/@b"), expected);
            EXPECT_EQ(parsed.Text("/A/C"), expected);
        }
    }
}

TEST(XmlWriterTest, WhiteSpaceAndLineEndsSurviveAParser) {
    for (const std::string text :
         {" ", "\t", "\n", "\r", "\r\n", "  a  ", "\n\r\n\ra\r", "\xC2\x85", "a\n"}) {
        const XmlDocument document(Written(text, text));
        EXPECT_EQ(document.Text("/A/@b"), text);
        EXPECT_EQ(document.Text("/A/C"), text);
    }
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
