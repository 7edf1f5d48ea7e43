#include "service/model/class_definition.h"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/model/limits.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

const PropertyDefinition& At(const ClassPtr& definition, std::string_view name) {
    return definition->Properties().at(definition->FindProperty(name).value());
}

ClassPtr Top() {
    return Resolved(Declare("Top", {Key("ID"), Property("Size", CimType::kUint32, uint64_t{5})}));
}

TEST(ClassDefinition, PropertiesAreInheritedInOrder) {
    const ClassPtr top = Top();
    const ClassPtr middle = Resolved(Declare("Middle", {Property("Own", CimType::kString)}, "Top"), top);
    const ClassPtr bottom = Resolved(
        Declare("Bottom", {Property("last", CimType::kString), Property("SIZE", CimType::kUint32)}, "Middle"),
        middle);

    std::vector<std::string> names;
    for (const PropertyDefinition& property : bottom->Properties())
        names.push_back(property.name);
    EXPECT_THAT(names, ElementsAre("ID", "Size", "Own", "last"));
    EXPECT_TRUE(At(bottom, "id").is_key);
    EXPECT_EQ(At(bottom, "Size").origin, "Top");
    EXPECT_TRUE(At(bottom, "Size").is_local);  // declared again
    EXPECT_FALSE(At(bottom, "Own").is_local);
    // Declared again without a default it keeps the inherited one, and it stays the same property.
    EXPECT_EQ(At(bottom, "Size").default_value, Value(uint64_t{5}));
    EXPECT_EQ(At(bottom, "Size").id, At(top, "Size").id);

    EXPECT_TRUE(bottom->IsA("TOP"));
    EXPECT_TRUE(bottom->IsA("Bottom"));
    EXPECT_FALSE(top->IsA("Bottom"));
    EXPECT_THAT(bottom->Derivation(), ElementsAre("Middle", "Top"));
    EXPECT_EQ(bottom->DynastyName(), "Top");
    EXPECT_EQ(top->DynastyName(), "Top");
    EXPECT_EQ(bottom->FindProperty(std::wstring_view(L"OWN")), bottom->FindProperty(std::string_view("own")));
    EXPECT_FALSE(bottom->FindProperty(std::wstring_view(L"\xD800")));
}

