#include "service/language/object_xml.h"

#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/model/limits.h"
#include "service/model/object_path.h"
#include "tests/service/cim_dtd.h"
#include "tests/service/model/model_builders.h"
#include "tests/service/xml_document.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using testing::StartsWith;

// Whatever is written must be well-formed and valid.
std::string Checked(const Status& fault, XmlWriter& xml, XmlForm form) {
    EXPECT_OK(fault);
    const Result<std::string_view> text = xml.Finish();
    EXPECT_OK(text);
    if (!text.ok()) return {};
    const std::string dtd = CimDtd(form == XmlForm::kCim ? DtdForm::kCim : DtdForm::kExtended);
    EXPECT_EQ(XmlDocument(*text).FaultsAgainst(dtd), "") << text->substr(0, 2000);
    return std::string(*text);
}

std::string XmlOf(const Instance& instance, const ObjectXml& how = {}) {
    XmlWriter xml;
    return Checked(WriteInstanceXml(instance, how, xml), xml, how.form);
}

std::string XmlOf(const ClassPtr& definition, const ObjectXml& how = {}) {
    XmlWriter xml;
    return Checked(WriteClassXml(definition->Name(), *definition, how, xml), xml, how.form);
}

ObjectXml Form(XmlForm form) {
    ObjectXml how;
    how.form = form;
    return how;
}

// An instance of a class with the one property P, set to `value`.
Instance Holding(PropertyType type, Value value) {
    Instance instance(Resolved(Declare("C", {Property("P", std::move(type))})));
    EXPECT_OK(SetProperty(instance, "P", std::move(value)));
    return instance;
}

// What lies between the instance's tags.
std::string PropertyXml(PropertyType type, Value value, XmlForm form = XmlForm::kWmi) {
    const std::string text = XmlOf(Holding(std::move(type), std::move(value)), Form(form));
    const size_t start = text.find('>') + 1;
    return text.substr(start, text.rfind('<') - start);
}

TEST(ObjectXmlTest, EveryScalarTypeHasItsText) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const std::vector<std::tuple<CimType, Value, std::string>> cases{
        {CimType::kSint8, int64_t{-128}, "-128"},
        {CimType::kUint16, uint64_t{65535}, "65535"},
        {CimType::kSint64, std::numeric_limits<int64_t>::min(), "-9223372036854775808"},
        {CimType::kUint64, std::numeric_limits<uint64_t>::max(), "18446744073709551615"},
        {CimType::kBoolean, true, "TRUE"},
        {CimType::kBoolean, false, "FALSE"},
        {CimType::kString, "a<b"s, "a&lt;b"},
        {CimType::kDatetime, "20240229235959.000000+060"s, "20240229235959.000000+060"},
        {CimType::kChar16, uint64_t{0xDF}, "ß"},
        {CimType::kChar16, uint64_t{'<'}, "&lt;"},
        {CimType::kChar16, uint64_t{0}, "\xE2\x90\x80"},
        {CimType::kChar16, uint64_t{0xD800}, "\xEF\xBF\xBD"},
        {CimType::kChar16, uint64_t{0xFFFF}, "\xEF\xBF\xBD"},
        {CimType::kReal64, 0.1, "0.1"},
        {CimType::kReal32, double{0.1F}, "0.1"},
        {CimType::kReal64, 1.0, "1.0"},
        {CimType::kReal64, -0.0, "-0.0"},
        {CimType::kReal64, 1e300, "1.0e+300"},
        {CimType::kReal64, std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
        {CimType::kReal32, double{std::numeric_limits<float>::max()}, "3.4028235e+38"},
        {CimType::kReal64, kInfinity, "INF"},
        {CimType::kReal32, -kInfinity, "-INF"},
        {CimType::kReal64, std::nan(""), "NaN"},
    };
    for (const auto& [type, value, text] : cases) {
        EXPECT_EQ(PropertyXml(One(type), value), "<PROPERTY NAME=\"P\" TYPE=\"" +
                                                     std::string(CimTypeName(type)) + "\"><VALUE>" + text +
                                                     "</VALUE></PROPERTY>");
    }
}

