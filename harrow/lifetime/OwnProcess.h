// Tells a forked child from the process that works with the library.
#pragma once

namespace Harrowlib201 {

class OwnProcess {
public:
    // The calling process is the one from now on; at first it is the one that has loaded the library.
    static void Note() noexcept;

    // Whether the caller is a fork of that process. Another thread's locks may stay locked for good in it.
    static bool IsForkedChild() noexcept;
};

}  // namespace Harrowlib201
