#include "platform/linux/krb5/SspiFailure.h"

#include <array>
#include <cstring>
#include <new>
#include <span>

#include "platform/linux/krb5/Krb5Words.h"

namespace morwen {

namespace {

// Plain bytes: a thread_local with a destructor would keep the library loaded.
struct LastFailure {
    SECURITY_STATUS m_nStatus;
    uint32_t m_nLength;
    std::array<char, 511> m_aText;
};
constinit thread_local LastFailure t_lastFailure{};

}  // namespace

SECURITY_STATUS FailWith(SECURITY_STATUS i_nStatus, std::string_view i_text) noexcept {
    LastFailure& last = t_lastFailure;
    const size_t nLength = Harrowlib201::FittingLength(i_text, last.m_aText.size());
    last.m_nStatus = i_nStatus;
    last.m_nLength = static_cast<uint32_t>(nLength);
    if (nLength > 0) {
        // The text may be a part of the one before.
        std::memmove(last.m_aText.data(), i_text.data(), nLength);
        HideControls(std::span(last.m_aText).first(nLength));
    }
    return i_nStatus;
}

std::string_view FailureText(SECURITY_STATUS i_nStatus) noexcept {
    const LastFailure& last = t_lastFailure;
    return i_nStatus == last.m_nStatus ? std::string_view(last.m_aText.data(), last.m_nLength) : std::string_view();
}

SECURITY_STATUS FailWithKrb5(krb5_context i_context, krb5_error_code i_nCode,
                             std::string_view i_whatWasTried) noexcept {
    const SECURITY_STATUS nStatus = StatusFromKrb5(i_nCode);
    try {
        std::string text(i_whatWasTried);
        text.append(": ").append(ErrorWords(i_context, i_nCode));
        return FailWith(nStatus, text);
    } catch (const std::bad_alloc&) {
        return FailWith(nStatus, i_whatWasTried);
    }
}

}  // namespace morwen
