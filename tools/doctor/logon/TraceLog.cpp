// Keeps what the library traces.
#include "tools/doctor/logon/TraceLog.h"

#include <iostream>
#include <string_view>
#include <syncstream>
#include <utility>

#include "morwen/harrow_log.h"

namespace morwen::doctor {

namespace {

constexpr size_t kMostLines = 5000;

}  // namespace

TraceLog::TraceLog(bool i_bShow) {
    HarrowLogSetSink(i_bShow ? Write : nullptr, this, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
}

TraceLog::~TraceLog() {
    HarrowLogSetSink(nullptr, nullptr, 0);
}

void TraceLog::Write(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszMessage,
                     void* i_pvSelf) noexcept {
    auto& self = *static_cast<TraceLog*>(i_pvSelf);
    try {
        const std::string message = i_pszMessage;
        std::string line = (i_nKind == HARROW_LOG_ASSERTION ? "assertion " : "trace ") + std::string(i_pszFile) + ":" +
                           std::to_string(i_nLine) + ": " + message;
        const std::lock_guard lock(self.m_mutex);
        std::osyncstream(std::cerr) << line << '\n';
        if (self.m_lines.size() >= kMostLines) {
            self.m_lines.erase(self.m_lines.begin(), self.m_lines.begin() + kMostLines / 2);
        }
        self.m_lines.push_back(std::move(line));
    } catch (...) {
        // A line is lost; nothing may be thrown into the library.
        return;
    }
}

std::vector<std::string> TraceLog::Lines() const {
    const std::lock_guard lock(m_mutex);
    return m_lines;
}

}  // namespace morwen::doctor
