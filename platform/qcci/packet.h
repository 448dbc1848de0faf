// What travels between endpoints: QRTR addresses and control packets, and the header in front of
// a QMI message. Everything is little-endian, as on the hosts this runs on.
#pragma once

#include <compare>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "qmi_message.h"

namespace qmi {

struct Address {
  uint32_t node = 0;
  uint32_t port = 0;
  auto operator<=>(const Address&) const = default;
};

// The address of nobody.
inline constexpr Address kNowhere{UINT32_MAX, UINT32_MAX};

// The port of a node's name service; packets from it are control packets, all others are data.
inline constexpr uint32_t kControlPort = 0xFFFFFFFE;

enum class Control : uint32_t {
  NewServer = 4,
  DelServer = 5,
  NewLookup = 10,
  DelLookup = 11,
};

// struct qrtr_ctrl_pkt with the members of its server form.
struct ControlPacket {
  Control command;
  uint32_t service = 0;
  uint32_t instance = 0;  // instance number << 8 | IDL major version
  uint32_t node = 0;
  uint32_t port = 0;

  Address address() const { return {node, port}; }
  // After the servers known at the time of a lookup comes a NEW_SERVER that is all zero.
  bool ends_list() const {
    return command == Control::NewServer && service == 0 && instance == 0 && node == 0 && port == 0;
  }
};
static_assert(sizeof(ControlPacket) == 20);

inline std::span<const uint8_t> bytes_of(const ControlPacket& packet) {
  return {reinterpret_cast<const uint8_t*>(&packet), sizeof packet};
}

inline std::optional<ControlPacket> read_control(std::span<const uint8_t> bytes) {
  ControlPacket packet;
  if (bytes.size() < sizeof packet) return std::nullopt;
  memcpy(&packet, bytes.data(), sizeof packet);
  return packet;
}

inline constexpr size_t kHeaderBytes = 7;
inline constexpr size_t kMaxPacketBytes = kHeaderBytes + UINT16_MAX;

struct Header {
  Kind kind;
  uint16_t transaction;
  uint16_t message;
  uint16_t length;  // of the TLVs that follow
};

inline void write_header(const Header& header, uint8_t* out) {
  out[0] = static_cast<uint8_t>(header.kind);
  memcpy(out + 1, &header.transaction, 2);
  memcpy(out + 3, &header.message, 2);
  memcpy(out + 5, &header.length, 2);
}

// The header of a packet, or nothing when it is too short for one.
inline std::optional<Header> read_header(std::span<const uint8_t> packet) {
  if (packet.size() < kHeaderBytes) return std::nullopt;
  Header header;
  header.kind = static_cast<Kind>(packet[0]);
  memcpy(&header.transaction, &packet[1], 2);
  memcpy(&header.message, &packet[3], 2);
  memcpy(&header.length, &packet[5], 2);
  return header;
}

// Whether the packet is one whole QMI message.
inline bool is_whole(const Header& header, std::span<const uint8_t> packet) {
  return header.length == packet.size() - kHeaderBytes;
}

}  // namespace qmi
