#include "service/language/object_xml.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
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

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

std::string Finished(XmlWriter& xml) {
    const Result<std::string_view> text = xml.Finish();
    EXPECT_OK(text);
    return text.ok() ? std::string(*text) : "";
}

std::string DtdOf(XmlForm form) {
    return CimDtd(form == XmlForm::kCim ? DtdForm::kCim : DtdForm::kExtended);
}

// Whatever is written must be well-formed and valid.
std::string Checked(std::string text, XmlForm form) {
    EXPECT_EQ(XmlDocument(text).FaultsAgainst(DtdOf(form)), "") << text.substr(0, 2000);
    return text;
}

std::string XmlOf(const Instance& instance, const ObjectXml& how = {}) {
    XmlWriter xml;
    EXPECT_OK(WriteInstanceXml(instance, how, xml));
    return Checked(Finished(xml), how.form);
}

std::string XmlOf(const ClassPtr& definition, const ObjectXml& how = {}) {
    XmlWriter xml;
    EXPECT_OK(WriteClassXml(definition->Name(), *definition, how, xml));
    return Checked(Finished(xml), how.form);
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

std::string PropertyXml(PropertyType type, Value value, XmlForm form = XmlForm::kWmi) {
    const std::string text = XmlOf(Holding(std::move(type), std::move(value)), Form(form));
    const std::string before = "<INSTANCE CLASSNAME=\"C\">";
    const std::string after = "</INSTANCE>";
    EXPECT_THAT(text, StartsWith(before));
    return text.substr(before.size(), text.size() - before.size() - after.size());
}

PropertyType One(CimType type, std::string class_name = {}) {
    return {type, false, 0, std::move(class_name)};
}

PropertyType Many(CimType type, std::string class_name = {}, uint32_t bound = 0) {
    return {type, true, bound, std::move(class_name)};
}

TEST(ObjectXmlTest, EveryScalarTypeHasItsText) {
    const auto scalar = [](CimType type, Value value) { return PropertyXml(One(type), std::move(value)); };
    const auto expected = [](const std::string& type, const std::string& text) {
        return "<PROPERTY NAME=\"P\" TYPE=\"" + type + "\"><VALUE>" + text + "</VALUE></PROPERTY>";
    };
    EXPECT_EQ(scalar(CimType::kSint8, int64_t{-128}), expected("sint8", "-128"));
    EXPECT_EQ(scalar(CimType::kUint8, uint64_t{255}), expected("uint8", "255"));
    EXPECT_EQ(scalar(CimType::kSint16, int64_t{-32768}), expected("sint16", "-32768"));
    EXPECT_EQ(scalar(CimType::kUint16, uint64_t{65535}), expected("uint16", "65535"));
    EXPECT_EQ(scalar(CimType::kSint32, int64_t{-2147483648LL}), expected("sint32", "-2147483648"));
    EXPECT_EQ(scalar(CimType::kUint32, uint64_t{4294967295U}), expected("uint32", "4294967295"));
    EXPECT_EQ(scalar(CimType::kSint64, std::numeric_limits<int64_t>::min()),
              expected("sint64", "-9223372036854775808"));
    EXPECT_EQ(scalar(CimType::kUint64, std::numeric_limits<uint64_t>::max()),
              expected("uint64", "18446744073709551615"));
    EXPECT_EQ(scalar(CimType::kBoolean, true), expected("boolean", "TRUE"));
    EXPECT_EQ(scalar(CimType::kBoolean, false), expected("boolean", "FALSE"));
    EXPECT_EQ(scalar(CimType::kString, std::string("a<b")), expected("string", "a&lt;b"));
    EXPECT_EQ(scalar(CimType::kDatetime, std::string("20240229235959.000000+060")),
              expected("datetime", "20240229235959.000000+060"));
    EXPECT_EQ(scalar(CimType::kChar16, uint64_t{'A'}), expected("char16", "A"));
    EXPECT_EQ(scalar(CimType::kChar16, uint64_t{0xDF}), expected("char16", "ß"));
    EXPECT_EQ(scalar(CimType::kChar16, uint64_t{'<'}), expected("char16", "&lt;"));
    EXPECT_EQ(scalar(CimType::kChar16, uint64_t{0}), expected("char16", "\xE2\x90\x80"));
    EXPECT_EQ(scalar(CimType::kChar16, uint64_t{0xD800}), expected("char16", "\xEF\xBF\xBD"));
    EXPECT_EQ(scalar(CimType::kChar16, uint64_t{0xFFFF}), expected("char16", "\xEF\xBF\xBD"));
}

TEST(ObjectXmlTest, RealsReadBackAsTheSameValueAndAlwaysHaveAPoint) {
    const auto text = [](CimType type, double real) {
        return XmlDocument(XmlOf(Holding(One(type), real))).Text("/INSTANCE/PROPERTY/VALUE");
    };
    EXPECT_EQ(text(CimType::kReal64, 0.1), "0.1");
    EXPECT_EQ(text(CimType::kReal32, static_cast<double>(0.1F)), "0.1");
    EXPECT_EQ(text(CimType::kReal64, 1), "1.0");
    EXPECT_EQ(text(CimType::kReal64, -0.0), "-0.0");
    EXPECT_EQ(text(CimType::kReal64, 1e300), "1.0e+300");
    EXPECT_EQ(text(CimType::kReal64, std::numeric_limits<double>::infinity()), "INF");
    EXPECT_EQ(text(CimType::kReal32, -std::numeric_limits<double>::infinity()), "-INF");
    EXPECT_EQ(text(CimType::kReal64, std::nan("")), "NaN");

    uint64_t bits = 0x9E3779B97F4A7C15U;
    for (int i = 0; i < 300; ++i) {
        bits = bits * 6364136223846793005U + 1442695040888963407U;
        const auto real = std::bit_cast<double>(bits);
        const auto small = std::bit_cast<float>(static_cast<uint32_t>(bits >> 32));
        if (!std::isfinite(real) || !std::isfinite(small)) continue;
        double read = 0;
        const std::string written = text(CimType::kReal64, real);
        std::from_chars(written.data(), written.data() + written.size(), read);
        EXPECT_EQ(std::bit_cast<uint64_t>(read), bits) << written;
        EXPECT_THAT(written, HasSubstr("."));
        float read_small = 0;
        const std::string short_text = text(CimType::kReal32, static_cast<double>(small));
        std::from_chars(short_text.data(), short_text.data() + short_text.size(), read_small);
        EXPECT_EQ(std::bit_cast<uint32_t>(read_small), static_cast<uint32_t>(bits >> 32)) << short_text;
    }
}

TEST(ObjectXmlTest, NullEmptyAndNeverSetAreThreeThings) {
    const ClassPtr definition = Resolved(Declare(
        "C", {Property("Null", CimType::kString, std::string("default")), Property("Empty", CimType::kString),
              Property("Unset", CimType::kString), Property("Default", CimType::kUint32, uint64_t{7}),
              ArrayProperty("Nothing", CimType::kString), ArrayProperty("Tags", CimType::kString)}));
    Instance instance(definition);
    ASSERT_OK(SetProperty(instance, "Null", {}));
    ASSERT_OK(SetProperty(instance, "Empty", std::string()));
    ASSERT_OK(SetProperty(instance, "Nothing", Array{}));
    ASSERT_OK(SetProperty(instance, "Tags", Array{std::string("a"), {}, std::string()}));

    ObjectXml local;
    local.local_only = true;
    const std::string set_ones =
        "<PROPERTY NAME=\"Null\" TYPE=\"string\"/>"
        "<PROPERTY NAME=\"Empty\" TYPE=\"string\"><VALUE/></PROPERTY>";
    const std::string arrays =
        "<PROPERTY.ARRAY NAME=\"Nothing\" TYPE=\"string\"><VALUE.ARRAY/></PROPERTY.ARRAY>"
        "<PROPERTY.ARRAY NAME=\"Tags\" TYPE=\"string\"><VALUE.ARRAY><VALUE>a</VALUE><VALUE.NULL/><VALUE/>"
        "</VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>";
    EXPECT_EQ(XmlOf(instance, local), "<INSTANCE CLASSNAME=\"C\">" + set_ones + arrays);
    EXPECT_EQ(
        XmlOf(instance),
        "<INSTANCE CLASSNAME=\"C\">" + set_ones +
            "<PROPERTY NAME=\"Unset\" TYPE=\"string\" PROPAGATED=\"true\"/>"
            "<PROPERTY NAME=\"Default\" TYPE=\"uint32\" PROPAGATED=\"true\"><VALUE>7</VALUE></PROPERTY>" +
            arrays);
}

TEST(ObjectXmlTest, ReferencesAreWrittenByTheirParts) {
    const auto reference = [](const std::string& path) {
        const std::string text = PropertyXml(One(CimType::kReference, "Policy"), path);
        const std::string before =
            "<PROPERTY.REFERENCE NAME=\"P\" REFERENCECLASS=\"Policy\"><VALUE.REFERENCE>";
        const std::string after = "</VALUE.REFERENCE></PROPERTY.REFERENCE>";
        EXPECT_THAT(text, StartsWith(before));
        return text.substr(before.size(), text.size() - before.size() - after.size());
    };
    const auto value = [](const std::string& type, const std::string& text) {
        return "<KEYVALUE VALUETYPE=\"" + type + "\">" + text + "</KEYVALUE>";
    };
    const std::string name = "<INSTANCENAME CLASSNAME=\"Policy\">";
    const std::string space =
        "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"A\"/></LOCALNAMESPACEPATH>";

    EXPECT_EQ(reference(R"(Policy.ID="a\"<\\b",N=-5,F=true)"),
              name + "<KEYBINDING NAME=\"ID\">" + value("string", "a&quot;&lt;\\b") +
                  "</KEYBINDING><KEYBINDING NAME=\"N\">" + value("numeric", "-5") +
                  "</KEYBINDING><KEYBINDING NAME=\"F\">" + value("boolean", "TRUE") +
                  "</KEYBINDING></INSTANCENAME>");
    EXPECT_EQ(reference("Policy='a'"), name + value("string", "a") + "</INSTANCENAME>");
    EXPECT_EQ(reference("Policy=18446744073709551615"),
              name + value("numeric", "18446744073709551615") + "</INSTANCENAME>");
    EXPECT_EQ(reference("Policy=@"), "<INSTANCENAME CLASSNAME=\"Policy\"/>");
    EXPECT_EQ(reference("Policy"), "<CLASSNAME NAME=\"Policy\"/>");
    EXPECT_EQ(reference("root/A:Policy"),
              "<LOCALCLASSPATH>" + space + "<CLASSNAME NAME=\"Policy\"/></LOCALCLASSPATH>");
    EXPECT_EQ(reference("root\\A:Policy=\"a\""), "<LOCALINSTANCEPATH>" + space + name + value("string", "a") +
                                                     "</INSTANCENAME></LOCALINSTANCEPATH>");
    EXPECT_EQ(reference("\\\\.\\root\\A:Policy=\"a\""),
              "<INSTANCEPATH><NAMESPACEPATH><HOST>.</HOST>" + space + "</NAMESPACEPATH>" + name +
                  value("string", "a") + "</INSTANCENAME></INSTANCEPATH>");
    EXPECT_EQ(reference("\\\\server\\root\\A:Policy"),
              "<CLASSPATH><NAMESPACEPATH><HOST>server</HOST>" + space +
                  "</NAMESPACEPATH><CLASSNAME NAME=\"Policy\"/></CLASSPATH>");
    for (const std::string text : {"", "no path", "Policy.ID=", "Policy.ID=\"a", "\\\\", "<&>"}) {
        const XmlDocument document(XmlOf(Holding(One(CimType::kReference), text)));
        EXPECT_EQ(document.Text("//INSTANCENAME/@CLASSNAME"), "") << text;
        EXPECT_EQ(document.Text("//INSTANCENAME/KEYVALUE"), text);
    }
}

TEST(ObjectXmlTest, ArraysOfReferencesDifferByTheForm) {
    const PropertyType type = Many(CimType::kReference, "Policy", 4);
    const Array paths{std::string("Policy=@"), {}};
    EXPECT_EQ(PropertyXml(type, paths),
              "<PROPERTY.REFARRAY NAME=\"P\" REFERENCECLASS=\"Policy\" ARRAYSIZE=\"4\"><VALUE.REFARRAY>"
              "<VALUE.REFERENCE><INSTANCENAME CLASSNAME=\"Policy\"/></VALUE.REFERENCE><VALUE.NULL/>"
              "</VALUE.REFARRAY></PROPERTY.REFARRAY>");
    EXPECT_EQ(PropertyXml(type, paths, XmlForm::kCim),
              "<PROPERTY.ARRAY NAME=\"P\" TYPE=\"string\" ARRAYSIZE=\"4\"><VALUE.ARRAY>"
              "<VALUE>Policy=@</VALUE><VALUE.NULL/></VALUE.ARRAY></PROPERTY.ARRAY>");
}

ObjectPtr Leaf(const std::string& text) {
    return std::make_shared<const Instance>(Holding(One(CimType::kString), text));
}

TEST(ObjectXmlTest, EmbeddedObjectsDifferByTheForm) {
    const std::string leaf =
        "<INSTANCE CLASSNAME=\"C\"><PROPERTY NAME=\"P\" TYPE=\"string\"><VALUE>a&amp;b</VALUE></PROPERTY>"
        "</INSTANCE>";
    EXPECT_EQ(PropertyXml(One(CimType::kObject), Leaf("a&b")),
              "<PROPERTY.OBJECT NAME=\"P\"><VALUE.OBJECT>" + leaf + "</VALUE.OBJECT></PROPERTY.OBJECT>");
    EXPECT_EQ(PropertyXml(Many(CimType::kObject), Array{Leaf("a&b"), {}}),
              "<PROPERTY.OBJECTARRAY NAME=\"P\"><VALUE.OBJECTARRAY><VALUE.OBJECT>" + leaf +
                  "</VALUE.OBJECT><VALUE.NULL/></VALUE.OBJECTARRAY></PROPERTY.OBJECTARRAY>");

    const auto in_text = [](PropertyType type, Value value) {
        return XmlDocument(XmlOf(Holding(std::move(type), std::move(value)), Form(XmlForm::kCim)));
    };
    const XmlDocument one = in_text(One(CimType::kObject), Leaf("a&b"));
    EXPECT_EQ(one.Text("/INSTANCE/PROPERTY[@TYPE='string']/VALUE"), leaf);
    EXPECT_EQ(one.Text("/INSTANCE/PROPERTY/@EmbeddedObject"), "object");
    const XmlDocument typed = in_text(One(CimType::kObject, "C"), Leaf("a&b"));
    EXPECT_EQ(typed.Text("/INSTANCE/PROPERTY/@EmbeddedObject"), "instance");
    const XmlDocument many = in_text(Many(CimType::kObject), Array{Leaf("a&b"), {}});
    EXPECT_EQ(many.Text("/INSTANCE/PROPERTY.ARRAY/VALUE.ARRAY/VALUE"), leaf);
    EXPECT_EQ(many.Text("/INSTANCE/PROPERTY.ARRAY/VALUE.ARRAY/VALUE.NULL"), "");
}

Instance Nested(size_t depth, const std::string& text) {
    Instance instance = Holding(One(CimType::kString), text);
    for (size_t i = 0; i < depth; ++i)
        instance = Holding(One(CimType::kObject), ObjectPtr(std::make_shared<const Instance>(instance)));
    return instance;
}

TEST(ObjectXmlTest, EmbeddedObjectsMayBeAsDeepAsTheModelAllows) {
    const std::string text = "a\r\x01<&]]>";
    const std::string read = "a\r\xE2\x90\x81<&]]>";
    const Instance deep = Nested(kMaxEmbeddingDepth, text);
    const XmlDocument extended(XmlOf(deep));
    EXPECT_EQ(extended.Text("//PROPERTY/VALUE"), read);
    EXPECT_EQ(extended.Texts("//VALUE.OBJECT").size(), kMaxEmbeddingDepth);

    std::string inner = XmlOf(deep, Form(XmlForm::kCim));
    for (size_t i = 0; i < kMaxEmbeddingDepth; ++i)
        inner = Checked(XmlDocument(inner).Text("/INSTANCE/PROPERTY/VALUE"), XmlForm::kCim);
    EXPECT_EQ(XmlDocument(inner).Text("/INSTANCE/PROPERTY/VALUE"), read);

    // Only the default of a class can hold deeper ones.
    const Instance deeper(Resolved(
        Declare("D", {Property("P", CimType::kObject, ObjectPtr(std::make_shared<const Instance>(deep)))})));
    for (const XmlForm form : {XmlForm::kWmi, XmlForm::kCim}) {
        XmlWriter xml;
        EXPECT_EQ(WriteInstanceXml(deeper, Form(form), xml).code(), WBEM_E_INVALID_OBJECT);
    }
}

Qualifier Named(std::string name, PropertyType type, Value value, uint32_t flavor) {
    return {std::move(name), std::move(type), std::move(value), flavor};
}

class ClassXmlTest : public testing::Test {
 protected:
    ClassXmlTest() {
        ClassDeclaration declared = Declare(
            "Base",
            {Key("ID"), Property("Days", CimType::kUint32, uint64_t{7}), Property("Old", CimType::kBoolean)});
        declared.qualifiers.push_back(Named("Description", One(CimType::kString), std::string("a<b"),
                                            kFlavorToSubclass | kFlavorAmended));
        base = Resolved(std::move(declared));
        PropertyDeclaration days = Property("Days", CimType::kUint32, uint64_t{9});
        days.qualifiers.push_back(Named("Values", Many(CimType::kString),
                                        Array{std::string("x"), std::string()},
                                        kFlavorToInstance | kFlavorNotOverridable));
        derived = Resolved(
            Declare("Policy", {days, Property("Own", One(CimType::kReference, "Base"))}, "Base"), base);
    }

    ClassPtr base, derived;
};

TEST_F(ClassXmlTest, ShowsDefaultsAndWhatIsInherited) {
    EXPECT_EQ(XmlOf(base),
              "<CLASS NAME=\"Base\"><PROPERTY NAME=\"ID\" TYPE=\"string\"/>"
              "<PROPERTY NAME=\"Days\" TYPE=\"uint32\"><VALUE>7</VALUE></PROPERTY>"
              "<PROPERTY NAME=\"Old\" TYPE=\"boolean\"/></CLASS>");
    EXPECT_EQ(XmlOf(derived),
              "<CLASS NAME=\"Policy\" SUPERCLASS=\"Base\">"
              "<PROPERTY NAME=\"ID\" TYPE=\"string\" PROPAGATED=\"true\"/>"
              "<PROPERTY NAME=\"Days\" TYPE=\"uint32\"><VALUE>9</VALUE></PROPERTY>"
              "<PROPERTY NAME=\"Old\" TYPE=\"boolean\" PROPAGATED=\"true\"/>"
              "<PROPERTY.REFERENCE NAME=\"Own\" REFERENCECLASS=\"Base\"/></CLASS>");
}

TEST_F(ClassXmlTest, ShowsOnlyItsOwnWhenAskedTo) {
    ObjectXml how;
    how.local_only = true;
    how.include_class_origin = true;
    how.include_qualifiers = true;
    EXPECT_EQ(XmlOf(derived, how),
              "<CLASS NAME=\"Policy\" SUPERCLASS=\"Base\">"
              "<PROPERTY NAME=\"Days\" TYPE=\"uint32\" CLASSORIGIN=\"Base\">"
              "<QUALIFIER NAME=\"Values\" TYPE=\"string\" OVERRIDABLE=\"false\" TOSUBCLASS=\"false\" "
              "TOINSTANCE=\"true\"><VALUE.ARRAY><VALUE>x</VALUE><VALUE/></VALUE.ARRAY></QUALIFIER>"
              "<VALUE>9</VALUE></PROPERTY>"
              "<PROPERTY.REFERENCE NAME=\"Own\" REFERENCECLASS=\"Base\" CLASSORIGIN=\"Policy\"/></CLASS>");
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
    ASSERT_OK(SetProperty(instance, "ID", std::string("a")));
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
    ASSERT_OK(SetProperty(instance, "ID", std::string("a\"b")));
    const std::string name =
        "<INSTANCENAME CLASSNAME=\"Base\"><KEYBINDING NAME=\"ID\"><KEYVALUE VALUETYPE=\"string\">a&quot;b"
        "</KEYVALUE></KEYBINDING></INSTANCENAME>";
    const std::string space =
        "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"A\"/></LOCALNAMESPACEPATH>";
    const std::string host = "<NAMESPACEPATH><HOST>here</HOST>" + space + "</NAMESPACEPATH>";
    ObjectXml how;
    how.local_only = true;
    how.namespace_path = "root\\A";
    how.server = "here";
    const std::string object = XmlOf(instance, how);
    const std::string definition = XmlOf(base, how);

    how.path_level = XmlPathLevel::kName;
    EXPECT_EQ(XmlOf(instance, how), "<VALUE.NAMEDOBJECT>" + name + object + "</VALUE.NAMEDOBJECT>");
    EXPECT_EQ(XmlOf(base, how), "<VALUE.NAMEDOBJECT>" + definition + "</VALUE.NAMEDOBJECT>");
    how.path_level = XmlPathLevel::kNamespace;
    EXPECT_EQ(XmlOf(instance, how), "<VALUE.OBJECTWITHLOCALPATH><LOCALINSTANCEPATH>" + space + name +
                                        "</LOCALINSTANCEPATH>" + object + "</VALUE.OBJECTWITHLOCALPATH>");
    EXPECT_EQ(XmlOf(base, how), "<VALUE.OBJECTWITHLOCALPATH><LOCALCLASSPATH>" + space +
                                    "<CLASSNAME NAME=\"Base\"/></LOCALCLASSPATH>" + definition +
                                    "</VALUE.OBJECTWITHLOCALPATH>");
    how.path_level = XmlPathLevel::kServer;
    EXPECT_EQ(XmlOf(instance, how), "<VALUE.OBJECTWITHPATH><INSTANCEPATH>" + host + name + "</INSTANCEPATH>" +
                                        object + "</VALUE.OBJECTWITHPATH>");
    EXPECT_EQ(XmlOf(base, how), "<VALUE.OBJECTWITHPATH><CLASSPATH>" + host +
                                    "<CLASSNAME NAME=\"Base\"/></CLASSPATH>" + definition +
                                    "</VALUE.OBJECTWITHPATH>");
}

TEST(ObjectXmlTest, KeysThatAreReferencesAreWrittenAsSuch) {
    PropertyDeclaration target = Key("Target", CimType::kReference);
    Instance link(Resolved(Declare("Link", {target, Key("Since", CimType::kChar16)})));
    ASSERT_OK(SetProperty(link, "Target", std::string("Policy.ID=\"a\"")));
    ASSERT_OK(SetProperty(link, "Since", uint64_t{65}));
    ObjectXml how;
    how.path_level = XmlPathLevel::kName;
    const XmlDocument document(XmlOf(link, how));
    EXPECT_EQ(document.Text("/VALUE.NAMEDOBJECT/INSTANCENAME/KEYBINDING[@NAME='Target']/VALUE.REFERENCE/"
                            "INSTANCENAME[@CLASSNAME='Policy']/KEYBINDING/KEYVALUE"),
              "a");
}

TEST(ObjectXmlTest, AnObjectWithoutAPathHasNoneToShow) {
    const auto fault = [](const Instance& instance, const ObjectXml& how) {
        XmlWriter xml;
        const Status status = WriteInstanceXml(instance, how, xml);
        EXPECT_EQ(status.code(), WBEM_E_INVALID_OBJECT);
        return status.reason();
    };
    ObjectXml how;
    how.path_level = XmlPathLevel::kName;
    EXPECT_THAT(fault(Instance(Resolved(Declare("Keyless", {Property("P", CimType::kString)}))), how),
                HasSubstr("Keyless"));
    Instance keyed(Resolved(Declare("Keyed", {Key("ID")})));
    EXPECT_THAT(fault(keyed, how), HasSubstr("ID"));
    ASSERT_OK(SetProperty(keyed, "ID", std::string("a")));
    how.path_level = XmlPathLevel::kServer;
    EXPECT_THAT(fault(keyed, how), HasSubstr("namespace"));
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

// Names hold at most kMaxNameBytes bytes, so all characters that a name may have need many names.
TEST(ObjectXmlTest, EveryCharacterOfANameComesBack) {
    ObjectXml how;
    how.include_qualifiers = true;
    how.path_level = XmlPathLevel::kName;
    size_t seen = 0;
    for (char32_t first = 0x80; first <= 0x10FFFF; first += 60) {
        const Characters some(first, std::min<char32_t>(first + 59, 0x10FFFF));
        if (some.written.empty()) continue;
        PropertyDeclaration key = Key(some.written);
        key.qualifiers.push_back(Flag(some.written));
        Instance instance(Resolved(Declare(some.written, {key})));
        ASSERT_OK(SetProperty(instance, some.written, some.written));
        XmlWriter xml;
        ASSERT_OK(WriteInstanceXml(instance, how, xml));
        const XmlDocument document(*xml.Finish());
        ASSERT_EQ(document.fault(), "");
        ASSERT_THAT(document.Texts("//@CLASSNAME"), ElementsAre(some.read, some.read));
        ASSERT_THAT(document.Texts("//@NAME[. != 'Key']"), ElementsAre(some.read, some.read, some.read));
        ++seen;
    }
    EXPECT_GT(seen, 18'000U);
}

TEST(ObjectXmlTest, EveryCharacterOfAValueComesBackOrIsReplacedByTheRule) {
    const Characters all(0, 0x10FFFF);
    ClassDeclaration declared =
        Declare("C", {Key("ID"), ArrayProperty("Tags", CimType::kString), Property("R", CimType::kReference),
                      Property("Bad", CimType::kReference), Property("O", CimType::kObject)});
    declared.qualifiers.push_back(Named("Text", One(CimType::kString), all.written, kFlavorToSubclass));
    Instance instance(Resolved(std::move(declared)));
    ASSERT_OK(SetProperty(instance, "ID", std::string("a")));
    ASSERT_OK(SetProperty(instance, "Tags", Array{all.written, std::string("x")}));
    ASSERT_OK(SetProperty(instance, "R", "C.ID=" + QuoteForPath(all.written)));
    ASSERT_OK(SetProperty(instance, "Bad", all.written));
    ASSERT_OK(SetProperty(instance, "O", Leaf(all.written)));
    for (const XmlForm form : {XmlForm::kWmi, XmlForm::kCim}) {
        ObjectXml how = Form(form);
        how.include_qualifiers = true;
        const XmlDocument document(XmlOf(instance, how));
        EXPECT_TRUE(document.Text("/INSTANCE/QUALIFIER/VALUE") == all.read);
        EXPECT_TRUE(document.Texts("//VALUE.ARRAY/VALUE").front() == all.read);
        EXPECT_TRUE(document.Text("//KEYBINDING/KEYVALUE") == all.read);
        EXPECT_TRUE(document.Text("//INSTANCENAME[@CLASSNAME='']/KEYVALUE") == all.read);
        if (form == XmlForm::kWmi) {
            EXPECT_TRUE(document.Text("//VALUE.OBJECT//VALUE") == all.read);
        } else {
            const XmlDocument embedded(document.Text("/INSTANCE/PROPERTY[@NAME='O']/VALUE"));
            EXPECT_TRUE(embedded.Text("//VALUE") == all.read);
        }
    }
}

}  // namespace
}  // namespace service
