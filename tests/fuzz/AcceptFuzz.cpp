// Who is let in by a client's token that is changed, inside and out?
#include "fuzz/OpenMessage.h"
#include "platform/linux/wire/GssChecksum.h"
#include "platform/linux/wire/PacLogonInfo.h"

using namespace morwen;

namespace {

constexpr unsigned kWays = 9;
constexpr size_t kMostNested = 55000;
const std::u16string kDomain = u"S-1-5-21-1-2-3-";
const std::u16string kSigned =
    u"S-1-5-21-1-2-3-513;S-1-5-21-1-2-3-2000;S-1-5-21-1-2-3-2001;S-1-5-21-1-2-3-2002; S-1-5-21-1-2-3-1000 ";

}  // namespace

// The first byte of the input chooses what the rest is.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pBytes, size_t i_nBytes) {
    static const Bytes s_valid = (MakeTickets(), Start().m_token);
    if (i_nBytes < 4 || i_nBytes > kMostNested) {
        return 0;
    }
    const std::span<const uint8_t> input(i_pBytes + 1, i_nBytes - 1);
    Bytes info;  // that has been signed anew
    const auto laidOver = [&](Bytes i_content) { return Changed(std::move(i_content), input); };
    const auto instead = [&](const Bytes&) { return Bytes(input.begin(), input.end()); };
    const auto delegating = [&](Bytes i_content) {
        return WithChecksum(std::move(i_content), MakeGssChecksum({input[0], input.subspan(1)}));
    };
    // As deep as the first two bytes say, around the rest and as many bytes more as the third says.
    const auto nesting = [&](RequestPart i_ePart) {
        return [&input, i_ePart](const Bytes& i_content) {
            Bytes list = Within(Bytes(input.begin() + 3, input.end()) + Bytes(size_t{input[2]} * 200), 99);
            list = input[2] % 2 != 0 ? Bytes(input.begin() + 3, input.end()) : list;
            list = Nested(list, input[0] * 256U + input[1], kMostNested);
            return WithList(i_content, i_ePart, list);
        };
    };
    const auto resigned = [&](const Bytes& i_content) {
        return WithLogonInfo(i_content, [&](Bytes i_info) { return info = Changed(std::move(i_info), input); });
    };
    const auto choose = [&] {
        switch (i_pBytes[0] % kWays) {
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
            case 5:
                return Reencrypted(s_valid, RequestPart::Authenticator, delegating);
            case 6:
                return Reencrypted(s_valid, RequestPart::Authenticator, nesting(RequestPart::Authenticator));
            case 7:
                return Reencrypted(s_valid, RequestPart::Ticket, nesting(RequestPart::Ticket));
            default:
                return Reencrypted(s_valid, RequestPart::Ticket, resigned);
        }
    };
    const bool bSealed = i_pBytes[0] % kWays < 2;  // changed by one who has no key
    const bool bTicket = i_pBytes[0] % kWays == 4 || i_pBytes[0] % kWays == 7;
    const Bytes token = choose();
    const Result result = Accept(token);
    MORWEN_INVARIANT(result.m_nCode == SSO_CONTINUE || result.m_nCode == SSO_ERROR || result.m_nCode == SSO_DENIED);
    MORWEN_INVARIANT(token != s_valid || result.m_nCode == SSO_CONTINUE);
    if (static unsigned s_nInputs = 0; ++s_nInputs % 10000 == 0) {  // ends what cannot be closed
        MORWEN_INVARIANT(SSOTermPackage() == SSO_OK && SSOInitPackage() == SSO_OK);
        return 0;
    }
    if (result.m_nCode == SSO_CONTINUE) {
        MORWEN_INVARIANT(!bSealed || Ciphertexts(token) == Ciphertexts(s_valid));
        const Result closed = Accept({}, result.m_key);
        if (!info.empty()) {  // the KDC's word, whatever it is
            MORWEN_INVARIANT(ReadPacLogonInfo(info).has_value() == (closed.m_nCode == SSO_ACCEPTED));
            MORWEN_INVARIANT(closed.m_nCode != SSO_ACCEPTED ||
                             SSOReleaseSecurityContext(closed.m_key.c_str()) == SSO_OK);
            return 0;
        }
        // The directory's word on the user is taken as it was signed, or not at all: then there may be no such account.
        MORWEN_INVARIANT(closed.m_information == kSigned || bTicket);
        MORWEN_INVARIANT(closed.m_information == kSigned || closed.m_information.find(kDomain) == std::u16string::npos);
        MORWEN_INVARIANT(closed.m_nCode == SSO_ACCEPTED ? SSOReleaseSecurityContext(closed.m_key.c_str()) == SSO_OK
                                                        : closed.m_information.empty());
    }
    return 0;
}
