// The input is a query; behind an empty line there may be a text. It is asked of objects that hold this text,
// and of some that hold what the query compares with.
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "service/language/wql_condition.h"
#include "service/language/wql_keys.h"
#include "service/language/wql_parser.h"
#include "service/model/object_path.h"
#include "service/notify/event_classes.h"
#include "tests/fuzz/expectations.h"
#include "tests/fuzz/schema.h"

namespace {

using namespace service;
using fuzz::Expect;

Result<WqlCondition> Bind(const WqlQuery& query) {
    return WqlCondition::Bind(query, [](std::string_view name) -> Result<ClassPtr> {
        if (ClassPtr event = FindEventClass(name)) return event;
        return fuzz::FindClass(name);
    });
}

// Sets every property that takes `text`, or the number that it begins with.
Instance Holding(const ClassPtr& definition, const std::string& text) {
    Instance row(definition);
    int64_t number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    uint64_t natural = static_cast<uint64_t>(number);
    if (read.ec == std::errc::result_out_of_range)
        std::from_chars(text.data(), text.data() + text.size(), natural);
    double real = 0;
    std::from_chars(text.data(), text.data() + text.size(), real);
    for (size_t i = 0; i < definition->Properties().size(); ++i) {
        for (const Value& value :
             {Value(number), Value(natural), Value(real), Value(number != 0), Value(text)}) {
            if (row.Set(i, value).ok()) break;
        }
    }
    return row;
}

void CollectLiterals(const WqlExpression& expression, std::vector<std::string>& texts) {
    constexpr size_t kMost = 4;
    for (const WqlExpression& operand : expression.operands)
        CollectLiterals(operand, texts);
    if (expression.kind != WqlExpression::Kind::kTerm || texts.size() == kMost) return;
    const WqlLiteral& literal = expression.term.literal;
    if (const auto* text = std::get_if<WqlText>(&literal)) texts.push_back(text->text);
    if (const auto* number = std::get_if<int64_t>(&literal)) texts.push_back(std::to_string(*number));
    if (const auto* natural = std::get_if<uint64_t>(&literal)) texts.push_back(std::to_string(*natural));
}

// Whether the object matches. What is true is not false, too.
bool IsMatch(const WqlQuery& query, WqlCondition& condition, const Instance& object) {
    const Result<bool> matches = condition.Matches(object);
    Expect(matches.ok(), "an object of the class can be asked", matches.status().reason());
    if (!query.where || !*matches) return *matches;
    WqlExpression no;
    no.kind = WqlExpression::Kind::kNot;
    no.operands.push_back(*query.where);
    WqlQuery opposite = query;
    opposite.where = std::move(no);
    Result<WqlCondition> negated = Bind(opposite);
    if (!negated.ok()) return true;
    const Result<bool> does_not = negated->Matches(object);
    Expect(does_not.ok() && !*does_not, "a condition is not true and false");
    return true;
}

void AskRow(const WqlQuery& query, WqlCondition& condition, const Instance& row) {
    if (!row.Class()->IsA(condition.Class()->Name()) || !IsMatch(query, condition, row)) return;
    if (const std::optional<ObjectPath> path = DemandedPath(query, *row.Class())) {
        const Result<std::string> demanded = KeyOf(*row.Class(), *path);
        const Result<std::string> own = KeyOf(row);
        Expect(demanded.ok() && own.ok() && *demanded == *own, "what matches has the key demanded");
    }
}

void AskEvent(const WqlQuery& query, WqlCondition& condition, const Instance& row) {
    const auto target = ObjectPtr(std::make_shared<Instance>(row));
    for (const ChangeKind kind : {ChangeKind::kCreated, ChangeKind::kModified, ChangeKind::kDeleted}) {
        if (!CoversKind(*condition.Class(), kind)) continue;
        const Result<Instance> event = MakeEvent(kind, 0, kind == ChangeKind::kCreated ? nullptr : target,
                                                 kind == ChangeKind::kDeleted ? nullptr : target);
        Expect(event.ok(), "an event can be made");
        if (!IsMatch(query, condition, *event)) continue;
        const Result<std::string> key = KeyOf(row);
        Expect(!key.ok() || WqlEventFilter(query).OnClass(*row.Class()).MayMatch(*key),
               "the filter lets pass what matches");
    }
}

int Refused(const Status& fault, std::string_view query) {
    fuzz::ExpectSentence(fault);
    const std::string_view reason = fault.reason();
    if (fault.code() != WBEM_E_INVALID_CLASS && IsValidUtf8(query))
        fuzz::ExpectPlaceWithin(query, reason.substr(0, reason.find(" of the query: ")), "character ");
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const size_t empty_line = input.find("\n\n");
    const std::string_view text = input.substr(0, empty_line);
    const Result<WqlQuery> query = ParseWql(text);
    if (!query.ok()) return Refused(query.status(), text);
    Result<WqlCondition> condition = Bind(*query);
    if (!condition.ok()) return Refused(condition.status(), text);
    std::vector<std::string> texts;
    if (query->where) CollectLiterals(*query->where, texts);
    if (empty_line != std::string_view::npos && IsValidUtf8(input.substr(empty_line)))
        texts.emplace_back(input.substr(empty_line + 2));
    const bool is_event = FindEventClass(condition->Class()->Name()) != nullptr;
    std::vector<ClassPtr> definitions = {condition->Class()};
    if (is_event)
        definitions = {fuzz::ClassNamed("Wider"), fuzz::ClassNamed("Keys"), fuzz::ClassNamed("Moment")};
    std::vector<Instance> rows = {*fuzz::Schema().FindInstance("Wider.ID=\"extreme\"")};
    for (const ClassPtr& definition : definitions) {
        rows.emplace_back(definition);
        for (const std::string& held : texts)
            rows.push_back(Holding(definition, held));
    }
    for (const Instance& row : rows)
        is_event ? AskEvent(*query, *condition, row) : AskRow(*query, *condition, row);
    return 0;
}
