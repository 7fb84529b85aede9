// Keeps what the product says to the log, so that tests can ask for it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "morwen/harrow_log.h"

namespace morwen {

// Listens from its construction to its end. May be written to by many threads at once.
class TraceCapture {
public:
    TraceCapture() { HarrowLogSetSink(Sink, this, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION); }
    ~TraceCapture() { HarrowLogSetSink(nullptr, nullptr, 0); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    // Whether each text is part of some message, and every failed assertion contains one of the texts ("" asks for
    // nothing). What was said so far is then forgotten.
    testing::AssertionResult Said(const std::vector<std::string>& i_texts) {
        const std::lock_guard lock(m_mutex);
        std::string wrong;
        for (const std::string& text : i_texts) {
            wrong += text.empty() || Has(text) ? "" : "not said: " + text + "\n";
        }
        std::string all;
        for (const auto& [nKind, message] : m_messages) {
            all += message + "\n";
            const bool bAskedFor =
                std::any_of(i_texts.begin(), i_texts.end(), [&message = message](const auto& i_text) {
                    return !i_text.empty() && message.find(i_text) != std::string::npos;
                });
            wrong += nKind == HARROW_LOG_TRACE || bAskedFor ? "" : "asserted: " + message + "\n";
        }
        m_messages.clear();
        return wrong.empty() ? testing::AssertionSuccess() : testing::AssertionFailure() << wrong << "among\n" << all;
    }
    bool Contains(const std::string& i_text) const { return Count(i_text) > 0; }
    // How many messages have the text in them.
    int64_t Count(const std::string& i_text) const {
        const std::lock_guard lock(m_mutex);
        return std::count_if(m_messages.begin(), m_messages.end(), [&i_text](const auto& i_message) {
            return i_message.second.find(i_text) != std::string::npos;
        });
    }

    std::function<void(const std::string&)> m_onSaid = [](const std::string&) {};  // by the thread that speaks

private:
    static void Sink(uint32_t i_nKind, const char*, int, const char* i_pszMessage, void* i_pvUser) {
        auto* pSelf = static_cast<TraceCapture*>(i_pvUser);
        {
            const std::lock_guard lock(pSelf->m_mutex);
            pSelf->m_messages.emplace_back(i_nKind, i_pszMessage);
        }
        pSelf->m_onSaid(i_pszMessage);
    }
    bool Has(const std::string& i_text) const {
        return std::any_of(m_messages.begin(), m_messages.end(), [&i_text](const auto& i_message) {
            return i_message.second.find(i_text) != std::string::npos;
        });
    }

    mutable std::mutex m_mutex;
    std::vector<std::pair<uint32_t, std::string>> m_messages;
};

}  // namespace morwen
