#include "tools/mgmtctl/event_text.h"

#include <charconv>
#include <optional>
#include <vector>

#include "tools/mgmtctl/changes.h"
#include "tools/mgmtctl/event_time.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr std::size_t LONG_VALUE = 200;
constexpr const char* INDENT = "    ";

// A changed property.
struct Difference {
    Property before;
    Property after;
};

EventKind KindOf(IWbemClassObject& object) {
    const std::wstring name = Wide(TextOf(object, L"__CLASS"));
    for (const EventKind kind : {EventKind::CREATED, EventKind::MODIFIED, EventKind::DELETED}) {
        if (name == EventClass(kind)) return kind;
    }
    throw OperationFailure("the service sent an event of the unknown class " + Utf8(name));
}

std::uint64_t TicksOf(IWbemClassObject& object) {
    const std::string digits = TextOf(object, L"TIME_CREATED");
    std::uint64_t ticks = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), ticks);
    return ticks;
}

std::vector<Difference> DifferencesIn(const Event& event) {
    std::vector<Difference> differences;
    if (event.before == nullptr) return differences;
    for (Property& after : PropertiesOf(*event.instance)) {
        std::optional<Property> before = PropertyOf(*event.before, after.name);
        if (!before || ToJson(before->type, before->value) == ToJson(after.type, after.value)) continue;
        differences.push_back({std::move(*before), std::move(after)});
    }
    return differences;
}

std::string ValueText(const Property& property, Length length) {
    const std::string text = Printable(CellText(property.type, property.value, length));
    return length == Length::WHOLE ? text : Cut(text, LONG_VALUE);
}

std::string DifferenceText(const Difference& difference, Length length) {
    const std::string before = ValueText(difference.before, length);
    const std::string after = ValueText(difference.after, length);
    if (before == after && length == Length::SHORT) return DifferenceText(difference, Length::WHOLE);
    return before + " -> " + after;
}

std::string Line(const Property& property, const std::string& text) {
    return INDENT + Printable(Utf8(property.name)) + ": " + text + "\n";
}

std::string ChangedText(const Event& event, Length length) {
    std::string text;
    for (const Difference& difference : DifferencesIn(event))
        text += Line(difference.after, DifferenceText(difference, length));
    return text.empty() ? INDENT + std::string("written again with the values that it had\n") : text;
}

// The key stands in the path.
std::string CreatedText(const Event& event, Length length) {
    std::string text;
    for (const Property& property : PropertiesOf(*event.instance)) {
        if (!IsNull(property.value) && !EqualNames(property.name, KEY))
            text += Line(property, ValueText(property, length));
    }
    return text;
}

}  // namespace

Event ReadEvent(IWbemClassObject& object) {
    Event event{KindOf(object), TicksOf(object), ObjectOf(ValueOf(object, L"TargetInstance")),
                ObjectOf(ValueOf(object, L"PreviousInstance"))};
    if (event.instance == nullptr) throw OperationFailure("the service sent an event of no instance");
    return event;
}

std::string EventText(const Event& event, Length length) {
    const std::string path = Printable(TextOf(*event.instance, L"__RELPATH"));
    std::string line = ClockTime(event.ticks) + " " + KindText(event.kind) + " " + path + "\n";
    switch (event.kind) {
        case EventKind::CREATED:
            return line + CreatedText(event, length);
        case EventKind::MODIFIED:
            return line + ChangedText(event, length);
        default:
            return line;
    }
}

OrderedJson EventJson(const Event& event) {
    OrderedJson json = {{"time", IsoTime(event.ticks)},
                        {"event", KindText(event.kind)},
                        {"path", TextOf(*event.instance, L"__RELPATH")}};
    if (event.kind == EventKind::MODIFIED) {
        OrderedJson& changes = json["changes"] = OrderedJson::object();
        for (const auto& [before, after] : DifferencesIn(event)) {
            changes[Utf8(after.name)] = {{"before", ToJson(before.type, before.value)},
                                         {"after", ToJson(after.type, after.value)}};
        }
    }
    json["instance"] = ToJson(*event.instance);
    return json;
}

}  // namespace mgmtctl
