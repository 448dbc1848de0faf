// Module 7: decodes diagnostic statistics records, reads the debug information of the
// statistics framework.
#pragma once

int velmor_test_modem_stats_do(int argc, char** argv);
void velmor_test_qmi_modem_stats_show_help(int module);