TEST(ObjectXmlTest, NullEmptyAndNeverSetAreThreeThings) {
    Instance instance(Resolved(
        Declare("C", {Property("Null", CimType::kString, "default"s), Property("Empty", CimType::kString),
                      ArrayProperty("Nothing", CimType::kString), ArrayProperty("Tags", CimType::kString),
                      Property("Default", CimType::kUint32, uint64_t{7})})));
    ASSERT_OK(SetProperty(instance, "Null", {}));
    ASSERT_OK(SetProperty(instance, "Empty", ""s));
    ASSERT_OK(SetProperty(instance, "Nothing", Array{}));
    ASSERT_OK(SetProperty(instance, "Tags", Array{"a"s, {}, ""s}));
    EXPECT_EQ(
        XmlOf(instance),
        "<INSTANCE CLASSNAME=\"C\"><PROPERTY NAME=\"Null\" TYPE=\"string\"/>"
        "<PROPERTY NAME=\"Empty\" TYPE=\"string\"><VALUE/></PROPERTY>"
        "<PROPERTY.ARRAY NAME=\"Nothing\" TYPE=\"string\"><VALUE.ARRAY/></PROPERTY.ARRAY>"
        "<PROPERTY.ARRAY NAME=\"Tags\" TYPE=\"string\"><VALUE.ARRAY><VALUE>a</VALUE><VALUE.NULL/><VALUE/>"
        "</VALUE.ARRAY></PROPERTY.ARRAY>"
        "<PROPERTY NAME=\"Default\" TYPE=\"uint32\" PROPAGATED=\"true\"><VALUE>7</VALUE></PROPERTY>"
        "</INSTANCE>");
}

TEST(ObjectXmlTest, ReferencesAreWrittenByTheirParts) {
    const std::string name = "<INSTANCENAME CLASSNAME=\"Policy\">";
    const std::string space =
        "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"A\"/></LOCALNAMESPACEPATH>";
    const auto value = [](const std::string& type, const std::string& text) {
        return "<KEYVALUE VALUETYPE=\"" + type + "\">" + text + "</KEYVALUE>";
    };
    const std::string named = name + value("string", "a") + "</INSTANCENAME>";
    const std::vector<std::pair<std::string, std::string>> cases{
        {R"(Policy.ID="a\"<\\b",N=-5,F=true)",
         name + "<KEYBINDING NAME=\"ID\">" + value("string", "a&quot;&lt;\\b") +
             "</KEYBINDING><KEYBINDING NAME=\"N\">" + value("numeric", "-5") +
             "</KEYBINDING><KEYBINDING NAME=\"F\">" + value("boolean", "TRUE") +
             "</KEYBINDING></INSTANCENAME>"},
        {"Policy='a'", named},
        {"Policy=18446744073709551615", name + value("numeric", "18446744073709551615") + "</INSTANCENAME>"},
        {"Policy=@", "<INSTANCENAME CLASSNAME=\"Policy\"/>"},
        {"Policy", "<CLASSNAME NAME=\"Policy\"/>"},
        {"root/A:Policy", "<LOCALCLASSPATH>" + space + "<CLASSNAME NAME=\"Policy\"/></LOCALCLASSPATH>"},
        {"root\\A:Policy=\"a\"", "<LOCALINSTANCEPATH>" + space + named + "</LOCALINSTANCEPATH>"},
        {"\\\\.\\root\\A:Policy=\"a\"", "<INSTANCEPATH><NAMESPACEPATH><HOST>.</HOST>" + space +
                                            "</NAMESPACEPATH>" + named + "</INSTANCEPATH>"},
        {"\\\\server\\root\\A:Policy", "<CLASSPATH><NAMESPACEPATH><HOST>server</HOST>" + space +
                                           "</NAMESPACEPATH><CLASSNAME NAME=\"Policy\"/></CLASSPATH>"},
    };
    for (const auto& [path, text] : cases) {
        EXPECT_EQ(PropertyXml(One(CimType::kReference, "Policy"), path),
                  "<PROPERTY.REFERENCE NAME=\"P\" REFERENCECLASS=\"Policy\"><VALUE.REFERENCE>" + text +
                      "</VALUE.REFERENCE></PROPERTY.REFERENCE>");
    }
    for (const std::string text : {"", "no path", "Policy.ID=", "Policy.ID=\"a", "<&>"}) {
        const XmlDocument document(XmlOf(Holding(One(CimType::kReference), text)));
        EXPECT_EQ(document.Text("//INSTANCENAME/@CLASSNAME"), "") << text;
        EXPECT_EQ(document.Text("//INSTANCENAME/KEYVALUE"), text);
    }
}

