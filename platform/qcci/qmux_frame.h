// QMUX: the frames in which QMI messages travel to and from a modem behind a character device, and
// the messages of the control service that only such a modem has. Frames are a stream of bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace qmi::qmux {

enum class Sender : uint8_t { Host = 0x00, Modem = 0x80 };

inline constexpr uint8_t kControlService = 0;
inline constexpr uint8_t kAllClients = 0xFF;  // of a service, as an indication's client id
inline constexpr size_t kFrontBytes = 6;      // what stands in front of a frame's message
inline constexpr size_t kMaxFrameBytes = 1 + UINT16_MAX;

struct Frame {
  uint8_t service;
  uint8_t client;                    // id, 0 for the control service
  std::span<const uint8_t> message;  // with its header: 7 bytes as in packet.h, or the control's 6
};

// The bytes of a frame; none when the message is too long for one.
std::vector<uint8_t> make_frame(Sender sender, const Frame& frame);

// Finds the frames of one sender in a stream. What cannot be the start of a frame is skipped: other
// bytes than the marker, the other sender's frames, and those whose two lengths contradict.
class FrameReader {
 public:
  explicit FrameReader(Sender sender);

  // Where the stream's next bytes are to be put; never empty once `next` had no more to give.
  std::span<uint8_t> room();

  // That many bytes have been put there.
  void filled(size_t count) { end_ += count; }

  // The next whole frame; its message is the reader's, valid until `room` is called.
  std::optional<Frame> next();

  // Whether anything has been skipped.
  bool has_skipped() const { return has_skipped_; }

 private:
  const Sender sender_;
  // Not cleared: only the pages that the stream reaches are ever touched.
  const std::unique_ptr<uint8_t[]> buffer_;
  size_t begin_ = 0;  // of what has not been looked at
  size_t end_ = 0;
  bool has_skipped_ = false;
};

enum class ControlKind : uint8_t { Request = 0, Response = 1, Indication = 2 };

enum class ControlId : uint16_t {
  GetVersionInfo = 0x21,    // response: 0x01 count, then service (u8), major, minor (u16) of each
  AllocateClientId = 0x22,  // request: 0x01 service; response: 0x01 service, client id
  ReleaseClientId = 0x23,   // request and response: 0x01 service, client id
  Sync = 0x27,              // revokes every client id; as an indication: the modem has restarted
  OpenProxied = 0xFF00,     // to libqmi's proxy: 0x01 the device's path
};

inline constexpr uint8_t kControlTlv = 0x01;
inline constexpr uint8_t kControlResultTlv = 0x02;  // u16 status, u16 error

struct ControlMessage {
  ControlKind kind;
  uint8_t transaction;
  ControlId id;
  std::span<const uint8_t> body;  // TLVs
};

// The control message in a frame's `message`, which is one whole.
ControlMessage read_control(std::span<const uint8_t> message);

// A frame with a control message.
std::vector<uint8_t> make_control_frame(Sender sender, const ControlMessage& message);

// A TLV; the value has at most 65535 bytes.
void append_tlv(std::vector<uint8_t>& body, uint8_t tlv, std::span<const uint8_t> value);

}  // namespace qmi::qmux
