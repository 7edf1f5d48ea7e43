// CMgmtClass is a management class: it lists the class's instances and creates new ones.
//
//   CMgmtClass policies(L"RetentionPolicy", true);
//   CMgmtObjectCollection* instances = policies.GetInstances();
//   for (size_t i = 0; i < instances->GetTotalItemCount(); ++i)
//   Print(instances->GetItem(i)->GetInstanceId());
//
// It is a CMgmtObject whose category id is the class name; SetCategoryID turns to another class, SetScope to
// another namespace.
//
// Nothing is locked: a caller serialises all use of a class, of its copies and of the objects that it handed
// out. The thread that lists or creates must have initialised COM.
//
// A service that fails or refuses makes an operation return null, false or what was listed so far; the
// thread's error object says why. What is thrown is what CMgmtObject throws; the class can then be used as
// before.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include <atlbase.h>
#include <wbemidl.h>

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtObject.h"
#include "utility/management/util_MgmtObjectBase.h"
#include "utility/management/util_MgmtObjectCollection.h"
#include "utility/management/util_MgmtScope.h"

class MGMT_API CMgmtClass : public CMgmtObject {
 public:
    // A class without a name and without a collection: GetInstances fills the cache, once SetCategoryID has
    // named the class, but returns null. Instances are listed by their id.
    CMgmtClass();

    // `className` may be null and is then empty. With `useInstanceId`, the objects that GetInstances lists
    // are known by class name and instance id, and their date-and-time properties are dates (VT_DATE) where
    // the text is a date. Else they are known by their relative object path, their category id and instance
    // id are empty, and date-and-time properties stay text. Nothing is asked of the service.
    CMgmtClass(const wchar_t* className, bool useInstanceId);

    // Copies the object as CMgmtObject does. The cache and the created objects stay the original's alone: the
    // copy begins with an empty cache, shown by a collection of its own.
    CMgmtClass(const CMgmtClass& other);
    CMgmtClass& operator=(const CMgmtClass&) = delete;
    // Destroys the collection, the objects in the cache and those of CreateInstance(). Nothing is deleted in
    // the service.
    ~CMgmtClass() override;

    // Lists the instances of the class and of its subclasses anew. The objects of the call before are
    // destroyed, the collection stays the same one and is valid as long as the class; null after the default
    // constructor. The objects hold all properties and the default scope of the moment, not the scope of the
    // class; they hold no service object, so their Get and Put go to the service. They stay the class's until
    // the next call, unless RemoveObject or RemoveAllObject gave them away.
    //
    // An instance whose class name and id (or whose path) the service does not tell is left out; where one of
    // them is no text, a null key for instance, it is empty. An instance whose properties cannot be listed is
    // in the cache without them.
    //
    // Blocks until the service has no more instances, however often it lets a wait of 30 s pass. A request to
    // list that is refused is logged and leaves the cache empty; a failure later on ends the list with what
    // was cached so far and is not logged, and neither is a connection that fails. The thread's error object
    // is that of the request that failed. An exception leaves in the cache what was listed before it.
    CMgmtObjectCollection* GetInstances();

    // A new instance in memory, with an empty bag, for the caller to fill and to convert to a variant.
    // Nothing is written to the service. It is destroyed with the class, and not before. Null when the class
    // cannot be had.
    CMgmtObjectBase* CreateInstance();

    // Creates an instance in the service with the properties in the bag of `source` and its instance id as
    // INSTANCE_ID, whatever the bag says. Empty, null and error values are not written. The class is this
    // one, not that of `source`, which is not changed. False, with nothing stored, when there is an instance
    // with this id already, and when the service refuses a property.
    bool CreateInstance(CMgmtObject& source);

    // Creates an instance in the service that has nothing but its INSTANCE_ID. The result holds the new
    // instance and is the caller's to delete. Null, with nothing stored, when there is one with this id
    // already; an exception leaves nothing stored either.
    CMgmtObjectBase* CreateInstance(const wchar_t* instanceId);

    // Takes the object at `index`, counted from 0, out of the cache: it is the caller's from now on, who got
    // it from the collection before. Those behind it move up. Without such an object nothing happens. Always
    // true.
    bool RemoveObject(size_t index);

    // The same for all objects in the cache.
    void RemoveAllObject();

 protected:
    // Destroys the objects in the cache.
    void Reset();

 private:
    MGMT_LOCAL CComPtr<IEnumWbemClassObject> _EnumerateInstances();
    MGMT_LOCAL std::unique_ptr<CMgmtObject> _MakeListed(const CMgmtScope& scope,
                                                        IWbemClassObject& object) const;

    // The new instance in memory, or null.
    MGMT_LOCAL CComPtr<IWbemClassObject> _Spawn(IWbemServices* services) const;

    std::vector<CMgmtObject*> m_Instances;  // owned; plain pointers because the collection shows this list
    std::unique_ptr<CMgmtObjectCollection> m_InstanceCollection;
    std::vector<std::unique_ptr<CMgmtObjectBase>> m_CreatedObjects;
    bool m_UseInstanceId = true;
};
