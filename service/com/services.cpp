#include "service/com/services.h"

#include <cstdio>
#include <utility>
#include <vector>

#include "service/com/boundary.h"
#include "service/com/class_object.h"
#include "service/com/enumerator.h"
#include "service/com/identity.h"
#include "service/com/instance_requests.h"
#include "service/com/namespace_class.h"
#include "service/com/notifications.h"
#include "service/model/text.h"

namespace service {
namespace {

Status NotSupported(const char* what, const char* way_out) {
    return {WBEM_E_NOT_SUPPORTED, std::string(what) + " is not supported by this service: " + way_out};
}

HRESULT Unsupported(const char* what, const char* way_out) noexcept {
    return AtBoundary([&] { return NotSupported(what, way_out); });
}

HRESULT UnsupportedAsync() noexcept {
    return Unsupported("an asynchronous request", "make the one that waits, on a thread of your own");
}

HRESULT UnsupportedMethod() noexcept {
    return Unsupported("the call of a method",
                       "the methods of a class are kept as it declares them, no more");
}

std::string InHex(long flags) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%lX", static_cast<unsigned long>(flags) & 0xFFFFFFFF);
    return text;
}

// Requests run to their end before they return, so the flags that ask for it early change nothing; those that
// a request does not know are refused.
Status CheckFlags(long flags, long known) {
    constexpr long kHarmless = WBEM_FLAG_RETURN_IMMEDIATELY | WBEM_FLAG_FORWARD_ONLY |
                               WBEM_FLAG_USE_AMENDED_QUALIFIERS | WBEM_FLAG_DIRECT_READ;
    if ((flags & ~(known | kHarmless)) == 0) return {};
    return {WBEM_E_INVALID_PARAMETER, "flags " + InHex(flags & ~kHarmless) +
                                          " are not known for this request, which takes " +
                                          (known ? "those of " + InHex(known) : "none")};
}

Result<PutCondition> ConditionOf(long flags) {
    SERVICE_RETURN_IF_ERROR(CheckFlags(flags, WBEM_FLAG_UPDATE_ONLY | WBEM_FLAG_CREATE_ONLY));
    switch (flags & (WBEM_FLAG_UPDATE_ONLY | WBEM_FLAG_CREATE_ONLY)) {
        case WBEM_FLAG_CREATE_OR_UPDATE:
            return PutCondition::kCreateOrUpdate;
        case WBEM_FLAG_UPDATE_ONLY:
            return PutCondition::kUpdateOnly;
        case WBEM_FLAG_CREATE_ONLY:
            return PutCondition::kCreateOnly;
        default:
            return Status(
                WBEM_E_INVALID_PARAMETER,
                "the flags ask for update only and for create only: give one of them, or 0 for either");
    }
}

// How a change of a class deals with what is stored; without a flag it is refused where that would suffer.
Result<ClassUpdate> UpdateOf(long flags) {
    switch (flags & WBEM_MASK_UPDATE_MODE) {
        case WBEM_FLAG_UPDATE_COMPATIBLE:
        case WBEM_FLAG_UPDATE_SAFE_MODE:
            return ClassUpdate::kSafe;
        case WBEM_FLAG_UPDATE_FORCE_MODE:
            return ClassUpdate::kForced;
        default:
            return Status(WBEM_E_INVALID_PARAMETER,
                          "the flags ask for a safe update and for a forced one: give one of them");
    }
}

Result<CComPtr<ClassObject>> OwnObject(IWbemClassObject* object, bool as_class) {
    if (!object) return Status(WBEM_E_INVALID_PARAMETER, "the object must not be null");
    CComPtr<ClassObject> own = ClassObject::From(object);
    if (!own) {
        return Status(WBEM_E_INVALID_OBJECT,
                      "the object is not one of this service: get one, or spawn an instance of a class");
    }
    if (own->IsClass() == as_class) return own;
    const std::string& name = own->Definition()->Name();
    if (as_class) {
        return Status(
            WBEM_E_INVALID_OBJECT,
            "an instance of class " + name + " was given where a class was expected: PutInstance takes it");
    }
    return Status(
        WBEM_E_INVALID_OBJECT,
        "class " + name + " was given where an instance was expected: put what its SpawnInstance makes");
}

// A property that says that it holds an object, and does not, would be another one once it was exported as
// MOF and imported again.
Status CheckEmbedding(const ClassDeclaration& declaration) {
    for (const PropertyDeclaration& property : declaration.properties) {
        const bool is_object = property.type.type == CimType::kObject;
        const Qualifier* instance = FindQualifier(property.qualifiers, "EmbeddedInstance");
        const auto* of_class = instance ? std::get_if<std::string>(&instance->value) : nullptr;
        const bool agrees =
            !instance || (is_object && of_class && EqualFolded(*of_class, property.type.class_name));
        if (agrees && (is_object || !HasTrueQualifier(property.qualifiers, "EmbeddedObject"))) continue;
        return {
            WBEM_E_INVALID_OBJECT,
            "property " + declaration.name + "." + property.name + " is of type " +
                DescribeType(property.type) +
                ", which its qualifier EmbeddedInstance or EmbeddedObject belies: take that off, or import "
                "the class as MOF"};
    }
    return {};
}

}  // namespace

