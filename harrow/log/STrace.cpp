#include "harrow/log/STrace.h"

#include "harrow/text/SWCharStringConv.h"

namespace Harrowlib201 {

STraceParameter::STraceParameter(const SWCharString& i_ssText) : m_text(SWCharStringConv::ToUtf8(i_ssText.view())) {}

void STrace(const char* i_pszFile, int i_nLine, const char* i_pszText,
            std::initializer_list<STraceParameter> i_parameters) noexcept {
    try {
        std::string message;
        for (const char* p = i_pszText; *p != '\0'; ++p) {
            const size_t nIndex = static_cast<size_t>(p[1] - '1');
            if (*p == '%' && p[1] >= '1' && nIndex < i_parameters.size()) {
                message += (i_parameters.begin() + nIndex)->Text();
                ++p;
            } else {
                message += *p;
            }
        }
        HarrowLogWrite(HARROW_LOG_TRACE, i_pszFile, i_nLine, message.c_str());
    } catch (const std::bad_alloc&) {
        HarrowLogWrite(HARROW_LOG_TRACE, i_pszFile, i_nLine, i_pszText);
    }
}

void SAssert(const char* i_pszFile, int i_nLine, const char* i_pszExpression, const char* i_pszMessage) noexcept {
    if (i_pszExpression == nullptr || i_pszMessage == nullptr) {
        HarrowLogWrite(HARROW_LOG_ASSERTION, i_pszFile, i_nLine,
                       i_pszMessage != nullptr ? i_pszMessage : i_pszExpression);
        return;
    }
    try {
        const std::string message = std::string(i_pszMessage) + " (" + i_pszExpression + ")";
        HarrowLogWrite(HARROW_LOG_ASSERTION, i_pszFile, i_nLine, message.c_str());
    } catch (const std::bad_alloc&) {
        HarrowLogWrite(HARROW_LOG_ASSERTION, i_pszFile, i_nLine, i_pszMessage);
    }
}

}  // namespace Harrowlib201
