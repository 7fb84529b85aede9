// The token buffers of a call.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/OsTypes.h"
#include "platform/linux/binding/ChannelHash.h"

namespace morwen {

// The bytes of the first token buffer. Throws SspiFailure (SEC_E_INVALID_TOKEN) when there is none, it is empty, or
// longer than any token.
std::span<const uint8_t> InputToken(const SecBufferDesc* i_pInput);

// The bytes of the first data buffer. Throws SspiFailure (SEC_E_INVALID_TOKEN) when there is none.
std::span<const uint8_t> InputData(const SecBufferDesc* i_pInput);

// The channel bindings, when there are some. Throws SspiFailure (SEC_E_INVALID_TOKEN) for a record whose data does not
// lie within it, or that has addresses.
std::optional<Channel> InputChannel(const SecBufferDesc* i_pInput);

// The caller's buffer for a token. Its length is 0 until a token is written, and stays so when the call fails.
class OutputToken {
public:
    // Throws SspiFailure (SEC_E_INVALID_TOKEN) when there is no token buffer.
    explicit OutputToken(const SecBufferDesc* i_pOutput);

    // Throws SspiFailure (SEC_E_BUFFER_TOO_SMALL).
    void Write(std::span<const uint8_t> i_token);

private:
    SecBuffer* m_pBuffer;
    uint32_t m_nRoom;
};

}  // namespace morwen
