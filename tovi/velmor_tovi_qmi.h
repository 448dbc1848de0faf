// Module 12: starts network scans.
#pragma once

int velmor_test_qmi_do(int argc, char** argv);
void velmor_test_qmi_show_help(int module);