Result<ConnectionPtr> Connect(const std::string& path) {
    SERVICE_ASSIGN_OR_RETURN(const NamespacePath parsed, ParseNamespacePath(path));
    if (!IsThisMachine(parsed.server)) {
        return Status(WBEM_E_NOT_SUPPORTED,
                      "the server " + parsed.server + " is not this machine: name it as \"\\\\.\\\"");
    }
    auto connection = std::make_shared<Connection>();
    SERVICE_ASSIGN_OR_RETURN(connection->repository, Repository::Open(Repository::DefaultDirectory()));
    SERVICE_ASSIGN_OR_RETURN(connection->space, connection->repository->FindNamespace(parsed.path));
    connection->server = MachineName();
    return ConnectionPtr(std::move(connection));
}

Status Services::CheckIdentityAccepted() const {
    if (!is_refused_.load(std::memory_order_relaxed)) return {};
    return {WBEM_E_ACCESS_DENIED,
            "the identity named for this connection was refused: connect again with another, or with none"};
}

Result<ConnectionPtr> Services::ConnectionFor(const ObjectPath& path) const {
    if (path.server && !IsThisMachine(*path.server)) {
        return Status(WBEM_E_NOT_SUPPORTED,
                      "the server " + *path.server + " is not this machine: name it as \"\\\\.\\\"");
    }
    if (!path.namespace_path || EqualFolded(*path.namespace_path, connection_->space.path))
        return connection_;
    auto other = std::make_shared<Connection>(*connection_);
    SERVICE_ASSIGN_OR_RETURN(other->space, connection_->repository->FindNamespace(*path.namespace_path));
    return ConnectionPtr(std::move(other));
}

Result<CComPtr<IWbemClassObject>> Services::Fetch(const std::string& path) const {
    SERVICE_ASSIGN_OR_RETURN(const ObjectPath parsed, ParseObjectPath(path));
    SERVICE_ASSIGN_OR_RETURN(ConnectionPtr connection, ConnectionFor(parsed));
    const Repository& repository = *connection->repository;
    if (IsNamespaceClass(parsed.class_name)) {
        if (parsed.IsClass())
            return CComPtr<IWbemClassObject>(ClassObject::OfClass(std::move(connection), NamespaceClass()));
        SERVICE_ASSIGN_OR_RETURN(Instance instance, FindNamespaceInstance(*connection, parsed));
        return CComPtr<IWbemClassObject>(ClassObject::OfInstance(std::move(connection), std::move(instance)));
    }
    if (parsed.IsClass()) {
        SERVICE_ASSIGN_OR_RETURN(const ClassPtr definition,
                                 In(*connection, repository.FindClass(connection->space, parsed.class_name)));
        return CComPtr<IWbemClassObject>(ClassObject::OfClass(std::move(connection), definition));
    }
    SERVICE_ASSIGN_OR_RETURN(Instance instance,
                             In(*connection, repository.GetInstance(connection->space, parsed)));
    return CComPtr<IWbemClassObject>(ClassObject::OfInstance(std::move(connection), std::move(instance)));
}

