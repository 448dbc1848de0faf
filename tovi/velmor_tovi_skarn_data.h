// Module 9: radio statistics by carrier and antenna, from the statistics service.
#pragma once

int velmor_test_qmi_modem_stats_do(int argc, char** argv);
void velmor_test_modem_stats_show_help(int module);
