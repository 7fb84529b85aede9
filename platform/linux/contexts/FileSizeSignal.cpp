#include "platform/linux/contexts/FileSizeSignal.h"

#include <sys/resource.h>

#include <cerrno>
#include <ctime>

namespace morwen {

namespace {

sigset_t TheSignal() noexcept {
    sigset_t set{};
    sigemptyset(&set);
    sigaddset(&set, SIGXFSZ);
    return set;
}

}  // namespace

FileSizeSignal::FileSizeSignal() noexcept {
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur == RLIM_INFINITY) {
        return;
    }
    const sigset_t set = TheSignal();
    sigset_t pending{};
    m_bOthers = sigpending(&pending) == 0 && sigismember(&pending, SIGXFSZ) == 1;
    m_bBlocked = pthread_sigmask(SIG_BLOCK, &set, &m_before) == 0;
}

FileSizeSignal::~FileSizeSignal() {
    if (!m_bBlocked) {
        return;
    }
    const int nError = errno;
    const sigset_t set = TheSignal();
    const timespec now{};
    while (!m_bOthers && sigtimedwait(&set, nullptr, &now) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    errno = nError;
}

}  // namespace morwen