HRESULT Services::QueryBlanket(IUnknown*, DWORD* pAuthnSvc, DWORD* pAuthzSvc, OLECHAR** pServerPrincName,
                               DWORD* pAuthnLevel, DWORD* pImpLevel, void** pAuthInfo, DWORD* pCapabilities) {
    if (pAuthnSvc) *pAuthnSvc = RPC_C_AUTHN_WINNT;
    if (pAuthzSvc) *pAuthzSvc = RPC_C_AUTHZ_NONE;
    if (pServerPrincName) *pServerPrincName = nullptr;
    if (pAuthnLevel) *pAuthnLevel = RPC_C_AUTHN_LEVEL_CALL;
    if (pImpLevel) *pImpLevel = RPC_C_IMP_LEVEL_IMPERSONATE;
    if (pAuthInfo) *pAuthInfo = nullptr;
    if (pCapabilities) *pCapabilities = EOAC_NONE;
    return S_OK;
}

// Of the settings only the identity matters within one process.
HRESULT Services::SetBlanket(IUnknown*, DWORD, DWORD, OLECHAR*, DWORD, DWORD, void* pAuthInfo, DWORD) {
    return AtBoundary([&]() -> Status {
        const auto* identity = static_cast<const COAUTHIDENTITY*>(pAuthInfo);
        Status result;
        if (identity && identity->User) {
            result = CheckIdentity(
                {identity->User, identity->UserLength},
                {identity->Domain ? identity->Domain : L"", identity->Domain ? identity->DomainLength : 0});
        }
        is_refused_.store(!result.ok(), std::memory_order_relaxed);
        return result;
    });
}

HRESULT Services::CopyProxy(IUnknown*, IUnknown** ppCopy) {
    if (!ppCopy) return E_POINTER;
    *ppCopy = static_cast<IWbemServices*>(this);
    AddRef();
    return S_OK;
}

HRESULT Services::OpenNamespace(const BSTR strNamespace, long lFlags, IWbemContext*,
                                IWbemServices** ppWorkingNamespace, IWbemCallResult** ppResult) {
    return AtBoundary([&]() -> Status {
        if (ppResult) *ppResult = nullptr;
        if (!ppWorkingNamespace) return NullArgument("ppWorkingNamespace");
        *ppWorkingNamespace = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckIdentityAccepted());
        SERVICE_RETURN_IF_ERROR(CheckFlags(lFlags, 0));
        SERVICE_ASSIGN_OR_RETURN(const std::string name, TakeText(strNamespace, "the namespace"));
        SERVICE_ASSIGN_OR_RETURN(const NamespacePath parsed,
                                 ParseNamespacePath(connection_->space.path + "\\" + name));
        auto below = std::make_shared<Connection>(*connection_);
        SERVICE_ASSIGN_OR_RETURN(below->space, connection_->repository->FindNamespace(parsed.path));
        *ppWorkingNamespace = MakeCom<Services>(std::move(below)).Detach();
        return {};
    });
}

