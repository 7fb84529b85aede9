#include "platform/linux/keys/SourceLook.h"

namespace morwen {

namespace {

constexpr int64_t kTrustedNanoseconds = 5'000'000'000;

}  // namespace

SourceLook::SourceLook(const std::string& i_path) noexcept
    : m_nTick(ClockTick()),
      m_nReadAt(m_nTick),
      m_bFile(!i_path.empty()),
      m_stamp(m_bFile ? FileStamp::Of(i_path) : std::nullopt) {}

bool SourceLook::GoOnWith(const SourceLook& i_later) noexcept {
    const bool bSame = m_nTick != 0 && (m_bFile ? m_stamp && m_stamp == i_later.m_stamp
                                                : i_later.m_nReadAt - m_nReadAt < kTrustedNanoseconds);
    const int64_t nReadAt = bSame ? m_nReadAt : i_later.m_nReadAt;
    *this = i_later;
    m_nReadAt = nReadAt;
    return bSame;
}

}  // namespace morwen
