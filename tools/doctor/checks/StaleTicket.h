// The user's ticket for the service, when its key has changed since.
#pragma once

#include <set>
#include <string>

#include "tools/doctor/case/Case.h"

namespace morwen::doctor {

// The library takes a ticket from the user's cache if there is one, whatever the KDC would give now. Adds an error when
// its key has none of the versions; i_has says whose versions these are.
void LookForStaleTicket(Case& io_case, krb5_principal i_service, const std::set<krb5_kvno>& i_versions,
                        const std::string& i_has);

}  // namespace morwen::doctor
