// The owner of an output token that a handler allocated.
#pragma once

#include <cstdint>
#include <utility>

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
            GiveBack();
        }
    }
    // The handler says so when there was none.
    void GiveBack() {
        m_nLength = 0;
        m_handler.FreeBuffer(std::exchange(m_pvToken, nullptr));
    }
    // As input for the other side: an empty token is none.
    const uint8_t* Input() const noexcept { return m_nLength != 0 ? m_pvToken : nullptr; }

    uint8_t* m_pvToken = nullptr;
    uint64_t m_nLength = 0;

private:
    SSOHandler& m_handler;
};

}  // namespace morwen