TEST(ObjectXmlTest, ArraysOfReferencesDifferByTheForm) {
    const PropertyType type = Many(CimType::kReference, 4, "Policy");
    const Array paths{"Policy=@"s, {}};
    EXPECT_EQ(PropertyXml(type, paths),
              "<PROPERTY.REFARRAY NAME=\"P\" REFERENCECLASS=\"Policy\" ARRAYSIZE=\"4\"><VALUE.REFARRAY>"
              "<VALUE.REFERENCE><INSTANCENAME CLASSNAME=\"Policy\"/></VALUE.REFERENCE><VALUE.NULL/>"
              "</VALUE.REFARRAY></PROPERTY.REFARRAY>");
    EXPECT_EQ(PropertyXml(type, paths, XmlForm::kCim),
              "<PROPERTY.ARRAY NAME=\"P\" TYPE=\"string\" ARRAYSIZE=\"4\"><VALUE.ARRAY>"
              "<VALUE>Policy=@</VALUE><VALUE.NULL/></VALUE.ARRAY></PROPERTY.ARRAY>");
}

TEST(ObjectXmlTest, EmbeddedObjectsDifferByTheForm) {
    const ObjectPtr object = std::make_shared<const Instance>(Holding(One(CimType::kString), "a&b"s));
    const std::string leaf =
        "<INSTANCE CLASSNAME=\"C\"><PROPERTY NAME=\"P\" TYPE=\"string\"><VALUE>a&amp;b</VALUE></PROPERTY>"
        "</INSTANCE>";
    EXPECT_EQ(PropertyXml(One(CimType::kObject), object),
              "<PROPERTY.OBJECT NAME=\"P\"><VALUE.OBJECT>" + leaf + "</VALUE.OBJECT></PROPERTY.OBJECT>");
    EXPECT_EQ(PropertyXml(Many(CimType::kObject), Array{object, {}}),
              "<PROPERTY.OBJECTARRAY NAME=\"P\"><VALUE.OBJECTARRAY><VALUE.OBJECT>" + leaf +
                  "</VALUE.OBJECT><VALUE.NULL/></VALUE.OBJECTARRAY></PROPERTY.OBJECTARRAY>");

    const XmlDocument one(PropertyXml(One(CimType::kObject), object, XmlForm::kCim));
    EXPECT_EQ(one.Text("/PROPERTY[@TYPE='string'][@EmbeddedObject='object']/VALUE"), leaf);
    const XmlDocument many(PropertyXml(Many(CimType::kObject, 0, "C"), Array{object, {}}, XmlForm::kCim));
    EXPECT_EQ(many.Text("/PROPERTY.ARRAY[@EmbeddedObject='instance']/VALUE.ARRAY/VALUE"), leaf);
    EXPECT_EQ(many.Text("//VALUE.ARRAY/VALUE.NULL"), "");
}

Instance Nested(size_t depth, const std::string& text) {
    Instance instance = Holding(One(CimType::kString), text);
    for (size_t i = 0; i < depth; ++i)
        instance = Holding(One(CimType::kObject), ObjectPtr(std::make_shared<const Instance>(instance)));
    return instance;
}

TEST(ObjectXmlTest, EmbeddedObjectsMayBeAsDeepAsTheModelAllows) {
    const Instance deep = Nested(kMaxEmbeddingDepth, "a\r\x01<&]]>");
    const std::string read = "a\r\xE2\x90\x81<&]]>";
    const XmlDocument extended(XmlOf(deep));
    EXPECT_EQ(extended.Text("//PROPERTY/VALUE"), read);
    EXPECT_EQ(extended.Texts("//VALUE.OBJECT").size(), kMaxEmbeddingDepth);
    std::string inner = XmlOf(deep, Form(XmlForm::kCim));
    for (size_t i = 0; i < kMaxEmbeddingDepth; ++i)
        inner = XmlDocument(inner).Text("/INSTANCE/PROPERTY/VALUE");
    EXPECT_EQ(XmlDocument(inner).Text("/INSTANCE/PROPERTY/VALUE"), read);

    // Only the default of a class can hold deeper ones.
    const Instance deeper(Resolved(
        Declare("D", {Property("P", CimType::kObject, ObjectPtr(std::make_shared<const Instance>(deep)))})));
    for (const XmlForm form : {XmlForm::kWmi, XmlForm::kCim}) {
        XmlWriter xml;
        EXPECT_EQ(WriteInstanceXml(deeper, Form(form), xml).code(), WBEM_E_INVALID_OBJECT);
    }
}

