// The buzzer on its control line.
#pragma once

enum class BuzzerLevel { sounding, silent };

// Sounds count times, 200 ms on and 200 ms off; nothing for a count of 0 or less. Prints its own
// line when the control device cannot be opened.
void buzzer(int count);

// Sets the line once; a failure is not printed.
void buzzer_level(BuzzerLevel level);
