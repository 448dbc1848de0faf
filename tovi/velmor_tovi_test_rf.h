// Module 3: two factory RF settings, the GPIO values and the TX antenna.
#pragma once

int velmor_test_rf_do(int argc, char** argv);
void velmor_test_rf_show_help(int module);
