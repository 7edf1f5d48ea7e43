// Object paths as XML elements.
//
//   WritePathXml(path, definition.get(), xml);    // INSTANCEPATH, LOCALINSTANCEPATH, INSTANCENAME, ...
//   WriteReferenceXml("Policy.ID=\"a\"", xml);    // VALUE.REFERENCE around one of these
//
//   Policy.ID="a"                 INSTANCENAME with a KEYBINDING for each key
//   Policy="a"                    INSTANCENAME with a KEYVALUE
//   Policy=@                      INSTANCENAME alone
//   root\A:Policy.ID="a"          LOCALINSTANCEPATH: LOCALNAMESPACEPATH, INSTANCENAME
//   \\server\root\A:Policy="a"    INSTANCEPATH: NAMESPACEPATH with HOST, INSTANCENAME
//
// and of a class CLASSNAME, LOCALCLASSPATH, CLASSPATH. All functions are stateless.
#pragma once

#include <string_view>

#include "service/language/xml_writer.h"
#include "service/model/class_definition.h"
#include "service/model/object_path.h"

namespace service {

// `definition` is the path's class where it is known, else null. It tells which keys are references: these
// are written as such, not as texts.
void WritePathXml(const ObjectPath& path, const ClassDefinition* definition, XmlWriter& out);

// A text that is no path stands, whole, as the key of an INSTANCENAME whose class name is empty.
void WriteReferenceXml(std::string_view text, XmlWriter& out);

}  // namespace service
