// A service that the KDC, or the keytab, does not have under the name given: which one is meant?
#pragma once

#include "tools/doctor/case/FreshTickets.h"

namespace morwen::doctor {

// Adds the finding: the host's realm is another one, the name is spelled otherwise, belongs to another name of the
// host, or has a slip; else the service is unknown, and only then the remedy is to add it. i_pTickets: to ask the KDC
// with. Null: what stands in the keytab is taken for known, and when nothing there can be meant, this adds nothing and
// returns false.
bool SayUnknown(Case& io_case, FreshTickets* i_pTickets, krb5_principal i_service, const std::string& i_words);

}  // namespace morwen::doctor
