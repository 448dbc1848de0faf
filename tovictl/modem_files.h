// The modem's NV items and EFS files, whole: what the extension service carries in chunks is put
// together here, and every flaw of an answer is told apart.
#pragma once

#include <string>
#include <string_view>

#include "qmi_client.h"
#include "velmor_extend_payload.h"
#include "velmor_extend_service.h"
#include "verdict.h"

namespace ctl {

inline constexpr size_t kFileMax = 102410;  // bytes of an EFS file

// An NV item or an EFS file of one subscription.
struct Target {
  bool is_nv = true;
  unsigned int id = 0;  // of an item
  std::string path;     // of a file
  unsigned int sub = 0;

  std::string name() const;  // "nv 550", or the path
  std::string text() const;  // with the subscription
};

// A number from 0 to 7232, or a path of 1 to 70 bytes that begins with '/'. Else `problem` says why
// `text` is neither.
bool parse_target(const std::string& text, unsigned int sub, Target& target, std::string& problem);

class ModemFiles {
 public:
  // `answer_ms`: how long an answer may take.
  explicit ModemFiles(uint32_t answer_ms) : answer_ms_(answer_ms) {}
  ~ModemFiles();
  ModemFiles(const ModemFiles&) = delete;
  ModemFiles& operator=(const ModemFiles&) = delete;

  // What an operation has come to; `absent` when the modem says that there is no such thing.
  struct Done : Verdict {
    bool absent = false;
  };

  Done read(const Target& target, std::string& bytes);
  // Items have 1 to 424 bytes, files up to kFileMax. Until its last chunk has arrived, the modem
  // keeps the file that it has.
  Done write(const Target& target, std::string_view bytes);
  Done remove(const Target& target);
  // Asks the modem to commit NV and EFS to its storage.
  Done commit();

 private:
  Done open();
  // One exchange; `held` is how many bytes of `rsp` the modem sent.
  Done send(uint32_t request_id, const void* req, void* rsp, size_t least, size_t room,
            size_t& held);
  Done exchange(const Target& target, const velmor_nvefs_req& req, velmor_nvefs_rsp& rsp,
                size_t& data_held);
  Done read_item(const Target& target, std::string& bytes);
  Done read_file(const Target& target, std::string& bytes);
  Done write_item(const Target& target, std::string_view bytes);
  Done write_file(const Target& target, std::string_view bytes);

  const uint32_t answer_ms_;
  qmi_client_type client_ = nullptr;
  velmor_extend_send_data_req_msg_v01 message_{};
  velmor_extend_send_data_resp_msg_v01 answer_{};
};

}  // namespace ctl
