// Prints a stream of instances as a listing asks for it.
//
//   PrintListing(stream, declaration, has_subclasses, arguments);
//
// Instances are held only to be sorted: all of them, or with a limit not many more than that. One thread.
#pragma once

#include "tools/mgmtctl/arguments.h"
#include "tools/mgmtctl/class_declaration.h"
#include "tools/mgmtctl/instance_stream.h"

namespace mgmtctl {

// `declaration` is the class that was asked for; `has_subclasses` tells whether others are to be expected.
// What was printed before a failure stays.
void PrintListing(InstanceStream& stream, const ClassDeclaration& declaration, bool has_subclasses,
                  const Arguments& arguments);

}  // namespace mgmtctl
