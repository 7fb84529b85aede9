#include "fakes/TraceCapture.h"

#include <algorithm>

namespace morwen {

TraceCapture::TraceCapture() {
    HarrowLogSetSink(Sink, this, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
}

TraceCapture::~TraceCapture() {
    HarrowLogSetSink(nullptr, nullptr, 0);
}

void TraceCapture::Sink(uint32_t i_nKind, const char*, int, const char* i_pszMessage, void* i_pvUser) {
    auto* pSelf = static_cast<TraceCapture*>(i_pvUser);
    const std::lock_guard lock(pSelf->m_mutex);
    pSelf->m_messages.push_back({i_nKind, i_pszMessage, false});
}

testing::AssertionResult TraceCapture::Traced(const std::string& i_text) const {
    const std::lock_guard lock(m_mutex);
    const bool bFound = std::any_of(m_messages.begin(), m_messages.end(), [&i_text](const Message& i_message) {
        return i_message.m_nKind == HARROW_LOG_TRACE && i_message.m_text == i_text;
    });
    return bFound ? testing::AssertionSuccess() : testing::AssertionFailure() << i_text << " is not among\n" << All();
}

testing::AssertionResult TraceCapture::Asserted(const std::string& i_text) {
    const std::lock_guard lock(m_mutex);
    bool bFound = false;
    for (Message& message : m_messages) {
        if (message.m_nKind == HARROW_LOG_ASSERTION && message.m_text.find(i_text) != std::string::npos) {
            message.m_bExpected = true;
            bFound = true;
        }
    }
    return bFound ? testing::AssertionSuccess() : testing::AssertionFailure() << i_text << " is not among\n" << All();
}

bool TraceCapture::Contains(const std::string& i_text) const {
    const std::lock_guard lock(m_mutex);
    return All().find(i_text) != std::string::npos;
}

std::string TraceCapture::UnexpectedAssertions() const {
    const std::lock_guard lock(m_mutex);
    std::string texts;
    for (const Message& message : m_messages) {
        if (message.m_nKind == HARROW_LOG_ASSERTION && !message.m_bExpected) {
            texts += message.m_text + "\n";
        }
    }
    return texts;
}

void TraceCapture::Clear() {
    const std::lock_guard lock(m_mutex);
    m_messages.clear();
}

std::string TraceCapture::All() const {
    std::string texts;
    for (const Message& message : m_messages) {
        texts += (message.m_nKind == HARROW_LOG_TRACE ? "T " : "A ") + message.m_text + "\n";
    }
    return texts;
}

}  // namespace morwen
