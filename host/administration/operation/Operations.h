#pragma once

#include "host/administration/Call.h"

namespace Host {

// What the administration does, an operation a row of its table (see `Routes`). Each throws `Refusal`, or
// `AccessDirectory::Failure`, for what it does not do.

Reply GetMe(Call& call);
Reply PutMyCredential(Call& call);

Reply ListUsers(Call& call);
Reply CreateUser(Call& call);
Reply GetUser(Call& call);
Reply DeleteUser(Call& call);
Reply PutUserGroups(Call& call);
Reply PutUserCredential(Call& call);

Reply ListGroups(Call& call);
Reply CreateGroup(Call& call);
Reply GetGroup(Call& call);
Reply DeleteGroup(Call& call);
Reply PutGroupUsers(Call& call);
Reply PutMembership(Call& call);
Reply DeleteMembership(Call& call);

Reply ListFilters(Call& call);
Reply CreateFilter(Call& call);
Reply DeleteFilter(Call& call);
Reply WhatIf(Call& call);

Reply Check(Call& call);
Reply Who(Call& call);
Reply Methods(Call& call);
Reply Findings(Call& call);
Reply ShowMatrix(Call& call);
Reply ListDecisions(Call& call);

Reply ExportDirectory(Call& call);
Reply ImportDirectory(Call& call);

Reply Batch(Call& call);
Reply OpenApi(Call& call);

/// The answer to OPTIONS on any path: what the caller may do there.
Reply Options(Call& call);

} // namespace Host
