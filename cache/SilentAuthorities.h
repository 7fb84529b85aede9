// Which authorities (realms) have let a renewal time out.
#pragma once

#include <map>

#include "harrow/text/SWCharString.h"
#include "harrow/time/SDateTime.h"

namespace morwen {

using Harrowlib201::SDateTime;
using Harrowlib201::STimeSpan;
using Harrowlib201::SWCharString;

// Contexts are renewed one after the other, and an authority (the users' realm) that does not answer costs each renewal
// seconds. This keeps the cost with its own users: it is asked once in a pass, then only after a pause that grows, and
// once a pass has waited for long enough, only those are asked that have answered lately. For one thread.
class SilentAuthorities {
public:
    void BeginPass() noexcept;

    enum class Answer {
        Ask,
        Silent,  // it has let a renewal time out, and its pause is not over
        Later    // others have, and this pass waits no more for any of whom nothing good is known
    };
    // Whether a renewal that needs the authority is tried now.
    Answer MayAsk(const SWCharString& i_ssAuthority, SDateTime i_now) const;

    // What a renewal has come to, and how long it took. Throws std::bad_alloc.
    void Note(const SWCharString& i_ssAuthority, bool i_bRenewed, STimeSpan i_taken, SDateTime i_now);

private:
    struct Record {
        SDateTime m_answeredAt;  // the last time, if ever
        SDateTime m_silentUntil;
        int m_nFailures = 0;  // consecutive
    };

    std::map<SWCharString, Record> m_records;
    STimeSpan m_inVain;  // in this pass
    STimeSpan m_taken;   // by all of its renewals
};

}  // namespace morwen