TEST(ClassDefinition, RedeclaredPropertiesMustFit) {
    const ClassPtr top = Top();
    const auto declare = [&](PropertyDeclaration property) {
        return Resolve(Declare("Sub", {std::move(property)}, "Top"), top);
    };
    EXPECT_EQ(declare(Property("size", CimType::kUint64)).code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(declare(ArrayProperty("Size", CimType::kUint32)).code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(declare(Key("Size", CimType::kUint32)).code(), WBEM_E_INVALID_OBJECT);
    EXPECT_EQ(declare(Key("Other")).code(), WBEM_E_INVALID_OBJECT);
    EXPECT_EQ(At(*declare(Property("Size", CimType::kUint32, uint64_t{9})), "Size").default_value,
              Value(uint64_t{9}));
    EXPECT_EQ(At(top, "Size").default_value, Value(uint64_t{5}));
    EXPECT_TRUE(At(*declare(Property("ID", CimType::kString)), "ID").is_key);
    const ClassPtr keyless = Resolved(Declare("Keyless", {Property("Name", CimType::kString)}));
    EXPECT_EQ(Resolved(Declare("Keyed", {Key("Name")}, "Keyless"), keyless)->Keys().size(), 1U);
}

TEST(ClassDefinition, QualifiersTravelAsTheirFlavorSays) {
    const auto with = [](const char* name, uint32_t flavor) {
        return Qualifier{name, One(CimType::kBoolean), true, flavor};
    };
    const Qualifier stays = with("Stays", kFlavorToInstance);
    const Qualifier travels = with("Travels", kFlavorToInstance | kFlavorToSubclass);
    const Qualifier fixed = with("Fixed", kFlavorToSubclass | kFlavorNotOverridable);
    ClassDeclaration declaration =
        Declare("Top", {Property("P", CimType::kString), Property("R", CimType::kString)});
    declaration.qualifiers = {stays, travels, Flag("Abstract")};
    declaration.properties[0].qualifiers = {stays, travels, fixed, Flag("Not_Null")};
    declaration.properties[1].qualifiers = {with("Required", 0)};
    const ClassPtr top = Resolved(declaration);
    EXPECT_TRUE(top->IsAbstract());
    EXPECT_TRUE(At(top, "R").is_not_null);

    ClassDeclaration redeclared = Declare("Sub", {Property("P", CimType::kString)}, "Top");
    redeclared.properties[0].qualifiers = {Flag("FIXED")};
    const ClassPtr sub = Resolved(redeclared, top);
    EXPECT_FALSE(FindQualifier(sub->Qualifiers(), "stays"));
    EXPECT_TRUE(FindQualifier(sub->Qualifiers(), "TRAVELS"));
    EXPECT_FALSE(FindQualifier(At(sub, "P").qualifiers, "stays"));
    EXPECT_TRUE(At(sub, "P").is_not_null);
    EXPECT_FALSE(At(sub, "R").is_not_null);
    EXPECT_FALSE(sub->IsAbstract()) << "a class is abstract only when it says so itself";

    redeclared.properties[0].qualifiers[0].value = false;
    const auto fault = Resolve(redeclared, top).status();
    EXPECT_EQ(fault.code(), WBEM_E_OVERRIDE_NOT_ALLOWED);
    EXPECT_THAT(fault.reason(), AllOf(HasSubstr("FIXED of property Sub.P"), HasSubstr("class Top")));
}

TEST(ClassDefinition, UnsoundDeclarationsAreRefused) {
    const auto code = [](ClassDeclaration declaration) { return Resolve(std::move(declaration)).code(); };
    const auto with = [](PropertyDeclaration property) { return Declare("C", {std::move(property)}); };

    for (const std::string& name :
         {""s, "1C"s, "C D"s, "C\0"s, "C\xC3"s, std::string(kMaxNameBytes + 1, 'c')})
        EXPECT_EQ(code(Declare(name, {})), WBEM_E_INVALID_PARAMETER) << name;
    EXPECT_EQ(code(Declare(std::string(kMaxNameBytes, 'c'), {})), 0);
    EXPECT_EQ(code(Declare("Größe_1", {})), 0);
    EXPECT_EQ(code(with(Property("__P", CimType::kString))), WBEM_E_INVALID_PARAMETER);
    EXPECT_EQ(code(with(Property("P_", CimType::kString))), WBEM_E_INVALID_PARAMETER);
    EXPECT_EQ(code(with(Property("P", CimType::kUint8, uint64_t{256}))), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(code(with(Property("P", CimType::kDatetime, "never"s))), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(code(with(Key("K", CimType::kReal64))), WBEM_E_INVALID_PROPERTY_TYPE);
    EXPECT_EQ(code(with(Key("K", CimType::kObject))), WBEM_E_INVALID_PROPERTY_TYPE);
    PropertyDeclaration keys = Key("K");
    keys.type.is_array = true;
    EXPECT_EQ(code(with(keys)), WBEM_E_INVALID_PROPERTY_TYPE);
    EXPECT_EQ(code(Declare("C", {Property("p", CimType::kString), Property("P", CimType::kString)})),
              WBEM_E_INVALID_OBJECT);

    PropertyDeclaration odd = Property("P", CimType::kString);
    odd.qualifiers = {Flag("q"), Flag("Q")};
    EXPECT_EQ(code(with(odd)), WBEM_E_INVALID_OBJECT);
    odd.qualifiers = {{"key", One(CimType::kString), "yes"s}};
    EXPECT_EQ(code(with(odd)), WBEM_E_INVALID_OBJECT);
    odd.qualifiers = {{"max", One(CimType::kBoolean), "not a boolean"s}};
    EXPECT_EQ(code(with(odd)), WBEM_E_TYPE_MISMATCH);

    EXPECT_THAT(Resolve(with(Property("P", CimType::kUint8, uint64_t{300}))).status().reason(),
                AllOf(HasSubstr("C.P"), HasSubstr("300"), HasSubstr("uint8")));
    ClassDeclaration singleton = with(Key("K"));
    singleton.qualifiers.push_back(Flag("Singleton"));
    EXPECT_EQ(code(singleton), WBEM_E_INVALID_OBJECT);
}

TEST(ClassDefinition, LimitsHold) {
    std::vector<PropertyDeclaration> many;
    for (size_t i = 0; i < kMaxProperties; ++i)
        many.push_back(Property("P" + std::to_string(i), CimType::kUint8));
    const ClassPtr full = Resolved(Declare("Full", many));
    ASSERT_TRUE(full);
    EXPECT_EQ(Resolve(Declare("More", {Property("One", CimType::kUint8)}, "Full"), full).code(),
              WBEM_E_INVALID_OBJECT);
    many.push_back(Property("Last", CimType::kUint8));
    EXPECT_EQ(Resolve(Declare("Over", many)).code(), WBEM_E_INVALID_OBJECT);

    ClassDeclaration qualified = Declare("Q", {});
    for (size_t i = 0; i <= kMaxQualifiers; ++i)
        qualified.qualifiers.push_back(Flag("Q" + std::to_string(i)));
    EXPECT_EQ(Resolve(qualified).code(), WBEM_E_INVALID_OBJECT);

    ClassPtr deepest = Resolved(Declare("D0", {}));
    for (size_t depth = 1; depth <= kMaxClassDepth; ++depth) {
        deepest = Resolved(Declare("D" + std::to_string(depth), {}, deepest->Name()), deepest);
        ASSERT_TRUE(deepest);
    }
    EXPECT_EQ(Resolve(Declare("TooDeep", {}, deepest->Name()), deepest).code(), WBEM_E_INVALID_SUPERCLASS);
}

}  // namespace
}  // namespace service
