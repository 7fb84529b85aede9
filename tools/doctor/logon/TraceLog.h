// Keeps what the library traces.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace morwen::doctor {

// Is the process's sink as long as it lives. Any method on any thread.
class TraceLog {
public:
    // i_bShow: keeps every line, and shows it on standard error; else nothing is listened to.
    explicit TraceLog(bool i_bShow);
    ~TraceLog();
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    // The lines so far, the oldest dropped when there are very many.
    std::vector<std::string> Lines() const;

private:
    static void Write(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszMessage,
                      void* i_pvSelf) noexcept;

    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

}  // namespace morwen::doctor
