#include "service/com/context.h"

#include <algorithm>
#include <new>
#include <utility>

#include "service/com/boundary.h"
#include "service/com/variant_conversion.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr auto kNoInterfaces = [](IUnknown*) -> Result<ObjectPtr> {
    return Status(WBEM_E_TYPE_MISMATCH, "an object stands where a plain value was expected");
};

Result<std::string> TakeName(LPCWSTR name) {
    if (!name || !*name) return Status(WBEM_E_INVALID_PARAMETER, "a context value needs a name");
    return TakeText(std::wstring_view(name), "the context value's name");
}

// `target` is empty. A value by reference is copied itself: what it refers to may be gone later.
Status CopyVariant(const VARIANT& source, CComVariant& target) {
    const HRESULT copied = VariantCopyInd(&target, &source);
    if (copied == E_OUTOFMEMORY) throw std::bad_alloc();
    if (FAILED(copied))
        return {WBEM_E_INVALID_PARAMETER, "a variant of type " + std::to_string(source.vt) + " has no copy"};
    return {};
}

}  // namespace

std::vector<Context::Entry>::iterator Context::Find(std::string_view name) {
    return std::find_if(entries_.begin(), entries_.end(),
                        [&](const Entry& entry) { return EqualFolded(entry.name, name); });
}

Result<std::vector<Context::Entry>::iterator> Context::FindSet(LPCWSTR name, long flags) {
    SERVICE_RETURN_IF_ERROR(CheckNoFlags(flags));
    SERVICE_ASSIGN_OR_RETURN(const std::string wanted, TakeName(name));
    const auto entry = Find(wanted);
    if (entry == entries_.end())
        return Status(WBEM_E_NOT_FOUND,
                      "the context has no value " + wanted + ": GetNames lists those it has");
    return entry;
}

HRESULT Context::Clone(IWbemContext** ppNewCopy) {
    return AtBoundary([&]() -> Status {
        if (!ppNewCopy) return NullArgument("ppNewCopy");
        const CComPtr<Context> copy = MakeCom<Context>();
        copy->entries_.reserve(entries_.size());
        for (const Entry& entry : entries_) {
            Entry& made = copy->entries_.emplace_back(Entry{entry.name, {}});
            SERVICE_RETURN_IF_ERROR(CopyVariant(entry.value, made.value));
        }
        copy->AddRef();
        *ppNewCopy = copy;
        return {};
    });
}

HRESULT Context::GetNames(long lFlags, SAFEARRAY** pNames) {
    return AtBoundary([&]() -> Status {
        if (!pNames) return NullArgument("pNames");
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        Array names;
        for (const Entry& entry : entries_)
            names.emplace_back(entry.name);
        SERVICE_ASSIGN_OR_RETURN(*pNames, MakeNameArray(names));
        return {};
    });
}

HRESULT Context::BeginEnumeration(long lFlags) {
    return AtBoundary([&]() -> Status {
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        position_ = 0;
        return {};
    });
}

HRESULT Context::Next(long lFlags, BSTR* pstrName, VARIANT* pValue) {
    bool has_more = true;
    const HRESULT result = AtBoundary([&]() -> Status {
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        if (!position_)
            return {WBEM_E_UNEXPECTED,
                    "no enumeration of this context has begun: call BeginEnumeration first"};
        has_more = *position_ < entries_.size();
        if (!has_more) return {};
        const Entry& entry = entries_[*position_];
        CComBSTR name;
        if (pstrName) {
            SERVICE_ASSIGN_OR_RETURN(BSTR text, MakeBstr(entry.name));
            name.Attach(text);
        }
        CComVariant value;
        if (pValue) SERVICE_RETURN_IF_ERROR(CopyVariant(entry.value, value));
        if (pstrName) *pstrName = name.Detach();
        if (pValue) *pValue = std::exchange(static_cast<VARIANT&>(value), VARIANT{});
        ++*position_;
        return {};
    });
    return result == S_OK && !has_more ? static_cast<HRESULT>(WBEM_S_NO_MORE_DATA) : result;
}

