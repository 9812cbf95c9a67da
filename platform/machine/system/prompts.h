// The questions that the described machine asks its user.
#pragma once

namespace machine {

// Called when the machine closes: the next machine's answers begin anew.
void ClosePrompts();

// In between, questions to the user get the answers that they got since the machine was opened, in turn.
void BeginPromptRehearsal();
void EndPromptRehearsal();

}  // namespace machine
