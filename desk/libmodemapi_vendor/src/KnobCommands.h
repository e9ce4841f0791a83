#pragma once

namespace fake {

class Call;

// Commands of the text port that make functions of the modem API misbehave, and count their calls.
// Their arguments stand in the table of Commands.cpp.

void fail(Call& call);
void delay(Call& call);
void silence(Call& call);
void patch(Call& call);
void heal(Call& call);
void clear(Call& call);
void calls(Call& call);

}  // namespace fake
