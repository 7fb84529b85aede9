// The tokens of SPNEGO (RFC 4178): read from a stranger's bytes without copying, and made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace morwen {

// More than any token has. What claims to be longer is not looked at: a host may have passed on a length that its peer
// has made up.
inline constexpr size_t kMostNegTokenBytes = size_t{1} << 20;

// Clients offer half a dozen mechanisms in some eighty bytes. The list is walked, and kept as long as the login.
inline constexpr size_t kMostListBytes = 1024;

// What the first bytes of a login are. What is too long is the mechanism's, to refuse.
enum class FirstToken { Mechanism, Negotiation, Ntlm };
FirstToken KindOfFirstToken(std::span<const uint8_t> i_token) noexcept;

enum class Mechanism { Kerberos, MicrosoftKerberos, Ntlm, Other };
inline bool IsKerberos(Mechanism i_eMechanism) noexcept {
    return i_eMechanism == Mechanism::Kerberos || i_eMechanism == Mechanism::MicrosoftKerberos;
}

// Spans lie within the token that was read.
struct NegTokenInit {
    std::span<const uint8_t> m_list;  // the whole element: what the MIC is made of
    size_t m_nMechanisms = 0;
    bool m_bNtlm = false;                    // among them
    std::optional<size_t> m_nKerberos = {};  // its first place
    Mechanism m_eKerberos = Mechanism::Other;
    std::optional<std::span<const uint8_t>> m_token = {};
    std::optional<std::span<const uint8_t>> m_mic = {};
};

enum class NegState : uint8_t { Completed = 0, Incomplete = 1, Reject = 2, RequestMic = 3 };

struct NegTokenResp {
    std::optional<NegState> m_eState = {};
    std::optional<Mechanism> m_eMechanism = {};
    std::optional<std::span<const uint8_t>> m_token = {};
    std::optional<std::span<const uint8_t>> m_mic = {};
};

// With the frame of RFC 2743 around it or without; also the form in which servers give hints. Nothing unless the bytes
// are exactly one such token in DER, and neither it nor its list too long. Iterative; the cost is that of the length.
std::optional<NegTokenInit> ReadNegTokenInit(std::span<const uint8_t> i_token) noexcept;
std::optional<NegTokenResp> ReadNegTokenResp(std::span<const uint8_t> i_token) noexcept;

// A list with Kerberos alone, which the MIC is made of. Throws std::bad_alloc, like the next two.
std::vector<uint8_t> MakeMechanismList();
// In the frame of RFC 2743.
std::vector<uint8_t> MakeNegTokenInit(std::span<const uint8_t> i_list, std::span<const uint8_t> i_token);
std::vector<uint8_t> MakeNegTokenResp(const NegTokenResp& i_response);

}  // namespace morwen
