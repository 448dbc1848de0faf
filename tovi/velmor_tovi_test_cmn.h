// Module 5: diag commands, SIM cards and eSIM, card hot swap, SAR DSI.
#pragma once

int velmor_test_cmn_do(int argc, char** argv);
void velmor_test_cmn_show_help(int module);
