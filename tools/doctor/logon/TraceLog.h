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
    // i_bShow: every line goes to standard error too.
    explicit TraceLog(bool i_bShow);
    ~TraceLog();
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    // The lines so far, the oldest dropped when there are very many.
    std::vector<std::string> Lines() const;
    // The words with which the security package last failed; they are behind the library's error records, which name
    // no file, principal or key version. Empty: it has not failed since the last call.
    std::string TakeReason();

private:
    static void Write(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszMessage,
                      void* i_pvSelf) noexcept;

    const bool m_bShow;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
    std::string m_reason;
};

}  // namespace morwen::doctor
