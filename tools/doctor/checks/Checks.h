// The checks, in the order in which they run: each finds out what the next ones build on.
#pragma once

#include "tools/doctor/case/Case.h"

namespace morwen::doctor {

// All add to the case's report and throw std::bad_alloc alone.

// The configuration's files and the default realm. Makes the case's context when it can be made.
void CheckConfiguration(Case& io_case);
// The host in the service's name.
void CheckHost(Case& io_case);
// Each KDC of the realms concerned, and the clock against it.
void CheckKdcs(Case& io_case);
// Client: whether the realm takes the user's password; the tickets that it gives are then those to look at. Tries it
// once, for a wrong one counts against the account.
bool CheckPassword(Case& io_case);
// The default credential cache and the ticket in it.
void CheckCache(Case& io_case);
// Server: whether there happens to be a usable ticket; no finding, for a service needs none.
void FindTickets(Case& io_case);
// Client: a ticket for the service, and delegation.
void CheckService(Case& io_case);
// Server: the keytab's file and keys, and the keys against those of the KDC.
void CheckKeytab(Case& io_case);
void CheckReplayCache(Case& io_case);
// Server: the user's local account, and the right to act as that account.
void CheckAccount(Case& io_case);
// Server: whether it may go on to another service as its users, and in which of the two ways.
void CheckSecondHop(Case& io_case);
// The library itself, up to where a peer would be needed.
void CheckLibrary(Case& io_case);

}  // namespace morwen::doctor
