#include "harrow/log/SResManager.h"

#include <algorithm>

#include "harrow/text/SWCharStringConv.h"

namespace Harrowlib201 {

namespace {
std::span<const SMessage> s_messages;
}

void SResManager::Initialize(std::span<const SMessage> i_messages) noexcept {
    s_messages = i_messages;
}

void SResManager::Terminate() noexcept {
    s_messages = {};
}

SWCharString SResManager::LoadStringW(uint32_t i_nId, uint32_t i_nLanguage) {
    const auto found = std::find_if(s_messages.begin(), s_messages.end(),
                                    [i_nId](const SMessage& i_message) { return i_message.m_nId == i_nId; });
    return i_nLanguage != 0 || found == s_messages.end() ? SWCharString()
                                                         : SWCharStringConv::FromUtf8(found->m_pszText);
}

}  // namespace Harrowlib201