HRESULT Context::EndEnumeration() {
    position_.reset();
    return S_OK;
}

HRESULT Context::SetValue(LPCWSTR wszName, long lFlags, VARIANT* pValue) {
    return AtBoundary([&]() -> Status {
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        SERVICE_ASSIGN_OR_RETURN(std::string name, TakeName(wszName));
        if (!pValue) return NullArgument("pValue");
        CComVariant value;
        SERVICE_RETURN_IF_ERROR(CopyVariant(*pValue, value));
        if (const auto entry = Find(name); entry != entries_.end()) {
            entry->value = std::move(value);
        } else {
            entries_.push_back({std::move(name), std::move(value)});
        }
        return {};
    });
}

HRESULT Context::GetValue(LPCWSTR wszName, long lFlags, VARIANT* pValue) {
    return AtBoundary([&]() -> Status {
        if (!pValue) return NullArgument("pValue");
        SERVICE_ASSIGN_OR_RETURN(const auto entry, FindSet(wszName, lFlags));
        CComVariant value;
        SERVICE_RETURN_IF_ERROR(CopyVariant(entry->value, value));
        *pValue = std::exchange(static_cast<VARIANT&>(value), VARIANT{});
        return {};
    });
}

HRESULT Context::DeleteValue(LPCWSTR wszName, long lFlags) {
    return AtBoundary([&]() -> Status {
        SERVICE_ASSIGN_OR_RETURN(const auto entry, FindSet(wszName, lFlags));
        const auto index = static_cast<size_t>(entry - entries_.begin());
        if (position_ && index < *position_) --*position_;
        entries_.erase(entry);
        return {};
    });
}

HRESULT Context::DeleteAll() {
    entries_.clear();
    if (position_) position_ = 0;
    return S_OK;
}

const VARIANT* Context::Peek(std::string_view name) {
    const auto entry = Find(name);
    return entry == entries_.end() ? nullptr : &entry->value;
}

ContextReader::ContextReader(IWbemContext* context) : context_(context) {
    if (context) context->QueryInterface(IID_PPV_ARGS(&own_));
}

// Leaves `value` null where the context says nothing. A context of the service's own is not asked through its
// interface, which would leave an error object for every value that is not there.
Status ContextReader::Read(std::string_view name, CimType type, Value& value) const {
    if (!context_) return {};
    const auto which = [&] { return "the context value " + std::string(name); };
    CComVariant copy;
    const VARIANT* given = &copy;
    if (own_) {
        given = own_->Peek(name);
        if (!given) return {};
    } else {
        const HRESULT got = context_->GetValue(ToWideLossy(name).c_str(), 0, &copy);
        if (got == WBEM_E_NOT_FOUND) return {};
        if (FAILED(got)) return {WBEM_E_INVALID_CONTEXT, which() + " cannot be read"};
    }
    if (given->vt == VT_EMPTY) return {};
    Result<Value> converted = FromVariant({type, false, 0, {}}, *given, kNoInterfaces);
    if (!converted.ok()) return {WBEM_E_INVALID_CONTEXT, which() + ": " + converted.status().reason()};
    value = std::move(*converted);
    return {};
}

Status ContextReader::ReadFlag(std::string_view name, bool& value) const {
    Value given;
    SERVICE_RETURN_IF_ERROR(Read(name, CimType::kBoolean, given));
    if (const bool* flag = std::get_if<bool>(&given)) value = *flag;
    return {};
}

Status ContextReader::ReadNumber(std::string_view name, int64_t low, int64_t high, int64_t& value) const {
    Value given;
    SERVICE_RETURN_IF_ERROR(Read(name, CimType::kSint64, given));
    const int64_t* number = std::get_if<int64_t>(&given);
    if (!number) return {};
    if (*number < low || *number > high) {
        return {WBEM_E_INVALID_CONTEXT, "the context value " + std::string(name) + " is " +
                                            std::to_string(*number) + ", not from " + std::to_string(low) +
                                            " to " + std::to_string(high)};
    }
    value = *number;
    return {};
}

}  // namespace service
