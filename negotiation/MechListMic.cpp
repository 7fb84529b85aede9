#include "negotiation/MechListMic.h"

#include "errors/SSOException.h"
#include "harrow/log/STrace.h"
#include "morwen/morwenplugin.h"
#include "platform/Platform.h"

namespace morwen {

namespace {

void RequireMemory(SECURITY_STATUS i_nStatus) {
    if (i_nStatus == SEC_E_INSUFFICIENT_MEMORY) {
        throw SSOException(SSOException::OutOfMemory());
    }
}

// The two buffers that the system's calls for signatures take: what is signed, which they only read, and the signature.
class SignatureBuffers {
public:
    SignatureBuffers(std::span<const uint8_t> i_message, std::span<const uint8_t> i_signature)
        : m_aBuffers{{static_cast<ULONG>(i_message.size()), SECBUFFER_DATA, const_cast<uint8_t*>(i_message.data())},
                     {static_cast<ULONG>(i_signature.size()), SECBUFFER_TOKEN,
                      const_cast<uint8_t*>(i_signature.data())}},
          m_description{SECBUFFER_VERSION, 2, m_aBuffers} {}
    SignatureBuffers(const SignatureBuffers&) = delete;
    SignatureBuffers& operator=(const SignatureBuffers&) = delete;

    SecBufferDesc* get() noexcept { return &m_description; }
    size_t Written() const noexcept { return m_aBuffers[1].cbBuffer; }

private:
    SecBuffer m_aBuffers[2];
    SecBufferDesc m_description;
};

}  // namespace

std::vector<uint8_t> MakeListMic(CtxtHandle* i_pContext, std::span<const uint8_t> i_list) {
    std::vector<uint8_t> mic(kMostMicBytes);
    SignatureBuffers buffers(i_list, mic);
    const SECURITY_STATUS nStatus = Platform::Sspi().MakeSignature(i_pContext, 0, buffers.get(), 0);
    RequireMemory(nStatus);
    if (nStatus != SEC_E_OK || buffers.Written() > mic.size()) {
        S_REASON("ssoplugin: MakeListMic() -- The list of mechanisms cannot be signed; status %1.",
                 static_cast<int32_t>(nStatus));
        throw SSOException(SSO_ERROR);
    }
    mic.resize(buffers.Written());
    return mic;
}

void CheckListMic(CtxtHandle* i_pContext, std::span<const uint8_t> i_list, std::span<const uint8_t> i_mic) {
    SignatureBuffers buffers(i_list, i_mic);
    ULONG nQuality = 0;
    const SECURITY_STATUS nStatus = Platform::Sspi().VerifySignature(i_pContext, buffers.get(), 0, &nQuality);
    RequireMemory(nStatus);
    if (nStatus != SEC_E_OK) {
        S_REASON(
            "ssoplugin: CheckListMic() -- The list of mechanisms is not the one that the other side has seen, or its "
            "MIC is none: somebody may have cut the list on its way. Status %1.",
            static_cast<int32_t>(nStatus));
        throw SSOException(SSO_ERROR);
    }
}

}  // namespace morwen
