#include "platform/linux/seam/SecBuffers.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

namespace {

// More than a ticket and delegated tickets can take together. What claims to be longer is not looked at: a host may
// have passed on a length that its peer has made up.
constexpr uint32_t kMostInputBytes = 1U << 20;

SecBuffer* FindBuffer(const SecBufferDesc* i_pBuffers, uint32_t i_nType) {
    if (i_pBuffers == nullptr || i_pBuffers->ulVersion != SECBUFFER_VERSION || i_pBuffers->pBuffers == nullptr) {
        return nullptr;
    }
    const std::span<SecBuffer> buffers(i_pBuffers->pBuffers, i_pBuffers->cBuffers);
    const auto it = std::find_if(buffers.begin(), buffers.end(), [i_nType](const SecBuffer& i_buffer) {
        return i_buffer.BufferType == i_nType && i_buffer.pvBuffer != nullptr;
    });
    return it != buffers.end() ? &*it : nullptr;
}

}  // namespace

std::span<const uint8_t> InputToken(const SecBufferDesc* i_pInput) {
    const SecBuffer* const pBuffer = FindBuffer(i_pInput, SECBUFFER_TOKEN);
    if (pBuffer == nullptr || pBuffer->cbBuffer == 0) {
        Fail(SEC_E_INVALID_TOKEN, "the call brings no token");
    }
    if (pBuffer->cbBuffer > kMostInputBytes) {
        Fail(SEC_E_INVALID_TOKEN, "a length of " + std::to_string(pBuffer->cbBuffer) + " bytes is no token's");
    }
    return {static_cast<const uint8_t*>(pBuffer->pvBuffer), pBuffer->cbBuffer};
}

std::span<const uint8_t> InputData(const SecBufferDesc* i_pInput) {
    const SecBuffer* const pBuffer = FindBuffer(i_pInput, SECBUFFER_DATA);
    if (pBuffer == nullptr || pBuffer->cbBuffer > kMostInputBytes) {
        Fail(SEC_E_INVALID_TOKEN, "the call brings no data");
    }
    return {static_cast<const uint8_t*>(pBuffer->pvBuffer), pBuffer->cbBuffer};
}

std::optional<Channel> InputChannel(const SecBufferDesc* i_pInput) {
    const SecBuffer* const pBuffer = FindBuffer(i_pInput, SECBUFFER_CHANNEL_BINDINGS);
    if (pBuffer == nullptr) {
        return std::nullopt;
    }
    const std::span record(static_cast<const uint8_t*>(pBuffer->pvBuffer), pBuffer->cbBuffer);
    SEC_CHANNEL_BINDINGS header{};
    if (record.size() >= sizeof(header)) {
        std::memcpy(&header, record.data(), sizeof(header));
    }
    const uint32_t nType = header.dwInitiatorAddrType;
    const bool bAddresses = (nType != 0 && nType != static_cast<uint32_t>(NoAddress::Null)) ||
                            header.dwAcceptorAddrType != nType || header.cbInitiatorLength != 0 ||
                            header.cbAcceptorLength != 0;
    if (bAddresses || header.cbApplicationDataLength == 0 || header.dwApplicationDataOffset > record.size() ||
        header.cbApplicationDataLength > record.size() - header.dwApplicationDataOffset) {
        Fail(SEC_E_INVALID_TOKEN, "the channel bindings are no record of application data alone");
    }
    return Channel{static_cast<NoAddress>(nType),
                   record.subspan(header.dwApplicationDataOffset, header.cbApplicationDataLength)};
}

OutputToken::OutputToken(const SecBufferDesc* i_pOutput) : m_pBuffer(FindBuffer(i_pOutput, SECBUFFER_TOKEN)) {
    if (m_pBuffer == nullptr) {
        Fail(SEC_E_INVALID_TOKEN, "the call brings no buffer for a token");
    }
    m_nRoom = m_pBuffer->cbBuffer;
    m_pBuffer->cbBuffer = 0;
}

void OutputToken::Write(std::span<const uint8_t> i_token) {
    if (i_token.size() > m_nRoom) {
        Fail(SEC_E_BUFFER_TOO_SMALL, "the token has " + std::to_string(i_token.size()) + " bytes, the buffer for it " +
                                         std::to_string(m_nRoom));
    }
    std::copy(i_token.begin(), i_token.end(), static_cast<uint8_t*>(m_pBuffer->pvBuffer));
    m_pBuffer->cbBuffer = static_cast<uint32_t>(i_token.size());
}

}  // namespace morwen
