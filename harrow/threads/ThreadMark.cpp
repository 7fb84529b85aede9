#include "harrow/threads/ThreadMark.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "harrow/lifetime/OwnProcess.h"

namespace Harrowlib201 {

namespace {

// What no thread has begun at that goes on: the first of a process stays known when it has ended, as long as others
// run.
constexpr uint64_t kEnded = ~uint64_t{0};

// The thread's start, in the kernel's ticks since the machine's; 0 when it cannot be read.
uint64_t StartOf(uintptr_t i_nThread) noexcept {
    constexpr int kFieldsBetween = 20;  // from the name's end on
    std::array<char, 512> aText{};
    static_cast<void>(
        std::snprintf(aText.data(), aText.size(), "/proc/self/task/%lu/stat", static_cast<unsigned long>(i_nThread)));
    const int nFile = open(aText.data(), O_RDONLY | O_CLOEXEC);
    if (nFile < 0) {
        return 0;
    }
    const ssize_t nRead = read(nFile, aText.data(), aText.size() - 1);
    close(nFile);
    aText[nRead > 0 ? static_cast<size_t>(nRead) : 0] = '\0';
    const char* pszField = std::strrchr(aText.data(), ')');  // a name may hold blanks and brackets
    if (pszField != nullptr && std::strncmp(pszField, ") Z", 3) == 0) {
        return kEnded;
    }
    for (int i = 0; i < kFieldsBetween && pszField != nullptr; ++i) {
        pszField = std::strchr(pszField + 1, ' ');
    }
    return pszField != nullptr ? std::strtoull(pszField, nullptr, 10) : 0;
}

struct Own {
    uintptr_t m_nThread;
    uint64_t m_nStart;
};
// Read once: it costs more than all the rest.
constinit thread_local Own t_own{};

}  // namespace

ThreadMark::ThreadMark() noexcept : m_nThread(static_cast<uintptr_t>(gettid())) {
    if (t_own.m_nThread != m_nThread) {  // the thread of a forked child has another number
        t_own = {m_nThread, StartOf(m_nThread)};
    }
    m_nStart = t_own.m_nStart;
}

ThreadMark::~ThreadMark() = default;

bool ThreadMark::IsGone() const noexcept {
    if (OwnProcess::IsForkedChild()) {
        return false;
    }
    if (syscall(SYS_tgkill, getpid(), m_nThread, 0) != 0 && errno == ESRCH) {
        return true;
    }
    const uint64_t nStart = m_nStart != 0 ? StartOf(m_nThread) : 0;
    return nStart != 0 && nStart != m_nStart;
}

}  // namespace Harrowlib201
