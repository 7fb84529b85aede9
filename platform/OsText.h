// A text in the form that the operating system's calls take.
#pragma once

#include <algorithm>
#include <iterator>
#include <memory>

#include "harrow/lifetime/SecureWipe.h"
#include "harrow/text/SWCharString.h"
#include "platform/OsTypes.h"

namespace morwen {

// A writable copy that ends with a zero unit, because the calls take pointers to non-const; overwritten at the end,
// because a password may be among them. Throws std::bad_alloc.
class OsText {
public:
    explicit OsText(const Harrowlib201::SWCharString& i_ssText) : m_nLength(i_ssText.length()) {
        if (m_nLength >= std::size(m_szShort)) {
            m_pLong = std::make_unique<SEC_WCHAR[]>(m_nLength + 1);
        }
        *std::copy_n(i_ssText.c_str(), m_nLength, get()) = 0;
    }
    ~OsText() { Harrowlib201::SecureWipe(get(), m_nLength * sizeof(SEC_WCHAR)); }
    OsText(const OsText&) = delete;
    OsText& operator=(const OsText&) = delete;

    SEC_WCHAR* get() noexcept { return m_pLong ? m_pLong.get() : m_szShort; }

private:
    size_t m_nLength;
    SEC_WCHAR m_szShort[64];               // as most are
    std::unique_ptr<SEC_WCHAR[]> m_pLong;  // in its place
};

}  // namespace morwen
