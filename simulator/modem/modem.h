// What the simulated modem holds: NV items and EFS files of two subscriptions, two card slots, an
// eUICC, configurations, statistics, the SAR state. It knows no bytes of any protocol. Everything
// lives in the state folder, as files that a person can look into and change with ordinary tools;
// several processes may use one folder at the same time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "configurations.h"
#include "networks.h"
#include "statistics.h"

namespace sim {

inline constexpr unsigned int kSubscriptions = 2;
inline constexpr unsigned int kSlots = 2;
inline constexpr size_t kMaxNvBytes = 424;
inline constexpr size_t kMaxEfsBytes = 102410;

// What answers in a card slot.
enum class Card { Absent, Sim, Euicc, Faulty };

struct Slot {
  Card card;
  bool powered;

  bool has_card() const { return card == Card::Sim || card == Card::Euicc; }
  bool answers() const { return powered && has_card(); }
};

// What cannot be read is told by a StateError of any of these, unless another result is named.
class Modem {
 public:
  // Opens the state folder, with factory content when it is new. Null, with `problem` in words,
  // when that cannot be done.
  static std::unique_ptr<Modem> open(const std::string& folder, std::string& problem);

  // Empties a state folder. False, with `problem` in words, when it is none, or in use by a server.
  static bool reset(const std::string& folder, std::string& problem);

  const std::string& folder() const { return folder_; }

  // NV items. Nothing for an item that is not active.
  std::optional<std::string> nv_read(unsigned int sub, unsigned int id) const;
  bool nv_write(unsigned int sub, unsigned int id, std::string_view value);
  bool nv_delete(unsigned int sub, unsigned int id);

  // EFS files. 0, or a negative errno value: a path with an empty component, `.` or `..` is
  // -EINVAL, one that runs through a file -ENOTDIR, what cannot be read or is too large -EIO.
  struct EfsChunk {
    size_t file_size = 0;
    std::string bytes;
  };
  int efs_read(unsigned int sub, std::string_view path, size_t offset, size_t limit,
               EfsChunk& chunk) const;
  static bool is_efs_path(std::string_view path);
  int efs_write(unsigned int sub, std::string_view path, std::string_view bytes);
  int efs_delete(unsigned int sub, std::string_view path);

  // Card slots, 1 and 2. The second is shared by a removable SIM and the eUICC: which of them it
  // holds is decided when it is powered up, by the EFS file esim_enable of subscription 1.
  Slot slot(unsigned int number) const;
  bool power_down(unsigned int number);
  bool power_up(unsigned int number);
  bool set_sim_present(unsigned int number, bool present);

  // The eUICC: its EID, two digits a byte (empty when the state has no 32 hexadecimal digits), and
  // its memory reset, which gives whether there were profiles to delete.
  std::string eid() const;
  bool reset_euicc();

  Configurations& configurations() { return configurations_; }
  const Statistics& statistics() const { return statistics_; }

  // What is on the air.
  std::vector<RadioNetwork> networks() const { return read_networks(folder_ + "/networks"); }

  // The SAR DSI; nothing when the state does not hold a number.
  std::optional<uint32_t> sar_dsi() const;

 private:
  explicit Modem(std::string folder)
      : folder_(std::move(folder)), configurations_(folder_), statistics_(folder_) {}

  std::string nv_path(unsigned int sub, unsigned int id) const;
  // Where an EFS file is kept, or nothing for a path that is refused.
  std::optional<std::string> efs_path(unsigned int sub, std::string_view path) const;

  // A value in one of the files of `key=value` lines; empty when there is none.
  std::string value(const std::string& file, std::string_view key) const;
  bool set_value(const std::string& file, std::string_view key, std::string_view value);

  const std::string folder_;
  Configurations configurations_;
  const Statistics statistics_;
};

}  // namespace sim
