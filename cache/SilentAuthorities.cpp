#include "cache/SilentAuthorities.h"

#include <algorithm>

namespace morwen {

namespace {

constexpr STimeSpan kInVain(2000);         // a failure that took as long is one of waiting
constexpr STimeSpan kMostInVain(20000);    // in a pass, for authorities of whom nothing good is known
constexpr STimeSpan kMostInAll(30000);     // in a pass, so that its time of day stays true
constexpr STimeSpan kLately(3600000);      // an answer counts as long
constexpr STimeSpan kFirstPause(55000);    // over by the next pass
constexpr int kMostDoublings = 4;          // of the pause: a quarter of an hour
constexpr size_t kMostAuthorities = 1024;  // more than have contexts here; beyond that, all are forgotten

}  // namespace

void SilentAuthorities::BeginPass() noexcept {
    m_inVain = STimeSpan();
    m_taken = STimeSpan();
}

SilentAuthorities::Answer SilentAuthorities::MayAsk(const SWCharString& i_ssAuthority, SDateTime i_now) const {
    const auto found = m_records.find(i_ssAuthority);
    const Record record = found != m_records.end() ? found->second : Record();
    const bool bKnown = found != m_records.end() && record.m_nFailures == 0 && i_now - record.m_answeredAt <= kLately;
    if (i_now < record.m_silentUntil) {
        return Answer::Silent;
    }
    return m_taken < kMostInAll && (bKnown || m_inVain < kMostInVain) ? Answer::Ask : Answer::Later;
}

void SilentAuthorities::Note(const SWCharString& i_ssAuthority, bool i_bRenewed, STimeSpan i_taken, SDateTime i_now) {
    const STimeSpan taken = std::max(i_taken, STimeSpan());  // the clock may have been set back
    if (m_records.size() >= kMostAuthorities) {
        m_records.clear();
    }
    m_taken = STimeSpan(m_taken.GetTotalMilliseconds() + taken.GetTotalMilliseconds());
    if (i_bRenewed) {
        m_records[i_ssAuthority] = {i_now, SDateTime(), 0};
        return;
    }
    if (taken < kInVain) {
        return;  // it was refused, by whomever
    }
    m_inVain = STimeSpan(m_inVain.GetTotalMilliseconds() + taken.GetTotalMilliseconds());
    Record& record = m_records[i_ssAuthority];
    int64_t nPause = kFirstPause.GetTotalMilliseconds();
    for (int i = 0; i < std::min(record.m_nFailures, kMostDoublings); ++i) {
        nPause *= 2;
    }
    ++record.m_nFailures;
    record.m_silentUntil = i_now + STimeSpan(nPause);
}

}  // namespace morwen
