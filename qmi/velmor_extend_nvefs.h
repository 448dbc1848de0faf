// The modem's numbered NV items and the files of its embedded file system (EFS), for subscription
// 0 or 1, over the extension service. NV items fit into one exchange; files move in chunks.
//
// Any thread may call these; NV operations exclude each other, and so do EFS operations.
#pragma once

// What the operations return: 0, one of these, or the modem's own result.
enum : int {
  VELMOR_NVEFS_OK = 0,
  VELMOR_NVEFS_EXCHANGE_BAD_ARGUMENT = -101,  // the exchange refused its arguments
  VELMOR_NVEFS_NO_CLIENT = -102,              // no client of the extension service
  VELMOR_NVEFS_EXCHANGE_FAILED = -103,        // transport failure, or fewer than 20 bytes answered
  VELMOR_NVEFS_BAD_SUB = -104,                // subscription above 1
  VELMOR_NVEFS_NO_PATH = -105,
  VELMOR_NVEFS_BAD_PATH_LEN = -106,
  VELMOR_NVEFS_NO_BUF = -107,
  VELMOR_NVEFS_BAD_LEN = -108,  // of the buffer, of the data, or of what the modem sent
  VELMOR_NVEFS_BAD_NV_ID = -109,
};

inline constexpr unsigned int kNvIdMax = 7232;
inline constexpr unsigned int kEfsWriteMax = 102410;  // bytes of a file
inline constexpr unsigned int kEfsWriteChunkMax = 414;
inline constexpr int kEfsReadPathMax = 71;  // bytes of a path
inline constexpr int kEfsPathMax = 70;      // of one to write or delete

// Read an NV item or a file: `*p_buf_len` is the room in `buf` on entry, the bytes stored on
// return; what does not fit is left out. A read that fails in the middle of a file leaves what had
// arrived.
int velmor_nv_read(unsigned int sub_id, unsigned int nv_id, unsigned char* buf,
                   unsigned int* p_buf_len);
int velmor_efs_read(unsigned int sub_id, const char* efs_path, int path_len, unsigned char* buf,
                    unsigned int* p_buf_len);

// Write an NV item (1 to 424 bytes) or a file (1 to 102410 bytes).
int velmor_nv_write_ex(unsigned int sub_id, unsigned int nv_id, unsigned char* buf, int buf_len);
int velmor_efs_write(unsigned int sub_id, const char* efs_path, int path_len, unsigned char* buf,
                     unsigned int buf_len);

int velmor_nv_delete(unsigned int sub_id, unsigned int nv_id);
int velmor_efs_delete(unsigned int sub_id, const char* efs_path, int path_len);

// Asks the modem to commit NV and EFS to storage. 0 only when the exchange and the modem's own
// result are both 0; else the two OR-ed.
int velmor_nvefs_sync();
