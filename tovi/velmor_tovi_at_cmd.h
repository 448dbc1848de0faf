// Module 8: sends an AT command over the modem's AT port.
#pragma once

int velmor_test_at_cmd_do(int argc, char** argv);
void velmor_test_at_cmd_show_help(int module);
