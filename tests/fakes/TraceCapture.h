// Keeps what the product says to the log, so that tests can ask for it.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "morwen/harrow_log.h"

namespace morwen {

// Listens from its construction to its end. May be written to by many threads at once.
class TraceCapture {
public:
    TraceCapture();
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    // Whether some trace is this text exactly.
    testing::AssertionResult Traced(const std::string& i_text) const;
    // Whether some assertion contains the text. It then counts as expected.
    testing::AssertionResult Asserted(const std::string& i_text);
    // Whether any message at all contains the text.
    bool Contains(const std::string& i_text) const;
    // The assertions that no test has asked for, one a line.
    std::string UnexpectedAssertions() const;
    void Clear();

private:
    struct Message {
        uint32_t m_nKind;
        std::string m_text;
        bool m_bExpected;
    };

    static void Sink(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszMessage, void* i_pvUser);
    std::string All() const;

    mutable std::mutex m_mutex;
    std::vector<Message> m_messages;
};

}  // namespace morwen
