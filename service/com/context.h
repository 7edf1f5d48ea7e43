// Context: IWbemContext, named values that a caller hands to the service with a request. Only for
// service/com.
//
//   CComPtr<IWbemContext> context;
//   context.CoCreateInstance(CLSID_WbemContext);
//   context->SetValue(L"LocalOnly", 0, &value);
//
//   ContextReader reader(context);
//   if (Status fault = reader.ReadFlag("LocalOnly", local_only); !fault.ok()) return fault;
//
// Names are any text but the empty one and are looked up without regard to case; a name keeps the spelling it
// was first set with. Values are copies, those by reference of what they refer to; an interface is shared.
// Enumeration follows the order in which the names were first set. It may be begun anew at any time, and one
// that is under way goes on properly when values are set or deleted meanwhile.
//
// All flags must be 0. WBEM_E_INVALID_PARAMETER for these and for null arguments, WBEM_E_NOT_FOUND for a name
// that is not there, WBEM_E_UNEXPECTED for Next without a begin. Out arguments are untouched on a failure.
//
// A context belongs to one thread at a time; its reference count may be changed on any.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <wbemidl.h>

#include "service/com/com_object.h"
#include "service/model/status.h"
#include "service/model/value.h"

namespace service {

// How the service reads its own contexts; nobody else implements this.
struct IServiceContext : IUnknown {
    // Null when there is no such value; valid until the context changes.
    virtual const VARIANT* Peek(std::string_view name) = 0;

 protected:
    ~IServiceContext() = default;
};

}  // namespace service

template <>
struct ComUuid<service::IServiceContext> {
    static constexpr IID value = {
        0x9c2d6a41, 0x53be, 0x4f07, {0xa1, 0x6c, 0x7e, 0x02, 0xd9, 0xb5, 0x48, 0x3f}};
};

namespace service {

class Context final : public ComObject<IWbemContext, IServiceContext> {
 public:
    const VARIANT* Peek(std::string_view name) override;

    HRESULT STDMETHODCALLTYPE Clone(IWbemContext** ppNewCopy) override;
    HRESULT STDMETHODCALLTYPE GetNames(long lFlags, SAFEARRAY** pNames) override;
    HRESULT STDMETHODCALLTYPE BeginEnumeration(long lFlags) override;
    HRESULT STDMETHODCALLTYPE Next(long lFlags, BSTR* pstrName, VARIANT* pValue) override;
    HRESULT STDMETHODCALLTYPE EndEnumeration() override;
    HRESULT STDMETHODCALLTYPE SetValue(LPCWSTR wszName, long lFlags, VARIANT* pValue) override;
    HRESULT STDMETHODCALLTYPE GetValue(LPCWSTR wszName, long lFlags, VARIANT* pValue) override;
    HRESULT STDMETHODCALLTYPE DeleteValue(LPCWSTR wszName, long lFlags) override;
    HRESULT STDMETHODCALLTYPE DeleteAll() override;

 private:
    struct Entry {
        std::string name;
        CComVariant value;
    };
    std::vector<Entry>::iterator Find(std::string_view name);
    Result<std::vector<Entry>::iterator> FindSet(LPCWSTR name, long flags);

    std::vector<Entry> entries_;
    std::optional<size_t> position_;  // of the enumeration's next value
};

// Reads a caller's context, which may be null and anybody's, for the time of one call. `value` keeps what it
// holds where the context says nothing, or null. WBEM_E_INVALID_CONTEXT for a value that is no boolean, or no
// number from `low` to `high`.
class ContextReader {
 public:
    explicit ContextReader(IWbemContext* context);

    Status ReadFlag(std::string_view name, bool& value) const;
    Status ReadNumber(std::string_view name, int64_t low, int64_t high, int64_t& value) const;

 private:
    Status Read(std::string_view name, CimType type, Value& value) const;

    IWbemContext* const context_;
    CComPtr<IServiceContext> own_;  // null for a context that is not of this service
};

}  // namespace service
