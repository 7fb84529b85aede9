#include "platform/linux/wire/GssToken.h"

#include <algorithm>
#include <array>

#include "der/Der.h"

namespace morwen {

namespace {

constexpr uint8_t kFrameTag = 0x60;
constexpr std::array<uint8_t, 11> kMechanism = {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x12, 0x01, 0x02, 0x02};

// The tag of the Kerberos message that belongs to each kind; 0 for what is no kind.
uint8_t MessageTag(GssTokenKind i_eKind) noexcept {
    switch (i_eKind) {
        case GssTokenKind::ApRequest:
            return 0x6E;
        case GssTokenKind::ApReply:
            return 0x6F;
        case GssTokenKind::KrbError:
            return 0x7E;
    }
    return 0;
}

}  // namespace

std::optional<GssToken> ReadGssToken(std::span<const uint8_t> i_token) noexcept {
    constexpr size_t kBeforeMessage = kMechanism.size() + 2;
    const auto content = OnlyDer(i_token, kFrameTag);
    if (!content || content->size() < kBeforeMessage ||
        !std::equal(kMechanism.begin(), kMechanism.end(), content->begin())) {
        return std::nullopt;
    }
    const auto eKind =
        static_cast<GssTokenKind>((*content)[kMechanism.size()] << 8 | (*content)[kMechanism.size() + 1]);
    const GssToken token{eKind, content->subspan(kBeforeMessage)};
    const uint8_t nTag = MessageTag(eKind);
    if (nTag == 0 || !OnlyDer(token.m_message, nTag)) {
        return std::nullopt;
    }
    return token;
}

std::vector<uint8_t> MakeGssToken(GssTokenKind i_eKind, std::span<const uint8_t> i_message) {
    constexpr size_t kMostHeader = 2 + sizeof(size_t);
    const size_t nContent = kMechanism.size() + 2 + i_message.size();
    std::vector<uint8_t> token;
    token.reserve(kMostHeader + nContent);
    AppendDerHeader(kFrameTag, nContent, token);
    token.insert(token.end(), kMechanism.begin(), kMechanism.end());
    token.push_back(static_cast<uint8_t>(static_cast<uint16_t>(i_eKind) >> 8));
    token.push_back(static_cast<uint8_t>(static_cast<uint16_t>(i_eKind) & 0xFF));
    token.insert(token.end(), i_message.begin(), i_message.end());
    return token;
}

}  // namespace morwen
