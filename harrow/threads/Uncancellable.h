// Keeps the calling thread from being cancelled for a scope.
#pragma once

namespace Harrowlib201 {

// A cancellation unwinds the stack from any call that may wait, through locks that are held and through code that lets
// no exception pass, which would end the process. One that is asked for meanwhile comes after the scope, whose end
// itself may be the place: hence no promise not to throw. Does nothing on a system whose threads are not cancelled so.
class Uncancellable {
public:
    Uncancellable() noexcept;
    ~Uncancellable() noexcept(false);
    Uncancellable(const Uncancellable&) = delete;
    Uncancellable& operator=(const Uncancellable&) = delete;

private:
    int m_nBefore = 0;
};

}  // namespace Harrowlib201
