// What is done when the library is unloaded, or when the process ends.
#pragma once

#include "harrow/lifetime/OwnProcess.h"

namespace Harrowlib201 {

// To be made as a static object, for what would count as lost when the library is gone. The end of the process leaves
// everything as it is: a host's threads may be at work with it. So does a forked child, or a program that only ends
// could wait in it for a lock that nobody holds any more.
template <class Work>
class AtUnload {
public:
    explicit AtUnload(Work i_work) noexcept : m_work(i_work) {}
    ~AtUnload() {
        if (!OwnProcess::IsForkedChild() && !OwnProcess::IsEnding()) {
            m_work();
        }
    }
    AtUnload(const AtUnload&) = delete;
    AtUnload& operator=(const AtUnload&) = delete;

private:
    Work m_work;
};

// The same for what must be done before the process ends, beside threads that go on.
template <class Work>
class AtProcessEnd {
public:
    explicit AtProcessEnd(Work i_work) noexcept : m_work(i_work) {}
    ~AtProcessEnd() {
        if (!OwnProcess::IsForkedChild() && OwnProcess::IsEnding()) {
            m_work();
        }
    }
    AtProcessEnd(const AtProcessEnd&) = delete;
    AtProcessEnd& operator=(const AtProcessEnd&) = delete;

private:
    Work m_work;
};

}  // namespace Harrowlib201
