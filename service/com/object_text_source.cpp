#include "service/com/object_text_source.h"

#include <string>
#include <utility>
#include <vector>

#include "service/com/boundary.h"
#include "service/com/class_object.h"
#include "service/com/context.h"
#include "service/com/system_properties.h"
#include "service/com/variant_conversion.h"
#include "service/language/object_xml.h"
#include "service/model/text.h"

namespace service {
namespace {

class SystemProperties final : public XmlSystemProperties {
 public:
    explicit SystemProperties(const ClassObject& object) : object_(object) {}

    Result<std::vector<Property>> Of(const Instance* embedded) const override {
        if (!embedded) return ReadAll(object_);
        return ReadAll(*ClassObject::OfInstance(object_.connection(), *embedded));
    }

 private:
    static Result<std::vector<Property>> ReadAll(const ClassObject& object) {
        std::vector<Property> all;
        all.reserve(kSystemPropertyCount);
        for (size_t i = 0; i < kSystemPropertyCount; ++i) {
            SERVICE_ASSIGN_OR_RETURN(Value value, ReadSystemProperty(object, i));
            const SystemProperty& property = SystemPropertyAt(i);
            all.push_back({ToUtf8Lossy(property.name), property.type, std::move(value)});
        }
        return all;
    }

    const ClassObject& object_;
};

Result<XmlForm> FormOf(ULONG format) {
    if (format == WMI_OBJ_TEXT_CIM_DTD_2_0) return XmlForm::kCim;
    if (format == WMI_OBJ_TEXT_WMI_DTD_2_0) return XmlForm::kWmi;
    return Status(WBEM_E_INVALID_PARAMETER,
                  "the text format " + std::to_string(format) +
                      " is unknown: 1 is the CIM DTD 2.0, 2 the same with this service's extensions");
}

Status ReadContext(IWbemContext* context, const SystemProperties& system_properties, ObjectXml& how) {
    bool excludes_system_properties = false;
    int64_t path_level = 0;
    const ContextReader reader(context);
    SERVICE_RETURN_IF_ERROR(reader.ReadFlag("LocalOnly", how.local_only));
    SERVICE_RETURN_IF_ERROR(reader.ReadFlag("IncludeQualifiers", how.include_qualifiers));
    SERVICE_RETURN_IF_ERROR(reader.ReadFlag("IncludeClassOrigin", how.include_class_origin));
    SERVICE_RETURN_IF_ERROR(reader.ReadFlag("ExcludeSystemProperties", excludes_system_properties));
    SERVICE_RETURN_IF_ERROR(reader.ReadNumber("PathLevel", 0, 3, path_level));
    how.system_properties = excludes_system_properties ? nullptr : &system_properties;
    how.path_level = static_cast<XmlPathLevel>(path_level);
    return {};
}

Status Write(const ClassObject& object, const ObjectXml& how, XmlWriter& out) {
    if (!object.IsClass()) return WriteInstanceXml(object.AsInstance(), how, out);
    return WriteClassXml(object.AsClass().declaration.name, *object.Definition(), how, out);
}

}  // namespace

HRESULT ObjectTextSource::GetText(long lFlags, IWbemClassObject* pObj, ULONG uObjTextFormat,
                                  IWbemContext* pCtx, BSTR* strText) {
    return AtBoundary([&]() -> Status {
        if (!strText) return NullArgument("strText");
        *strText = nullptr;
        if (!pObj) return NullArgument("pObj");
        if (lFlags != 0) return {WBEM_E_INVALID_PARAMETER, "the flags must be 0"};
        ObjectXml how;
        SERVICE_ASSIGN_OR_RETURN(how.form, FormOf(uObjTextFormat));
        const CComPtr<ClassObject> object = ClassObject::From(pObj);
        if (!object) return {WBEM_E_INVALID_OBJECT, "the object is not one of this service"};
        const SystemProperties system_properties(*object);
        SERVICE_RETURN_IF_ERROR(ReadContext(pCtx, system_properties, how));
        if (const Connection* connection = object->connection().get()) {
            how.server = connection->server;
            how.namespace_path = connection->space.path;
        }
        XmlWriter out;
        SERVICE_RETURN_IF_ERROR(Write(*object, how, out));
        SERVICE_ASSIGN_OR_RETURN(const std::string_view text, out.Finish());
        SERVICE_ASSIGN_OR_RETURN(*strText, MakeBstr(text));
        return {};
    });
}

HRESULT ObjectTextSource::CreateFromText(long, BSTR, ULONG, IWbemContext*, IWbemClassObject** pNewObj) {
    if (pNewObj) *pNewObj = nullptr;
    return Report(Status(WBEM_E_NOT_SUPPORTED,
                         "objects are not made from XML text: spawn an instance of its class instead"));
}

}  // namespace service
