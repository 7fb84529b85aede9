// The security buffers of one step, as the package's calls take them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/OsTypes.h"

namespace morwen {

// Where a token goes. The bytes must outlive it.
class OutputBuffer {
public:
    OutputBuffer(void* i_pvBytes, uint64_t i_nLength)
        : m_nSize(static_cast<ULONG>(i_nLength)),
          m_buffer{m_nSize, SECBUFFER_TOKEN, i_pvBytes},
          m_description{SECBUFFER_VERSION, 1, &m_buffer} {}
    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;

    SecBufferDesc* get() noexcept { return &m_description; }
    // What the package says that it wrote, within the buffer: beyond it lies memory that is nobody else's business.
    uint64_t Written() const noexcept { return std::min(m_buffer.cbBuffer, m_nSize); }

private:
    const ULONG m_nSize;
    SecBuffer m_buffer;
    SecBufferDesc m_description;
};

// What the package reads: a token, and what the channel is known by, each where there is one. The package takes both
// through pointers to non-const, and only reads. The bytes must outlive it.
class InputBuffers {
public:
    InputBuffers(std::span<const uint8_t> i_token, std::span<const uint8_t> i_channelBindings) {
        Add(SECBUFFER_TOKEN, i_token);
        Add(SECBUFFER_CHANNEL_BINDINGS, i_channelBindings);
    }
    InputBuffers(const InputBuffers&) = delete;
    InputBuffers& operator=(const InputBuffers&) = delete;

    SecBufferDesc* get() noexcept { return m_description.cBuffers != 0 ? &m_description : nullptr; }

private:
    void Add(ULONG i_nType, std::span<const uint8_t> i_bytes) noexcept {
        if (!i_bytes.empty()) {
            m_aBuffers[m_description.cBuffers++] = {static_cast<ULONG>(i_bytes.size()), i_nType,
                                                    const_cast<uint8_t*>(i_bytes.data())};
        }
    }

    SecBuffer m_aBuffers[2]{};
    SecBufferDesc m_description{SECBUFFER_VERSION, 0, m_aBuffers};
};

}  // namespace morwen
