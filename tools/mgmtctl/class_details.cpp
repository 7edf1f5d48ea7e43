#include "tools/mgmtctl/class_details.h"

#include <algorithm>

#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr const wchar_t* RESULT = L"ReturnValue";

std::vector<std::string> SuperclassesOf(IWbemClassObject& object) {
    std::vector<std::string> names;
    for (const _variant_t& name : ElementsOf(ValueOf(object, L"__DERIVATION")))
        names.push_back(Utf8(name.bstrVal));
    return names;
}

std::vector<std::string> SubclassesOf(IWbemServices& services, const std::string& name) {
    std::vector<std::string> names;
    if (name.starts_with("__")) return names;
    CComPtr<IEnumWbemClassObject> classes;
    Check(services.CreateClassEnum(_bstr_t(Wide(name).c_str()), WBEM_FLAG_SHALLOW, nullptr, &classes),
          "cannot list the classes below " + name);
    ForEach(*classes, [&](IWbemClassObject& object) { names.push_back(TextOf(object, L"__CLASS")); });
    std::sort(names.begin(), names.end());
    return names;
}

// A parameter with the place among the others that its signature gives it.
struct Placed {
    long place = 0;
    DeclaredParameter parameter;
};

long PlaceOf(const Qualifiers& qualifiers) {
    _variant_t place;
    if (qualifiers == nullptr || FAILED(qualifiers->Get(L"ID", 0, &place, nullptr))) return 0;
    return place.vt == VT_I4 ? place.lVal : 0;
}

// Adds the parameters of one signature to those of the other; what it says of the result goes to the method.
void AddSignature(IWbemClassObject* signature, bool is_out, std::vector<Placed>& placed,
                  DeclaredMethod& method) {
    if (signature == nullptr) return;
    for (const Property& property : PropertiesOf(*signature)) {
        const Qualifiers qualifiers = PropertyQualifiers(*signature, property.name);
        std::string type = DeclaredTypeName(property.type, qualifiers);
        if (is_out && EqualNames(property.name, RESULT)) {
            method.result = std::move(type);
            continue;
        }
        const std::string name = Utf8(property.name);
        auto found = std::find_if(placed.begin(), placed.end(),
                                  [&](const Placed& each) { return each.parameter.name == name; });
        if (found == placed.end()) {
            placed.push_back({PlaceOf(qualifiers), {name, std::move(type), {}, false, false}});
            found = std::prev(placed.end());
            found->parameter.description = TextQualifier(qualifiers, L"Description");
        }
        (is_out ? found->parameter.is_out : found->parameter.is_in) = true;
    }
}

DeclaredMethod MethodOf(IWbemClassObject& object, const std::wstring& name, IWbemClassObject* in,
                        IWbemClassObject* out) {
    DeclaredMethod method;
    method.name = Utf8(name);
    method.result = "void";
    CComBSTR origin;
    object.GetMethodOrigin(name.c_str(), &origin);
    method.origin = Utf8(static_cast<BSTR>(origin));
    const Qualifiers qualifiers = MethodQualifiers(object, name);
    method.description = TextQualifier(qualifiers, L"Description");
    method.qualifiers = ReadQualifiers(qualifiers);

    std::vector<Placed> placed;
    AddSignature(in, false, placed, method);
    AddSignature(out, true, placed, method);
    std::stable_sort(placed.begin(), placed.end(),
                     [](const Placed& left, const Placed& right) { return left.place < right.place; });
    for (Placed& each : placed)
        method.parameters.push_back(std::move(each.parameter));
    return method;
}

std::vector<DeclaredMethod> MethodsOf(IWbemClassObject& object) {
    std::vector<DeclaredMethod> methods;
    Check(object.BeginMethodEnumeration(0), "cannot list the methods");
    while (true) {
        CComBSTR name;
        CComPtr<IWbemClassObject> in;
        CComPtr<IWbemClassObject> out;
        const HRESULT result = object.NextMethod(0, &name, &in, &out);
        Check(result, "cannot read the methods");
        if (result != WBEM_S_NO_ERROR) break;
        methods.push_back(MethodOf(object, std::wstring(name, name.Length()), in, out));
    }
    object.EndMethodEnumeration();
    return methods;
}

}  // namespace

ClassDetails ReadDetails(IWbemServices& services, const ClassDeclaration& declaration) {
    IWbemClassObject& object = *declaration.object;
    ClassDetails details;
    details.superclasses = SuperclassesOf(object);
    details.subclasses = SubclassesOf(services, declaration.summary.name);
    details.qualifiers = ReadQualifiers(ClassQualifiers(object));
    for (const DeclaredProperty& each : declaration.properties)
        details.property_qualifiers[each.name] = ReadQualifiers(PropertyQualifiers(object, each.name));
    details.methods = MethodsOf(object);
    return details;
}

const NamedQualifier* FindQualifier(const std::vector<NamedQualifier>& qualifiers, const wchar_t* name) {
    const auto found = std::find_if(qualifiers.begin(), qualifiers.end(),
                                    [&](const NamedQualifier& each) { return EqualNames(each.name, name); });
    return found == qualifiers.end() ? nullptr : &*found;
}

}  // namespace mgmtctl
