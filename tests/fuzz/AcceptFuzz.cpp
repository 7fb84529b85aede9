// Who is let in by a client's token that is changed, inside and out?
#include "fuzz/OpenMessage.h"
#include "platform/linux/wire/GssChecksum.h"

using namespace morwen;

namespace {

const std::u16string kDomain = u"S-1-5-21-1-2-3-";
const std::u16string kSigned =
    u"S-1-5-21-1-2-3-513;S-1-5-21-1-2-3-2000;S-1-5-21-1-2-3-2001;S-1-5-21-1-2-3-2002; S-1-5-21-1-2-3-1000 ";

}  // namespace

// The first byte of the input chooses what the rest is.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pBytes, size_t i_nBytes) {
    static const Bytes s_valid = (MakeTickets(), Start().m_token);
    if (i_nBytes < 4) {
        return 0;
    }
    const std::span<const uint8_t> input(i_pBytes + 1, i_nBytes - 1);
    const auto laidOver = [&](Bytes i_content) { return Changed(std::move(i_content), input); };
    const auto instead = [&](const Bytes&) { return Bytes(input.begin(), input.end()); };
    const auto delegating = [&](Bytes i_content) {
        return WithChecksum(std::move(i_content), MakeGssChecksum({input[0], input.subspan(1)}));
    };
    const auto choose = [&] {
        switch (i_pBytes[0] % 6) {
            case 0:
                return laidOver(s_valid);
            case 1:
                return MakeGssToken(GssTokenKind::ApRequest, input);
            case 2:
                return Reencrypted(s_valid, RequestPart::Authenticator, laidOver);
            case 3:
                return Reencrypted(s_valid, RequestPart::Authenticator, instead);
            case 4:
                return Reencrypted(s_valid, RequestPart::Ticket, laidOver);
            default:
                return Reencrypted(s_valid, RequestPart::Authenticator, delegating);
        }
    };
    const bool bSealed = i_pBytes[0] % 6 < 2;  // changed by one who has no key
    const bool bTicket = i_pBytes[0] % 6 == 4;
    const Bytes token = choose();
    const Result result = Accept(token);
    MORWEN_INVARIANT(result.m_nCode == SSO_CONTINUE || result.m_nCode == SSO_ERROR || result.m_nCode == SSO_DENIED);
    MORWEN_INVARIANT(token != s_valid || result.m_nCode == SSO_CONTINUE);
    if (result.m_nCode == SSO_CONTINUE) {
        MORWEN_INVARIANT(!bSealed || Ciphertexts(token) == Ciphertexts(s_valid));
        const Result closed = Accept({}, result.m_key);
        // The directory's word on the user is taken as it was signed, or not at all: then there may be no such account.
        MORWEN_INVARIANT(closed.m_information == kSigned || bTicket);
        MORWEN_INVARIANT(closed.m_information == kSigned || closed.m_information.find(kDomain) == std::u16string::npos);
        MORWEN_INVARIANT(closed.m_nCode == SSO_ACCEPTED ? SSOReleaseSecurityContext(closed.m_key.c_str()) == SSO_OK
                                                        : closed.m_information.empty());
    }
    return 0;
}
