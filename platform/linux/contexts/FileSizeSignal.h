// A file that may not grow is an error of one call, and not the end of the process.
#pragma once

#include <csignal>

namespace morwen {

// While it lives, a write beyond the limit of a file's size (RLIMIT_FSIZE) fails with EFBIG for the calling thread, and
// sends no signal: libkrb5 writes files in its calls, and what SIGXFSZ does unless a host says otherwise is to end it.
class FileSizeSignal {
public:
    FileSizeSignal() noexcept;
    ~FileSizeSignal();
    FileSizeSignal(const FileSizeSignal&) = delete;
    FileSizeSignal& operator=(const FileSizeSignal&) = delete;

private:
    bool m_bBlocked = false;
    bool m_bOthers = false;  // one was waiting before
    sigset_t m_before{};
};

}  // namespace morwen
