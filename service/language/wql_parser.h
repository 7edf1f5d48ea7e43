// Reads the text of a WQL query into a syntax tree.
//
//   Result<WqlQuery> query = ParseWql("SELECT * FROM Policy WHERE Days > 30");
//   if (!query.ok()) return query.status();
//
//   query      = SELECT ( "*" | path *( "," path ) ) FROM name [ WITHIN number ] [ WHERE any ]
//   any        = all *( OR all )
//   all        = condition *( AND condition )
//   condition  = NOT condition | "(" any ")" | term
//   term       = path comparison constant | constant comparison path
//              | path LIKE text | path ISA ( name | text ) | path IS [ NOT ] NULL
//   path       = name *( "." name )
//   comparison = "=" | "!=" | "<>" | "<" | ">" | "<=" | ">="
//   constant   = text | number | TRUE | FALSE | NULL
//
// Keywords stand in any case, white space between any two tokens. `= NULL` and `<> NULL` mean IS NULL and IS
// NOT NULL. A keyword names a property where it can be nothing else: behind a dot, or in front of an operator
// (TRUE, FALSE and NULL only behind a dot).
//
// Reading stops at the first fault. WBEM_E_UNPARSABLE_QUERY is one of the grammar, WBEM_E_INVALID_QUERY one
// of what the query asks for; the reason names the character, what stands there and what was expected. The
// time taken grows with the length of the text and with nothing else. Stateless: calls may run on any number
// of threads.
#pragma once

#include <string_view>

#include "service/language/wql_query.h"
#include "service/model/status.h"

namespace service {

// `utf8` is needed during the call only.
Result<WqlQuery> ParseWql(std::string_view utf8);

}  // namespace service
