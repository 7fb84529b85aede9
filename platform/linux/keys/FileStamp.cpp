#include "platform/linux/keys/FileStamp.h"

#include <sys/stat.h>

#include <ctime>

namespace morwen {

namespace {

constexpr int64_t kUnsettled = 20'000'000;  // two ticks of the slowest clock

int64_t Nanoseconds(const timespec& i_time) noexcept {
    return i_time.tv_sec * int64_t{1'000'000'000} + i_time.tv_nsec;
}

}  // namespace

std::optional<FileStamp> FileStamp::Of(const std::string& i_path) noexcept {
    // The times of files stand still within a tick too: a file that has just been written may change once more and look
    // the same. Both clocks are read before, so that a change after the look never counts as seen.
    const int64_t nTick = ClockTick();
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    struct stat file = {};
    if (stat(i_path.c_str(), &file) != 0) {
        return std::nullopt;
    }
    // The time of the last change of anything: who may read it, too, and nobody can set it back.
    const bool bSettled = Nanoseconds(file.st_ctim) < Nanoseconds(now) - kUnsettled;
    FileStamp stamp = {file.st_dev, file.st_ino, file.st_ctim.tv_sec, file.st_ctim.tv_nsec, file.st_size};
    stamp.m_nUnsettledIn = bSettled ? 0 : nTick;
    return stamp;
}

int64_t ClockTick() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return Nanoseconds(now);
}

}  // namespace morwen
