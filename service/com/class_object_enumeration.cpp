// IWbemClassObject's methods that list the properties.
#include <algorithm>
#include <utility>

#include "service/com/class_object.h"
#include "service/com/system_properties.h"
#include "service/com/variant_conversion.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr long kOriginMask = WBEM_MASK_CONDITION_ORIGIN;
constexpr long kSystemOrAll = 0;

// Published flags of BeginEnumeration, alone and with an origin.
bool AreEnumerationFlags(long flags) noexcept {
    if (flags & ~(kOriginMask | WBEM_FLAG_KEYS_ONLY | WBEM_FLAG_REFS_ONLY)) return false;
    const long origin = flags & kOriginMask;
    return origin == 0 || origin == WBEM_FLAG_LOCAL_ONLY || origin == WBEM_FLAG_PROPAGATED_ONLY ||
           origin == WBEM_FLAG_SYSTEM_ONLY || origin == WBEM_FLAG_NONSYSTEM_ONLY;
}

bool ListsSystemProperties(long flags) noexcept {
    const bool all_kinds = (flags & (WBEM_FLAG_KEYS_ONLY | WBEM_FLAG_REFS_ONLY)) == 0;
    const long origin = flags & kOriginMask;
    return all_kinds && (origin == kSystemOrAll || origin == WBEM_FLAG_SYSTEM_ONLY);
}

}  // namespace

bool ClassObject::IsListed(size_t index, long flags) const {
    const PropertyDefinition& property = Definition()->Properties()[index];
    if ((flags & WBEM_FLAG_KEYS_ONLY) && !property.is_key) return false;
    if ((flags & WBEM_FLAG_REFS_ONLY) && property.type.type != CimType::kReference) return false;
    switch (flags & kOriginMask) {
        case WBEM_FLAG_LOCAL_ONLY:
            return IsLocal(index);
        case WBEM_FLAG_PROPAGATED_ONLY:
            return !IsLocal(index);
        case WBEM_FLAG_SYSTEM_ONLY:
            return false;
        default:
            return true;
    }
}

HRESULT ClassObject::GetNames(LPCWSTR wszQualifierName, long lFlags, VARIANT* pQualifierVal,
                              SAFEARRAY** pNames) {
    return AtBoundary([&]() -> Status {
        if (!pNames) return NullArgument("pNames");
        const bool by_qualifier = (lFlags & WBEM_MASK_PRIMARY_CONDITION) != WBEM_FLAG_ALWAYS;
        if (by_qualifier || wszQualifierName || pQualifierVal) {
            return {WBEM_E_NOT_SUPPORTED, "names by qualifier are not supported: enumerate the properties"};
        }
        if (!AreEnumerationFlags(lFlags))
            return {WBEM_E_INVALID_PARAMETER, "these flags are not to be combined"};
        Array names;
        if (ListsSystemProperties(lFlags)) {
            for (size_t i = 0; i < kSystemPropertyCount; ++i)
                names.emplace_back(ToUtf8Lossy(SystemPropertyAt(i).name));
        }
        for (const size_t index : Definition()->NameOrder()) {
            if (IsListed(index, lFlags)) names.emplace_back(Definition()->Properties()[index].name);
        }
        SERVICE_ASSIGN_OR_RETURN(*pNames, MakeNameArray(names));
        return {};
    });
}

HRESULT ClassObject::BeginEnumeration(long lEnumFlags) {
    return AtBoundary([&]() -> Status {
        if (enumeration_)
            return {WBEM_E_UNEXPECTED, "an enumeration of this object has begun already: end it first"};
        if (!AreEnumerationFlags(lEnumFlags))
            return {WBEM_E_INVALID_PARAMETER, "these flags are not to be combined"};
        enumeration_ = Enumeration{lEnumFlags, ListsSystemProperties(lEnumFlags) ? 0 : kSystemPropertyCount};
        return {};
    });
}

// The system properties come first, then the others in the order of their names, unit by unit: so a caller
// that files them by name always adds at the end. A property that cannot be read ends the call with its
// fault; the next call goes on behind it.
HRESULT ClassObject::Next(long lFlags, BSTR* strName, VARIANT* pVal, CIMTYPE* pType, long* plFlavor) {
    bool has_more = true;
    const HRESULT result = AtBoundary([&]() -> Status {
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        if (!enumeration_)
            return {WBEM_E_UNEXPECTED,
                    "no enumeration of this object has begun: call BeginEnumeration first"};
        size_t& position = enumeration_->position;
        if (position < kSystemPropertyCount) {
            const SystemProperty& property = SystemPropertyAt(position);
            const HRESULT got = Get(property.name.data(), 0, pVal, pType, plFlavor);
            ++position;
            if (FAILED(got)) return {got, "the system property cannot be read"};
            if (strName)
                *strName = CComBSTR(static_cast<int>(property.name.size()), property.name.data()).Detach();
            if (position == kSystemPropertyCount &&
                (enumeration_->flags & kOriginMask) == WBEM_FLAG_SYSTEM_ONLY) {
                position = kSystemPropertyCount + Definition()->Properties().size();
            }
            return {};
        }
        const auto& properties = Definition()->Properties();
        const auto& order = Definition()->NameOrder();
        size_t place = position - kSystemPropertyCount;
        while (place < order.size() && !IsListed(order[place], enumeration_->flags))
            ++place;
        position = kSystemPropertyCount + std::min(place + 1, order.size());
        has_more = place < order.size();
        if (!has_more) return {};
        const size_t index = order[place];
        BSTR name = nullptr;
        if (strName) {
            name = SysAllocStringLen(properties[index].wide_name.data(),
                                     static_cast<UINT>(properties[index].wide_name.size()));
            if (!name) throw std::bad_alloc();
        }
        CComBSTR owner;
        owner.Attach(name);
        if (pVal) SERVICE_RETURN_IF_ERROR(ReadProperty(index, pVal));
        FillIn(index, pType, plFlavor);
        if (strName) *strName = owner.Detach();
        return {};
    });
    if (result == S_OK && !has_more) return WBEM_S_NO_MORE_DATA;
    return result;
}

HRESULT ClassObject::EndEnumeration() {
    enumeration_.reset();
    return S_OK;
}

}  // namespace service
