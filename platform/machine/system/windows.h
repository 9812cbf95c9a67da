// The windows that the described machine gives its host.
#pragma once

namespace machine {

// Called when the machine closes.
void CloseWindows();

}  // namespace machine
