// Module 4: reads, writes and deletes NV items and EFS files.
//
//   tovi 4 1|3 sub nv_id            NV read, delete
//   tovi 4 2   sub nv_id data...    NV write
//   tovi 4 4|6 sub path             EFS read, delete
//   tovi 4 5   sub path data...     EFS write
//
// sub: 0, or anything else for 1. data: one decimal number a byte, cut to its low eight bits.
#include "velmor_tovi_test_nvefs.h"

#include <string.h>

#include <algorithm>

#include "utilities/velmor_result.h"
#include "velmor_extend_nvefs.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"

namespace {

constexpr int kModule = 4;
constexpr int kFirstData = 5;  // index of the first data argument
constexpr int kBufBytes = 365;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: nvefs option cmd: ",                                   {kModule}},
  {"   tovi %d %d sub nv_id             /* nv read */",        {kModule, 1}},
  {"   tovi %d %d sub nv_id nv_data     /* nv write */",       {kModule, 2}},
  {"   tovi %d %d sub nv_id             /* nv delete */",      {kModule, 3}},
  {"   tovi %d %d sub efs_path          /* efs read */",       {kModule, 4}},
  {"   tovi %d %d sub efs_path efs_data /* efs write */",      {kModule, 5}},
  {"   tovi %d %d sub efs_path          /* efs delete */",     {kModule, 6}},
};
// clang-format on

unsigned int sub_of(char** argv) {
  return velmor_atoi(argv[3]) != 0 ? 1 : 0;
}

unsigned int nv_id_of(char** argv) {
  return static_cast<unsigned int>(velmor_atoi(argv[4]));
}

const char* path_of(char** argv) {
  return argv[4];
}

int path_len_of(char** argv) {
  return static_cast<int>(strlen(argv[4]));
}

bool has_exactly_5_inputs(int argc, Speaker speaker = Speaker::here()) {
  if (argc == 5) return true;
  velmor_log(LogLevel::Debug, speaker, "note: need %d inputs, Pls refer to the following cmd:", 5);
  return false;
}

bool has_data_inputs(int argc, Speaker speaker = Speaker::here()) {
  if (argc > kFirstData) return true;
  velmor_log(LogLevel::Debug, speaker, "note: Too few inputs, Pls refer to the following cmd:");
  return false;
}

// Fills `buf` with the data arguments; how many there were, at most `kBufBytes`.
int read_data(int argc, char** argv, unsigned char* buf) {
  const int count = std::min(argc - kFirstData, kBufBytes);
  for (int i = 0; i < count; ++i) {
    buf[i] = static_cast<unsigned char>(velmor_atoi(argv[kFirstData + i]));
  }
  return count;
}

// Passes a library's code on, with a note when it is a failure.
int noted(int code, Speaker speaker = Speaker::here()) {
  if (code != 0) {
    velmor_log(LogLevel::Debug, speaker, "velmor_extend_qmi_send_sync fail, REQUEST_ID_EFS");
  }
  return code;
}

void print_data(const unsigned char* buf, unsigned int len, Speaker speaker = Speaker::here()) {
  velmor_log(LogLevel::Debug, speaker, "data len(%d)\ndata: \n", static_cast<int>(len));
  velmor_log_bytes({buf, len}, speaker);
}

int velmor_nvefs_test_nv_read(int argc, char** argv) {
  if (!has_exactly_5_inputs(argc)) return VELMOR_INVALID_ARGUMENT;
  unsigned char buf[kBufBytes] = {};
  unsigned int len = sizeof buf;
  const int code = noted(velmor_nv_read(sub_of(argv), nv_id_of(argv), buf, &len));
  if (code == 0) print_data(buf, len);
  return code;
}

int velmor_nvefs_test_nv_write(int argc, char** argv) {
  if (!has_data_inputs(argc)) return VELMOR_INVALID_ARGUMENT;
  unsigned char buf[kBufBytes] = {};
  const int len = read_data(argc, argv, buf);
  return noted(velmor_nv_write_ex(sub_of(argv), nv_id_of(argv), buf, len));
}

int velmor_nvefs_test_nv_delete(int argc, char** argv) {
  if (!has_exactly_5_inputs(argc)) return VELMOR_INVALID_ARGUMENT;
  return noted(velmor_nv_delete(sub_of(argv), nv_id_of(argv)));
}

int velmor_nvefs_test_efs_read(int argc, char** argv) {
  if (!has_exactly_5_inputs(argc)) return VELMOR_INVALID_ARGUMENT;
  unsigned char buf[kBufBytes] = {};
  unsigned int len = sizeof buf;
  const int code =
      noted(velmor_efs_read(sub_of(argv), path_of(argv), path_len_of(argv), buf, &len));
  if (code == 0) print_data(buf, len);
  return code;
}

int velmor_nvefs_test_efs_write(int argc, char** argv) {
  if (!has_data_inputs(argc)) return VELMOR_INVALID_ARGUMENT;
  unsigned char buf[kBufBytes] = {};
  const auto len = static_cast<unsigned int>(read_data(argc, argv, buf));
  return noted(velmor_efs_write(sub_of(argv), path_of(argv), path_len_of(argv), buf, len));
}

int velmor_nvefs_test_efs_delete(int argc, char** argv) {
  if (!has_exactly_5_inputs(argc)) return VELMOR_INVALID_ARGUMENT;
  return noted(velmor_efs_delete(sub_of(argv), path_of(argv), path_len_of(argv)));
}

constexpr TestCommand kCommands[] = {
    {1, velmor_nvefs_test_nv_read},   {2, velmor_nvefs_test_nv_write},
    {3, velmor_nvefs_test_nv_delete}, {4, velmor_nvefs_test_efs_read},
    {5, velmor_nvefs_test_efs_write}, {6, velmor_nvefs_test_efs_delete},
};

}  // namespace

void velmor_test_nvefs_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_nvefs_do(int argc, char** argv) {
  return velmor_run_test_command(argc, argv, kModule, kCommands);
}
