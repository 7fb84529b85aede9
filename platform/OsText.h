// A text in the form that the operating system's calls take.
#pragma once

#include <memory>

#include "harrow/lifetime/SecureWipe.h"
#include "harrow/text/SWCharString.h"
#include "platform/OsTypes.h"

namespace morwen {

// A writable copy that ends with a zero unit, because the calls take pointers to non-const; overwritten at the end,
// because a password may be among them. Throws std::bad_alloc.
class OsText {
public:
    explicit OsText(const Harrowlib201::SWCharString& i_ssText)
        : m_nLength(i_ssText.length()), m_pText(std::make_unique<SEC_WCHAR[]>(m_nLength + 1)) {
        std::copy_n(i_ssText.c_str(), m_nLength, m_pText.get());
    }
    ~OsText() { Harrowlib201::SecureWipe(m_pText.get(), m_nLength * sizeof(SEC_WCHAR)); }
    OsText(const OsText&) = delete;
    OsText& operator=(const OsText&) = delete;

    SEC_WCHAR* get() const noexcept { return m_pText.get(); }

private:
    size_t m_nLength;
    std::unique_ptr<SEC_WCHAR[]> m_pText;
};

}  // namespace morwen
