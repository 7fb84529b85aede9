#include "negotiation/NegToken.h"

#include <algorithm>
#include <iterator>

#include "der/Der.h"

namespace morwen {

namespace {

constexpr uint8_t kFrameTag = 0x60;
constexpr uint8_t kInitTag = 0xA0;
constexpr uint8_t kResponseTag = 0xA1;
constexpr uint8_t kSpnego[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x02};
constexpr uint8_t kKerberos[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x12, 0x01, 0x02, 0x02};
// An old slip in the number's first arc, which systems that have made it still offer first.
constexpr uint8_t kMicrosoftKerberos[] = {0x2A, 0x86, 0x48, 0x82, 0xF7, 0x12, 0x01, 0x02, 0x02};
constexpr uint8_t kNtlm[] = {0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x02, 0x02, 0x0A};
constexpr uint8_t kNtlmMessage[] = {'N', 'T', 'L', 'M', 'S', 'S', 'P', 0};

using Bytes = std::vector<uint8_t>;
using Span = std::span<const uint8_t>;

bool AreSame(Span i_left, Span i_right) noexcept {
    return std::equal(i_left.begin(), i_left.end(), i_right.begin(), i_right.end());
}

Mechanism MechanismOf(Span i_object) noexcept {
    return AreSame(i_object, kKerberos)            ? Mechanism::Kerberos
           : AreSame(i_object, kMicrosoftKerberos) ? Mechanism::MicrosoftKerberos
           : AreSame(i_object, kNtlm)              ? Mechanism::Ntlm
                                                   : Mechanism::Other;
}

// The token in the frame, which must be SPNEGO's; the bytes themselves where there is none.
std::optional<Span> WithoutFrame(Span i_token) noexcept {
    if (i_token.empty() || i_token.size() > kMostNegTokenBytes) {
        return std::nullopt;
    }
    if (i_token.front() != kFrameTag) {
        return i_token;
    }
    auto content = OnlyDer(i_token, kFrameTag);
    const auto mechanism = content ? TakeDer(*content) : std::nullopt;
    if (!mechanism || mechanism->m_nTag != kDerObject || !AreSame(mechanism->m_content, kSpnego)) {
        return std::nullopt;
    }
    return content;
}

// Gives each field's number and content to the visitor, which says whether it can be read. Fields come in their order,
// each at most once.
template <class Visit>
bool ReadFields(Span i_token, uint8_t i_nTag, Visit i_visit) noexcept {
    constexpr uint8_t kFieldMask = 0xE0;
    const auto choice = OnlyDer(i_token, i_nTag);
    auto fields = choice ? OnlyDer(*choice, kDerSequence) : std::nullopt;
    int nLast = -1;
    while (fields && !fields->empty()) {
        const auto field = TakeDer(*fields);
        if (!field || (field->m_nTag & kFieldMask) != kDerField || field->m_nTag <= nLast ||
            !i_visit(field->m_nTag - kDerField, field->m_content)) {
            return false;
        }
        nLast = field->m_nTag;
    }
    return fields.has_value();
}

bool ReadBytes(Span i_field, std::optional<Span>& o_bytes) noexcept {
    o_bytes = OnlyDer(i_field, kDerBytes);
    return o_bytes.has_value();
}

bool ReadList(Span i_field, NegTokenInit& o_init) noexcept {
    auto list = i_field.size() <= kMostListBytes ? OnlyDer(i_field, kDerSequence) : std::nullopt;
    while (list && !list->empty()) {
        const auto object = TakeDer(*list);
        if (!object || object->m_nTag != kDerObject) {
            return false;
        }
        const Mechanism eMechanism = MechanismOf(object->m_content);
        if (IsKerberos(eMechanism) && !o_init.m_nKerberos) {
            o_init.m_nKerberos = o_init.m_nMechanisms;
            o_init.m_eKerberos = eMechanism;
        }
        o_init.m_bNtlm = o_init.m_bNtlm || eMechanism == Mechanism::Ntlm;
        ++o_init.m_nMechanisms;
    }
    o_init.m_list = i_field;
    return o_init.m_nMechanisms != 0;
}

void AppendField(uint8_t i_nField, uint8_t i_nTag, Span i_content, Bytes& io_fields) {
    const Bytes element = MakeDer(i_nTag, i_content);
    AppendDerHeader(kDerField + i_nField, element.size(), io_fields);
    io_fields.insert(io_fields.end(), element.begin(), element.end());
}

}  // namespace

FirstToken KindOfFirstToken(Span i_token) noexcept {
    const bool bRoom = i_token.size() >= std::size(kNtlmMessage) && i_token.size() <= kMostNegTokenBytes;
    if (bRoom && AreSame(i_token.first(std::size(kNtlmMessage)), kNtlmMessage)) {
        return FirstToken::Ntlm;
    }
    const auto content = WithoutFrame(i_token);
    const bool bBare =
        content && !content->empty() && (content->front() == kInitTag || content->front() == kResponseTag);
    return bBare ? FirstToken::Negotiation : FirstToken::Mechanism;
}

std::optional<NegTokenInit> ReadNegTokenInit(Span i_token) noexcept {
    NegTokenInit init;
    const auto token = WithoutFrame(i_token);
    const bool bRead =
        token && ReadFields(*token, kInitTag, [&init](int i_nField, Span i_content) {
            // Servers' hints, which stand where the MIC stands otherwise, and move it on by one.
            const bool bHints = i_nField == 3 && !i_content.empty() && i_content.front() == kDerSequence;
            switch (i_nField) {
                case 0:
                    return ReadList(i_content, init);
                case 1:  // flags that nobody has ever honoured
                    return OnlyDer(i_content, kDerBits).has_value();
                case 2:
                    return ReadBytes(i_content, init.m_token);
                case 3:
                    return bHints ? OnlyDer(i_content, kDerSequence).has_value() : ReadBytes(i_content, init.m_mic);
                case 4:
                    return !init.m_mic && ReadBytes(i_content, init.m_mic);
                default:  // of a later version
                    return true;
            }
        });
    return bRead && init.m_nMechanisms != 0 ? std::optional(init) : std::nullopt;
}

std::optional<NegTokenResp> ReadNegTokenResp(Span i_token) noexcept {
    NegTokenResp response;
    const bool bRead =
        i_token.size() <= kMostNegTokenBytes &&
        ReadFields(i_token, kResponseTag, [&response](int i_nField, Span i_content) {
            switch (i_nField) {
                case 0: {
                    const auto state = OnlyDer(i_content, kDerEnumerated);
                    if (!state || state->size() != 1 || state->front() > static_cast<uint8_t>(NegState::RequestMic)) {
                        return false;
                    }
                    response.m_eState = static_cast<NegState>(state->front());
                    return true;
                }
                case 1: {
                    const auto object = OnlyDer(i_content, kDerObject);
                    response.m_eMechanism = object ? MechanismOf(*object) : Mechanism::Other;
                    return object.has_value();
                }
                case 2:
                    return ReadBytes(i_content, response.m_token);
                case 3:
                    return ReadBytes(i_content, response.m_mic);
                default:
                    return true;
            }
        });
    return bRead ? std::optional(response) : std::nullopt;
}

Bytes MakeMechanismList() {
    return MakeDer(kDerSequence, MakeDer(kDerObject, kKerberos));
}

Bytes MakeNegTokenInit(Span i_list, Span i_token) {
    Bytes fields = MakeDer(kDerField, i_list);
    AppendField(2, kDerBytes, i_token, fields);
    const Bytes init = MakeDer(kInitTag, MakeDer(kDerSequence, fields));
    Bytes content = MakeDer(kDerObject, kSpnego);
    content.insert(content.end(), init.begin(), init.end());
    return MakeDer(kFrameTag, content);
}

Bytes MakeNegTokenResp(const NegTokenResp& i_response) {
    Bytes fields;
    if (i_response.m_eState) {
        const auto nState = static_cast<uint8_t>(*i_response.m_eState);
        AppendField(0, kDerEnumerated, Span(&nState, 1), fields);
    }
    if (i_response.m_eMechanism) {
        const bool bMicrosoft = *i_response.m_eMechanism == Mechanism::MicrosoftKerberos;
        AppendField(1, kDerObject, bMicrosoft ? Span(kMicrosoftKerberos) : Span(kKerberos), fields);
    }
    if (i_response.m_token) {
        AppendField(2, kDerBytes, *i_response.m_token, fields);
    }
    if (i_response.m_mic) {
        AppendField(3, kDerBytes, *i_response.m_mic, fields);
    }
    return MakeDer(kResponseTag, MakeDer(kDerSequence, fields));
}

}  // namespace morwen
