#include "harrow/text/SWCharString.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "harrow/lifetime/SecureWipe.h"

namespace Harrowlib201 {

SWCharString::SWCharString(const char16_t* i_pszText)
    : SWCharString(i_pszText == nullptr ? std::u16string_view() : std::u16string_view(i_pszText)) {}

SWCharString::SWCharString(std::u16string_view i_text) {
    if (!i_text.empty()) {
        *std::copy(i_text.begin(), i_text.end(), Allocate(i_text.size())) = u'\0';
    }
}

char16_t* SWCharString::Allocate(size_t i_nLength) {
    if (i_nLength >= (std::numeric_limits<size_t>::max() - sizeof(Body)) / sizeof(char16_t)) {
        throw std::bad_alloc();
    }
    void* pvBlock = ::operator new(sizeof(Body) + (i_nLength + 1) * sizeof(char16_t));
    m_pBody = new (pvBlock) Body(i_nLength);
    return m_pBody->Text();
}

SWCharString::SWCharString(const SWCharString& i_other) noexcept : m_pBody(i_other.m_pBody) {
    if (m_pBody != nullptr && m_pBody->m_nReferences.load(std::memory_order_relaxed) != 0) {
        m_pBody->m_nReferences.fetch_add(1, std::memory_order_relaxed);
    }
}

SWCharString::SWCharString(SWCharString&& io_other) noexcept : m_pBody(std::exchange(io_other.m_pBody, nullptr)) {}

SWCharString& SWCharString::operator=(SWCharString i_other) noexcept {
    std::swap(m_pBody, i_other.m_pBody);
    return *this;
}

SWCharString::~SWCharString() {
    // The last one changes no count: nobody else has anything to copy.
    const size_t nReferences = m_pBody != nullptr ? m_pBody->m_nReferences.load(std::memory_order_acquire) : 0;
    if (nReferences == 1 || (nReferences > 1 && m_pBody->m_nReferences.fetch_sub(1, std::memory_order_acq_rel) == 1)) {
        SecureWipe(m_pBody->Text(), m_pBody->m_nLength * sizeof(char16_t));
        m_pBody->~Body();
        ::operator delete(m_pBody);
    }
}

std::strong_ordering SWCharString::Compare(std::u16string_view i_left, std::u16string_view i_right) noexcept {
    constexpr size_t kStep = sizeof(uint64_t) / sizeof(char16_t);
    const size_t nCommon = std::min(i_left.size(), i_right.size());
    size_t nAt = 0;
    while (nAt + kStep <= nCommon && std::memcmp(&i_left[nAt], &i_right[nAt], sizeof(uint64_t)) == 0) {
        nAt += kStep;
    }
    return i_left.substr(nAt) <=> i_right.substr(nAt);
}

}  // namespace Harrowlib201
