// Tells a forked child from the process that works with the library, and the process's end from the library's.
#pragma once

namespace Harrowlib201 {

class OwnProcess {
public:
    // The calling process is the one from now on; at first it is the one that has loaded the library.
    static void Note() noexcept;

    // Whether the caller is a fork of that process. Another thread's locks may stay locked for good in it.
    static bool IsForkedChild() noexcept;

    // For what is done when static objects are destroyed: whether the process ends, so that other threads may be
    // anywhere in the library, and not just the library is unloaded.
    static bool IsEnding() noexcept;
};

}  // namespace Harrowlib201
