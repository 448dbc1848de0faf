// Module 6: sends one raw payload through the vendor extension service and shows the answer.
#pragma once

int velmor_test_qmi_send_data_do(int argc, char** argv);
void velmor_test_qmi_send_data_show_help(int module);