// A null or empty path asks for a class without anything, to be filled in and put.
HRESULT Services::GetObject(const BSTR strObjectPath, long lFlags, IWbemContext*, IWbemClassObject** ppObject,
                            IWbemCallResult** ppCallResult) {
    return AtBoundary([&]() -> Status {
        if (ppCallResult) *ppCallResult = nullptr;
        if (!ppObject) return NullArgument("ppObject");
        *ppObject = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckIdentityAccepted());
        SERVICE_RETURN_IF_ERROR(CheckFlags(lFlags, 0));
        SERVICE_ASSIGN_OR_RETURN(const std::string path, TakeText(strObjectPath, "the object path"));
        if (path.empty()) {
            SERVICE_ASSIGN_OR_RETURN(CComPtr<ClassObject> empty,
                                     ClassObject::OfNewClass(connection_, nullptr));
            *ppObject = empty.Detach();
            return {};
        }
        SERVICE_ASSIGN_OR_RETURN(CComPtr<IWbemClassObject> object, Fetch(path));
        *ppObject = object.Detach();
        return {};
    });
}

HRESULT Services::PutClass(IWbemClassObject* pObject, long lFlags, IWbemContext*,
                           IWbemCallResult** ppCallResult) {
    return AtBoundary([&]() -> Status {
        if (ppCallResult) *ppCallResult = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckIdentityAccepted());
        const long mode = lFlags & WBEM_MASK_UPDATE_MODE;
        SERVICE_ASSIGN_OR_RETURN(const PutCondition condition, ConditionOf(lFlags & ~mode));
        SERVICE_ASSIGN_OR_RETURN(const ClassUpdate update, UpdateOf(mode));
        SERVICE_ASSIGN_OR_RETURN(const CComPtr<ClassObject> object, OwnObject(pObject, true));
        const ClassDeclaration& declaration = object->AsClass().declaration;
        if (declaration.name.empty()) return {WBEM_E_INCOMPLETE_CLASS, "the class has no name: set __CLASS"};
        SERVICE_RETURN_IF_ERROR(In(*connection_, CheckEmbedding(declaration)));
        return In(*connection_, connection_->repository->Write([&](RepositoryWriter& writer) {
            bool is_changed = false;
            return writer.PutClass(connection_->space, declaration, condition, is_changed, update);
        }));
    });
}

HRESULT Services::DeleteClass(const BSTR strClass, long lFlags, IWbemContext*,
                              IWbemCallResult** ppCallResult) {
    return AtBoundary([&]() -> Status {
        if (ppCallResult) *ppCallResult = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckIdentityAccepted());
        SERVICE_RETURN_IF_ERROR(CheckFlags(lFlags, WBEM_MASK_UPDATE_MODE));
        SERVICE_ASSIGN_OR_RETURN(const ClassUpdate update, UpdateOf(lFlags));
        SERVICE_ASSIGN_OR_RETURN(const std::string text, TakeText(strClass, "the class's name"));
        SERVICE_ASSIGN_OR_RETURN(const ObjectPath path, ParseObjectPath(text));
        if (!path.IsClass())
            return {WBEM_E_INVALID_PARAMETER,
                    "the path " + text + " names an instance, not a class: DeleteInstance deletes it"};
        SERVICE_ASSIGN_OR_RETURN(const ConnectionPtr connection, ConnectionFor(path));
        return In(*connection, connection->repository->Write([&](RepositoryWriter& writer) {
            return writer.DeleteClass(connection->space, path.class_name, update);
        }));
    });
}

