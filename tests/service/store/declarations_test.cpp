// Methods and declarations of qualifiers in a repository.
#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/store/schema_codec.h"
#include "tests/service/store/repository_fixture.h"

namespace service {
namespace {

using namespace std::string_literals;

class DeclarationsTest : public RepositoryFixture {
 protected:
    bool Put(const QualifierDeclaration& declaration) {
        bool is_changed = false;
        EXPECT_OK(repository->Write([&](RepositoryWriter& writer) {
            return writer.PutQualifierDeclaration(space, declaration, is_changed);
        }));
        return is_changed;
    }

    std::vector<QualifierDeclaration> Declarations() {
        std::vector<QualifierDeclaration> all;
        EXPECT_OK(repository->Read([&](RepositoryReader& reader) -> Status {
            SERVICE_ASSIGN_OR_RETURN(const auto declared, reader.QualifierDeclarations(space));
            all = *declared;
            return {};
        }));
        return all;
    }
};

TEST_F(DeclarationsTest, DeclarationsOfQualifiersAreKept) {
    QualifierDeclaration values{
        "Values", {CimType::kString, true, 8, {}}, Array{"a"s, {}}, kScopeProperty, 0x81};
    const QualifierDeclaration key{
        "Key", {CimType::kBoolean, false, 0, {}}, false, kScopeAny, kFlavorToSubclass};
    EXPECT_TRUE(Declarations().empty());
    EXPECT_TRUE(Put(values));
    EXPECT_TRUE(Put(key));
    EXPECT_FALSE(Put(key));
    values.name = "VALUES";
    values.scope = kScopeParameter;
    EXPECT_TRUE(Put(values));
    const auto all = Declarations();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].name, "Key");
    EXPECT_TRUE(SameValue(all[0].default_value, false));
    EXPECT_EQ(all[1].name, "VALUES");
    EXPECT_EQ(DescribeType(all[1].type), "string[8]");
    EXPECT_TRUE(SameValue(all[1].default_value, values.default_value));
    EXPECT_EQ(all[1].scope, uint32_t{kScopeParameter});
    EXPECT_EQ(all[1].flavor, 0x81U);
}

TEST_F(DeclarationsTest, MethodsAreKeptAndInherited) {
    ClassDeclaration declared = Declare("Policy", {Key("ID")});
    MethodDeclaration method{"Apply", PropertyType{CimType::kUint32, false, 0, {}}, {}, {Flag("Static")}};
    method.parameters = {{"Target", {CimType::kReference, true, 4, "Policy"}, {Flag("In")}}};
    declared.methods = {method, {"Stop", {}, {}, {}}};
    ASSERT_EQ(PutClass(declared), 0) << last.reason();
    ASSERT_EQ(PutClass(Declare("Sub", {}, "Policy")), 0);
    const auto sub = repository->FindClass(space, "Sub");
    ASSERT_OK(sub);
    ASSERT_EQ((*sub)->Methods().size(), 2U);
    const MethodDefinition& apply = *(*sub)->FindMethod("APPLY");
    EXPECT_EQ(apply.origin, "Policy");
    EXPECT_EQ(DescribeType(*apply.return_type), "uint32");
    ASSERT_EQ(apply.parameters.size(), 1U);
    EXPECT_EQ(DescribeType(apply.parameters[0].type), "ref:Policy[4]");
    EXPECT_TRUE(HasTrueQualifier(apply.parameters[0].qualifiers, "in"));
    EXPECT_FALSE((*sub)->FindMethod("Stop")->return_type);

    // A class without methods has the record that it had before there were any.
    std::string bytes;
    ASSERT_OK(EncodeClass({7, Declare("Plain", {Key("ID")})}, bytes));
    EXPECT_EQ(bytes.at(4), 1);
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(DecodeClass(bytes.substr(0, length)).ok());
}

}  // namespace
}  // namespace service
