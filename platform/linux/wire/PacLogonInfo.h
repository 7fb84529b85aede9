// What a directory says about a user in a ticket: the security identifiers, and the account's name.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/linux/wire/TokenSids.h"

namespace morwen {

// Reads the logon information of a PAC (buffer type 1, KERB_VALIDATION_INFO as NDR writes it for storing). The groups
// are the primary group, the account domain's, the extra ones and the resource groups, in that order. Nothing when the
// bytes are not such a record from end to end, in NDR's little-endian form. Reads nothing beyond the bytes, and makes
// no more of them than they hold. Throws std::bad_alloc.
//
// Extra SIDs and resource groups count only when the record's flags say that they are there; a record whose counts,
// pointers and arrays contradict each other is refused, flags or not. A user without a number in the domain is the
// first extra SID. Bytes behind the record are padding.
std::optional<TokenSids> ReadPacLogonInfo(std::span<const uint8_t> i_bytes);

// The name of the account in such a record (EffectiveName; a machine's ends with $), which is looked for no further
// than it stands. Nothing when it cannot be read or is empty. Throws std::bad_alloc.
std::optional<std::u16string> ReadPacAccountName(std::span<const uint8_t> i_logonInfo);

// The same from a PAC's buffer of names (type 12), where newer directories have put it. Throws std::bad_alloc.
std::optional<std::u16string> ReadPacSamName(std::span<const uint8_t> i_names);

}  // namespace morwen
