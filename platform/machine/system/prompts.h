// The questions that the described machine asks its user.
#pragma once

namespace machine {

// Called when the machine closes: the next machine's answers begin anew.
void ClosePrompts();

}  // namespace machine
