// Tells a forked child from the process that works with the library, and one that ends from one that goes on.
#pragma once

namespace Harrowlib201 {

class OwnProcess {
public:
    // The calling process is the one from now on; at first it is the one that has loaded the library.
    static void Note() noexcept;

    // Whether the caller is a fork of that process. Another thread's locks may stay locked for good in it.
    static bool IsForkedChild() noexcept;

    // Whether the system has ended all other threads already, wherever they were: what they had locked stays locked,
    // and nobody must wait for them. Never so where a process's threads go on until its end.
    static bool IsAlone() noexcept;
};

}  // namespace Harrowlib201
