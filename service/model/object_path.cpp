#include "service/model/object_path.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "service/model/limits.h"
#include "service/model/text.h"

namespace service {
namespace {

bool IsSeparator(char c) noexcept {
    return c == '\\' || c == '/';
}

bool EndsNamespace(char c) noexcept {
    return c == ':' || c == '"' || c == '\'' || c == '=';
}

bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool IsNameCharacter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || IsDigit(c) || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool IsContinuation(char c) noexcept {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The code points of valid UTF-8.
size_t CountCharacters(std::string_view text) noexcept {
    return text.size() - static_cast<size_t>(std::count_if(text.begin(), text.end(), IsContinuation));
}

// Reads one path from left to right; every step either moves on or leaves a fault.
class PathReader {
 public:
    explicit PathReader(std::string_view text) : text_(text) {}

    Result<ObjectPath> Read() {
        if (!IsValidUtf8(text_))
            return Status(WBEM_E_INVALID_OBJECT_PATH, "the object path is not valid text");
        ObjectPath path;
        SERVICE_RETURN_IF_ERROR(ReadNamespace(path));
        SERVICE_RETURN_IF_ERROR(ReadName("a class name", path.class_name));
        if (AtEnd()) return path;
        if (Take('=')) {
            if (Take('@')) {
                path.is_singleton = true;
            } else {
                SERVICE_RETURN_IF_ERROR(ReadValue(path.keys.emplace_back()));
            }
        } else if (Take('.')) {
            SERVICE_RETURN_IF_ERROR(ReadKeys(path));
        } else {
            return Expected("\".\", \"=\" or the end of the path");
        }
        if (!AtEnd()) return Expected("the end of the path");
        return path;
    }

 private:
    bool AtEnd() const noexcept { return position_ == text_.size(); }
    char Peek() const noexcept { return AtEnd() ? '\0' : text_[position_]; }
    bool Take(char c) noexcept {
        if (AtEnd() || text_[position_] != c) return false;
        ++position_;
        return true;
    }

    Status Expected(std::string_view what) const {
        return {WBEM_E_INVALID_OBJECT_PATH,
                "the object path " + QuoteForPath(ClipForMessage(text_, 300)) +
                    " is malformed at character " +
                    std::to_string(CountCharacters(text_.substr(0, position_)) + 1) + ": " +
                    std::string(what) + " was expected, " + Found() + " was found"};
    }

    std::string Found() const {
        if (AtEnd()) return "the end of the path";
        size_t length = 1;
        while (position_ + length < text_.size() && IsContinuation(text_[position_ + length]))
            ++length;
        return "'" + std::string(text_.substr(position_, length)) + "'";
    }

    // Everything up to a colon that stands before any quote is the namespace.
    Status ReadNamespace(ObjectPath& path) {
        size_t end = 0;
        while (end < text_.size() && !EndsNamespace(text_[end]))
            ++end;
        if (end == text_.size()) end = std::string_view::npos;
        if (end == std::string_view::npos || text_[end] != ':') {
            return IsSeparator(Peek()) ? Expected("a namespace and a colon") : Status();
        }
        Result<NamespacePath> parsed = ParseNamespacePath(text_.substr(0, end));
        if (!parsed.ok()) return {WBEM_E_INVALID_OBJECT_PATH, parsed.status().reason()};
        if (IsSeparator(Peek())) path.server = std::move(parsed->server);
        path.namespace_path = std::move(parsed->path);
        position_ = end + 1;
        return {};
    }

    Status ReadName(std::string_view what, std::string& name) {
        const size_t start = position_;
        if (IsDigit(Peek())) return Expected(what);
        while (!AtEnd() && IsNameCharacter(text_[position_]))
            ++position_;
        if (position_ == start) return Expected(what);
        name = text_.substr(start, position_ - start);
        return {};
    }

    Status ReadKeys(ObjectPath& path) {
        do {
            KeyBinding& key = path.keys.emplace_back();
            SERVICE_RETURN_IF_ERROR(ReadName("the name of a key property", key.name));
            if (!Take('=')) return Expected("\"=\"");
            SERVICE_RETURN_IF_ERROR(ReadValue(key));
        } while (Take(','));
        return {};
    }

    Status ReadValue(KeyBinding& key) {
        const char first = Peek();
        if (!AtEnd() && (first == '"' || first == '\'')) return ReadText(key);
        if (IsDigit(first) || first == '-') return ReadNumber(key);
        const size_t start = position_;
        while (!AtEnd() && IsNameCharacter(text_[position_]))
            ++position_;
        const std::string_view word = text_.substr(start, position_ - start);
        if (EqualFolded(word, "true")) {
            key.value = true;
        } else if (EqualFolded(word, "false")) {
            key.value = false;
        } else {
            position_ = start;
            return Expected("a quoted text, a number, TRUE or FALSE");
        }
        return {};
    }

    Status ReadText(KeyBinding& key) {
        const char quote = text_[position_++];
        std::string value;
        while (!AtEnd()) {
            size_t plain = position_;
            while (plain < text_.size() && text_[plain] != quote && text_[plain] != '\\')
                ++plain;
            value.append(text_, position_, plain - position_);
            if (plain == text_.size()) break;
            position_ = plain + 1;
            if (text_[plain] == quote) {
                key.value = std::move(value);
                return {};
            }
            const char next = Peek();
            const bool escapes = !AtEnd() && (next == '\\' || next == '"' || next == '\'');
            value.push_back(escapes ? next : '\\');
            if (escapes) ++position_;
        }
        position_ = text_.size();
        return Expected(std::string("the closing ") + quote);
    }

    Status ReadNumber(KeyBinding& key) {
        const char* start = text_.data() + position_;
        const char* end = text_.data() + text_.size();
        int64_t number = 0;
        auto parsed = std::from_chars(start, end, number);
        if (parsed.ec == std::errc()) {
            key.value = number;
        } else {
            uint64_t large = 0;
            parsed = std::from_chars(start, end, large);
            if (parsed.ec != std::errc()) return Expected("a number of at most 64 bits");
            key.value = large;
        }
        position_ += static_cast<size_t>(parsed.ptr - start);
        return {};
    }

    std::string_view text_;
    size_t position_ = 0;
};

// Key values of several properties are joined by a separator that no value holds: a zero byte within a text
// becomes 0x00 0xFF, the separator is 0x00 0x01. So a text with zero bytes orders behind its prefixes.
void AppendKeyText(std::string_view text, std::string& key) {
    const size_t start = key.size();
    AppendFolded(text, key);
    if (key.find('\0', start) == std::string::npos) return;
    const std::string folded = key.substr(start);
    key.resize(start);
    for (const char c : folded) {
        key.push_back(c);
        if (c == '\0') key.push_back('\xFF');
    }
}

void AppendSeparator(std::string& key) {
    key.append({'\0', '\x01'});
}

Status CheckKeySize(const ClassDefinition& definition, const std::string& key) {
    if (key.size() <= kMaxKeyBytes) return {};
    return {WBEM_E_INVALID_OBJECT_PATH, "the key of an instance of class " + definition.Name() + " has " +
                                            std::to_string(key.size()) + " bytes, " +
                                            std::to_string(kMaxKeyBytes) + " are allowed"};
}

std::string DescribeKey(const ClassDefinition& definition, const PropertyDefinition& property) {
    return "key property " + definition.Name() + "." + property.name;
}

std::string DescribeFound(const KeyBinding& binding) {
    if (const auto* text = std::get_if<std::string>(&binding.value))
        return "the text " + QuoteForPath(ClipForMessage(*text, 80));
    if (const auto* flag = std::get_if<bool>(&binding.value)) return *flag ? "TRUE" : "FALSE";
    if (const auto* number = std::get_if<int64_t>(&binding.value))
        return "the number " + std::to_string(*number);
    return "the number " + std::to_string(std::get<uint64_t>(binding.value));
}

// "its key is INSTANCE_ID": the way out of a path with other keys.
std::string DescribeKeys(const ClassDefinition& definition) {
    std::string names;
    for (const size_t index : definition.Keys())
        names += (names.empty() ? "" : ", ") + definition.Properties()[index].name;
    if (names.empty()) return "it has no key";
    return (definition.Keys().size() == 1 ? "its key is " : "its keys are ") + names;
}

Status AppendKeyValue(const ClassDefinition& definition, const PropertyDefinition& property,
                      const KeyBinding& binding, std::string& key) {
    const auto mismatch = [&](const char* expected) {
        return Status(WBEM_E_INVALID_OBJECT_PATH, DescribeKey(definition, property) + " takes " + expected +
                                                      " in an object path, " + DescribeFound(binding) +
                                                      " was found");
    };
    switch (RepresentationOf(property.type.type)) {
        case Representation::kText:
            if (const auto* text = std::get_if<std::string>(&binding.value)) {
                AppendKeyText(*text, key);
                return {};
            }
            return mismatch("a quoted text");
        case Representation::kBoolean:
            if (const auto* flag = std::get_if<bool>(&binding.value)) {
                key += *flag ? "1" : "0";
                return {};
            }
            if (const auto* number = std::get_if<int64_t>(&binding.value);
                number && (*number == 0 || *number == 1)) {
                key += *number ? "1" : "0";
                return {};
            }
            return mismatch("TRUE or FALSE");
        default:
            if (const auto* number = std::get_if<int64_t>(&binding.value)) {
                key += std::to_string(*number);
                return {};
            }
            if (const auto* large = std::get_if<uint64_t>(&binding.value)) {
                key += std::to_string(*large);
                return {};
            }
            return mismatch("a number");
    }
}

void AppendKeyValue(const ValueView& value, std::string& key) {
    if (const auto* text = std::get_if<std::string_view>(&value)) AppendKeyText(*text, key);
    if (const auto* flag = std::get_if<bool>(&value)) key += *flag ? "1" : "0";
    if (const auto* number = std::get_if<int64_t>(&value)) key += std::to_string(*number);
    if (const auto* number = std::get_if<uint64_t>(&value)) key += std::to_string(*number);
}

const KeyBinding* FindBinding(const ObjectPath& path, std::string_view name) {
    for (const KeyBinding& binding : path.keys) {
        if (EqualFolded(binding.name, name)) return &binding;
    }
    return nullptr;
}

Status CheckKeyNames(const ClassDefinition& definition, const ObjectPath& path) {
    if (path.keys.size() != definition.Keys().size()) {
        return {WBEM_E_INVALID_OBJECT_PATH,
                "class " + definition.Name() + " has " + std::to_string(definition.Keys().size()) +
                    " key properties, the object path gives " + std::to_string(path.keys.size()) + ": " +
                    DescribeKeys(definition)};
    }
    for (const KeyBinding& binding : path.keys) {
        if (binding.name.empty()) continue;
        const auto index = definition.FindProperty(std::string_view(binding.name));
        if (!index || !definition.Properties()[*index].is_key) {
            return {WBEM_E_INVALID_OBJECT_PATH, "class " + definition.Name() + " has no key property " +
                                                    binding.name + ": " + DescribeKeys(definition)};
        }
    }
    return {};
}

}  // namespace

Result<ObjectPath> ParseObjectPath(std::string_view text) {
    return PathReader(text).Read();
}

Result<NamespacePath> ParseNamespacePath(std::string_view text) {
    const auto fault = [&](const std::string& why) {
        return Status(WBEM_E_INVALID_NAMESPACE,
                      "\"" + ClipForMessage(text, 300) + "\" is no namespace path: " + why);
    };
    if (!IsValidUtf8(text)) return Status(WBEM_E_INVALID_NAMESPACE, "the namespace path is not valid text");
    NamespacePath parsed{".", {}};
    std::string_view rest = text;
    if (rest.size() >= 2 && IsSeparator(rest[0]) && IsSeparator(rest[1])) {
        rest.remove_prefix(2);
        const size_t end = rest.find_first_of("\\/");
        if (end == 0 || end == std::string_view::npos)
            return fault("a server and a namespace follow the two backslashes");
        parsed.server = rest.substr(0, end);
        rest.remove_prefix(end + 1);
    }
    if (rest.size() > kMaxNamespaceBytes) {
        return fault("it has more than " + std::to_string(kMaxNamespaceBytes) + " bytes");
    }
    while (true) {
        const size_t end = rest.find_first_of("\\/");
        const std::string_view name = rest.substr(0, end);
        if (!CheckName("namespace", name, true).ok())
            return fault("names of letters, digits and underscores stand between its backslashes");
        if (!parsed.path.empty()) parsed.path += '\\';
        parsed.path += name;
        if (end == std::string_view::npos) return parsed;
        rest.remove_prefix(end + 1);
    }
}

Result<std::string> KeyOf(const ClassDefinition& definition, const ObjectPath& path) {
    std::string key;
    if (definition.IsSingleton()) {
        if (path.is_singleton) return key;
        return Status(
            WBEM_E_INVALID_OBJECT_PATH,
            "class " + definition.Name() + " is a singleton: its path is " + definition.Name() + "=@");
    }
    if (path.is_singleton) {
        return Status(WBEM_E_INVALID_OBJECT_PATH,
                      "class " + definition.Name() + " is no singleton: " + DescribeKeys(definition));
    }
    SERVICE_RETURN_IF_ERROR(CheckKeyNames(definition, path));
    for (const size_t index : definition.Keys()) {
        const PropertyDefinition& property = definition.Properties()[index];
        const bool by_position = path.keys.size() == 1 && path.keys.front().name.empty();
        const KeyBinding* binding = by_position ? &path.keys.front() : FindBinding(path, property.name);
        if (!binding) {
            return Status(WBEM_E_INVALID_OBJECT_PATH,
                          "the object path lacks the " + DescribeKey(definition, property));
        }
        if (!key.empty() || index != definition.Keys().front()) AppendSeparator(key);
        SERVICE_RETURN_IF_ERROR(AppendKeyValue(definition, property, *binding, key));
    }
    SERVICE_RETURN_IF_ERROR(CheckKeySize(definition, key));
    return key;
}

Result<std::string> KeyOf(const Instance& instance) {
    const ClassDefinition& definition = *instance.Class();
    std::string key;
    if (definition.Keys().empty() && !definition.IsSingleton()) {
        return Status(
            WBEM_E_INVALID_OBJECT,
            "class " + definition.Name() +
                " has no key property, so it cannot have instances of its own: declare one [key], or an "
                "instance embedded in one that has");
    }
    for (const size_t index : definition.Keys()) {
        Value storage;
        ValueView view;
        SERVICE_RETURN_IF_ERROR(instance.Read(index, storage, view));
        if (IsNull(view)) {
            return Status(WBEM_E_ILLEGAL_NULL, DescribeKey(definition, definition.Properties()[index]) +
                                                   " has no value: an instance needs one to be stored");
        }
        if (index != definition.Keys().front()) AppendSeparator(key);
        AppendKeyValue(view, key);
    }
    SERVICE_RETURN_IF_ERROR(CheckKeySize(definition, key));
    return key;
}

namespace {

void AppendQuoted(std::string_view text, std::string& out) {
    out += '"';
    for (size_t plain = 0; plain < text.size();) {
        const size_t special = std::min(text.find_first_of("\"\\", plain), text.size());
        out += text.substr(plain, special - plain);
        if (special < text.size()) (out += '\\') += text[special];
        plain = special + 1;
    }
    out += '"';
}

}  // namespace

Result<std::string> RelativePathOf(const Instance& instance) {
    const ClassDefinition& definition = *instance.Class();
    if (definition.LacksKeys()) {
        return Status(WBEM_E_INVALID_OBJECT, "the query left out a key of class " + definition.Name());
    }
    constexpr size_t kUsualLength = 120;
    std::string path;
    path.reserve(kUsualLength);
    path += definition.Name();
    if (definition.IsSingleton()) return path + "=@";
    char separator = '.';
    for (const size_t index : definition.Keys()) {
        Value storage;
        ValueView view;
        SERVICE_RETURN_IF_ERROR(instance.Read(index, storage, view));
        if (IsNull(view)) {
            return Status(WBEM_E_ILLEGAL_NULL,
                          DescribeKey(definition, definition.Properties()[index]) + " has no value");
        }
        path += separator;
        path += definition.Properties()[index].name;
        path += '=';
        separator = ',';
        if (const auto* text = std::get_if<std::string_view>(&view)) {
            AppendQuoted(*text, path);
        } else if (const auto* flag = std::get_if<bool>(&view)) {
            path += *flag ? "TRUE" : "FALSE";
        } else {
            AppendKeyValue(view, path);
        }
    }
    return path;
}

std::string PrintObjectPath(const ObjectPath& path) {
    std::string text;
    if (path.server) text += "\\\\" + *path.server + "\\";
    if (path.namespace_path) text += *path.namespace_path + ":";
    text += path.class_name;
    if (path.is_singleton) return text + "=@";
    char separator = '.';
    for (const KeyBinding& key : path.keys) {
        if (!key.name.empty()) text += separator + key.name;
        separator = ',';
        text += "=" + std::visit(
                          [](const auto& value) -> std::string {
                              using Held = std::decay_t<decltype(value)>;
                              if constexpr (std::is_same_v<Held, std::string>) {
                                  return QuoteForPath(value);
                              } else if constexpr (std::is_same_v<Held, bool>) {
                                  return value ? "TRUE" : "FALSE";
                              } else {
                                  return std::to_string(value);
                              }
                          },
                          key.value);
    }
    return text;
}

std::string QuoteForPath(std::string_view text) {
    std::string quoted;
    AppendQuoted(text, quoted);
    return quoted;
}

}  // namespace service