class ClassXmlTest : public testing::Test {
 protected:
    ClassXmlTest() {
        ClassDeclaration declared = Declare(
            "Base",
            {Key("ID"), Property("Days", CimType::kUint32, uint64_t{7}), Property("Old", CimType::kBoolean)});
        declared.qualifiers.push_back(
            {"Description", One(CimType::kString), "a<b"s, kFlavorToSubclass | kFlavorAmended});
        base = Resolved(std::move(declared));
        PropertyDeclaration days = Property("Days", CimType::kUint32, uint64_t{9});
        days.qualifiers.push_back(
            {"Values", Many(CimType::kString), Array{"x"s, ""s}, kFlavorToInstance | kFlavorNotOverridable});
        derived = Resolved(
            Declare("Policy", {days, Property("Größe", One(CimType::kReference, "Base"))}, "Base"), base);
    }

    ClassPtr base, derived;
};

TEST_F(ClassXmlTest, ShowsDefaultsAndWhatIsInherited) {
    EXPECT_EQ(XmlOf(derived),
              "<CLASS NAME=\"Policy\" SUPERCLASS=\"Base\">"
              "<PROPERTY NAME=\"ID\" TYPE=\"string\" PROPAGATED=\"true\"/>"
              "<PROPERTY NAME=\"Days\" TYPE=\"uint32\"><VALUE>9</VALUE></PROPERTY>"
              "<PROPERTY NAME=\"Old\" TYPE=\"boolean\" PROPAGATED=\"true\"/>"
              "<PROPERTY.REFERENCE NAME=\"Gr&#xF6;&#xDF;e\" REFERENCECLASS=\"Base\"/></CLASS>");
    ObjectXml how;
    how.local_only = true;
    how.include_class_origin = true;
    how.include_qualifiers = true;
    EXPECT_EQ(
        XmlOf(derived, how),
        "<CLASS NAME=\"Policy\" SUPERCLASS=\"Base\">"
        "<PROPERTY NAME=\"Days\" TYPE=\"uint32\" CLASSORIGIN=\"Base\">"
        "<QUALIFIER NAME=\"Values\" TYPE=\"string\" OVERRIDABLE=\"false\" TOSUBCLASS=\"false\" "
        "TOINSTANCE=\"true\"><VALUE.ARRAY><VALUE>x</VALUE><VALUE/></VALUE.ARRAY></QUALIFIER>"
        "<VALUE>9</VALUE></PROPERTY><PROPERTY.REFERENCE NAME=\"Gr&#xF6;&#xDF;e\" REFERENCECLASS=\"Base\" "
        "CLASSORIGIN=\"Policy\"/></CLASS>");
}

TEST_F(ClassXmlTest, ShowsQualifiersWithTheirFlavors) {
    ObjectXml how;
    how.include_qualifiers = true;
    const std::string description =
        "<QUALIFIER NAME=\"Description\" TYPE=\"string\" PROPAGATED=\"true\" TRANSLATABLE=\"true\">"
        "<VALUE>a&lt;b</VALUE></QUALIFIER>";
    const std::string key =
        "<QUALIFIER NAME=\"Key\" TYPE=\"boolean\" PROPAGATED=\"true\"><VALUE>TRUE</VALUE></QUALIFIER>";
    EXPECT_THAT(XmlOf(derived, how), StartsWith("<CLASS NAME=\"Policy\" SUPERCLASS=\"Base\">" + description +
                                                "<PROPERTY NAME=\"ID\" TYPE=\"string\" PROPAGATED=\"true\">" +
                                                key + "</PROPERTY>"));
    Instance instance(derived);
    ASSERT_OK(SetProperty(instance, "ID", "a"s));
    EXPECT_THAT(XmlOf(instance, how),
                StartsWith("<INSTANCE CLASSNAME=\"Policy\">" + description +
                           "<PROPERTY NAME=\"ID\" TYPE=\"string\">" + key + "<VALUE>a</VALUE></PROPERTY>"));
    how.local_only = true;
    EXPECT_EQ(
        XmlOf(instance, how),
        "<INSTANCE CLASSNAME=\"Policy\"><PROPERTY NAME=\"ID\" TYPE=\"string\"><VALUE>a</VALUE></PROPERTY>"
        "</INSTANCE>");
}

