// Module 3: RF test settings: GPIO values and the TX antenna.
#pragma once

int velmor_test_rf_do(int argc, char** argv);
void velmor_test_rf_show_help(int module);
