// The commands, one file each. A command prints its result to the standard output and throws UsageFailure or
// OperationFailure.
//
//   Describe(ReadArguments(argc, argv));
//
// The calling thread has initialised COM, and the library's default scope is the namespace asked for.
#pragma once

#include "tools/mgmtctl/arguments.h"

namespace mgmtctl {

void Import(const Arguments& arguments);
void Export(const Arguments& arguments);
void Graph(const Arguments& arguments);
void ListNamespaces(const Arguments& arguments);
void ListClasses(const Arguments& arguments);
void Describe(const Arguments& arguments);
void List(const Arguments& arguments);
void Query(const Arguments& arguments);
void Count(const Arguments& arguments);
void Get(const Arguments& arguments);
void ShowXml(const Arguments& arguments);
void Create(const Arguments& arguments);
void Set(const Arguments& arguments);
void Delete(const Arguments& arguments);
void Watch(const Arguments& arguments);
void WaitForReload(const Arguments& arguments);
void SignalReload(const Arguments& arguments);
void CheckStore(const Arguments& arguments);
void Backup(const Arguments& arguments);
void ShowLimits(const Arguments& arguments);

}  // namespace mgmtctl
