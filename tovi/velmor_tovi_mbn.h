// Module 10: refreshes or reactivates the modem's configuration.
#pragma once

int velmor_test_mbn_do(int argc, char** argv);
void velmor_test_mbn_show_help(int module);
