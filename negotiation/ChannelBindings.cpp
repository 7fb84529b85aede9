#include "negotiation/ChannelBindings.h"

#include <cstring>
#include <string_view>

#include "errors/SSOException.h"
#include "harrow/log/STrace.h"
#include "morwen/morwenplugin.h"
#include "platform/OsTypes.h"

namespace morwen {

using Harrowlib201::SWCharString;

namespace {

constexpr size_t kMostCharacters = 2048;

[[noreturn]] void Refuse(const char* i_pszReason) {
    S_REASON(i_pszReason);
    throw SSOException(SSO_ERROR);
}

bool IsOfName(char16_t i_c) {
    return (i_c >= u'a' && i_c <= u'z') || (i_c >= u'A' && i_c <= u'Z') || (i_c >= u'0' && i_c <= u'9') ||
           i_c == u'-' || i_c == u'.';
}

// -1 for what is no digit.
int Digit(char16_t i_c) {
    const auto within = [i_c](char16_t i_first, char16_t i_last) { return i_c >= i_first && i_c <= i_last; };
    return within(u'0', u'9')   ? i_c - u'0'
           : within(u'a', u'f') ? i_c - u'a' + 10
           : within(u'A', u'F') ? i_c - u'A' + 10
                                : -1;
}

}  // namespace

ChannelBindings::ChannelBindings(const SWCharString& i_ssText) {
    constexpr const char* kWrong =
        "ssoplugin: ChannelBindings::ChannelBindings() -- The channel bindings are not a type, a colon and hexadecimal "
        "digits, such as tls-server-end-point:9f86d081884c7d65.";
    constexpr std::u16string_view kNullAddresses = u";null-addresses";
    constexpr ULONG kTypeOfNullAddress = 255;  // GSS_C_AF_NULLADDR
    std::u16string_view text = i_ssText.view();
    SEC_CHANNEL_BINDINGS header{};
    if (text.ends_with(kNullAddresses)) {
        header.dwInitiatorAddrType = header.dwAcceptorAddrType = kTypeOfNullAddress;
        text.remove_suffix(kNullAddresses.size());
    }
    const size_t nColon = text.find(u':');
    if (text.size() > kMostCharacters || nColon == std::u16string_view::npos || nColon == 0) {
        Refuse(kWrong);
    }
    m_record.resize(sizeof(header));
    for (const char16_t c : text.substr(0, nColon)) {
        if (!IsOfName(c)) {
            Refuse(kWrong);
        }
        m_record.push_back(static_cast<uint8_t>(c));
    }
    m_record.push_back(':');
    const std::u16string_view digits = text.substr(nColon + 1);
    if (digits.empty() || digits.size() % 2 != 0) {
        Refuse(kWrong);
    }
    for (size_t i = 0; i < digits.size(); i += 2) {
        const int nHigh = Digit(digits[i]);
        const int nLow = Digit(digits[i + 1]);
        if (nHigh < 0 || nLow < 0) {
            Refuse(kWrong);
        }
        m_record.push_back(static_cast<uint8_t>(nHigh << 4 | nLow));
    }
    header.cbApplicationDataLength = static_cast<ULONG>(m_record.size() - sizeof(header));
    header.dwApplicationDataOffset = sizeof(header);
    std::memcpy(m_record.data(), &header, sizeof(header));
}

ChannelRule::ChannelRule(const Parameters& i_settings, const ChannelRule& i_before) : ChannelRule(i_before) {
    if (i_settings.GetParameter(u"SSPI_CHANNEL_BINDINGS", m_ssText)) {
        m_pBindings = m_ssText.isEmpty() ? nullptr : std::make_shared<const ChannelBindings>(m_ssText);
    }
    if (SWCharString ssRule; i_settings.GetParameter(u"SSPI_CHANNEL_BINDINGS_RULE", ssRule)) {
        if (ssRule.view() == u"ignore") {
            m_eWhat = What::Ignore;
        } else if (ssRule.view() == u"check") {
            m_eWhat = What::Check;
        } else if (ssRule.view() == u"require") {
            m_eWhat = What::Require;
        } else {
            Refuse(
                "ssoplugin: ChannelRule::ChannelRule() -- The rule for channel bindings is none of ignore, check and "
                "require.");
        }
    }
    if (m_eWhat != What::Ignore && !m_pBindings) {
        Refuse(
            "ssoplugin: ChannelRule::ChannelRule() -- Clients' channel bindings are to be compared, and the settings "
            "have none to compare them with.");
    }
}

std::span<const uint8_t> ChannelRule::Record() const noexcept {
    return m_eWhat != What::Ignore ? m_pBindings->Record() : std::span<const uint8_t>();
}

uint32_t ChannelRule::Requirements() const noexcept {
    return m_eWhat == What::Check ? ASC_REQ_ALLOW_MISSING_BINDINGS : 0;
}

}  // namespace morwen
