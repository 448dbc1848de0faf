// Module 7: decodes diagnostic statistics records, reads the debug information of the
// statistics framework.
#pragma once

#include <cstdint>

int velmor_test_modem_stats_do(int argc, char** argv);
void velmor_test_qmi_modem_stats_show_help(int module);

// Prints whether the modem supports all that it should, from the data of its debug information.
void velmor_modem_stats_support_status_check(const uint8_t* data);

// Print one block of the debug information each; the number of its bytes, 0 for null.
int velmor_modem_stats_main_info_unpk(const uint8_t* data, int version);
int velmor_modem_stats_diag_info_unpk(const uint8_t* data, int version);
int velmor_modem_stats_cm_info_unpk(const uint8_t* data);
int velmor_modem_stats_uim_info_unpk(const uint8_t* data);