TEST_F(ClassXmlTest, ThePathLevelPutsThePathInFront) {
    Instance instance(base);
    ASSERT_OK(SetProperty(instance, "ID", "a"s));
    ObjectXml how;
    how.namespace_path = "root\\A";
    how.server = "here";
    const std::string object = XmlOf(instance, how);
    const std::string definition = XmlOf(base, how);
    // Before the object stands what a reference with that much of a path is written as.
    const auto path = [](const std::string& text) {
        const std::string xml = PropertyXml(One(CimType::kReference), text);
        const size_t start = xml.find("<VALUE.REFERENCE>") + std::string("<VALUE.REFERENCE>").size();
        return xml.substr(start, xml.find("</VALUE.REFERENCE>") - start);
    };
    const std::vector<std::tuple<XmlPathLevel, std::string, std::string, std::string>> cases{
        {XmlPathLevel::kName, "VALUE.NAMEDOBJECT", path("Base.ID=\"a\""), ""},
        {XmlPathLevel::kNamespace, "VALUE.OBJECTWITHLOCALPATH", path("root\\A:Base.ID=\"a\""),
         path("root\\A:Base")},
        {XmlPathLevel::kServer, "VALUE.OBJECTWITHPATH", path("\\\\here\\root\\A:Base.ID=\"a\""),
         path("\\\\here\\root\\A:Base")},
    };
    for (const auto& [level, element, before_instance, before_class] : cases) {
        how.path_level = level;
        EXPECT_EQ(XmlOf(instance, how),
                  "<" + element + ">" + before_instance + object + "</" + element + ">");
        EXPECT_EQ(XmlOf(base, how), "<" + element + ">" + before_class + definition + "</" + element + ">");
    }
}

TEST(ObjectXmlTest, AnObjectWithoutAPathHasNoneToShow) {
    const auto fault = [](const Instance& instance, XmlPathLevel level) {
        ObjectXml how;
        how.path_level = level;
        XmlWriter xml;
        const Status status = WriteInstanceXml(instance, how, xml);
        EXPECT_EQ(status.code(), WBEM_E_INVALID_OBJECT);
        return status.reason();
    };
    EXPECT_THAT(fault(Holding(One(CimType::kString), "a"s), XmlPathLevel::kName), HasSubstr("class C"));
    Instance keyed(Resolved(Declare("Keyed", {Key("ID")})));
    EXPECT_THAT(fault(keyed, XmlPathLevel::kName), HasSubstr("ID"));
    ASSERT_OK(SetProperty(keyed, "ID", "a"s));
    EXPECT_THAT(fault(keyed, XmlPathLevel::kServer), HasSubstr("namespace"));
}

TEST(ObjectXmlTest, StopsWhereTheTextBecomesTooLong) {
    const Instance numbers = Holding(Many(CimType::kUint8), Array(100'000, Scalar(uint64_t{1})));
    const Instance texts = Nested(3, std::string(3'000, '<'));
    for (const XmlForm form : {XmlForm::kWmi, XmlForm::kCim}) {
        for (const Instance* instance : {&numbers, &texts}) {
            XmlWriter xml(5'000);
            const Status status = WriteInstanceXml(*instance, Form(form), xml);
            EXPECT_EQ(status.ok() ? xml.Finish().code() : status.code(), WBEM_E_TOO_MUCH_DATA);
        }
    }
}

TEST(ObjectXmlTest, EveryCharacterComesBackWhereverItStands) {
    const Characters all(0, 0x10FFFF);
    PropertyDeclaration link = Key("Link", CimType::kReference);
    link.qualifiers.push_back({"Text", One(CimType::kString), all.written});
    Instance instance(
        Resolved(Declare("C", {link, Key("Sign", CimType::kChar16), ArrayProperty("Tags", CimType::kString),
                               Property("Bad", CimType::kReference)})));
    ASSERT_OK(SetProperty(instance, "Link", "C.ID=" + QuoteForPath("a")));
    ASSERT_OK(SetProperty(instance, "Sign", uint64_t{65}));
    ASSERT_OK(SetProperty(instance, "Tags", Array{all.written}));
    ASSERT_OK(SetProperty(instance, "Bad", all.written));
    ObjectXml how;
    how.include_qualifiers = true;
    how.path_level = XmlPathLevel::kName;
    const XmlDocument document(XmlOf(instance, how));
    EXPECT_TRUE(document.Text("//QUALIFIER[@NAME='Text']/VALUE") == all.read);
    EXPECT_TRUE(document.Text("//VALUE.ARRAY/VALUE") == all.read);
    EXPECT_TRUE(document.Text("//INSTANCENAME[@CLASSNAME='']/KEYVALUE") == all.read);
    EXPECT_EQ(document.Text("/VALUE.NAMEDOBJECT/INSTANCENAME/KEYBINDING[@NAME='Link']/VALUE.REFERENCE/"
                            "INSTANCENAME[@CLASSNAME='C']/KEYBINDING/KEYVALUE"),
              "a");
}

}  // namespace
}  // namespace service
