// Module 11: restarts the modem, dumps its memory, switches print masks, tests timer and
// shared memory.
#pragma once

int velmor_smart_test_do(int argc, char** argv);
void velmor_smart_test_show_help(int module);
