// Do arbitrary bytes make SIDs only where a record holds them, each SID once and no more than there is room for?
#include <algorithm>

#include "fuzz/Invariant.h"
#include "platform/linux/wire/PacLogonInfo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pBytes, size_t i_nBytes) {
    const std::span<const uint8_t> bytes(i_pBytes, i_nBytes);
    const auto sids = morwen::ReadPacLogonInfo(bytes);
    if (sids) {
        const auto& groups = sids->m_groups;
        MORWEN_INVARIANT(groups.size() <= 2 + i_nBytes / 8);
        for (auto it = groups.begin(); it != groups.end(); ++it) {
            MORWEN_INVARIANT(*it != sids->m_user && std::find(groups.begin(), it, *it) == it);
        }
        auto again = *sids;
        again.RemoveDuplicates();
        MORWEN_INVARIANT(again == *sids && morwen::ReadPacLogonInfo(bytes) == sids);
        MORWEN_INVARIANT(!morwen::ReadPacLogonInfo(bytes.first(16)));
    }
    return 0;
}
