// CMgmtObjectBase::GetXML. The text is the service's work; this only says what is wanted.
#include <comutil.h>
#include <wbemidl.h>

#include "utility/management/util_MgmtClassObject.h"
#include "utility/management/util_MgmtObjectBase.h"

namespace {

// What the text is to contain. A value that the context refuses leaves the service's default.
void SetOptions(IWbemContext& context) {
    _variant_t yes(true);
    _variant_t no(false);
    _variant_t objectWithoutPath(0L);
    context.SetValue(L"LocalOnly", 0, &yes);
    context.SetValue(L"IncludeQualifiers", 0, &no);
    context.SetValue(L"PathLevel", 0, &objectWithoutPath);
    context.SetValue(L"ExcludeSystemProperties", 0, &yes);
}

}  // namespace

_bstr_t CMgmtObjectBase::GetXML() {
    const CComPtr<IWbemClassObject> object = class_object::Of(m_WMIObject);
    if (object == nullptr) return {};

    CComPtr<IWbemContext> context;
    if (context.CoCreateInstance(CLSID_WbemContext, nullptr, CLSCTX_INPROC_SERVER) != S_OK) return {};
    SetOptions(*context);

    CComPtr<IWbemObjectTextSrc> source;
    if (source.CoCreateInstance(CLSID_WbemObjectTextSrc, nullptr, CLSCTX_INPROC_SERVER) != S_OK) return {};

    _bstr_t text;
    source->GetText(0, object, WMI_OBJ_TEXT_WMI_DTD_2_0, context, text.GetAddress());
    return text;
}
