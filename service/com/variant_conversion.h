// The one place where CIM values become variants and variants become CIM values. Only for service/com.
//
//   if (Status fault = ToVariant(type, view, wrap, variant); !fault.ok()) ...
//   Result<Value> value = FromVariant(type, variant, unwrap);
//
// Each CIM type travels as its published variant: sint8, sint16 and char16 as VT_I2, uint8 as VT_UI1, uint16,
// sint32 and uint32 as VT_I4, sint64 and uint64 as decimal text, real32 as VT_R4, real64 as VT_R8, boolean as
// VT_BOOL, text, datetimes and references as VT_BSTR, objects as VT_UNKNOWN; an array as VT_ARRAY with the
// element's type; null as VT_NULL. A uint32 above 2147483647 is the VT_I4 of the same bits, a char16 above
// 32767 the VT_I2: that is how they come back, too.
//
// On the way in a value is taken where it fits the type without loss: any integer variant within the range, a
// real without a fraction, decimal text; for reals integers and reals that the type holds exactly; for
// booleans the integers 0, 1 and -1. Everything else is WBEM_E_TYPE_MISMATCH.
#pragma once

#include <oleauto.h>

#include "service/model/function_ref.h"
#include "service/model/value.h"

namespace service {

// Makes the interface that an embedded object travels as, with a reference for the caller.
using WrapObject = FunctionRef<Result<IUnknown*>(const ObjectPtr&)>;

// Takes a copy of the object behind an interface.
using UnwrapObject = FunctionRef<Result<ObjectPtr>(IUnknown*)>;

// `variant` is overwritten, not cleared; on a fault it is untouched.
Status ToVariant(const PropertyType& type, const ValueView& value, WrapObject wrap, VARIANT& variant);

Result<Value> FromVariant(const PropertyType& type, const VARIANT& variant, UnwrapObject unwrap);

// An array of texts, the caller's to destroy.
Result<SAFEARRAY*> MakeNameArray(const Array& names);

// A BSTR of UTF-8 text; a fault for text that is damaged, std::bad_alloc when there is no memory.
Result<BSTR> MakeBstr(std::string_view utf8);

}  // namespace service
