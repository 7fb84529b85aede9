#include "harrow/lifetime/OwnProcess.h"

#include <unistd.h>

#include <atomic>

namespace Harrowlib201 {

namespace {

std::atomic<pid_t> g_nProcess{getpid()};

}  // namespace

void OwnProcess::Note() noexcept {
    g_nProcess = getpid();
}

bool OwnProcess::IsForkedChild() noexcept {
    return g_nProcess != getpid();
}

bool OwnProcess::IsAlone() noexcept {
    return false;
}

}  // namespace Harrowlib201
