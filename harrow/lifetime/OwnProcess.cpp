#include "harrow/lifetime/OwnProcess.h"

#include <unistd.h>

#include <atomic>

namespace Harrowlib201 {

namespace {

std::atomic<pid_t> g_nProcess{getpid()};

// An unload runs the library's destructor functions before those of its static objects, the process's end after them.
std::atomic<bool> g_bUnloading{false};
[[gnu::destructor]] void NoteUnload() noexcept {
    g_bUnloading = true;
}

// For objects that are made, and then destroyed, so late that it has run all the same.
std::atomic<bool> g_bEnding{false};
struct EndMark {
    EndMark() = default;
    EndMark(const EndMark&) = delete;
    EndMark& operator=(const EndMark&) = delete;
    ~EndMark() { g_bEnding = !g_bUnloading; }
};
const EndMark g_endMark;

}  // namespace

void OwnProcess::Note() noexcept {
    g_nProcess = getpid();
}

bool OwnProcess::IsForkedChild() noexcept {
    return g_nProcess != getpid();
}

bool OwnProcess::IsEnding() noexcept {
    return g_bEnding || !g_bUnloading;
}

}  // namespace Harrowlib201
