// What a program owes others at its end, however it ends.
#pragma once

// Has `say` called once, on some thread, at the process's exit or before SIGINT, SIGTERM or SIGHUP
// end it; a signal that the program ignores or handles itself stays the program's. `say` may lock
// and wait, but not for what the main thread is to do. Once a process.
void at_the_end(void (*say)());