// The subclasses of `strSuperclass`, or of all when it is empty: all below it, or with WBEM_FLAG_SHALLOW
// those directly below.
HRESULT Services::CreateClassEnum(const BSTR strSuperclass, long lFlags, IWbemContext*,
                                  IEnumWbemClassObject** ppEnum) {
    return AtBoundary([&]() -> Status {
        if (!ppEnum) return NullArgument("ppEnum");
        *ppEnum = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckIdentityAccepted());
        SERVICE_RETURN_IF_ERROR(CheckFlags(lFlags, WBEM_FLAG_SHALLOW));
        SERVICE_ASSIGN_OR_RETURN(const std::string superclass,
                                 TakeText(strSuperclass, "the superclass's name"));
        std::vector<ClassPtr> classes;
        SERVICE_RETURN_IF_ERROR(connection_->repository->Read([&](RepositoryReader& reader) -> Status {
            if (superclass.empty()) {
                SERVICE_ASSIGN_OR_RETURN(const SchemaCache::ClassList all,
                                         reader.Classes(connection_->space));
                classes = *all;
                return {};
            }
            SERVICE_ASSIGN_OR_RETURN(const ClassPtr top, reader.FindClass(connection_->space, superclass));
            SERVICE_ASSIGN_OR_RETURN(classes, reader.Subclasses(connection_->space, top->Name()));
            return {};
        }));
        std::vector<CComPtr<IWbemClassObject>> objects;
        for (const ClassPtr& definition : classes) {
            const std::string& above = definition->Declaration().superclass;
            if ((lFlags & WBEM_FLAG_SHALLOW) && !EqualFolded(above, superclass)) continue;
            objects.emplace_back(ClassObject::OfClass(connection_, definition));
        }
        *ppEnum = MakeCom<ObjectList>(std::move(objects)).Detach();
        return {};
    });
}

HRESULT Services::PutInstance(IWbemClassObject* pInst, long lFlags, IWbemContext*,
                              IWbemCallResult** ppCallResult) {
    return AtBoundary([&]() -> Status {
        if (ppCallResult) *ppCallResult = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckIdentityAccepted());
        SERVICE_ASSIGN_OR_RETURN(const PutCondition condition, ConditionOf(lFlags));
        SERVICE_ASSIGN_OR_RETURN(const CComPtr<ClassObject> object, OwnObject(pInst, false));
        if (object->Definition() == NamespaceClass())
            return In(*connection_, PutNamespaceInstance(*connection_, object->AsInstance(), condition));
        return In(*connection_,
                  connection_->repository->PutInstance(connection_->space, object->AsInstance(), condition));
    });
}

HRESULT Services::DeleteInstance(const BSTR strObjectPath, long lFlags, IWbemContext*,
                                 IWbemCallResult** ppCallResult) {
    return AtBoundary([&]() -> Status {
        if (ppCallResult) *ppCallResult = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckIdentityAccepted());
        SERVICE_RETURN_IF_ERROR(CheckFlags(lFlags, 0));
        SERVICE_ASSIGN_OR_RETURN(const std::string text, TakeText(strObjectPath, "the object path"));
        SERVICE_ASSIGN_OR_RETURN(const ObjectPath path, ParseObjectPath(text));
        SERVICE_ASSIGN_OR_RETURN(const ConnectionPtr connection, ConnectionFor(path));
        if (IsNamespaceClass(path.class_name))
            return NotSupported("deleting a namespace", "delete its classes, the name does no harm");
        return In(*connection, connection->repository->DeleteInstance(connection->space, path));
    });
}

HRESULT Services::CreateInstanceEnum(const BSTR strFilter, long lFlags, IWbemContext*,
                                     IEnumWbemClassObject** ppEnum) {
    return AtBoundary([&]() -> Status {
        if (!ppEnum) return NullArgument("ppEnum");
        *ppEnum = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckIdentityAccepted());
        SERVICE_RETURN_IF_ERROR(CheckFlags(lFlags, WBEM_FLAG_SHALLOW));
        SERVICE_ASSIGN_OR_RETURN(const std::string name, TakeText(strFilter, "the class's name"));
        SERVICE_ASSIGN_OR_RETURN(CComPtr<IEnumWbemClassObject> instances,
                                 In(*connection_, EnumerateInstances(connection_, name, lFlags)));
        *ppEnum = instances.Detach();
        return {};
    });
}

