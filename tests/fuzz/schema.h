// The classes that the fuzzers' inputs are about: one with properties of every type, and some that have other
// keys, derive and embed.
//
//   service::Instance row(fuzz::ClassNamed("Wide"));
//   fuzz::Set(row, "Text", std::string("a"));   // false for a value that the property does not take
//
// One thread.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "service/model/instance.h"
#include "tests/fuzz/expectations.h"
#include "tests/service/language/memory_target.h"

namespace fuzz {

inline constexpr std::string_view kSchema = R"(
[Description("holds the others")] class Inner { string A = "default"; uint16 B[]; object Next; };
class Wide {
    [key] string ID;
    boolean Flag; sint8 S8; uint8 U8; sint16 S16; uint16 U16; sint32 S32; uint32 U32 = 7; sint64 S64; uint64 U64;
    real32 R32; real64 R64; char16 C16; string Text = "x"; datetime At; Wide ref Link; object Any; Inner In;
    boolean Flags[]; sint8 S8s[]; uint8 U8s[]; sint16 S16s[]; uint16 U16s[]; sint32 S32s[]; uint32 U32s[];
    sint64 S64s[]; uint64 U64s[]; real32 R32s[]; real64 R64s[]; char16 C16s[]; string Texts[3]; datetime Ats[];
    Wide ref Links[]; object Anys[];
};
class Wider : Wide { string More; };
class Keys { [key] uint8 N; [key] boolean On; [key] string Name; [key] sint64 Far; };
class Moment { [key] datetime At; };
class Mark { [key] char16 Unit; };
[Singleton] class Only { uint32 Value; };
instance of Wider {
    ID = "extreme"; Flag = TRUE; S8 = -128; U16 = 65535; S64 = -9223372036854775808; U64 = 18446744073709551615;
    R32 = 1.1; R64 = NaN; C16 = 0xD800; Text = NULL; At = "20240229235959.999999-720"; Link = "Wide.ID=\"a\\\\b\"";
    In = instance of Inner {}; Any = instance of Wider { ID = "k"; R64 = NaN; };
};
)";

inline const service::MemoryTarget& Schema() {
    static const service::MemoryTarget target = [] {
        service::MemoryTarget made;
        const std::string fault = service::FaultIn(service::Import(made, kSchema));
        Expect(fault.empty(), "the schema is sound", fault);
        return made;
    }();
    return target;
}

inline service::Result<service::ClassPtr> FindClass(std::string_view name) {
    if (service::ClassPtr found = Schema().Class(std::string(name))) return found;
    return service::Status(WBEM_E_INVALID_CLASS, "there is no class " + std::string(name));
}

inline service::ClassPtr ClassNamed(std::string_view name) {
    const service::Result<service::ClassPtr> found = FindClass(name);
    Expect(found.ok(), "the schema has the class", name);
    return *found;
}

inline bool Set(service::Instance& instance, std::string_view property, service::Value value) {
    const auto index = instance.Class()->FindProperty(property);
    return index && instance.Set(*index, std::move(value)).ok();
}

}  // namespace fuzz
