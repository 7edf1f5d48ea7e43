// ObjectTextSource: IWbemObjectTextSrc, which renders the service's objects as XML. Only for service/com.
//
//   CComPtr<IWbemObjectTextSrc> source;
//   source.CoCreateInstance(CLSID_WbemObjectTextSrc);
//   source->GetText(0, object, WMI_OBJ_TEXT_WMI_DTD_2_0, context, &text);
//
// The text is the object's as it is at the time of the call, in the form that service/language/object_xml.h
// describes: WMI_OBJ_TEXT_CIM_DTD_2_0 is its form kCim, WMI_OBJ_TEXT_WMI_DTD_2_0 its form kWmi. The context,
// which may be null, has these values; others in it are ignored:
//
//   LocalOnly                boolean, else false: only what a class declares itself and what was set on an
//                            instance
//   IncludeQualifiers        boolean, else false
//   IncludeClassOrigin       boolean, else false
//   ExcludeSystemProperties  boolean, else false: so without it embedded objects have theirs, too
//   PathLevel                0 to 3, else 0: the object alone; with its name; with its path in its namespace;
//                            with its whole path
//
// Each is taken from any variant that holds such a value without loss, and null is as good as none; any other
// is WBEM_E_INVALID_CONTEXT. WBEM_E_INVALID_PARAMETER for a null object or output, for flags other than 0 and
// for an unknown format, WBEM_E_INVALID_OBJECT for an object that is not of this service or has no path for
// its path level, WBEM_E_TOO_MUCH_DATA for a text longer than kMaxXmlBytes. The output is null on a failure.
//
// It has no state: any number of threads may use one, each with an object and a context of its own.
#pragma once

#include <wbemidl.h>

#include "service/com/com_object.h"

namespace service {

class ObjectTextSource final : public ComObject<IWbemObjectTextSrc> {
 public:
    HRESULT STDMETHODCALLTYPE GetText(long lFlags, IWbemClassObject* pObj, ULONG uObjTextFormat,
                                      IWbemContext* pCtx, BSTR* strText) override;
    // WBEM_E_NOT_SUPPORTED: objects are made by way of their class.
    HRESULT STDMETHODCALLTYPE CreateFromText(long lFlags, BSTR strText, ULONG uObjTextFormat,
                                             IWbemContext* pCtx, IWbemClassObject** pNewObj) override;
};

}  // namespace service
