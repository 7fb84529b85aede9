// What is done when the library is unloaded or the process ends.
#pragma once

#include "harrow/lifetime/OwnProcess.h"

namespace Harrowlib201 {

// To be made as a static object. Nothing tells the process's end from an unload, so the work must do no harm to a
// host's threads that are in the library meanwhile: what they hold stays, and what they come for is still there, or
// refused. A forked child, and a process whose other threads have been ended, leave everything as it is, or a program
// that only ends could wait for a lock that nobody holds any more.
template <class Work>
class AtUnload {
public:
    explicit AtUnload(Work i_work) noexcept : m_work(i_work) {}
    ~AtUnload() {
        if (!OwnProcess::IsForkedChild() && !OwnProcess::IsAlone()) {
            m_work();
        }
    }
    AtUnload(const AtUnload&) = delete;
    AtUnload& operator=(const AtUnload&) = delete;

private:
    Work m_work;
};

}  // namespace Harrowlib201
