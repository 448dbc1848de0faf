// Module 4: reads, writes and deletes NV items and EFS files.
#pragma once

int velmor_test_nvefs_do(int argc, char** argv);
void velmor_test_nvefs_show_help(int module);
