// The owner of an output token that a handler allocated.
#pragma once

#include <cstdint>

#include "handlers/SSOHandler.h"

namespace morwen {

// Gives the token back to the handler, which must live longer.
class HandlerToken {
public:
    explicit HandlerToken(SSOHandler& i_handler) noexcept : m_handler(i_handler) {}
    ~HandlerToken() { Reset(); }
    HandlerToken(const HandlerToken&) = delete;
    HandlerToken& operator=(const HandlerToken&) = delete;

    void Reset() {
        if (m_pvToken != nullptr) {
            m_handler.FreeBuffer(m_pvToken);
        }
        m_pvToken = nullptr;
        m_nLength = 0;
    }
    // As input for the other side: an empty token is none.
    const uint8_t* Input() const noexcept { return m_nLength != 0 ? m_pvToken : nullptr; }

    uint8_t* m_pvToken = nullptr;
    uint64_t m_nLength = 0;

private:
    SSOHandler& m_handler;
};

}  // namespace morwen
