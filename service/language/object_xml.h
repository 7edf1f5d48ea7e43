// Classes and instances as XML text, in the form of DMTF's DTD or in the service's wider one.
//
//   XmlWriter xml;
//   ObjectXml how;
//   how.local_only = true;
//   if (Status fault = WriteInstanceXml(instance, how, xml); !fault.ok()) return fault;
//   Result<std::string_view> text = xml.Finish();
//
//   <INSTANCE CLASSNAME="Policy">
//     <PROPERTY NAME="Days" TYPE="uint32"><VALUE>5</VALUE></PROPERTY>
//     <PROPERTY.ARRAY NAME="Tags" TYPE="string"><VALUE.ARRAY><VALUE>a</VALUE></VALUE.ARRAY></PROPERTY.ARRAY>
//   </INSTANCE>
//
// (without the line ends and the indentation), a class likewise as CLASS with its defaults. Properties stand
// in the order of their declaration, the inherited ones first.
//
//   null             no VALUE, or VALUE.NULL for an element of an array; an empty text is an empty VALUE
//   boolean          TRUE, FALSE
//   real             the fewest digits that read back as the same value, always with a point; INF, -INF, NaN
//   char16           the character; half of a surrogate pair, which is none, as U+FFFD
//   reference        VALUE.REFERENCE with the path's parts. A text that is no path stands, whole, as the key
//                    of an INSTANCENAME whose class name is empty, which no class's is.
//   PROPAGATED       "true" for what a class inherits as it is and for what was not set on an instance
//
// The two forms differ in what DMTF's DTD has no element for:
//
//                            kWmi                                kCim
//   embedded object          PROPERTY.OBJECT, VALUE.OBJECT       PROPERTY of type string, with
//   EmbeddedObject,
//                                                                whose value is the object's XML text
//   array of objects         PROPERTY.OBJECTARRAY,               PROPERTY.ARRAY likewise
//                            VALUE.OBJECTARRAY
//   array of references      PROPERTY.REFARRAY, VALUE.REFARRAY   PROPERTY.ARRAY of type string, the paths
//
// Characters that XML cannot carry are replaced as `XmlWriter` says. All functions are stateless.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "service/language/xml_writer.h"
#include "service/model/class_definition.h"
#include "service/model/instance.h"

namespace service {

enum class XmlForm { kCim, kWmi };

// How much of the object's path accompanies it.
enum class XmlPathLevel {
    kNone = 0,       // INSTANCE or CLASS
    kName = 1,       // VALUE.NAMEDOBJECT: INSTANCENAME, INSTANCE
    kNamespace = 2,  // VALUE.OBJECTWITHLOCALPATH: LOCALINSTANCEPATH or LOCALCLASSPATH, and the object
    kServer = 3,     // VALUE.OBJECTWITHPATH: INSTANCEPATH or CLASSPATH, and the object
};

// The system properties of the object that is written and of those embedded in it.
class XmlSystemProperties {
 public:
    struct Property {
        std::string name;
        PropertyType type;
        Value value;
    };
    // `embedded` is null for the object itself.
    virtual Result<std::vector<Property>> Of(const Instance* embedded) const = 0;

 protected:
    ~XmlSystemProperties() = default;
};

struct ObjectXml {
    XmlForm form = XmlForm::kWmi;
    bool local_only = false;  // only what a class declares itself, only what was set on an instance
    bool include_qualifiers = false;
    bool include_class_origin = false;
    XmlPathLevel path_level = XmlPathLevel::kNone;
    const XmlSystemProperties* system_properties = nullptr;  // null to leave them out
    // Where the object belongs, for the path levels that say so; empty where it belongs nowhere.
    std::string_view server;
    std::string_view namespace_path;
};

// WBEM_E_INVALID_OBJECT, saying why, for an object without the path that its path level asks for.
Status WriteInstanceXml(const Instance& instance, const ObjectXml& how, XmlWriter& out);

// `name` is the class's, empty for one that has none yet.
Status WriteClassXml(std::string_view name, const ClassDefinition& definition, const ObjectXml& how,
                     XmlWriter& out);

}  // namespace service
