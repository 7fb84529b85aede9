// The proof that both sides have seen the same list of mechanisms: its MIC, made by the mechanism itself.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/OsTypes.h"

namespace morwen {

// As many bytes of the mechanism's as a session keeps of a stranger's: more than Kerberos needs.
inline constexpr size_t kMostMicBytes = 256;

// For the peer, under an established context. Throws SSOException (the reason is set), std::bad_alloc.
std::vector<uint8_t> MakeListMic(CtxtHandle* i_pContext, std::span<const uint8_t> i_list);

// The peer's. Throws SSOException (the reason is set) when it is not the one for this list.
void CheckListMic(CtxtHandle* i_pContext, std::span<const uint8_t> i_list, std::span<const uint8_t> i_mic);

}  // namespace morwen
