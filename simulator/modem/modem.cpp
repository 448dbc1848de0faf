#include "modem.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hex.h"
#include "state_folder.h"
#include "state_reader.h"
#include "velmor_efs_files.h"

namespace sim {
namespace {

// What the modem says of its own failures; what is wrong with a path, or with there being no room,
// is for the client to know.
int efs_error(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case EISDIR:
    case ENAMETOOLONG:
    case ENOSPC: return -error;
    default: return -EIO;
  }
}

}  // namespace

std::unique_ptr<Modem> Modem::open(const std::string& folder, std::string& problem) {
  if (!prepare_state_folder(folder, problem)) return nullptr;
  state_files::remove_leftovers(folder);
  return std::unique_ptr<Modem>(new Modem(folder));
}

bool Modem::reset(const std::string& folder, std::string& problem) {
  return empty_state_folder(folder, problem);
}

std::string Modem::nv_path(unsigned int sub, unsigned int id) const {
  return folder_ + "/nv/" + std::to_string(sub) + "/" + std::to_string(id);
}

std::optional<std::string> Modem::nv_read(unsigned int sub, unsigned int id) const {
  return read_state(nv_path(sub, id), kMaxNvBytes);
}

bool Modem::nv_write(unsigned int sub, unsigned int id, std::string_view value) {
  return state_files::write(folder_, nv_path(sub, id), value);
}

bool Modem::nv_delete(unsigned int sub, unsigned int id) {
  if (state_files::remove(nv_path(sub, id))) return true;
  if (!state_files::means_absent(errno)) throw StateError();
  return false;
}

bool Modem::is_efs_path(std::string_view path) {
  if (path.starts_with('/')) path.remove_prefix(1);
  for (bool last = false; !last;) {
    const size_t slash = path.find('/');
    const std::string_view component = path.substr(0, slash);
    if (component.empty() || component == "." || component == "..") return false;
    last = slash == std::string_view::npos;
    path.remove_prefix(last ? path.size() : slash + 1);
  }
  return true;
}

std::optional<std::string> Modem::efs_path(unsigned int sub, std::string_view path) const {
  if (!is_efs_path(path)) return std::nullopt;
  if (path.starts_with('/')) path.remove_prefix(1);
  return folder_ + "/efs/" + std::to_string(sub) + "/" + std::string(path);
}

int Modem::efs_read(unsigned int sub, std::string_view path, size_t offset, size_t limit,
                    EfsChunk& chunk) const {
  const auto file = efs_path(sub, path);
  if (!file) return -EINVAL;
  const auto opened = state_files::open_regular(*file, kMaxEfsBytes, chunk.file_size);
  if (!opened) return efs_error(errno);
  chunk.bytes.resize(limit);
  const ssize_t n = pread(opened.get(), chunk.bytes.data(), limit, static_cast<off_t>(offset));
  if (n < 0) return efs_error(errno);
  chunk.bytes.resize(static_cast<size_t>(n));
  return 0;
}

int Modem::efs_write(unsigned int sub, std::string_view path, std::string_view bytes) {
  const auto file = efs_path(sub, path);
  if (!file) return -EINVAL;
  return state_files::write(folder_, *file, bytes) ? 0 : efs_error(errno);
}

int Modem::efs_delete(unsigned int sub, std::string_view path) {
  const auto file = efs_path(sub, path);
  if (!file) return -EINVAL;
  return state_files::remove(*file) ? 0 : efs_error(errno);
}

std::string Modem::value(const std::string& file, std::string_view key) const {
  return state_files::find_or(read_state_values(folder_ + "/" + file), key, "");
}

bool Modem::set_value(const std::string& file, std::string_view key, std::string_view value) {
  const auto lock = lock_state(folder_);
  return state_files::set_value(folder_, folder_ + "/" + file, key, value);
}

namespace {

std::string slot_file(unsigned int number) {
  return "slot/" + std::to_string(number);
}

}  // namespace

Slot Modem::slot(unsigned int number) const {
  const auto values = read_state_values(folder_ + "/" + slot_file(number));
  const bool powered = state_files::find_or(values, "power", "") == "on";
  if (state_files::find_or(values, "holds", "") == "esim") return {Card::Euicc, powered};
  const std::string sim = state_files::find_or(values, "sim", "");
  return {sim == "present" ? Card::Sim : sim == "error" ? Card::Faulty : Card::Absent, powered};
}

bool Modem::power_down(unsigned int number) {
  return set_value(slot_file(number), "power", "off");
}

bool Modem::power_up(unsigned int number) {
  if (number == 2) {
    EfsChunk enable;
    const int result = efs_read(1, kEfsEsimEnable.path, 0, 1, enable);
    if (result != 0 && !state_files::means_absent(-result)) throw StateError();
    const bool esim = !enable.bytes.empty() && enable.bytes[0] != 0;
    if (!set_value(slot_file(number), "holds", esim ? "esim" : "sim")) return false;
  }
  return set_value(slot_file(number), "power", "on");
}

bool Modem::set_sim_present(unsigned int number, bool present) {
  return set_value(slot_file(number), "sim", present ? "present" : "absent");
}

std::string Modem::eid() const {
  const std::string bytes = from_hex(value("euicc", "eid")).value_or("");
  return bytes.size() == 16 ? bytes : "";
}

bool Modem::reset_euicc() {
  if (value("euicc", "profiles").empty()) return false;
  if (!set_value("euicc", "profiles", "")) throw StateError();
  return true;
}

std::optional<uint32_t> Modem::sar_dsi() const {
  const std::string dsi = value("sar", "dsi");
  if (dsi.empty()) return std::nullopt;
  char* end;
  const unsigned long number = strtoul(dsi.c_str(), &end, 10);
  if (*end != '\0' || number > UINT32_MAX) return std::nullopt;
  return static_cast<uint32_t>(number);
}

}  // namespace sim