HRESULT Services::ExecQuery(const BSTR strQueryLanguage, const BSTR strQuery, long lFlags, IWbemContext*,
                            IEnumWbemClassObject** ppEnum) {
    return AtBoundary([&]() -> Status {
        if (!ppEnum) return NullArgument("ppEnum");
        *ppEnum = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckIdentityAccepted());
        SERVICE_RETURN_IF_ERROR(CheckFlags(lFlags, WBEM_FLAG_ENSURE_LOCATABLE));
        SERVICE_RETURN_IF_ERROR(CheckQueryLanguage(strQueryLanguage));
        SERVICE_ASSIGN_OR_RETURN(const std::string query, TakeText(strQuery, "the query"));
        SERVICE_ASSIGN_OR_RETURN(CComPtr<IEnumWbemClassObject> instances,
                                 In(*connection_, QueryInstances(connection_, query, lFlags)));
        *ppEnum = instances.Detach();
        return {};
    });
}

HRESULT Services::ExecNotificationQueryAsync(const BSTR strQueryLanguage, const BSTR strQuery, long lFlags,
                                             IWbemContext*, IWbemObjectSink* pResponseHandler) {
    return AtBoundary([&]() -> Status {
        if (!pResponseHandler) return NullArgument("pResponseHandler");
        SERVICE_RETURN_IF_ERROR(CheckIdentityAccepted());
        SERVICE_RETURN_IF_ERROR(CheckFlags(lFlags, WBEM_FLAG_SEND_STATUS));
        SERVICE_RETURN_IF_ERROR(CheckQueryLanguage(strQueryLanguage));
        SERVICE_ASSIGN_OR_RETURN(const std::string query, TakeText(strQuery, "the query"));
        return In(*connection_, SubscribeSink(connection_, query, pResponseHandler));
    });
}

HRESULT Services::CancelAsyncCall(IWbemObjectSink* pSink) {
    return AtBoundary([&]() -> Status {
        if (!pSink) return NullArgument("pSink");
        return CancelSink(connection_, pSink);
    });
}

HRESULT Services::QueryObjectSink(long, IWbemObjectSink**) {
    return Unsupported("a sink of the service", "implement IWbemObjectSink");
}
HRESULT Services::GetObjectAsync(const BSTR, long, IWbemContext*, IWbemObjectSink*) {
    return UnsupportedAsync();
}
HRESULT Services::PutClassAsync(IWbemClassObject*, long, IWbemContext*, IWbemObjectSink*) {
    return UnsupportedAsync();
}
HRESULT Services::DeleteClassAsync(const BSTR, long, IWbemContext*, IWbemObjectSink*) {
    return UnsupportedAsync();
}
HRESULT Services::CreateClassEnumAsync(const BSTR, long, IWbemContext*, IWbemObjectSink*) {
    return UnsupportedAsync();
}
HRESULT Services::PutInstanceAsync(IWbemClassObject*, long, IWbemContext*, IWbemObjectSink*) {
    return UnsupportedAsync();
}
HRESULT Services::DeleteInstanceAsync(const BSTR, long, IWbemContext*, IWbemObjectSink*) {
    return UnsupportedAsync();
}
HRESULT Services::CreateInstanceEnumAsync(const BSTR, long, IWbemContext*, IWbemObjectSink*) {
    return UnsupportedAsync();
}
HRESULT Services::ExecQueryAsync(const BSTR, const BSTR, long, IWbemContext*, IWbemObjectSink*) {
    return UnsupportedAsync();
}
HRESULT Services::ExecNotificationQuery(const BSTR, const BSTR, long, IWbemContext*, IEnumWbemClassObject**) {
    return Unsupported("a semisynchronous notification query", "call ExecNotificationQueryAsync");
}
HRESULT Services::ExecMethod(const BSTR, const BSTR, long, IWbemContext*, IWbemClassObject*,
                             IWbemClassObject**, IWbemCallResult**) {
    return UnsupportedMethod();
}
HRESULT Services::ExecMethodAsync(const BSTR, const BSTR, long, IWbemContext*, IWbemClassObject*,
                                  IWbemObjectSink*) {
    return UnsupportedMethod();
}

}  // namespace service
