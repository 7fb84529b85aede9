// Who logged on: the security identifiers of an accepted login.
#pragma once

#include "handlers/SSOSession.h"
#include "params/Parameters.h"
#include "platform/OsTypes.h"

namespace morwen {

// Adds SSPI_USER_SID and SSPI_USER_GROUP_SIDS (each SID followed by ";", in the token's order). The calling thread is
// itself again on every way out. Throws SSOException.
void GetLogonInformation(const SSOSessionPtr& i_pSession, Parameters& o_parameters);

// Whether a directory says who logged on, which it does by an identifier of its own; one that was made of a local
// account is of the Unix authority (22). Where the context cannot be asked itself, the system knows no other users than
// those of directories. Nobody is impersonated. Throws SSOException.
bool IsKnownToDirectory(const SSOSessionPtr& i_pSession);

// The textual form, for example S-1-5-18. Throws SSOException for what is not a security identifier.
void SIDToSString(PSID i_pSid, SWCharString& o_ssText);

}  // namespace morwen
