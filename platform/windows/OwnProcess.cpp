// Processes do not fork here.
#include "harrow/lifetime/OwnProcess.h"

namespace Harrowlib201 {

void OwnProcess::Note() noexcept {}

bool OwnProcess::IsForkedChild() noexcept {
    return false;
}

}  // namespace Harrowlib201
