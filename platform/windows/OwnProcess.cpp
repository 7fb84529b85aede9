// Processes do not fork here, and end without their other threads.
#include "harrow/lifetime/OwnProcess.h"

namespace Harrowlib201 {

void OwnProcess::Note() noexcept {}

bool OwnProcess::IsForkedChild() noexcept {
    return false;
}

bool OwnProcess::IsEnding() noexcept {
    return false;  // the system has ended the other threads before, so this is like an unload
}

}  // namespace Harrowlib201
